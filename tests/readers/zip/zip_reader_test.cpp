#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "base/failure.h"
#include "platform/temporary_items.h"
#include "readers/zip/zip_archive.h"
#include "test_support.h"
#include "zip_test_files.h"

namespace ulvek {
namespace {

using testing::CapturedLog;
using testing::TemporaryFolder;
using testing::ZipEntry;
namespace fs = std::filesystem;

std::string text(const std::optional<Data>& data) {
  return data ? std::string(data->begin(), data->end()) : "(nothing)";
}

TEST(ZipArchive, FindsMembersByExactNameElseWithoutRegardToASCIICase) {
  TemporaryFolder folder;
  std::string path = folder.path() / "a.zip";
  ASSERT_TRUE(testing::writeZip(path, {{"META-INF/container.xml", "<container/>"},
                                       {"empty", ""},
                                       {"First.txt", "first"},
                                       {"FIRST.TXT", "second"},
                                       {"\xC3\x84.txt", "umlaut", false, true},
                                       {std::string(256, 'n'), "long"},
                                       {std::string(255, 'm'), "longest"}}));
  auto archive = ZipArchive::initWithZipFile(path);
  ASSERT_TRUE(archive);
  struct Row {
    std::string wanted;
    std::string expected;
  };
  const Row rows[] = {
      {"META-INF/Container.XML", "<container/>"},
      {"empty", ""},
      {"first.txt", "first"},   // the first match in the central directory wins
      {"FIRST.TXT", "second"},  // unless a member has the exact name
      {"\xC3\x84.txt", "umlaut"},
      {"\xC3\xA4.txt", "(nothing)"},  // only ASCII letters fold
      {std::string(256, 'n'), "(nothing)"},
      {std::string(255, 'M'), "longest"},
      {"missing", "(nothing)"},
  };
  for (const Row& row : rows) {
    CapturedLog log;
    EXPECT_EQ(text(archive->dataForNamedFile(row.wanted)), row.expected) << row.wanted;
    if (row.expected == "(nothing)") {
      EXPECT_EQ(log.lines(),
                std::vector<std::string>{"Unable to locate " + row.wanted + " in " + path});
    }
  }
  EXPECT_EQ(archive->members().size(), 7u);
  EXPECT_FALSE(archive->openZipFile(path));
  EXPECT_TRUE(archive->closeZipFile());
  EXPECT_FALSE(archive->closeZipFile());
  EXPECT_TRUE(archive->openZipFile(path));
  EXPECT_TRUE(archive->testForNamedFile("empty"));
}

TEST(ZipArchive, RefusesWhatIsNoArchive) {
  TemporaryFolder folder;
  const std::pair<std::string, std::string> rows[] = {
      {"empty.zip", ""}, {"text.zip", "not a zip"}, {"header.zip", "PK\x03\x04truncated"}};
  for (const auto& [name, bytes] : rows) {
    EXPECT_FALSE(ZipArchive::initWithZipFile(folder.write(name, bytes))) << name;
  }
  EXPECT_FALSE(ZipArchive::initWithZipFile((folder.path() / "missing.zip").string()));
  EXPECT_FALSE(ZipArchive::initWithZipFile(folder.path().string()));
}

TEST(ZipArchive, MembersThatInflateTooFarAreNotRead) {
  TemporaryFolder folder;
  std::string path = folder.path() / "bomb.zip";
  ASSERT_TRUE(testing::writeZip(path, {{"zeros", std::string(3 << 20, '\0')}, {"ok", "fine"}}));
  auto archive = ZipArchive::initWithZipFile(path);
  ASSERT_TRUE(archive);
  CapturedLog log;
  FailureScope failures;
  EXPECT_EQ(text(archive->dataForNamedFile("zeros")), "(nothing)");
  EXPECT_TRUE(log.contains("Skipped: zeros in "));
  ASSERT_TRUE(failures.failure());
  EXPECT_EQ(failures.failure()->kind, FailureKind::TooLarge);
  EXPECT_EQ(text(archive->dataForNamedFile("zeros", {8 << 20, ~0ull})), std::string(3 << 20, '\0'));
  EXPECT_EQ(text(archive->dataForNamedFile("ok", {2})), "(nothing)");
}

TEST(ZipArchive, ReadsArchivesInMemory) {
  TemporaryFolder folder;
  std::string path = folder.path() / "m.zip";
  ASSERT_TRUE(testing::writeZip(path, {{"word/document.xml", "<w/>"}}));
  std::string bytes = testing::readFile(path);
  auto archive = ZipArchive::initWithData(
      Bytes(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), "data");
  ASSERT_TRUE(archive);
  EXPECT_EQ(text(archive->dataForNamedFile("word/document.xml")), "<w/>");
}

TEST(ZipArchive, MemberNames) {
  const std::pair<std::string_view, bool> rows[] = {
      {"a/b.txt", true}, {"a/../b", false},      {"..", false},
      {"../x", false},   {"/etc/passwd", false}, {"a\\..\\b", false},
      {"C:x", false},    {"a..b/c..", true},     {"", false},
  };
  for (const auto& [name, safe] : rows) EXPECT_EQ(isSafeMemberName(name), safe) << name;
}

TEST(ZipArchive, UnpacksSafelyOrNotAtAll) {
  struct Row {
    std::string name;
    std::vector<ZipEntry> entries;
    bool unpacks;
    FailureKind refused = FailureKind::Damaged;  // what the refusal reports
  };
  const Row rows[] = {
      {"ordinary", {{"text.md", "# T"}, {"assets/", ""}, {"assets/a.png", "png"}}, true},
      {"climbs out", {{"ok.txt", "x"}, {"../../escape.txt", "x"}}, false},
      {"absolute", {{"/tmp/ulvekbot-absolute-test", "x"}}, false},
      {"link", {{"link", "/etc/passwd", true}}, false},
      {"bomb", {{"zeros", std::string(4 << 20, '\0')}}, false, FailureKind::TooLarge},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    TemporaryFolder folder;
    std::string path = folder.path() / "a.zip";
    ASSERT_TRUE(testing::writeZip(path, row.entries));
    auto archive = ZipArchive::initWithZipFile(path);
    ASSERT_TRUE(archive);
    fs::create_directory(folder.path() / "out");
    CapturedLog log;
    FailureScope failures;
    Status unpacked = unpackZipArchive(*archive, (folder.path() / "out").string());
    EXPECT_EQ(unpacked.ok(), row.unpacks);
    if (!row.unpacks) {
      EXPECT_TRUE(fs::is_empty(folder.path() / "out"));
      EXPECT_TRUE(log.contains("Unsafe archive: " + path));
      ASSERT_TRUE(failures.failure());
      EXPECT_EQ(failures.failure()->kind, row.refused);
    }
  }
  EXPECT_FALSE(fs::exists("/tmp/ulvekbot-absolute-test"));
  TemporaryFolder folder;
  std::string path = folder.path() / "a.zip";
  ASSERT_TRUE(testing::writeZip(path, rows[0].entries));
  auto archive = ZipArchive::initWithZipFile(path);
  fs::create_directory(folder.path() / "out");
  ASSERT_TRUE(unpackZipArchive(*archive, (folder.path() / "out").string()).ok());
  EXPECT_EQ(testing::readFile(folder.path() / "out/assets/a.png"), "png");
}

// Archives written twice over (a member added again under the same name) still unpack: the
// first member stays, the later one is logged.
TEST(ZipArchive, UnpacksTheFirstOfMembersWithTheSameName) {
  TemporaryFolder folder;
  std::string path = folder.path() / "a.zip";
  ASSERT_TRUE(testing::writeZip(path, {{"mimetype", "one"}, {"mimetype", "two"}, {"b", "b"}}));
  auto archive = ZipArchive::initWithZipFile(path);
  ASSERT_TRUE(archive);
  fs::create_directory(folder.path() / "out");
  CapturedLog log;
  ASSERT_TRUE(unpackZipArchive(*archive, (folder.path() / "out").string()).ok());
  EXPECT_EQ(testing::readFile(folder.path() / "out/mimetype"), "one");
  std::optional<Data> looked = archive->dataForNamedFile("mimetype");
  ASSERT_TRUE(looked);
  EXPECT_EQ(std::string(looked->begin(), looked->end()), "one");
  EXPECT_EQ(testing::readFile(folder.path() / "out/b"), "b");
  EXPECT_TRUE(log.contains("Duplicate archive member: " + path + " (mimetype)"));
}

// Case variants of a large member's name once each found the large member and inflated it
// again: a 1.26 MB text pack wrote 4.1 GB. Each name finds its own member, a second name that
// differs only in case is skipped, and every byte written counts against the budget.
TEST(ZipArchive, CaseVariantsOfALargeMemberAreNotUnpackedAgain) {
  TemporaryFolder folder;
  std::string path = folder.path() / "variants.zip";
  const std::string large(8u * 1024 * 1024, '\0');
  // Incompressible padding lifts the archive's budget (200 times its size) above the member.
  std::string padding(64 * 1024, '\0');
  std::uint32_t state = 1;
  for (char& c : padding) c = static_cast<char>((state = state * 1103515245 + 12345) >> 24);
  std::vector<ZipEntry> entries = {{"abcde.bin", large}, {"padding", padding, false, true}};
  const std::vector<std::string> variants = {"ABCDE.bin", "abCde.bin", "aBcDe.bin", "ABCDE.BIN",
                                             "Abcde.bin", "abcdE.bin", "abcDE.bin", "aBCDE.bin"};
  for (const std::string& name : variants) entries.push_back({name, ""});
  ASSERT_TRUE(testing::writeZip(path, entries));
  auto archive = ZipArchive::initWithZipFile(path);
  ASSERT_TRUE(archive);
  for (const std::string& name : variants)
    EXPECT_EQ(text(archive->dataForNamedFile(name)), "") << name;

  fs::create_directory(folder.path() / "out");
  CapturedLog log;
  ASSERT_TRUE(unpackZipArchive(*archive, (folder.path() / "out").string()).ok());
  std::uintmax_t written = 0;
  for (const auto& entry : fs::recursive_directory_iterator(folder.path() / "out"))
    if (entry.is_regular_file()) written += entry.file_size();
  EXPECT_EQ(written, large.size() + padding.size());
  for (const std::string& name : variants)
    EXPECT_TRUE(log.contains("Duplicate archive member: " + path + " (" + name + ")")) << name;
}

TEST(TemporaryDirectory, LivesBelowTheCacheAndIsRemoved) {
  TemporaryFolder cache;
  setenv("XDG_CACHE_HOME", cache.path().c_str(), 1);
  std::string made;
  {
    Result<TemporaryDirectory> directory = TemporaryDirectory::create("test");
    ASSERT_TRUE(directory.ok());
    made = directory->path();
    std::string own = temporaryItemsFolder().take().value_or("");
    EXPECT_TRUE(own.starts_with(cache.path().string() + "/TemporaryItems/ulvekbot/")) << own;
    EXPECT_TRUE(made.starts_with(own + "/test.")) << made;
    std::filesystem::create_directory_symlink("/etc", made + "/link");
    std::ofstream(made + "/file") << "x";
  }
  EXPECT_FALSE(fs::exists(made));
  EXPECT_TRUE(fs::exists("/etc/hostname") || fs::exists("/etc/passwd"));
  unsetenv("XDG_CACHE_HOME");
}

}  // namespace
}  // namespace ulvek
