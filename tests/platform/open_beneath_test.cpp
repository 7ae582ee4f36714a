// Members of packages are opened only inside the package, with no symbolic link on the way.

#include "platform/open_beneath.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/file_bytes.h"
#include "test_support.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;
using testing::TemporaryFolder;

// Opens with the system call where the kernel has it, or the step-by-step way; the contents
// read, or the errno of the refusal.
struct Opened {
  std::string contents;
  int error = 0;
};

Opened openedWith(bool byStep, const std::string& root, const std::string& relative) {
  int fd = -1;
  if (byStep) {
    const int rootFd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    fd = openBeneathByStep(rootFd, relative, O_RDONLY);
    const int saved = errno;
    ::close(rootFd);
    errno = saved;
  } else {
    fd = openBeneath(root, relative, O_RDONLY);
  }
  if (fd < 0) return {"", errno};
  char buffer[64] = {};
  const ssize_t got = ::read(fd, buffer, sizeof buffer);
  ::close(fd);
  return {std::string(buffer, got > 0 ? static_cast<std::size_t>(got) : 0), 0};
}

TEST(OpenBeneath, OpensOnlyWhatLiesInsideWithoutLinks) {
  TemporaryFolder folder;
  const std::string package = (folder.path() / "a.package").string();
  folder.write("a.package/top.txt", "top");
  folder.write("a.package/sub/inner.txt", "inner");
  const std::string secret = folder.write("outside/secret.txt", "secret");
  fs::create_symlink(secret, fs::path(package) / "out.txt");
  fs::create_symlink("top.txt", fs::path(package) / "in.txt");
  fs::create_directory_symlink(folder.path() / "outside", fs::path(package) / "etc");
  fs::create_directory_symlink("sub", fs::path(package) / "alias");
  struct Row {
    std::string relative;
    std::string contents;
    int error;
  };
  const Row rows[] = {
      {"top.txt", "top", 0},
      {"sub/inner.txt", "inner", 0},
      {"./sub//inner.txt", "inner", 0},
      {"out.txt", "", ELOOP},
      {"in.txt", "", ELOOP},
      {"etc/secret.txt", "", ELOOP},
      {"alias/inner.txt", "", ELOOP},
      {"../outside/secret.txt", "", EXDEV},
      {"sub/../../outside/secret.txt", "", EXDEV},
      {secret, "", EXDEV},
      {"missing.txt", "", ENOENT},
  };
  for (bool byStep : {false, true}) {
    for (const Row& row : rows) {
      const Opened opened = openedWith(byStep, package, row.relative);
      EXPECT_EQ(opened.contents, row.contents) << row.relative << (byStep ? " by step" : "");
      EXPECT_EQ(opened.error, row.error) << row.relative << (byStep ? " by step" : "");
    }
  }
  EXPECT_TRUE(isRegularFileBeneath(package, "sub/inner.txt"));
  EXPECT_FALSE(isRegularFileBeneath(package, "sub"));
  EXPECT_FALSE(isRegularFileBeneath(package, "out.txt"));
  EXPECT_FALSE(isRegularFileBeneath(package, "etc/secret.txt"));
}

TEST(OpenBeneath, PackageMembersAreReadAsFilesAre) {
  TemporaryFolder folder;
  const std::string package = (folder.path() / "p").string();
  folder.write("p/text.md", "words");
  folder.write("p/sub/x", "x");
  folder.write("p/large", std::string(FileBytes::kMapThreshold, 'x'));
  ASSERT_EQ(::mkfifo((folder.path() / "p/fifo").c_str(), 0600), 0);
  fs::create_symlink("/etc/passwd", fs::path(package) / "passwd");
  struct Row {
    std::string relative;
    std::size_t size;
    int error;
  };
  const Row rows[] = {
      {"text.md", 5, 0},    {"large", FileBytes::kMapThreshold, 0},
      {"fifo", 0, EINVAL},  // refused without waiting for a writer
      {"passwd", 0, ELOOP}, {".", 0, EISDIR},
  };
  for (const Row& row : rows) {
    Result<FileBytes> read = readFileBeneath(package, row.relative);
    EXPECT_EQ(read.ok() ? read->size() : 0, row.size) << row.relative;
    EXPECT_EQ(read.ok() ? 0 : read.error().code, row.error) << row.relative;
  }
  EXPECT_EQ(readFileBeneath(package, "large", 10).error().code, EFBIG);
}

}  // namespace
}  // namespace ulvek
