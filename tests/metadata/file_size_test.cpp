#include "metadata/file_size.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "fork_test_files.h"
#include "platform/resource_fork.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace testing;
namespace fs = std::filesystem;

TEST(FileSize, CountsDataAndForks) {
  TemporaryFolder folder;
  std::string withFork = folder.write("top/a.bin", std::string(100, 'd'));
  ASSERT_TRUE(setAttribute(withFork, kResourceForkAttribute, std::string(50, 'r')));
  fs::create_directory(folder.path() / "top" / "empty");
  std::string doubled = folder.write("double/b.bin", std::string(100, 'd'));
  folder.write("double/._b.bin", appleDouble({{2, std::string(50, 'r')}}));
  folder.write("orphan/._gone", "1234567");
  // Forks as Mac file servers keep them, each counted with its file alone and in its folder.
  std::string netatalk = folder.write("servers/netatalk", std::string(10, 'd'));
  ASSERT_TRUE(setAttribute(netatalk, "user.org.netatalk.ResourceFork", std::string(20, 'r')));
  std::string samba = folder.write("servers/samba", std::string(10, 'd'));
  ASSERT_TRUE(setAttribute(samba, "user.DosStream.AFP_Resource:$DATA", std::string(40, 'r')));
  // A companion larger than any fork read into memory: measured, not read.
  std::string huge = folder.write("huge/h.bin", "d");
  std::string companion = folder.write("huge/._h.bin", appleDouble({{2, ""}}));
  constexpr std::uint64_t kHugeFork = 200ull << 20;
  {
    std::string header = appleDouble({{2, ""}});
    putBigEndian(header, 26 + 8, kHugeFork, 4);
    folder.write("huge/._h.bin", header);
    fs::resize_file(companion, header.size() + kHugeFork);  // sparse
  }
  folder.write("nested/1", "x");
  folder.write("nested/a/b/3", std::string(300, 'x'));
  for (int i = 0; i < 200; ++i) folder.write("many/file" + std::to_string(i), "ab");
  fs::create_symlink(withFork, folder.path() / "link.bin");
  // Links inside a folder are not followed: each counts as the length of the path it holds.
  std::string big = folder.write("links/outside/big", std::string(10000, 'x'));
  fs::create_symlink(big, folder.path() / "links" / "file-link");
  fs::create_directory_symlink(folder.path() / "links/outside", folder.path() / "links/dir-link");

  const std::pair<std::string, std::uint64_t> rows[] = {
      {withFork, 150},
      {"top", 150},  // the file and an empty subfolder
      {doubled, 150},
      {"double", 150},  // the AppleDouble fork counts once
      {"orphan", 7},    // a companion without its file is an ordinary file
      {netatalk, 30},
      {samba, 50},
      {"servers", 80},
      {huge, 1 + kHugeFork},
      {"huge", 1 + kHugeFork},
      {"nested", 301},
      {"many", 400},
      {"link.bin", 150},  // a link given directly is followed
      {"top/./../top/a.bin", 150},
      {"links", 10000 + big.size() + (folder.path() / "links/outside").string().size()},
      {"missing", 0},
      {"", 0},
  };
  for (const auto& [name, expected] : rows) {
    std::string path = name.empty() || name[0] == '/' ? name : (folder.path() / name).string();
    EXPECT_EQ(fileSizeAtPath(path), expected) << name;
  }
}

TEST(FileSize, DescentStopsAtDepthOneHundred) {
  TemporaryFolder folder;
  // Folder i holds a one-byte file and folder i+1; the top folder is depth 0.
  std::string level = "top";
  for (int depth = 0; depth <= 104; ++depth, level += "/d") folder.write(level + "/f", "x");
  // Folders 0 to 99 are read; the folders inside folder 99 are not entered.
  EXPECT_EQ(fileSizeAtPath((folder.path() / "top").string()), 100u);
}

TEST(FileSize, FoldersStopAtTheirBounds) {
  TemporaryFolder folder;
  for (int i = 0; i < 10; ++i) folder.write("ten/f" + std::to_string(i), "abc");
  std::string ten = (folder.path() / "ten").string();
  const struct {
    std::string path;
    std::uint64_t maxEntries;
    std::uint64_t expected;
  } rows[] = {
      {ten, kMaxFolderEntries, 30},
      {ten, 4, 12},  // the first four entries only
      {ten, 0, 0},
      // The kernel's file systems and the devices are never summed.
      {"/proc", kMaxFolderEntries, 0},
      {"/proc/self", kMaxFolderEntries, 0},
      {"/sys", kMaxFolderEntries, 0},
      {"/dev", kMaxFolderEntries, 0},
  };
  for (const auto& row : rows)
    EXPECT_EQ(fileSizeAtPath(row.path, row.maxEntries), row.expected) << row.path;
}

TEST(ResourceValues, BooleanProperties) {
  TemporaryFolder folder;
  fs::create_directories(folder.path() / "Some.app" / "Contents");
  fs::create_directory_symlink(folder.path() / "Some.app", folder.path() / "link.app");
  struct Row {
    std::string_view key;
    std::string name;
    bool expected;
    int errorNumber = 0;
  };
  const Row rows[] = {
      {ResourceKey::IsPackage, "Some.app", true},
      {ResourceKey::IsPackage, "link.app", false},  // the link itself is asked
      {ResourceKey::IsPackage, "missing", false, ENOENT},
      {"NSURLNoSuchKey", "Some.app", false},
  };
  for (const Row& row : rows) {
    std::string path = (folder.path() / row.name).string();
    EXPECT_EQ(getBoolValueForKey(row.key, path), row.expected) << row.name;
    Result<std::optional<PropertyValue>> value = getResourceValueForKey(row.key, path);
    EXPECT_EQ(value.ok() ? 0 : value.error().code, row.errorNumber) << row.name;
  }
  EXPECT_FALSE(getBoolValueForKey(ResourceKey::IsPackage, ""));
  EXPECT_TRUE(getResourceValueForKey(ResourceKey::IsPackage, "").ok());
}

}  // namespace
}  // namespace ulvek
