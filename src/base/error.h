#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ulvek {

inline constexpr std::string_view kPOSIXErrorDomain = "NSPOSIXErrorDomain";
inline constexpr std::string_view kFilePathErrorKey = "NSFilePathErrorKey";
inline constexpr std::string_view kLocalizedFailureReasonErrorKey =
    "NSLocalizedFailureReasonErrorKey";

// An error the caller must see: domain, code, message and further information.
struct Error {
  std::string domain;
  std::int64_t code = 0;
  std::string localizedDescription;
  std::map<std::string, std::string, std::less<>> userInfo;

  std::optional<std::string> info(std::string_view key) const;
  std::optional<std::string> failureReason() const { return info(kLocalizedFailureReasonErrorKey); }

  // A failed system call: the system's error number and text, and the path.
  static Error posix(int errorNumber, std::string_view path);
};

// Thrown by operations that later work will provide; the service answers it as "not supported".
class NotSupportedError : public std::runtime_error {
 public:
  explicit NotSupportedError(const std::string& operation)
      : std::runtime_error(operation + " is not supported") {}
};

}  // namespace ulvek
