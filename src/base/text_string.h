#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace ulvek {

// Text is UTF-16 code units throughout: lengths, indexes and ranges count units.
using TextString = std::u16string;
using TextView = std::u16string_view;

// "Not found" location, the largest signed 64-bit value.
inline constexpr std::size_t kNotFound =
    static_cast<std::size_t>(std::numeric_limits<std::int64_t>::max());

struct TextRange {
  std::size_t location = kNotFound;
  std::size_t length = 0;
  bool found() const { return location != kNotFound; }
  bool operator==(const TextRange&) const = default;
};

// UTF-8 → UTF-16. Ill-formed sequences become U+FFFD.
TextString fromUtf8(std::string_view utf8);
// UTF-8 → UTF-16, or nothing when the bytes are not well-formed UTF-8.
bool fromUtf8Strict(std::string_view utf8, TextString& out);
// UTF-16 → UTF-8. Lone surrogates become U+FFFD.
std::string toUtf8(TextView text);
// UTF-16 → UTF-8, failing on lone surrogates.
bool toUtf8Strict(TextView text, std::string& out);

// ASCII literal helper for tables and tests: u"..." works too, this is for std::string sources.
TextString fromAscii(std::string_view ascii);

}  // namespace ulvek
