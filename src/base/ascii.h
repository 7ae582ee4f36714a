#pragma once

// ASCII-only case and digit helpers for names, extensions, MIME types and escapes: these are
// ASCII by definition, so no locale or Unicode tables are asked.

#include <cstddef>
#include <string>
#include <string_view>

namespace ulvek {

constexpr char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

inline std::string asciiLowercase(std::string_view text) {
  std::string lowered(text);
  for (char& c : lowered) c = asciiLower(c);
  return lowered;
}

constexpr bool equalsIgnoringASCIICase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (asciiLower(a[i]) != asciiLower(b[i])) return false;
  return true;
}

// The value of a hexadecimal digit, or -1.
constexpr int hexDigitValue(char32_t c) {
  if (c >= '0' && c <= '9') return static_cast<int>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<int>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<int>(c - 'A' + 10);
  return -1;
}

}  // namespace ulvek
