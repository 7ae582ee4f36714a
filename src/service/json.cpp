#include "service/json.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "base/base64.h"

namespace ulvek {
namespace {

// The characters of a string literal, without its quotes.
void appendEscapedCharacters(std::string& out, std::string_view utf8) {
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    char c = utf8[i];
    switch (c) {
      case '"':
        out += "\\\"";
        continue;
      case '\\':
        out += "\\\\";
        continue;
      case '\n':
        out += "\\n";
        continue;
      case '\r':
        out += "\\r";
        continue;
      case '\t':
        out += "\\t";
        continue;
      case '\b':
        out += "\\b";
        continue;
      case '\f':
        out += "\\f";
        continue;
      default:
        break;
    }
    if (static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
      out += escape;
      continue;
    }
    // Line and paragraph separators are valid JSON but end JavaScript string literals.
    if (utf8.compare(i, 2, "\xE2\x80") == 0 && i + 2 < utf8.size() &&
        (utf8[i + 2] == '\xA8' || utf8[i + 2] == '\xA9')) {
      out += utf8[i + 2] == '\xA8' ? "\\u2028" : "\\u2029";
      i += 2;
      continue;
    }
    out += c;
  }
}

void appendEscaped(std::string& out, std::string_view utf8) {
  out += '"';
  appendEscapedCharacters(out, utf8);
  out += '"';
}

// Calls `slice` with each escaped slice of the text. Converted a slice at a time: a whole UTF-8
// copy of a long text beside the answer doubled the memory a large document's import peaks at.
template <typename Slice>
void forEachEscapedSlice(TextView text, std::string& scratch, Slice&& slice) {
  constexpr std::size_t kSlice = 1 << 16;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t end = std::min(text.size(), at + kSlice);
    // A surrogate pair stays in one slice.
    if (end < text.size() && text[end - 1] >= 0xD800 && text[end - 1] <= 0xDBFF) --end;
    appendEscapedCharacters(scratch, toUtf8(text.substr(at, end - at)));
    slice(scratch);
    at = end;
  }
}

void appendText(std::string& out, TextView text) {
  out.reserve(out.size() + text.size() + 2);
  out += '"';
  forEachEscapedSlice(text, out, [](std::string&) {});
  out += '"';
}

// Keys come from attribute names and may hold any bytes; JSON needs UTF-8.
void appendKey(std::string& out, std::string_view key) {
  appendEscaped(out, toUtf8(fromUtf8(key)));
}

template <typename Integer>
void appendInteger(std::string& out, Integer value) {
  char buffer[24];
  auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
  out.append(buffer, end);
}

void appendReal(std::string& out, double value) {
  if (!std::isfinite(value)) {
    out += "null";
    return;
  }
  char buffer[32];
  auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
  std::string_view text(buffer, static_cast<std::size_t>(end - buffer));
  out += text;
  // Keep reals recognisable as reals.
  if (text.find_first_of(".e") == std::string_view::npos) out += ".0";
}

void appendValue(std::string& out, const PropertyValue& value);

void appendDictionary(std::string& out, const PropertyDictionary& dictionary) {
  out += '{';
  bool first = true;
  for (const auto& [key, value] : dictionary) {
    if (!first) out += ',';
    first = false;
    appendKey(out, key);
    out += ':';
    appendValue(out, value);
  }
  out += '}';
}

void appendValue(std::string& out, const PropertyValue& value) {
  using Kind = PropertyValue::Kind;
  switch (value.kind()) {
    case Kind::String:
      appendText(out, *value.string());
      return;
    case Kind::Integer:
      appendInteger(out, *value.integer());
      return;
    case Kind::Unsigned:
      appendInteger(out, *value.unsignedInteger());
      return;
    case Kind::Real:
      appendReal(out, *value.real());
      return;
    case Kind::Boolean:
      out += *value.boolean() ? "true" : "false";
      return;
    case Kind::Date:
      appendEscaped(out, isoDateString(*value.date()));
      return;
    case Kind::Data:
      out += '"';
      appendBase64(out, *value.data());
      out += '"';
      return;
    case Kind::Array: {
      out += '[';
      bool first = true;
      for (const PropertyValue& element : *value.array()) {
        if (!first) out += ',';
        first = false;
        appendValue(out, element);
      }
      out += ']';
      return;
    }
    case Kind::Dictionary:
      appendDictionary(out, *value.dictionary());
      return;
  }
}

}  // namespace

std::string isoDateString(Date date) {
  using namespace std::chrono;
  constexpr std::int64_t kMicrosecondsPerDay = 86'400'000'000;
  // The Gregorian calendar repeats every 400 years (146097 days); folding the day number into
  // one cycle keeps the calendar arithmetic inside the range of std::chrono::year.
  constexpr std::int64_t kDaysPerCycle = 146'097;
  std::int64_t day = date.microseconds / kMicrosecondsPerDay;
  std::int64_t timeOfDay = date.microseconds % kMicrosecondsPerDay;
  if (timeOfDay < 0) {
    timeOfDay += kMicrosecondsPerDay;
    --day;
  }
  std::int64_t cycle = day / kDaysPerCycle;
  if (day % kDaysPerCycle < 0) --cycle;
  year_month_day calendar{sys_days{days{day - cycle * kDaysPerCycle}}};
  std::int64_t yearNumber = static_cast<int>(calendar.year()) + cycle * 400;

  char yearText[24];
  if (yearNumber >= 0 && yearNumber <= 9999) {
    std::snprintf(yearText, sizeof yearText, "%04lld", static_cast<long long>(yearNumber));
  } else {
    std::snprintf(yearText, sizeof yearText, "%c%04lld", yearNumber < 0 ? '-' : '+',
                  static_cast<long long>(yearNumber < 0 ? -yearNumber : yearNumber));
  }
  std::int64_t seconds = timeOfDay / 1'000'000;
  char text[64];
  std::snprintf(text, sizeof text, "%s-%02u-%02uT%02lld:%02lld:%02lld.%06lldZ", yearText,
                static_cast<unsigned>(calendar.month()), static_cast<unsigned>(calendar.day()),
                static_cast<long long>(seconds / 3600), static_cast<long long>(seconds / 60 % 60),
                static_cast<long long>(seconds % 60),
                static_cast<long long>(timeOfDay % 1'000'000));
  return text;
}

std::string toJson(const PropertyValue& value) {
  std::string out;
  appendValue(out, value);
  return out;
}

std::string toJson(const ImportResult& result) {
  std::string out = "{";
  bool first = true;
  forEachJsonMember(result, [&](std::string_view key, const PropertyValue& value) {
    if (!first) out += ',';
    first = false;
    appendKey(out, key);
    out += ':';
    appendValue(out, value);
  });
  out += '}';
  return out;
}

void forEachJsonMember(const ImportResult& result,
                       const std::function<void(std::string_view, const PropertyValue&)>& member) {
  const PropertyDictionary& values = result.values();
  for (std::string_view key : ImportKey::All) {
    if (const PropertyValue* value = find(values, key)) member(key, *value);
  }
  for (const auto& [key, value] : values) {
    bool known = false;
    for (std::string_view fixed : ImportKey::All) known = known || fixed == key;
    if (!known) member(key, value);
  }
}

void writeJson(std::ostream& out, const PropertyValue& value) {
  const TextString* text = value.string();
  if (!text) {
    out << toJson(value);
    return;
  }
  std::string slice;
  out << '"';
  forEachEscapedSlice(*text, slice, [&](std::string& escaped) {
    out << escaped;
    escaped.clear();
  });
  out << '"';
}

}  // namespace ulvek
