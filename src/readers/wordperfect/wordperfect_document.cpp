#include "readers/wordperfect/wordperfect_document.h"

#include <array>
#include <cstdint>
#include <string>
#include <utility>

#include "base/failure.h"
#include "base/log.h"
#include "readers/wordperfect/wordperfect_charsets.h"

namespace ulvek {

namespace {

constexpr std::size_t kPrefixSize = 16;
constexpr std::uint8_t kMajorVersion5 = 0;
constexpr std::uint8_t kMajorVersion6 = 2;
// A 4.2 function code must close within this distance.
constexpr std::size_t kMaxWP42Group = 1024;

// Sizes of the 5.x fixed-length functions 0xC0 to 0xCF, both code bytes included.
constexpr std::array<std::uint8_t, 16> kWP5FixedSizes = {4, 9, 11, 3, 3, 5, 6, 7,
                                                         4, 5, 3,  3, 3, 3, 3, 3};
// Sizes of the 6.x fixed-length functions 0xF0 to 0xFF.
constexpr std::array<std::uint8_t, 16> kWP6FixedSizes = {4, 5, 3, 3, 3, 3, 3, 3,
                                                         3, 3, 3, 3, 3, 3, 3, 3};

std::uint16_t le16(Bytes bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] | (bytes[at + 1] << 8));
}

std::uint32_t le32(Bytes bytes, std::size_t at) {
  return static_cast<std::uint32_t>(bytes[at]) | (static_cast<std::uint32_t>(bytes[at + 1]) << 8) |
         (static_cast<std::uint32_t>(bytes[at + 2]) << 16) |
         (static_cast<std::uint32_t>(bytes[at + 3]) << 24);
}

bool hasPrefix(Bytes bytes) {
  return bytes.size() >= 4 && bytes[0] == 0xFF && bytes[1] == 'W' && bytes[2] == 'P' &&
         bytes[3] == 'C';
}

// Where a group that opens with `code` at `at` closes: its expected size when the closing byte
// is there, else the next `code` byte within `reach`; nothing when it never closes.
std::optional<std::size_t> fixedGroupEnd(Bytes bytes, std::size_t at, std::size_t size,
                                         std::size_t reach) {
  std::uint8_t code = bytes[at];
  if (size >= 2 && at + size <= bytes.size() && bytes[at + size - 1] == code) return at + size;
  for (std::size_t i = at + 1; i < bytes.size() && i <= at + reach; ++i)
    if (bytes[i] == code) return i + 1;
  return std::nullopt;
}

class TextBuilder {
 public:
  void put(char16_t c) { text_.push_back(c); }
  void putExtended(std::uint8_t set, std::uint8_t character) {
    if (auto c = wordPerfectCharacter(set, character)) put(*c);
  }
  TextString take() { return std::move(text_); }

 private:
  TextString text_;
};

void damaged(std::string_view name, std::string_view what, std::size_t at) {
  logFailure(FailureKind::Damaged, "WordPerfect document damaged (" + std::string(what) + " at " +
                                       std::to_string(at) +
                                       "), text ends there: " + std::string(name));
}

TextString readWP5(Bytes doc, std::string_view name) {
  TextBuilder text;
  std::size_t i = 0;
  while (i < doc.size()) {
    std::uint8_t b = doc[i];
    if (b < 0x20) {
      if (b == 0x0A || b == 0x0C) text.put(u'\n');
      if (b == 0x0D || b == 0x0B) text.put(u' ');
      if (b == 0x09) text.put(u'\t');
      ++i;
    } else if (b < 0x7F) {
      text.put(b);
      ++i;
    } else if (b < 0xC0) {
      if (b == 0x8C) text.put(u'\n');
      if (b == 0xA0) text.put(u'\u00A0');
      if (b == 0xA9 || b == 0xAA) text.put(u'-');
      ++i;
    } else if (b < 0xD0) {
      std::optional<std::size_t> end = fixedGroupEnd(doc, i, kWP5FixedSizes[b - 0xC0], 32);
      if (!end) {
        damaged(name, "unclosed function", i);
        break;
      }
      if (b == 0xC0 && *end - i == 4) text.putExtended(doc[i + 2], doc[i + 1]);
      if (b == 0xC1 || b == 0xC2) text.put(u'\t');
      i = *end;
    } else {
      if (i + 4 > doc.size()) {
        damaged(name, "truncated function", i);
        break;
      }
      std::size_t total = 4 + static_cast<std::size_t>(le16(doc, i + 2));
      if (i + total > doc.size() || doc[i + total - 1] != b) {
        damaged(name, "function length", i);
        break;
      }
      i += total;
    }
  }
  return text.take();
}

TextString readWP6(Bytes doc, std::string_view name) {
  TextBuilder text;
  bool hidden = false;  // text between the two marks of an undo group is deleted text
  // A soft line end stands for a space, except right after a hyphen that split the word there.
  bool afterHyphen = false;
  std::size_t i = 0;
  while (i < doc.size()) {
    std::uint8_t b = doc[i];
    if (b >= 0xD0 && b < 0xF0) {
      if (i + 4 > doc.size()) {
        damaged(name, "truncated function", i);
        break;
      }
      std::size_t total = le16(doc, i + 2);
      if (total < 4 || i + total > doc.size() || doc[i + total - 1] != b) {
        damaged(name, "function length", i);
        break;
      }
      if (!hidden) {
        std::uint8_t group = doc[i + 1];
        if (b == 0xD0) {
          bool hard = group >= 0x04 && group < 0x10;
          if (hard || !afterHyphen) text.put(hard ? u'\n' : u' ');
          afterHyphen = false;
        }
        if (b == 0xE0) text.put(u'\t');
      }
      i += total;
      continue;
    }
    if (b >= 0xF0) {
      std::optional<std::size_t> end = fixedGroupEnd(doc, i, kWP6FixedSizes[b - 0xF0], 32);
      if (!end) {
        damaged(name, "unclosed function", i);
        break;
      }
      if (b == 0xF1 && *end - i >= 3) {
        if (doc[i + 1] == 0) hidden = true;
        if (doc[i + 1] == 1) hidden = false;
      }
      if (b == 0xF0 && *end - i == 4 && !hidden) text.putExtended(doc[i + 2], doc[i + 1]);
      i = *end;
      continue;
    }
    ++i;
    if (hidden || b == 0) continue;
    bool wasAfterHyphen = std::exchange(afterHyphen, false);
    if (b <= 0x20) {
      text.put(wordPerfectSoftMappedCharacter(b));
    } else if (b < 0x80) {
      text.put(b);
    } else if (b == 0x80) {
      text.put(u' ');
    } else if (b == 0x81) {
      text.put(u'\u00A0');
    } else if (b == 0x82 || b == 0x84) {
      text.put(u'\u00AD');
      afterHyphen = true;
    } else if (b == 0x85 || b == 0x86) {
      afterHyphen = true;
    } else if (b == 0x83) {
      text.put(u'-');
    } else if (b == 0xCC || b == 0x87 || b == 0xC7) {
      text.put(u'\n');
    } else if (!wasAfterHyphen) {
      text.put(u' ');
    }
  }
  return text.take();
}

// 4.2 has no prefix: each function code closes with the same byte.
std::optional<TextString> readWP42(Bytes doc, std::string_view name, bool strict) {
  TextBuilder text;
  std::size_t i = 0;
  while (i < doc.size()) {
    std::uint8_t b = doc[i];
    if (b >= 0xC0 && b < 0xFF) {
      std::optional<std::size_t> end = fixedGroupEnd(doc, i, 0, kMaxWP42Group);
      if (!end) {
        if (strict) return std::nullopt;
        damaged(name, "unclosed function", i);
        break;
      }
      i = *end;
      continue;
    }
    ++i;
    if (b == 0x0A || b == 0x0C) text.put(u'\n');
    if (b == 0x0D) text.put(u' ');
    if (b == 0x09) text.put(u'\t');
    if (b >= 0x20 && b < 0x7F) text.put(b);
    if (b == 0xA9) text.put(u'-');
    if (b == 0xA0) text.put(u'\u00A0');
  }
  return text.take();
}

bool looksLikeWP42(Bytes bytes) {
  if (bytes.empty() || bytes[0] < 0xC0 || bytes[0] == 0xFF) return false;
  std::optional<TextString> text =
      readWP42(bytes.first(std::min<std::size_t>(bytes.size(), 65536)), {}, true);
  return text && !text->empty();
}

}  // namespace

WordPerfectFormat wordPerfectFormat(Bytes bytes) {
  if (hasPrefix(bytes)) {
    if (bytes.size() < kPrefixSize) return WordPerfectFormat::None;
    if (bytes[10] == kMajorVersion5) return WordPerfectFormat::WP5;
    if (bytes[10] == kMajorVersion6) return WordPerfectFormat::WP6;
    return WordPerfectFormat::None;
  }
  return looksLikeWP42(bytes) ? WordPerfectFormat::WP42 : WordPerfectFormat::None;
}

std::optional<TextString> wordPerfectDocumentText(Bytes bytes, std::string_view name) {
  WordPerfectFormat format = wordPerfectFormat(bytes);
  if (format == WordPerfectFormat::None) {
    logFailure(FailureKind::Damaged, "Not a WordPerfect document: " + std::string(name));
    return std::nullopt;
  }
  if (format == WordPerfectFormat::WP42) return readWP42(bytes, name, false);
  std::uint32_t start = le32(bytes, 4);
  if (start < kPrefixSize || start > bytes.size()) {
    logFailure(FailureKind::Damaged, "WordPerfect prefix area is truncated: " + std::string(name));
    return std::nullopt;
  }
  if (le16(bytes, 12) != 0) {
    logFailure(FailureKind::Encrypted, "WordPerfect document is encrypted: " + std::string(name));
    return std::nullopt;
  }
  Bytes doc = bytes.subspan(start);
  return format == WordPerfectFormat::WP5 ? readWP5(doc, name) : readWP6(doc, name);
}

}  // namespace ulvek
