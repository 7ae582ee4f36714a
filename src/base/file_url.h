#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ulvek {

// Percent escapes decoded as UTF-8; nothing when an escape is broken or decodes to no UTF-8.
std::optional<std::string> percentDecoded(std::string_view text);

// "file://" URLs of absolute paths, with everything but unreserved characters and "/"
// percent-encoded, and back ("file://localhost/" included, query and fragment cut); nothing
// for other URLs.
std::string fileURLWithPath(std::string_view path);
std::optional<std::string> pathOfFileURL(std::string_view url);

}  // namespace ulvek
