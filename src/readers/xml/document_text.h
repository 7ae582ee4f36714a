#pragma once

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
