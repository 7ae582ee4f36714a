#include "protocol/sealed_memfd.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace ulvek {
namespace {

// Refusals carry the D-Bus error name that the service answers them with.
constexpr const char* kInvalidArgsDomain = "org.freedesktop.DBus.Error.InvalidArgs";

Error invalidDescriptor(std::string message) {
  Error error;
  error.domain = kInvalidArgsDomain;
  error.code = EINVAL;
  error.localizedDescription = std::move(message);
  return error;
}

Error systemError(const char* what) {
  int number = errno;
  Error error = Error::posix(number, "");
  error.localizedDescription = std::string(what) + ": " + std::strerror(number);
  return error;
}

}  // namespace

OwnedDescriptor::OwnedDescriptor(OwnedDescriptor&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)) {}

OwnedDescriptor& OwnedDescriptor::operator=(OwnedDescriptor&& other) noexcept {
  if (this != &other) {
    if (descriptor_ >= 0) ::close(descriptor_);
    descriptor_ = std::exchange(other.descriptor_, -1);
  }
  return *this;
}

OwnedDescriptor::~OwnedDescriptor() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

Result<OwnedDescriptor> makeSealedMemfd(std::span<const std::uint8_t> bytes, const char* name) {
  OwnedDescriptor file(::memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (file.get() < 0) return systemError("memfd_create");
  if (::ftruncate(file.get(), static_cast<off_t>(bytes.size())) != 0)
    return systemError("ftruncate");
  std::size_t written = 0;
  while (written < bytes.size()) {
    ssize_t n = ::pwrite(file.get(), bytes.data() + written, bytes.size() - written,
                         static_cast<off_t>(written));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return systemError("write");
    written += static_cast<std::size_t>(n);
  }
  if (::fcntl(file.get(), F_ADD_SEALS, kRequiredSeals | F_SEAL_SEAL) != 0)
    return systemError("F_ADD_SEALS");
  return file;
}

Result<SealedBytes> SealedBytes::map(int descriptor) {
  struct stat info {};
  if (::fstat(descriptor, &info) != 0) return systemError("fstat");
  if (!S_ISREG(info.st_mode))
    return invalidDescriptor("The descriptor is not a memory file (a sealed memfd is expected)");
  int seals = ::fcntl(descriptor, F_GET_SEALS);
  if (seals < 0)
    return invalidDescriptor("The descriptor is not a memory file (a sealed memfd is expected)");
  if ((seals & kRequiredSeals) != kRequiredSeals) {
    return invalidDescriptor(
        "The memory file is not sealed against change (F_SEAL_WRITE, F_SEAL_SHRINK and "
        "F_SEAL_GROW are required)");
  }
  // Sealed against shrinking and growing: the size cannot change after this.
  if (::fstat(descriptor, &info) != 0) return systemError("fstat");
  std::size_t size = static_cast<std::size_t>(info.st_size);
  if (size == 0) return SealedBytes(nullptr, 0);
  void* address = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
  if (address == MAP_FAILED) return systemError("mmap");
  return SealedBytes(address, size);
}

SealedBytes::SealedBytes(SealedBytes&& other) noexcept
    : address_(std::exchange(other.address_, nullptr)), size_(std::exchange(other.size_, 0)) {}

SealedBytes& SealedBytes::operator=(SealedBytes&& other) noexcept {
  if (this != &other) {
    if (address_) ::munmap(address_, size_);
    address_ = std::exchange(other.address_, nullptr);
    size_ = std::exchange(other.size_, 0);
  }
  return *this;
}

SealedBytes::~SealedBytes() {
  if (address_) ::munmap(address_, size_);
}

}  // namespace ulvek
