#include "platform/type_codes.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "fork_test_files.h"
#include "platform/resource_fork.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace testing;

TEST(TypeCodes, QuotedForm) {
  EXPECT_EQ(fileTypeForHFSTypeCode(fourCharCode("PDF ")), u"'PDF '");
  EXPECT_EQ(fileTypeForHFSTypeCode(0x8A4F4F4B), u"'\u00E4OOK'");  // the bytes are Mac Roman
  EXPECT_EQ(HFSTypeCodeFromFileType(u"'\u00E4OOK'"), 0x8A4F4F4Bu);
  EXPECT_EQ(HFSTypeCodeFromFileType(u"'wpd4'"), fourCharCode("wpd4"));
  const TextView malformed[] = {u"TEXT",  u"'TEX'", u"'TEXTT'",    u"\"TEXT\"",
                                u"'TEXT", u"",      u"'\u4E2DEXT'"};  // no Mac Roman byte
  for (TextView row : malformed) EXPECT_EQ(HFSTypeCodeFromFileType(row), 0u) << toUtf8(row);
}

TEST(TypeCodes, TypeOfFileFromFinderInfo) {
  TemporaryFolder folder;
  auto withInfo = [&](const char* name, const std::string& info) {
    std::string path = folder.write(name, "contents");
    EXPECT_TRUE(setAttribute(path, kFinderInfoAttribute, info)) << name;
    return path;
  };
  std::string text = withInfo("text", finderInfo("TEXT"));
  std::string link = (folder.path() / "link").string();
  std::filesystem::create_symlink(text, link);
  std::string directory = (folder.path() / "folder").string();
  std::filesystem::create_directory(directory);
  // A folder's first bytes are its window frame, not a type.
  setAttribute(directory, kFinderInfoAttribute, finderInfo("T"));
  // A file copied from a foreign volume keeps its Finder info in "._name".
  folder.write("._copied", appleDouble({{9, finderInfo("clpt")}}));

  struct Row {
    const char* name;
    std::string path;
    std::optional<TextString> expected;
  };
  // Mac file servers on Linux: Netatalk's AppleDouble header, Samba's AfpInfo stream.
  std::string netatalk = folder.write("netatalk", "x");
  EXPECT_TRUE(
      setAttribute(netatalk, "user.org.netatalk.Metadata", appleDouble({{9, finderInfo("WDBN")}})));
  std::string samba = folder.write("samba", "x");
  EXPECT_TRUE(setAttribute(samba, "user.DosStream.AFP_AfpInfo:$DATA",
                           std::string("AFP\0\0\0\1\0", 8) + std::string(8, '\0') +
                               finderInfo("W8BN") + std::string(12, '\0')));
  std::string badSamba = folder.write("bad-samba", "x");
  EXPECT_TRUE(setAttribute(badSamba, "user.DosStream.AFP_AfpInfo:$DATA", "XYZ\0short"));
  const Row rows[] = {
      {"32-byte Finder info", text, u"'TEXT'"},
      {"Netatalk metadata", netatalk, u"'WDBN'"},
      {"Samba AfpInfo", samba, u"'W8BN'"},
      {"AfpInfo without its magic", badSamba, std::nullopt},
      {"exactly four bytes", withInfo("four", "PDF "), u"'PDF '"},
      {"shorter than four bytes", withInfo("short", "TEX"), std::nullopt},
      {"all-zero type", withInfo("zero", std::string(32, '\0')), std::nullopt},
      {"no attribute", folder.write("plain.txt", "x"), std::nullopt},
      {"symbolic link not followed", link, std::nullopt},
      {"folder", directory, std::nullopt},
      {"AppleDouble companion", folder.write("copied", "x"), u"'clpt'"},
      {"missing", (folder.path() / "missing").string(), std::nullopt},
      {"empty path", "", std::nullopt},
  };
  for (const Row& row : rows) EXPECT_EQ(HFSTypeOfFile(row.path), row.expected) << row.name;
}

}  // namespace
}  // namespace ulvek
