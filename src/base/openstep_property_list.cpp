#include "base/openstep_property_list.h"

#include <string_view>

#include "base/ascii.h"
#include "base/property_list.h"
#include "base/text_string.h"

namespace ulvek {

namespace {

bool isBareCharacter(char16_t c) {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') ||
         c == u'_' || c == u'$' || c == u'+' || c == u'/' || c == u':' || c == u'.' || c == u'-';
}

class Parser {
 public:
  explicit Parser(TextView text) : text_(text) {}

  std::optional<PropertyValue> parseDocument() {
    skipSpace();
    if (atEnd()) return std::nullopt;
    std::size_t start = at_;
    char16_t first = text_[at_];
    // A strings file: entries at the top level. A quoted string alone is a string list.
    if (first != u'{' && first != u'(' && first != u'<') {
      if (auto entries = parseEntries(0, /*closing=*/0); entries && atEnd() && !entries->empty())
        return PropertyValue(std::move(*entries));
      at_ = start;
      if (first != u'"' && first != u'\'') return std::nullopt;
    }
    std::optional<PropertyValue> value = parseValue(0);
    skipSpace();
    if (!value || !atEnd()) return std::nullopt;
    return value;
  }

 private:
  bool atEnd() const { return at_ >= text_.size(); }

  void skipSpace() {
    while (!atEnd()) {
      char16_t c = text_[at_];
      if (c == u' ' || c == u'\t' || c == u'\n' || c == u'\r' || c == u'\f' || c == u'\v' ||
          c == 0xFEFF) {
        ++at_;
      } else if (c == u'/' && at_ + 1 < text_.size() && text_[at_ + 1] == u'/') {
        while (!atEnd() && text_[at_] != u'\n' && text_[at_] != u'\r') ++at_;
      } else if (c == u'/' && at_ + 1 < text_.size() && text_[at_ + 1] == u'*') {
        std::size_t end = text_.find(u"*/", at_ + 2);
        at_ = end == TextView::npos ? text_.size() : end + 2;
      } else {
        return;
      }
    }
  }

  bool take(char16_t c) {
    skipSpace();
    if (atEnd() || text_[at_] != c) return false;
    ++at_;
    return true;
  }

  std::optional<PropertyValue> parseValue(int depth) {
    if (depth > kMaxPropertyListDepth) return std::nullopt;
    skipSpace();
    if (atEnd()) return std::nullopt;
    switch (text_[at_]) {
      case u'{': {
        ++at_;
        auto entries = parseEntries(depth + 1, u'}');
        if (!entries) return std::nullopt;
        return PropertyValue(std::move(*entries));
      }
      case u'(':
        ++at_;
        return parseArray(depth + 1);
      case u'<':
        ++at_;
        return parseData();
      default: {
        auto string = parseString();
        if (!string) return std::nullopt;
        return PropertyValue(std::move(*string));
      }
    }
  }

  // `key = value;` pairs up to the closing brace (or the end of the text when closing is 0).
  std::optional<PropertyDictionary> parseEntries(int depth, char16_t closing) {
    PropertyDictionary entries;
    for (;;) {
      skipSpace();
      if (closing == 0 ? atEnd() : take(closing)) return entries;
      if (atEnd()) return std::nullopt;
      std::optional<TextString> key = parseString();
      if (!key) return std::nullopt;
      std::optional<PropertyValue> value;
      if (take(u'=')) {
        value = parseValue(depth);
        if (!value) return std::nullopt;
      } else {
        value = PropertyValue(*key);  // strings files: "key"; stands for "key" = "key";
      }
      if (!take(u';')) return std::nullopt;
      entries.insert_or_assign(toUtf8(*key), std::move(*value));
    }
  }

  std::optional<PropertyValue> parseArray(int depth) {
    PropertyArray items;
    if (take(u')')) return PropertyValue(std::move(items));
    for (;;) {
      std::optional<PropertyValue> item = parseValue(depth);
      if (!item) return std::nullopt;
      items.push_back(std::move(*item));
      if (take(u')')) return PropertyValue(std::move(items));
      if (!take(u',')) return std::nullopt;
      if (take(u')')) return PropertyValue(std::move(items));  // a trailing comma
    }
  }

  std::optional<PropertyValue> parseData() {
    Data bytes;
    int high = -1;
    for (;;) {
      skipSpace();
      if (atEnd()) return std::nullopt;
      char16_t c = text_[at_++];
      if (c == u'>') break;
      int value = hexDigitValue(c);
      if (value < 0) return std::nullopt;
      if (high < 0) {
        high = value;
      } else {
        bytes.push_back(static_cast<std::uint8_t>(high << 4 | value));
        high = -1;
      }
    }
    if (high >= 0) return std::nullopt;
    return PropertyValue(std::move(bytes));
  }

  std::optional<TextString> parseString() {
    skipSpace();
    if (atEnd()) return std::nullopt;
    char16_t quote = text_[at_];
    if (quote != u'"' && quote != u'\'') {
      std::size_t start = at_;
      while (!atEnd() && isBareCharacter(text_[at_])) ++at_;
      if (at_ == start) return std::nullopt;
      return TextString(text_.substr(start, at_ - start));
    }
    ++at_;
    TextString out;
    while (!atEnd()) {
      char16_t c = text_[at_++];
      if (c == quote) return out;
      if (c != u'\\') {
        out.push_back(c);
        continue;
      }
      if (atEnd()) return std::nullopt;
      c = text_[at_++];
      // Single-letter escapes, each followed by the character it stands for.
      constexpr std::u16string_view kEscapes = u"a\ab\bf\fn\nr\rt\tv\v";
      if (std::size_t at = kEscapes.find(c); at != TextView::npos && at % 2 == 0) {
        out.push_back(kEscapes[at + 1]);
        continue;
      }
      switch (c) {
        case u'U':
        case u'u': {
          // Up to four hex digits: one UTF-16 unit.
          unsigned unit = 0;
          int digits = 0;
          while (digits < 4 && !atEnd() && hexDigitValue(text_[at_]) >= 0) {
            unit = unit << 4 | static_cast<unsigned>(hexDigitValue(text_[at_++]));
            ++digits;
          }
          if (digits == 0) return std::nullopt;
          out.push_back(static_cast<char16_t>(unit));
          break;
        }
        default:
          if (c >= u'0' && c <= u'7') {
            // Up to three octal digits, a byte read as Latin-1.
            unsigned byte = c - u'0';
            for (int digits = 1; digits < 3 && !atEnd() && text_[at_] >= u'0' && text_[at_] <= u'7';
                 ++digits)
              byte = byte << 3 | static_cast<unsigned>(text_[at_++] - u'0');
            out.push_back(static_cast<char16_t>(byte & 0xFF));
          } else {
            out.push_back(c);  // \" \' \\ and any other character stand for themselves
          }
      }
    }
    return std::nullopt;
  }

  TextView text_;
  std::size_t at_ = 0;
};

TextString decodeText(std::span<const std::uint8_t> bytes) {
  auto utf16 = [&](bool bigEndian) {
    TextString text;
    text.reserve(bytes.size() / 2);
    for (std::size_t i = 2; i + 1 < bytes.size(); i += 2)
      text.push_back(bigEndian ? static_cast<char16_t>(bytes[i] << 8 | bytes[i + 1])
                               : static_cast<char16_t>(bytes[i + 1] << 8 | bytes[i]));
    return text;
  };
  if (bytes.size() >= 2 && bytes[0] == 0xFE && bytes[1] == 0xFF) return utf16(true);
  if (bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE) return utf16(false);
  return fromUtf8(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

}  // namespace

std::optional<PropertyValue> openStepPropertyListFromBytes(std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) return std::nullopt;
  // Binary property lists and XML are not this format.
  for (std::string_view magic : {"bplist", "<?xml", "<!DOCTYPE", "<plist"}) {
    if (bytes.size() >= magic.size() &&
        std::string_view(reinterpret_cast<const char*>(bytes.data()), magic.size()) == magic)
      return std::nullopt;
  }
  TextString text = decodeText(bytes);
  return Parser(text).parseDocument();
}

}  // namespace ulvek
