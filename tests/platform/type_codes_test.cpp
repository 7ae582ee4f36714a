#include "platform/type_codes.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/extended_attributes.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::TemporaryFolder;

TEST(TypeCodes, QuotedFormRoundTrips) {
  struct Row {
    std::uint32_t code;
    TextView quoted;
  };
  const Row rows[] = {
      {fourCharCode("TEXT"), u"'TEXT'"},
      {fourCharCode("PDF "), u"'PDF '"},
      {fourCharCode("wpd4"), u"'wpd4'"},
      {0x8A4F4F4B, u"'\u00E4OOK'"},  // Mac Roman 0x8A is a-umlaut
      {0xA9202020, u"'\u00A9   '"},  // copyright sign
  };
  for (const Row& row : rows) {
    EXPECT_EQ(fileTypeForHFSTypeCode(row.code), row.quoted);
    EXPECT_EQ(HFSTypeCodeFromFileType(row.quoted), row.code);
  }
}

TEST(TypeCodes, MalformedQuotedFormsAreZero) {
  const TextView rows[] = {
      u"TEXT",  u"'TEX'", u"'TEXTT'",    u"\"TEXT\"",
      u"'TEXT", u"",      u"'\u4E2DEXT'"};  // a character Mac Roman has no byte for
  for (TextView row : rows) EXPECT_EQ(HFSTypeCodeFromFileType(row), 0u) << toUtf8(row);
}

TEST(TypeCodes, TypeOfFileFromFinderInfo) {
  TemporaryFolder folder;
  auto withInfo = [&](const char* name, std::string info) {
    std::string path = folder.write(name, "contents");
    Data bytes(info.begin(), info.end());
    EXPECT_TRUE(writeMetadataAttribute(path, "com.apple.FinderInfo", bytes, false)) << name;
    return path;
  };
  std::string text = withInfo("text", std::string("TEXTttxt") + std::string(24, '\0'));
  std::string exactlyFour = withInfo("four", "PDF ");
  std::string shortInfo = withInfo("short", "TEX");
  std::string zeroType = withInfo("zero", std::string(32, '\0'));
  std::string plain = folder.write("plain.txt", "x");
  std::string link = (folder.path() / "link").string();
  std::filesystem::create_symlink(text, link);
  std::string directory = (folder.path() / "folder").string();
  std::filesystem::create_directory(directory);
  Data folderInfo(32, 0);
  folderInfo[0] = 'T';  // a folder's first bytes are its window frame, not a type
  writeMetadataAttribute(directory, "com.apple.FinderInfo", folderInfo, false);

  // A file copied from a foreign volume keeps its Finder info in "._name".
  std::string copied = folder.write("copied", "x");
  std::string appleDouble("\x00\x05\x16\x07\x00\x02\x00\x00", 8);
  appleDouble += std::string(16, '\0');
  appleDouble += std::string("\x00\x01", 2);
  appleDouble += std::string("\x00\x00\x00\x09\x00\x00\x00\x26\x00\x00\x00\x20", 12);
  appleDouble += std::string("clptMACS") + std::string(24, '\0');
  folder.write("._copied", appleDouble);

  struct Row {
    const char* name;
    std::string path;
    std::optional<TextString> expected;
  };
  const Row rows[] = {
      {"32-byte Finder info", text, u"'TEXT'"},
      {"exactly four bytes", exactlyFour, u"'PDF '"},
      {"shorter than four bytes", shortInfo, std::nullopt},
      {"all-zero type", zeroType, std::nullopt},
      {"no attribute", plain, std::nullopt},
      {"symbolic link not followed", link, std::nullopt},
      {"folder", directory, std::nullopt},
      {"AppleDouble companion", copied, u"'clpt'"},
      {"missing", (folder.path() / "missing").string(), std::nullopt},
      {"empty path", "", std::nullopt},
  };
  for (const Row& row : rows) EXPECT_EQ(HFSTypeOfFile(row.path), row.expected) << row.name;
}

}  // namespace
}  // namespace ulvek
