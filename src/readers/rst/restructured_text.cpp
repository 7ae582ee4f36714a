#include "readers/rst/restructured_text.h"

#include <chrono>
#include <string_view>

#include "text/string_utilities.h"

namespace ulvek {
namespace {

std::vector<TextView> splitLines(TextView text) {
  std::vector<TextView> lines;
  while (!text.empty()) {
    std::size_t end = text.find(u'\n');
    TextView line = text.substr(0, end);
    if (!line.empty() && line.back() == u'\r') line.remove_suffix(1);
    lines.push_back(line);
    if (end == TextView::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

bool isBlank(TextView line) { return line.find_first_not_of(u" \t") == TextView::npos; }
bool isIndented(TextView line) { return !line.empty() && (line[0] == u' ' || line[0] == u'\t'); }

// Section adornments are lines of one repeated punctuation character.
bool isAdornment(TextView line) {
  static constexpr std::u16string_view kPunctuation = u"!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~";
  while (!line.empty() && line.back() == u' ') line.remove_suffix(1);
  if (line.size() < 2 || kPunctuation.find(line[0]) == TextView::npos) return false;
  return line.find_first_not_of(line[0]) == TextView::npos;
}

std::size_t trimmedLength(TextView line) {
  std::size_t end = line.find_last_not_of(u" \t");
  return end == TextView::npos ? 0 : end + 1;
}

struct SectionTitle {
  TextString text;
  char16_t adornment;
  bool overlined;
  std::size_t lines;
};

// A section title at `i`: overline, title and underline, or title and underline, each
// adornment reaching at least to the end of the title.
std::optional<SectionTitle> sectionTitleAt(const std::vector<TextView>& lines, std::size_t i) {
  if (i + 1 >= lines.size()) return std::nullopt;
  if (isAdornment(lines[i]) && i + 2 < lines.size() && !isBlank(lines[i + 1]) &&
      isAdornment(lines[i + 2]) && lines[i + 2][0] == lines[i][0]) {
    TextString title = stringByTrimmingWhiteSpaces(lines[i + 1]);
    if (trimmedLength(lines[i]) >= title.size())
      return SectionTitle{std::move(title), lines[i][0], true, 3};
  }
  if (isBlank(lines[i]) || isIndented(lines[i]) || isAdornment(lines[i]) ||
      !isAdornment(lines[i + 1]) || trimmedLength(lines[i + 1]) < trimmedLength(lines[i]))
    return std::nullopt;
  return SectionTitle{stringByTrimmingWhiteSpaces(lines[i]), lines[i + 1][0], false, 2};
}

// Explicit markup (comments, directives, targets) and the indented block that belongs to it.
std::size_t skipExplicitMarkup(const std::vector<TextView>& lines, std::size_t i) {
  ++i;
  while (i < lines.size() && (isIndented(lines[i]) || isBlank(lines[i]))) {
    if (isBlank(lines[i])) {
      std::size_t next = i + 1;
      while (next < lines.size() && isBlank(lines[next])) ++next;
      if (next >= lines.size() || !isIndented(lines[next])) return next;
    }
    ++i;
  }
  return i;
}

bool startsExplicitMarkup(TextView line) {
  return line.starts_with(u"..") && (line.size() == 2 || line[2] == u' ');
}

std::size_t skipBlanksAndComments(const std::vector<TextView>& lines, std::size_t i) {
  while (i < lines.size()) {
    if (isBlank(lines[i])) {
      ++i;
    } else if (startsExplicitMarkup(lines[i])) {
      i = skipExplicitMarkup(lines, i);
    } else {
      break;
    }
  }
  return i;
}

// A field ":Name: value" and its indented continuation lines, joined by spaces.
struct Field {
  TextString name;  // lower case
  TextString value;
};

std::optional<Field> fieldAt(const std::vector<TextView>& lines, std::size_t& i) {
  TextView line = lines[i];
  if (line.size() < 3 || line[0] != u':') return std::nullopt;
  std::size_t close = line.find(u':', 1);
  if (close == TextView::npos || close == 1) return std::nullopt;
  if (close + 1 < line.size() && line[close + 1] != u' ') return std::nullopt;
  Field field;
  TextView name = line.substr(1, close - 1);
  name = name.substr(0, name.find(u' '));  // ":keywords lang=en:"
  field.name = normalizedLowercaseString(name);
  TextString value(line.substr(close + 1));
  for (++i; i < lines.size() && isIndented(lines[i]); ++i) value += u' ' + TextString(lines[i]);
  field.value = stringByRemovingMultipleWhiteSpaces(stringByTrimmingWhiteSpaces(value));
  return field;
}

std::vector<TextString> splitList(TextView value, bool semicolonsFirst) {
  char16_t separator = semicolonsFirst && value.find(u';') != TextView::npos ? u';' : u',';
  std::vector<TextString> items;
  while (true) {
    std::size_t end = value.find(separator);
    TextString item = stringByTrimmingWhiteSpaces(value.substr(0, end));
    if (!item.empty()) items.push_back(std::move(item));
    if (end == TextView::npos) break;
    value.remove_prefix(end + 1);
  }
  return items;
}

int digits(TextView text, std::size_t from, std::size_t count) {
  int value = 0;
  for (std::size_t i = from; i < from + count; ++i) {
    if (i >= text.size() || text[i] < u'0' || text[i] > u'9') return -1;
    value = value * 10 + (text[i] - u'0');
  }
  return value;
}

std::optional<Date> isoDate(TextView text) {
  int year = digits(text, 0, 4), month = digits(text, 5, 2), day = digits(text, 8, 2);
  if (year < 0 || month < 0 || day < 0 || text[4] != u'-' || text[7] != u'-') return std::nullopt;
  std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month),
                                   std::chrono::day(day)};
  if (!date.ok()) return std::nullopt;
  auto days = std::chrono::sys_days(date).time_since_epoch().count();
  return Date{static_cast<std::int64_t>(days) * 86400 * 1000000};
}

void takeField(const Field& field, RstDocumentInfo& info) {
  if (field.value.empty()) return;
  if (field.name == u"author") {
    info.authors.push_back(field.value);
  } else if (field.name == u"authors") {
    for (TextString& author : splitList(field.value, true)) info.authors.push_back(author);
  } else if (field.name == u"date") {
    info.date = isoDate(field.value);
  } else if (field.name == u"copyright") {
    info.copyright = field.value;
  } else if (field.name == u"abstract") {
    info.description = field.value;
  }
}

// `.. meta::` blocks anywhere in the document: keywords, and a description if the header has
// none.
void takeMeta(const std::vector<TextView>& lines, RstDocumentInfo& info) {
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (stringByTrimmingWhiteSpaces(lines[i]) != u".. meta::") continue;
    for (++i; i < lines.size() && (isIndented(lines[i]) || isBlank(lines[i]));) {
      std::size_t at = i;
      TextString trimmed = stringByTrimmingWhiteSpaces(lines[i]);
      std::vector<TextView> one{trimmed};
      std::size_t j = 0;
      std::optional<Field> field = trimmed.empty() ? std::nullopt : fieldAt(one, j);
      i = at + 1;
      if (!field) continue;
      if (field->name == u"keywords") {
        for (TextString& keyword : splitList(field->value, false)) info.keywords.push_back(keyword);
      } else if (field->name == u"description" && !info.description) {
        info.description = field->value;
      }
    }
  }
}

}  // namespace

RstDocumentInfo rstDocumentInfo(TextView text) {
  RstDocumentInfo info;
  std::vector<TextView> lines = splitLines(text);
  std::size_t i = skipBlanksAndComments(lines, 0);
  if (std::optional<SectionTitle> title = sectionTitleAt(lines, i)) {
    info.title = title->text;
    i = skipBlanksAndComments(lines, i + title->lines);
    // A second title of another style right below the first is the subtitle.
    std::optional<SectionTitle> subtitle = sectionTitleAt(lines, i);
    if (subtitle &&
        (subtitle->adornment != title->adornment || subtitle->overlined != title->overlined)) {
      info.subtitle = subtitle->text;
      i = skipBlanksAndComments(lines, i + subtitle->lines);
    }
  }
  // The bibliographic fields: the first field list, before any other body element.
  while (i < lines.size()) {
    std::optional<Field> field = fieldAt(lines, i);
    if (!field) break;
    takeField(*field, info);
    std::size_t next = i;
    while (next < lines.size() && isBlank(lines[next])) ++next;
    if (next < lines.size() && lines[next].starts_with(u":")) i = next;
  }
  takeMeta(lines, info);
  return info;
}

}  // namespace ulvek
