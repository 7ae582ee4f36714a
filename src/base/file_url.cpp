#include "base/file_url.h"

#include "base/ascii.h"
#include "base/text_string.h"

namespace ulvek {

namespace {

// RFC 3986's unreserved characters, and "/" between path components.
constexpr bool isKeptInURLPath(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '/' ||
         c == '-' || c == '.' || c == '_' || c == '~';
}

}  // namespace

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    if (i + 2 >= text.size() || hexDigitValue(text[i + 1]) < 0 || hexDigitValue(text[i + 2]) < 0)
      return std::nullopt;
    decoded += static_cast<char>(hexDigitValue(text[i + 1]) * 16 + hexDigitValue(text[i + 2]));
    i += 2;
  }
  TextString check;
  if (!fromUtf8Strict(decoded, check)) return std::nullopt;
  return decoded;
}

std::string fileURLWithPath(std::string_view path) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string url = "file://";
  url.reserve(url.size() + path.size());
  for (char c : path) {
    if (isKeptInURLPath(c)) {
      url += c;
      continue;
    }
    auto byte = static_cast<unsigned char>(c);
    url += '%';
    url += kHex[byte >> 4];
    url += kHex[byte & 15];
  }
  return url;
}

std::optional<std::string> pathOfFileURL(std::string_view url) {
  constexpr std::string_view kScheme = "file://";
  if (url.size() <= kScheme.size() || !startsWithIgnoringASCIICase(url, kScheme))
    return std::nullopt;
  std::string_view rest = url.substr(kScheme.size());
  // "file://localhost/path" names the same file as "file:///path"; schemes and host names are
  // case-insensitive.
  constexpr std::string_view kLocalHost = "localhost/";
  if (startsWithIgnoringASCIICase(rest, kLocalHost)) rest.remove_prefix(kLocalHost.size() - 1);
  if (!rest.starts_with('/')) return std::nullopt;
  return percentDecoded(rest.substr(0, rest.find_first_of("?#")));
}

}  // namespace ulvek
