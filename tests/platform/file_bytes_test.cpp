#include "platform/file_bytes.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "test_support.h"

namespace ulvek {
namespace {

using testing::TemporaryFolder;

TEST(FileBytes, ReadsRegularFilesOnly) {
  TemporaryFolder folder;
  const std::string small = folder.write("small.txt", "hello");
  const std::string large(FileBytes::kMapThreshold + 3, 'x');
  const std::string big = folder.write("big.bin", large);
  const std::string empty = folder.write("empty", "");
  const std::string fifo = (folder.path() / "pipe").string();
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::filesystem::create_symlink("small.txt", folder.path() / "link");
  std::filesystem::create_directory(folder.path() / "dir");

  struct Row {
    std::string name;
    std::string path;
    std::uint64_t limit;
    int error;  // 0: read
    std::size_t size;
    bool mapped;
  };
  const Row rows[] = {
      {"small file", small, FileBytes::kNoLimit, 0, 5, false},
      {"large file is mapped", big, FileBytes::kNoLimit, 0, large.size(), true},
      {"empty file", empty, FileBytes::kNoLimit, 0, 0, false},
      {"link is followed", (folder.path() / "link").string(), FileBytes::kNoLimit, 0, 5, false},
      {"at the limit", small, 5, 0, 5, false},
      {"over the limit", small, 4, EFBIG, 0, false},
      {"FIFO is never opened", fifo, FileBytes::kNoLimit, EINVAL, 0, false},
      {"folder", (folder.path() / "dir").string(), FileBytes::kNoLimit, EISDIR, 0, false},
      {"device", "/dev/zero", FileBytes::kNoLimit, EINVAL, 0, false},
      {"missing", (folder.path() / "gone").string(), FileBytes::kNoLimit, ENOENT, 0, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Result<FileBytes> read = FileBytes::read(row.path, row.limit);
    if (row.error) {
      ASSERT_FALSE(read.ok());
      EXPECT_EQ(read.error().code, row.error);
      EXPECT_EQ(read.error().info(kFilePathErrorKey), row.path);
      continue;
    }
    ASSERT_TRUE(read.ok()) << read.error().localizedDescription;
    EXPECT_EQ(read->size(), row.size);
    EXPECT_EQ(read->isMapped(), row.mapped);
  }
  Result<FileBytes> mapped = FileBytes::read(big);
  ASSERT_TRUE(mapped.ok());
  EXPECT_EQ(mapped->chars(), large);
}

TEST(FileBytes, OwnedBytesSurviveMoves) {
  FileBytes copy = FileBytes::copyOf(Bytes(reinterpret_cast<const std::uint8_t*>("abc"), 3));
  FileBytes moved = std::move(copy);
  EXPECT_EQ(moved.chars(), "abc");
  TemporaryFolder folder;
  std::string path = folder.write("big", std::string(FileBytes::kMapThreshold, 'm'));
  FileBytes target = FileBytes::adopt({1, 2});
  target = std::move(FileBytes::read(path).value());
  EXPECT_TRUE(target.isMapped());
  EXPECT_EQ(target.chars().back(), 'm');
}

}  // namespace
}  // namespace ulvek
