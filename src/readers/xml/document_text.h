#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/property_value.h"
#include "base/text_string.h"
#include "readers/reader.h"

namespace ulvek {

// The plain text of a structured document as its parts arrive: paragraphs on lines of their own,
// table cells a tab apart, rows on lines. Separators are written only between text, so empty
// paragraphs and cells leave no runs of blanks behind.
class DocumentText {
 public:
  // Text from the document, UTF-8 as XML parsers give it.
  void write(std::string_view utf8);
  void writeText(TextView text);
  void paragraph() { pending_ = u'\n'; }
  void cell() {
    if (pending_ != u'\n') pending_ = u'\t';
  }
  // A tab or line break inside a paragraph: kept where it stands.
  void character(char16_t c);
  bool empty() const { return text_.empty(); }
  TextString take() { return std::move(text_); }

 private:
  void flush();
  TextString text_;
  char16_t pending_ = 0;
};

// How a list level counts its items.
enum class ListNumberFormat { Decimal, UpperRoman, LowerRoman, UpperLetter, LowerLetter };
// The number `n` (1 for anything below) as a list label shows it: "4", "iv", "D", "dd".
std::string listNumber(int n, ListNumberFormat format);
// Word's number format code (nfc) of a list level, as Word files and RTF's \levelnfc give it;
// codes with no form here count in decimal.
ListNumberFormat wordNumberFormat(long long nfc);

// One level of a list as a word processor defines it.
struct ListLevel {
  enum class Kind { Number, Bullet, None };
  Kind kind = Kind::Number;
  ListNumberFormat format = ListNumberFormat::Decimal;
  int start = 1;
  // The label: literal text, and the characters 0 to 8 where the numbers of those levels go.
  TextString pattern;
  bool legal = false;  // the numbers of every level in decimal ("1.1.3", not "I.a.iii")
};
inline constexpr std::size_t kListLevels = 9;

// The counters of one list: an item counts at its level and restarts the levels below it. An
// item deeper than the one before counts the levels it skips as one item each, as LibreOffice
// does, so "2." follows a skipped level's first real item.
class ListCounters {
 public:
  // Counts an item at `level` and answers its label ("2)", "1.3.", "•"); empty for none.
  TextString next(const std::array<ListLevel, kListLevels>& levels, std::size_t level);
  // The next item at `level` counts from `value`.
  void restart(std::size_t level, int value);

 private:
  std::array<int, kListLevels> counters_{};
  std::array<std::optional<int>, kListLevels> restarts_{};
};

// A list item's label as LibreOffice's text export writes it before the paragraph: four spaces
// a level, the label and a space. Empty where the label is.
TextString listLabelPrefix(TextView label, std::size_t level);

// "2021-03-04T05:06:07Z", "2021-03-04T05:06:07.25+01:00", "2021-03-04": the moment, or nothing.
std::optional<Date> w3cDate(std::string_view text);

// Keywords as one string ("a, b; c") into a list; a list of one when there is no separator.
TextList keywordList(std::string_view utf8);
// The same, except that keywords without a comma or semicolon are a list of blank-separated
// words, as word processors' property dialogs take them.
TextList keywordWords(std::string_view utf8);

// A document property from its metadata: the first value found counts, nothing leaves it unset.
template <typename T, typename Value>
void setOnce(std::optional<T>& property, Value&& value) {
  if (!property) property = std::forward<Value>(value);
}

}  // namespace ulvek
