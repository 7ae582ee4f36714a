#include "platform/open_beneath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "base/ascii.h"

namespace ulvek {
namespace {

// Restores errno across close(), so callers see why the open failed.
void closeKeepingErrno(int fd) {
  const int saved = errno;
  ::close(fd);
  errno = saved;
}

}  // namespace

int openBeneathByStep(int rootFd, std::string_view relativePath, int flags) {
  if (relativePath.empty() || relativePath.front() == '/') {
    errno = EXDEV;
    return -1;
  }
  std::vector<std::string_view> steps;
  for (std::string_view step : nonEmptyParts(relativePath, '/')) {
    if (step == ".") continue;
    if (step == "..") {
      errno = EXDEV;
      return -1;
    }
    steps.push_back(step);
  }
  if (steps.empty()) {
    errno = EXDEV;
    return -1;
  }
  int folder = rootFd;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const bool last = i + 1 == steps.size();
    const std::string name(steps[i]);
    const int stepFlags =
        (last ? flags : O_RDONLY | O_DIRECTORY) | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY;
    const int next = ::openat(folder, name.c_str(), stepFlags);
    if (next < 0) {
      int error = errno;
      // O_DIRECTORY answers a link with ENOTDIR; it is refused as a link, as openat2 does.
      struct stat info {};
      if (error == ENOTDIR && ::fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
          S_ISLNK(info.st_mode))
        error = ELOOP;
      if (folder != rootFd) ::close(folder);
      errno = error;
      return -1;
    }
    if (folder != rootFd) ::close(folder);
    folder = next;
  }
  return folder;
}

int openBeneath(const std::string& packageRoot, std::string_view relativePath, int flags) {
  const int root = ::open(packageRoot.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (root < 0) return -1;
  const std::string relative(relativePath);
  open_how how{};
  // openat2 refuses flags that O_PATH ignores.
  how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC | ((flags & O_PATH) ? 0 : O_NOCTTY));
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  int fd = static_cast<int>(::syscall(SYS_openat2, root, relative.c_str(), &how, sizeof how));
  // Container seccomp filters answer EPERM for calls they do not know.
  if (fd < 0 && (errno == ENOSYS || errno == EPERM))
    fd = openBeneathByStep(root, relativePath, flags);
  closeKeepingErrno(root);
  return fd;
}

bool isRegularFileBeneath(const std::string& packageRoot, std::string_view relativePath) {
  const int fd = openBeneath(packageRoot, relativePath, O_PATH);
  if (fd < 0) return false;
  struct stat info {};
  const bool regular = ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
  ::close(fd);
  return regular;
}

Result<FileBytes> readFileBeneath(const std::string& packageRoot, std::string_view relativePath,
                                  std::uint64_t limit) {
  const std::string path = packageRoot + "/" + std::string(relativePath);
  // Found without opening (O_PATH): a FIFO or device in a package is never opened.
  const int found = openBeneath(packageRoot, relativePath, O_PATH);
  if (found < 0) return Error::posix(errno, path);
  struct stat info {};
  int error = 0;
  if (::fstat(found, &info) != 0)
    error = errno;
  else if (S_ISDIR(info.st_mode))
    error = EISDIR;
  else if (!S_ISREG(info.st_mode))
    error = S_ISLNK(info.st_mode) ? ELOOP : EINVAL;
  if (error != 0) {
    ::close(found);
    return Error::posix(error, path);
  }
  // The file found, opened again for reading through its descriptor: no path is resolved anew.
  Result<FileBytes> read = FileBytes::read("/proc/self/fd/" + std::to_string(found), limit);
  ::close(found);
  if (!read) return Error::posix(static_cast<int>(read.error().code), path);
  return read;
}

}  // namespace ulvek
