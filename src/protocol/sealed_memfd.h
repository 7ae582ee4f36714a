#pragma once

#include <fcntl.h>

#include <cstdint>
#include <span>
#include <string>

#include "base/status.h"

// Bytes handed between the service and its clients as a sealed memory file (memfd), for what
// would not fit in a D-Bus message. The receiver maps the file read-only and trusts only what
// the kernel says of it: the seals keep the sender from changing it while it is read, and the
// size is the file's own.
namespace ulvek {

// The seals a receiver requires: no writes, no shrinking, no growing.
inline constexpr int kRequiredSeals = F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW;

// A descriptor owned by its holder.
class OwnedDescriptor {
 public:
  OwnedDescriptor() = default;
  explicit OwnedDescriptor(int descriptor) : descriptor_(descriptor) {}
  OwnedDescriptor(OwnedDescriptor&& other) noexcept;
  OwnedDescriptor& operator=(OwnedDescriptor&& other) noexcept;
  ~OwnedDescriptor();

  int get() const { return descriptor_; }

 private:
  int descriptor_ = -1;
};

// A new memory file holding `bytes`, sealed against every change (and against new seals).
Result<OwnedDescriptor> makeSealedMemfd(std::span<const std::uint8_t> bytes, const char* name);

// A read-only mapping of a sealed memory file, kept while the object lives.
class SealedBytes {
 public:
  // Maps the descriptor's file (the caller keeps the descriptor). Refuses, with an error whose
  // domain is org.freedesktop.DBus.Error.InvalidArgs, anything but a regular file carrying all of
  // kRequiredSeals: a plain file, a pipe, an unsealed or still writable memfd.
  static Result<SealedBytes> map(int descriptor);

  SealedBytes(SealedBytes&& other) noexcept;
  SealedBytes& operator=(SealedBytes&& other) noexcept;
  ~SealedBytes();

  std::span<const std::uint8_t> bytes() const {
    return {static_cast<const std::uint8_t*>(address_), size_};
  }

 private:
  SealedBytes(void* address, std::size_t size) : address_(address), size_(size) {}

  void* address_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace ulvek
