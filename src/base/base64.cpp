#include "base/base64.h"

namespace ulvek {

namespace {
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
}  // namespace

void appendBase64(std::string& out, std::span<const std::uint8_t> bytes) {
  out.reserve(out.size() + (bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    std::uint32_t group = bytes[i] << 16 | bytes[i + 1] << 8 | bytes[i + 2];
    for (int shift : {18, 12, 6, 0}) out += kAlphabet[(group >> shift) & 63];
  }
  if (std::size_t rest = bytes.size() - i; rest > 0) {
    std::uint32_t group = bytes[i] << 16 | (rest == 2 ? bytes[i + 1] << 8 : 0);
    out += kAlphabet[(group >> 18) & 63];
    out += kAlphabet[(group >> 12) & 63];
    out += rest == 2 ? kAlphabet[(group >> 6) & 63] : '=';
    out += '=';
  }
}

std::string base64(std::span<const std::uint8_t> bytes) {
  std::string out;
  appendBase64(out, bytes);
  return out;
}

std::optional<std::string> decodeBase64(std::string_view text) {
  std::string bytes;
  std::uint32_t buffer = 0;
  int bits = 0;
  for (char c : text) {
    int value;
    if (c >= 'A' && c <= 'Z') {
      value = c - 'A';
    } else if (c >= 'a' && c <= 'z') {
      value = c - 'a' + 26;
    } else if (c >= '0' && c <= '9') {
      value = c - '0' + 52;
    } else if (c == '+' || c == '-') {
      value = 62;
    } else if (c == '/' || c == '_') {
      value = 63;
    } else if (c == '=' || c == ' ' || c == '\t' || c == '\r' || c == '\n') {
      continue;
    } else {
      return std::nullopt;
    }
    buffer = (buffer << 6) | static_cast<std::uint32_t>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes.push_back(static_cast<char>((buffer >> bits) & 0xFF));
    }
  }
  return bytes;
}

}  // namespace ulvek
