#include "base/error.h"

#include <cstring>

namespace ulvek {

std::optional<std::string> Error::info(std::string_view key) const {
  auto it = userInfo.find(key);
  if (it == userInfo.end()) return std::nullopt;
  return it->second;
}

Error Error::posix(int errorNumber, std::string_view path) {
  Error error;
  error.domain = std::string(kPOSIXErrorDomain);
  error.code = errorNumber;
  error.localizedDescription = std::strerror(errorNumber);
  error.userInfo.emplace(std::string(kFilePathErrorKey), std::string(path));
  return error;
}

}  // namespace ulvek
