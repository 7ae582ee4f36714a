#include "readers/wordperfect/wordperfect.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "metadata/file_types.h"
#include "text/encodings.h"

namespace ulvek {

namespace {

constexpr std::array<TextView, 3> kWordPerfectFileTypes = {u"wpd", u"WPD", u"'WPD4'"};
constexpr std::string_view kMark = "{WP}";
// The text starts this far after the mark's first character.
constexpr std::size_t kTextOffset = 6;

// Bytes whose Mac OS Roman characters are dropped: ´ – — € ™.
constexpr std::array<std::uint8_t, 5> kDropped = {0xAB, 0xD0, 0xD1, 0xDB, 0xAA};
constexpr std::uint8_t kLiteralSwitch = 0xC0;  // ¿
constexpr std::uint8_t kLineBreak = 0x80;      // Ä
constexpr std::uint8_t kTab = 0x82;            // Ç
constexpr std::uint8_t kHyphen = 0x96;         // ñ
constexpr std::uint8_t kDoubleBreak = 0xC3;    // √

const std::array<char16_t, 256>& macRoman() {
  static const std::array<char16_t, 256> table = [] {
    std::array<char16_t, 256> result{};
    for (int b = 0; b < 256; ++b) {
      std::uint8_t byte = static_cast<std::uint8_t>(b);
      std::optional<TextString> text = decodeBytes(Bytes(&byte, 1), kMacOSRomanStringEncoding);
      result[b] = text && text->size() == 1 ? (*text)[0] : static_cast<char16_t>(b);
    }
    return result;
  }();
  return table;
}

}  // namespace

bool isWordPerfectFile(const std::string& path) {
  TextString extension = pathExtension(path);
  return isWordPerfectExtension(TextView(extension), std::nullopt);
}

std::span<const TextView> wordPerfectFileTypes() { return kWordPerfectFileTypes; }

std::optional<TextString> wordPerfectMarkedText(Bytes bytes) {
  std::string_view chars(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  std::size_t mark = chars.rfind(kMark);
  if (mark == std::string_view::npos) return std::nullopt;
  std::size_t start = mark + kTextOffset;
  if (start >= bytes.size()) return std::nullopt;
  const std::array<char16_t, 256>& roman = macRoman();
  TextString text;
  bool literal = false;
  std::uint8_t previous = 0;
  for (std::size_t i = start; i < bytes.size(); previous = bytes[i], ++i) {
    std::uint8_t b = bytes[i];
    if (std::find(kDropped.begin(), kDropped.end(), b) != kDropped.end()) continue;
    switch (b) {
      case kLiteralSwitch:
        literal = !literal;
        continue;
      case kLineBreak:
        if (previous == 0 || previous == 1) continue;
        text.push_back(literal ? roman[b] : u'\n');
        continue;
      case kTab:
        text.push_back(literal ? roman[b] : u'\t');
        continue;
      case kHyphen:
        text.push_back(literal ? roman[b] : u'-');
        continue;
      case kDoubleBreak:
        if (previous == kDoubleBreak) {
          text.push_back(u'\n');
        } else if (literal) {
          text.push_back(roman[b]);
        }
        continue;
      default:
        if (b >= 0x20) text.push_back(roman[b]);
    }
  }
  if (text.empty()) return std::nullopt;
  return text;
}

std::optional<TextString> stringWithContentsOfWordPerfectFile(const std::string& path) {
  if (!isWordPerfectFile(path)) return std::nullopt;
  std::optional<FileBytes> bytes = FileBytes::read(path).take();
  if (!bytes) return std::nullopt;
  return wordPerfectMarkedText(bytes->bytes());
}

}  // namespace ulvek
