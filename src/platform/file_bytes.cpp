#include "platform/file_bytes.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace ulvek {
namespace {

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

bool readFully(int fd, std::uint8_t* into, std::size_t size, std::size_t& got) {
  got = 0;
  while (got < size) {
    ssize_t count = ::read(fd, into + got, size - got);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    if (count == 0) break;  // the file shrank while we read
    got += static_cast<std::size_t>(count);
  }
  return true;
}

}  // namespace

Result<FileBytes> FileBytes::read(const std::string& path, std::uint64_t limit, Caching caching) {
  // The kind is checked before opening: opening a FIFO for reading blocks until a writer comes.
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return Error::posix(errno, path);
  if (S_ISDIR(info.st_mode)) return Error::posix(EISDIR, path);
  if (!S_ISREG(info.st_mode)) return Error::posix(EINVAL, path);
  if (static_cast<std::uint64_t>(info.st_size) > limit) return Error::posix(EFBIG, path);

  // O_NONBLOCK keeps a file swapped for a FIFO between stat and open from blocking us.
  Descriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (fd.get() < 0) return Error::posix(errno, path);
  if (::fstat(fd.get(), &info) != 0) return Error::posix(errno, path);
  if (!S_ISREG(info.st_mode)) return Error::posix(EINVAL, path);
  if (static_cast<std::uint64_t>(info.st_size) > limit) return Error::posix(EFBIG, path);

  FileBytes file;
  auto size = static_cast<std::size_t>(info.st_size);
  if (size == 0) return file;
  if (size >= kMapThreshold) {
    void* mapped = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd.get(), 0);
    if (mapped != MAP_FAILED) {
      ::madvise(mapped, size, MADV_SEQUENTIAL);
      file.data_ = static_cast<const std::uint8_t*>(mapped);
      file.size_ = size;
      file.mapped_ = true;
      return file;
    }
  }
  file.owned_.resize(size);
  std::size_t got = 0;
  if (!readFully(fd.get(), file.owned_.data(), size, got)) return Error::posix(errno, path);
  file.owned_.resize(got);
  file.data_ = file.owned_.data();
  file.size_ = got;
  // Imports read each file once; keeping it cached would only push out the user's own work.
  if (caching == Caching::uncached) ::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_DONTNEED);
  return file;
}

FileBytes FileBytes::copyOf(Bytes bytes) {
  return adopt(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
}

FileBytes FileBytes::adopt(std::vector<std::uint8_t> bytes) {
  FileBytes file;
  file.owned_ = std::move(bytes);
  file.data_ = file.owned_.data();
  file.size_ = file.owned_.size();
  return file;
}

FileBytes::FileBytes(FileBytes&& other) noexcept { *this = std::move(other); }

FileBytes& FileBytes::operator=(FileBytes&& other) noexcept {
  if (this == &other) return *this;
  release();
  mapped_ = std::exchange(other.mapped_, false);
  size_ = std::exchange(other.size_, 0);
  owned_ = std::move(other.owned_);
  data_ = mapped_ ? other.data_ : owned_.data();
  other.data_ = nullptr;
  other.owned_.clear();
  return *this;
}

FileBytes::~FileBytes() { release(); }

void FileBytes::release() {
  if (mapped_) ::munmap(const_cast<std::uint8_t*>(data_), size_);
  mapped_ = false;
  data_ = nullptr;
  size_ = 0;
}

bool isRegularFile(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

}  // namespace ulvek
