#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace ulvek {

// Standard base64 with padding, appended to `out`.
void appendBase64(std::string& out, std::span<const std::uint8_t> bytes);
std::string base64(std::span<const std::uint8_t> bytes);

// Standard or URL-safe base64; padding and white space are skipped. Nothing for any other
// character.
std::optional<std::string> decodeBase64(std::string_view text);

}  // namespace ulvek
