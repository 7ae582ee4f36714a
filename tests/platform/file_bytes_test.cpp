#include "platform/file_bytes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <optional>
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

// Whether the first page of `path` is in the page cache; nothing where that cannot be told.
std::optional<bool> firstPageCached(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  void* mapped = ::mmap(nullptr, 1, PROT_READ, MAP_SHARED, fd, 0);
  ::close(fd);
  if (mapped == MAP_FAILED) return std::nullopt;
  unsigned char resident = 0;
  const bool told = ::mincore(mapped, 1, &resident) == 0;
  ::munmap(mapped, 1);
  if (!told) return std::nullopt;
  return (resident & 1) != 0;
}

TEST(FileBytes, DocumentsAreNotKeptInThePageCacheTheServicesOwnFilesAre) {
  TemporaryFolder folder;
  struct statfs where {};
  ASSERT_EQ(::statfs(folder.path().c_str(), &where), 0);
  // In memory, a file's pages are the file.
  if (where.f_type == TMPFS_MAGIC) GTEST_SKIP() << "temporary folder on tmpfs";
  struct Row {
    FileBytes::Caching caching;
    bool cachedAfter;
  };
  for (const Row& row :
       {Row{FileBytes::Caching::uncached, false}, Row{FileBytes::Caching::cached, true}}) {
    SCOPED_TRACE(row.cachedAfter ? "cached" : "uncached");
    const std::string path = folder.write("page.txt", std::string(100, 'p'));
    // Written pages are dirty, and only clean ones can be dropped.
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::fsync(fd), 0);
    ::close(fd);
    ASSERT_TRUE(FileBytes::read(path, FileBytes::kNoLimit, row.caching).ok());
    EXPECT_EQ(firstPageCached(path), row.cachedAfter);
  }
}

}  // namespace
}  // namespace ulvek
