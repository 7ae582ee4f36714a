#include "platform/extended_attributes.h"

#include <sys/xattr.h>

#include <cerrno>

namespace ulvek {
namespace {

// A path or name with a NUL byte would silently reach the system truncated: refuse it instead.
bool hasNul(std::string_view text) { return text.find('\0') != std::string_view::npos; }

template <class T>
std::optional<T> fail(int* errorNumber, int number) {
  if (errorNumber) *errorNumber = number;
  return std::nullopt;
}

bool refuse(int* errorNumber, int number) {
  if (errorNumber) *errorNumber = number;
  return false;
}

void succeed(int* errorNumber) {
  if (errorNumber) *errorNumber = 0;
}

std::string linuxName(std::string_view key) {
  std::string name(kUserAttributePrefix);
  name += key;
  return name;
}

ssize_t listNames(const std::string& path, char* buffer, size_t size, bool followLinks) {
  return followLinks ? ::listxattr(path.c_str(), buffer, size)
                     : ::llistxattr(path.c_str(), buffer, size);
}

ssize_t getValue(const std::string& path, const std::string& name, void* buffer, size_t size,
                 bool followLinks) {
  return followLinks ? ::getxattr(path.c_str(), name.c_str(), buffer, size)
                     : ::lgetxattr(path.c_str(), name.c_str(), buffer, size);
}

}  // namespace

std::optional<std::vector<std::string>> listMetadataKeys(const std::string& path, bool followLinks,
                                                         int* errorNumber) {
  if (hasNul(path)) return fail<std::vector<std::string>>(errorNumber, EINVAL);
  ssize_t size = listNames(path, nullptr, 0, followLinks);
  if (size < 0) return fail<std::vector<std::string>>(errorNumber, errno);
  std::vector<std::string> keys;
  if (size == 0) {
    succeed(errorNumber);
    return keys;
  }
  std::string buffer(static_cast<size_t>(size), '\0');
  size = listNames(path, buffer.data(), buffer.size(), followLinks);
  if (size < 0) return fail<std::vector<std::string>>(errorNumber, errno);
  buffer.resize(static_cast<size_t>(size));

  std::string_view rest(buffer);
  while (!rest.empty()) {
    size_t end = rest.find('\0');
    std::string_view name = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    // Other namespaces (security., system., trusted.) belong to the system, not to metadata.
    if (name.size() > kUserAttributePrefix.size() && name.starts_with(kUserAttributePrefix))
      keys.emplace_back(name.substr(kUserAttributePrefix.size()));
  }
  succeed(errorNumber);
  return keys;
}

std::optional<Data> readExtendedAttribute(const std::string& path, const std::string& name,
                                          bool followLinks, int* errorNumber) {
  if (hasNul(path) || hasNul(name)) return fail<Data>(errorNumber, EINVAL);
  ssize_t size = getValue(path, name, nullptr, 0, followLinks);
  if (size < 0) return fail<Data>(errorNumber, errno);
  Data bytes(static_cast<size_t>(size));
  if (size > 0) {
    size = getValue(path, name, bytes.data(), bytes.size(), followLinks);
    if (size < 0) return fail<Data>(errorNumber, errno);
    bytes.resize(static_cast<size_t>(size));
  }
  succeed(errorNumber);
  return bytes;
}

std::optional<Data> readMetadataAttribute(const std::string& path, std::string_view key,
                                          bool followLinks, int* errorNumber) {
  return readExtendedAttribute(path, linuxName(key), followLinks, errorNumber);
}

bool writeMetadataAttribute(const std::string& path, std::string_view key,
                            std::span<const std::uint8_t> bytes, bool followLinks,
                            int* errorNumber) {
  return writeExtendedAttribute(path, linuxName(key), bytes, followLinks, errorNumber);
}

bool removeMetadataAttribute(const std::string& path, std::string_view key, bool followLinks,
                             int* errorNumber) {
  return removeExtendedAttribute(path, linuxName(key), followLinks, errorNumber);
}

bool writeExtendedAttribute(const std::string& path, const std::string& name,
                            std::span<const std::uint8_t> bytes, bool followLinks,
                            int* errorNumber) {
  if (hasNul(path) || hasNul(name)) return refuse(errorNumber, EINVAL);
  int status = followLinks ? ::setxattr(path.c_str(), name.c_str(), bytes.data(), bytes.size(), 0)
                           : ::lsetxattr(path.c_str(), name.c_str(), bytes.data(), bytes.size(), 0);
  if (status != 0) return refuse(errorNumber, errno);
  succeed(errorNumber);
  return true;
}

bool removeExtendedAttribute(const std::string& path, const std::string& name, bool followLinks,
                             int* errorNumber) {
  if (hasNul(path) || hasNul(name)) return refuse(errorNumber, EINVAL);
  int status = followLinks ? ::removexattr(path.c_str(), name.c_str())
                           : ::lremovexattr(path.c_str(), name.c_str());
  if (status != 0) return refuse(errorNumber, errno);
  succeed(errorNumber);
  return true;
}

}  // namespace ulvek
