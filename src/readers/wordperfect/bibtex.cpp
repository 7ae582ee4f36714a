#include <string>

#include "base/log.h"
#include "readers/wordperfect/sheet.h"
#include "text/character_tables.h"
#include "text/string_utilities.h"

namespace ulvek {

namespace {

constexpr std::u16string_view kCitationKey = u"@";
// Macros that expand into each other could grow without end: values stop growing here, and once
// this many units have been written by macro expansion in one text, no more macros are expanded.
constexpr std::size_t kMaxValueLength = 1 << 16;
constexpr std::size_t kExpansionBudget = std::size_t{1} << 22;

TextString trimmed(TextView text) {
  std::size_t start = 0, end = text.size();
  while (start < end && isWhiteOrNewline(text[start])) ++start;
  while (end > start && isWhiteOrNewline(text[end - 1])) --end;
  return TextString(text.substr(start, end - start));
}

// Braces dropped, math reduced to what stands in braces, commands and their next character
// dropped.
TextString withoutMarkup(TextView value) {
  TextString result;
  result.reserve(value.size());
  bool math = false;
  int depth = 0;
  for (std::size_t i = 0; i < value.size(); ++i) {
    char16_t c = value[i];
    if (c == u'\\') {
      ++i;
      while (i < value.size() && isLetter(value[i])) ++i;
      continue;  // the loop's ++i drops the character after the command
    }
    if (c == u'{') {
      ++depth;
    } else if (c == u'}') {
      if (depth > 0) --depth;
    } else if (c == u'$') {
      math = !math;
    } else if (!math || depth > 0) {
      result.push_back(c);
    }
  }
  return result;
}

TextString collapsedWhite(TextView text) {
  TextString result;
  bool white = false;
  for (char16_t c : trimmed(text)) {
    if (isWhiteOrNewline(c)) {
      white = true;
      continue;
    }
    if (white) result.push_back(u' ');
    white = false;
    result.push_back(c);
  }
  return result;
}

class BibTeXScanner {
 public:
  BibTeXScanner(TextView text, std::optional<TextView> type) : text_(text), type_(type) {}

  std::vector<BibTeXEntry> scan(std::vector<TextString>* keys) {
    std::size_t i = 0;
    while ((i = text_.find(u'@', i)) != TextView::npos) {
      finishEntry();
      i = entry(i + 1);
    }
    finishEntry();
    if (keys) *keys = std::move(keys_);
    return std::move(entries_);
  }

 private:
  // One entry from after its "@"; answers where scanning goes on.
  std::size_t entry(std::size_t i) {
    std::size_t bracket = text_.find_first_of(u"({", i);
    if (bracket == TextView::npos) return text_.size();
    TextString type = trimmed(text_.substr(i, bracket - i));
    if (type.empty() || type.find(u'@') != TextString::npos) return i;
    open_ = true;
    macros_ = isEqualToStringIgnoringAsciiCase(type, u"string");
    skipped_ = !macros_ && type_ && !isEqualToStringIgnoringAsciiCase(type, *type_);
    current_.clear();
    macroEntry_.clear();
    i = bracket + 1;
    std::size_t stop = text_.find_first_of(u",{}():=@", i);
    if (stop != TextView::npos && text_[stop] == u',') {
      current_[TextString(kCitationKey)] = trimmed(text_.substr(i, stop - i));
      noteKey(kCitationKey);
      i = stop + 1;
    }
    return fields(i);
  }

  std::size_t fields(std::size_t i) {
    while (i < text_.size()) {
      std::size_t equals = text_.find_first_of(u"=@", i);
      if (equals == TextView::npos) return text_.size();
      if (text_[equals] == u'@') return equals;
      TextString name = trimmed(text_.substr(i, equals - i));
      i = equals + 1;
      while (i < text_.size() && isWhiteOrNewline(text_[i])) ++i;
      std::size_t end = valueEnd(i);
      TextView raw = text_.substr(i, end - i);
      // A quoted or braced value is the text between its delimiters.
      if (!raw.empty() && (raw.front() == u'"' || raw.front() == u'{')) {
        char16_t close = raw.front() == u'"' ? u'"' : u'}';
        raw.remove_prefix(1);
        if (!raw.empty() && raw.back() == close) raw.remove_suffix(1);
      }
      store(name, raw);
      i = end;
      while (i < text_.size() && isWhiteOrNewline(text_[i])) ++i;
      if (i >= text_.size()) break;
      if (text_[i] == u',') {
        ++i;
      } else if (text_[i] == u')' || text_[i] == u'}') {
        finishEntry();
        return i + 1;
      }
    }
    return text_.size();
  }

  // Where a value starting at `i` ends: after its closing quote or brace, or at the next ",",
  // "}" or ")" for a bare value.
  std::size_t valueEnd(std::size_t i) const {
    if (i >= text_.size()) return i;
    int depth = 0;
    if (text_[i] == u'"') {
      for (std::size_t j = i + 1; j < text_.size(); ++j) {
        if (text_[j] == u'{') ++depth;
        if (text_[j] == u'}' && depth > 0) --depth;
        if (text_[j] == u'"' && depth == 0) return j + 1;
      }
      return text_.size();
    }
    if (text_[i] == u'{') {
      for (std::size_t j = i; j < text_.size(); ++j) {
        if (text_[j] == u'{') ++depth;
        if (text_[j] == u'}' && --depth == 0) return j + 1;
      }
      return text_.size();
    }
    std::size_t end = text_.find_first_of(u",})", i);
    return end == TextView::npos ? text_.size() : end;
  }

  void store(const TextString& name, TextView raw) {
    TextString value = clean(raw);
    if (macros_) {
      macroEntry_[name] = std::move(value);
      return;
    }
    current_[name] = std::move(value);
    if (!skipped_) noteKey(name);
  }

  TextString clean(TextView raw) {
    TextString value = withoutMarkup(raw);
    for (const auto& [name, replacement] : macroTable_) {
      if (expanded_ >= kExpansionBudget) {
        reportGrowth();
        break;
      }
      if (name.empty() || value.find(name) == TextString::npos) continue;
      if (!replaceUpToTheLimit(value, name, replacement)) reportGrowth();
      expanded_ += value.size();
    }
    value = stringByReplacingString(value, u"''", u"\"");
    value = stringByReplacingString(value, u"``", u"\"");
    return collapsedWhite(value);
  }

  // Replaces `name` in `value`, stopping at kMaxValueLength: a long macro named many times in a
  // long value would otherwise make billions of units before any cut. False when it cut.
  static bool replaceUpToTheLimit(TextString& value, TextView name, TextView replacement) {
    TextString result;
    std::size_t start = 0;
    for (std::size_t found; (found = value.find(name, start)) != TextString::npos;) {
      result.append(value, start, found - start);
      result.append(replacement);
      start = found + name.size();
      if (result.size() > kMaxValueLength) break;
    }
    if (result.size() <= kMaxValueLength) result.append(value, start);
    const bool whole = result.size() <= kMaxValueLength;
    if (!whole) result.resize(kMaxValueLength);
    value = std::move(result);
    return whole;
  }

  void reportGrowth() {
    if (!reportedGrowth_) logLine("BibTeX macros expand too far; values are cut");
    reportedGrowth_ = true;
  }

  void noteKey(TextView key) {
    for (const TextString& known : keys_)
      if (known == key) return;
    keys_.emplace_back(key);
  }

  void finishEntry() {
    if (!open_) return;
    open_ = false;
    if (macros_) {
      for (auto& [name, value] : macroEntry_) macroTable_[name] = std::move(value);
    } else if (!skipped_) {
      entries_.push_back(std::move(current_));
    }
    current_.clear();
    macroEntry_.clear();
  }

  TextView text_;
  std::optional<TextView> type_;
  bool open_ = false;
  bool macros_ = false;
  bool skipped_ = false;
  bool reportedGrowth_ = false;
  std::size_t expanded_ = 0;
  BibTeXEntry current_;
  std::map<TextString, TextString> macroEntry_;
  std::map<TextString, TextString> macroTable_;
  std::vector<BibTeXEntry> entries_;
  std::vector<TextString> keys_;
};

}  // namespace

std::vector<BibTeXEntry> BibTeXEntriesNamed(TextView text, std::optional<TextView> type,
                                            std::vector<TextString>* keys) {
  return BibTeXScanner(text, type).scan(keys);
}

}  // namespace ulvek
