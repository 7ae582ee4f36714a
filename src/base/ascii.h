#pragma once

// ASCII-only case and digit helpers for names, extensions, MIME types and escapes: these are
// ASCII by definition, so no locale or Unicode tables are asked. Also the splitting of paths and
// search paths at an ASCII separator.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ulvek {

// Only A-Z and a-z change; any other unit, of any width, stays as it is.
template <class Char>
constexpr Char asciiLower(Char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<Char>(c + 32) : c;
}
template <class Char>
constexpr Char asciiUpper(Char c) {
  return c >= 'a' && c <= 'z' ? static_cast<Char>(c - 32) : c;
}

inline std::string asciiLowercase(std::string_view text) {
  std::string lowered(text);
  for (char& c : lowered) c = asciiLower(c);
  return lowered;
}

inline std::string asciiUppercase(std::string_view text) {
  std::string uppered(text);
  for (char& c : uppered) c = asciiUpper(c);
  return uppered;
}

constexpr bool equalsIgnoringASCIICase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (asciiLower(a[i]) != asciiLower(b[i])) return false;
  return true;
}

constexpr bool startsWithIgnoringASCIICase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         equalsIgnoringASCIICase(text.substr(0, prefix.size()), prefix);
}

constexpr bool endsWithIgnoringASCIICase(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() &&
         equalsIgnoringASCIICase(text.substr(text.size() - suffix.size()), suffix);
}

// ASCII letters and digits, whatever the locale.
constexpr bool isAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
constexpr bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }

// The parts between separators, empty parts left out ("a//b/" at '/' gives "a", "b").
inline std::vector<std::string_view> nonEmptyParts(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (std::size_t start = 0; start <= text.size();) {
    std::size_t end = text.find(separator, start);
    if (end == std::string_view::npos) end = text.size();
    if (end > start) parts.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

// The value of a hexadecimal digit, or -1.
constexpr int hexDigitValue(char32_t c) {
  if (c >= '0' && c <= '9') return static_cast<int>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<int>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<int>(c - 'A' + 10);
  return -1;
}

}  // namespace ulvek
