#include "importers/worker_protocol.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "base/property_list.h"

namespace ulvek::worker {
namespace {

bool writeAll(int fd, const std::uint8_t* bytes, std::size_t size) {
  while (size > 0) {
    ssize_t written = ::write(fd, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

Error failure(int code, std::string_view what) {
  Error error = Error::posix(code, "importer worker");
  error.localizedDescription = std::string(what);
  return error;
}

// Reads exactly `size` bytes before the deadline.
Status readAll(int fd, std::uint8_t* into, std::size_t size,
               std::optional<std::chrono::steady_clock::time_point> deadline, int gone) {
  while (size > 0) {
    int wait = -1;
    if (deadline) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          *deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return failure(ETIMEDOUT, "timeout");
      wait = static_cast<int>(std::min<long long>(left.count(), 1 << 30));
    }
    pollfd ready[2] = {{fd, POLLIN, 0}, {gone, POLLIN, 0}};
    int polled = ::poll(ready, gone >= 0 ? 2 : 1, wait);
    if (polled < 0 && errno == EINTR) continue;
    if (polled == 0) return failure(ETIMEDOUT, "timeout");
    if (!(ready[0].revents & (POLLIN | POLLHUP | POLLERR))) return failure(EPIPE, "closed");
    ssize_t got = ::read(fd, into, size);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return failure(EPIPE, "closed");
    into += got;
    size -= static_cast<std::size_t>(got);
  }
  return {};
}

}  // namespace

bool writeMessage(int fd, const PropertyDictionary& message) {
  std::optional<Data> bytes = binaryPropertyList(PropertyValue(message));
  if (!bytes || bytes->size() > kMaxMessageSize) return false;
  auto size = static_cast<std::uint32_t>(bytes->size());
  const std::uint8_t header[4] = {std::uint8_t(size), std::uint8_t(size >> 8),
                                  std::uint8_t(size >> 16), std::uint8_t(size >> 24)};
  return writeAll(fd, header, sizeof header) && writeAll(fd, bytes->data(), bytes->size());
}

Result<PropertyDictionary> readMessage(
    int fd, std::optional<std::chrono::steady_clock::time_point> deadline, int gone) {
  std::uint8_t header[4];
  if (Status read = readAll(fd, header, sizeof header, deadline, gone); !read) return read.error();
  std::uint32_t size =
      header[0] | (header[1] << 8) | (header[2] << 16) | (std::uint32_t(header[3]) << 24);
  if (size == 0 || size > kMaxMessageSize) return failure(EBADMSG, "garbage");
  std::vector<std::uint8_t> bytes(size);
  if (Status read = readAll(fd, bytes.data(), size, deadline, gone); !read) return read.error();
  std::optional<PropertyValue> value = propertyListFromBytes(bytes);
  if (!value || !value->dictionary()) return failure(EBADMSG, "garbage");
  return std::move(*value->dictionary());
}

std::optional<TextString> stringField(const PropertyDictionary& message, std::string_view key) {
  const PropertyValue* value = find(message, key);
  if (!value || !value->string()) return std::nullopt;
  return *value->string();
}

}  // namespace ulvek::worker
