#include "readers/xml/document_text.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace ulvek {

void DocumentText::flush() {
  if (pending_ && !text_.empty()) text_ += pending_;
  pending_ = 0;
}

void DocumentText::write(std::string_view utf8) {
  if (utf8.empty()) return;
  flush();
  text_ += fromUtf8(utf8);
}

void DocumentText::writeText(TextView text) {
  if (text.empty()) return;
  flush();
  text_ += text;
}

void DocumentText::character(char16_t c) {
  flush();
  text_ += c;
}

ListNumberFormat wordNumberFormat(long long nfc) {
  switch (nfc) {
    case 1:
      return ListNumberFormat::UpperRoman;
    case 2:
      return ListNumberFormat::LowerRoman;
    case 3:
      return ListNumberFormat::UpperLetter;
    case 4:
      return ListNumberFormat::LowerLetter;
    default:
      return ListNumberFormat::Decimal;
  }
}

std::string listNumber(int n, ListNumberFormat format) {
  static const std::pair<int, const char*> kRomanDigits[] = {
      {1000, "m"}, {900, "cm"}, {500, "d"}, {400, "cd"}, {100, "c"}, {90, "xc"}, {50, "l"},
      {40, "xl"},  {10, "x"},   {9, "ix"},  {5, "v"},    {4, "iv"},  {1, "i"}};
  if (n <= 0) n = 1;
  std::string text;
  switch (format) {
    case ListNumberFormat::Decimal:
      return std::to_string(n);
    case ListNumberFormat::UpperLetter:
    case ListNumberFormat::LowerLetter:
      text.assign(std::min<std::size_t>((n - 1) / 26 + 1, 32), char('a' + (n - 1) % 26));
      break;
    case ListNumberFormat::UpperRoman:
    case ListNumberFormat::LowerRoman:
      for (const auto& [value, digits] : kRomanDigits)
        while (n >= value && text.size() < 32) text += digits, n -= value;
      break;
  }
  if (format == ListNumberFormat::UpperLetter || format == ListNumberFormat::UpperRoman)
    for (char& c : text) c = char(c - 32);
  return text;
}

TextString ListCounters::next(const std::array<ListLevel, kListLevels>& levels, std::size_t level) {
  if (level >= kListLevels) return {};
  for (std::size_t above = 0; above < level; ++above)
    if (counters_[above] == 0) counters_[above] = levels[above].start;
  if (restarts_[level]) {
    counters_[level] = *restarts_[level];
    restarts_[level].reset();
  } else {
    counters_[level] = counters_[level] == 0 ? levels[level].start : counters_[level] + 1;
  }
  for (std::size_t below = level + 1; below < kListLevels; ++below) counters_[below] = 0;
  const ListLevel& own = levels[level];
  // LibreOffice shows its own bullet of the level whatever the document chose.
  static constexpr char16_t kBullets[] = {u'\u2022', u'\u25E6', u'\u25AA'};
  if (own.kind == ListLevel::Kind::Bullet) return TextString(1, kBullets[level % 3]);
  if (own.kind == ListLevel::Kind::None) return {};
  TextString label;
  for (char16_t c : own.pattern) {
    if (c >= kListLevels) {
      label += c;
      continue;
    }
    const ListLevel& other = levels[c];
    if (c > level || other.kind != ListLevel::Kind::Number) continue;
    ListNumberFormat format = own.legal ? ListNumberFormat::Decimal : other.format;
    label += fromAscii(listNumber(counters_[c], format));
  }
  return label;
}

void ListCounters::restart(std::size_t level, int value) {
  if (level < kListLevels) restarts_[level] = value;
}

TextString listLabelPrefix(TextView label, std::size_t level) {
  bool blank = std::all_of(label.begin(), label.end(),
                           [](char16_t c) { return c == u' ' || c == u'\t' || c == u'\u00A0'; });
  if (blank) return {};
  TextString prefix(4 * (std::min(level, kListLevels - 1) + 1), u' ');
  prefix += label;
  prefix += u' ';
  return prefix;
}

std::optional<Date> w3cDate(std::string_view text) {
  int year = 0, month = 1, day = 1, hour = 0, minute = 0;
  double second = 0;
  std::string copy(text);
  int fields =
      std::sscanf(copy.c_str(), "%d-%d-%dT%d:%d:%lf", &year, &month, &day, &hour, &minute, &second);
  if (fields < 1 || year < 1 || year > 9999) return std::nullopt;
  using namespace std::chrono;
  year_month_day date{std::chrono::year(year), std::chrono::month(unsigned(month)),
                      std::chrono::day(unsigned(day))};
  if (!date.ok() || hour > 24 || minute > 59 || second < 0 || second >= 62) return std::nullopt;
  long long offset = 0;
  std::size_t zone = copy.find_first_of("+-", 10);
  int zoneHours = 0, zoneMinutes = 0;
  if (fields >= 4 && zone != std::string::npos &&
      std::sscanf(copy.c_str() + zone + 1, "%d:%d", &zoneHours, &zoneMinutes) >= 1)
    offset = (zoneHours * 3600LL + zoneMinutes * 60LL) * (copy[zone] == '-' ? -1 : 1);
  long long days = sys_days(date).time_since_epoch().count();
  double seconds = double(days) * 86400.0 + hour * 3600.0 + minute * 60.0 + second - double(offset);
  return Date{static_cast<std::int64_t>(seconds * 1e6)};
}

TextList keywordList(std::string_view utf8) {
  TextList words;
  std::string word;
  auto push = [&] {
    std::size_t first = word.find_first_not_of(" \t\r\n");
    std::size_t last = word.find_last_not_of(" \t\r\n");
    if (first != std::string::npos)
      words.emplace_back(fromUtf8(word.substr(first, last - first + 1)));
    word.clear();
  };
  for (char c : utf8) {
    if (c == ',' || c == ';')
      push();
    else
      word += c;
  }
  push();
  return words;
}

TextList keywordWords(std::string_view utf8) {
  TextList words = keywordList(utf8);
  if (words.size() != 1 || utf8.find(' ') == std::string_view::npos) return words;
  words.clear();
  for (std::size_t start = 0; start < utf8.size();) {
    std::size_t end = std::min(utf8.find(' ', start), utf8.size());
    if (end > start) words.emplace_back(fromUtf8(utf8.substr(start, end - start)));
    start = end + 1;
  }
  return words;
}

}  // namespace ulvek
