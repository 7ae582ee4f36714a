#include "text/markup_scanner.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "base/deadline.h"
#include "base/log.h"
#include "text/character_tables.h"

namespace ulvek {
namespace {

// Units compared case-insensitively through the upper table against an upper-case ASCII text.
bool equalsUpperAscii(const char16_t* units, std::string_view upperAscii, ConversionTable upper) {
  for (std::size_t i = 0; i < upperAscii.size(); ++i) {
    if (upper[units[i]] != static_cast<unsigned char>(upperAscii[i])) return false;
  }
  return true;
}

// Index of the first unit in [from, end) equal to one of `targets`, or `end`. The scanner spends
// most of its time here, so whole blocks of units are compared at once where the machine can.
template <std::size_t N>
std::size_t findFirstOf(const char16_t* units, std::size_t from, std::size_t end,
                        const char16_t (&targets)[N]) {
#ifdef __SSE2__
  __m128i wanted[N];
  for (std::size_t t = 0; t < N; ++t) wanted[t] = _mm_set1_epi16(static_cast<short>(targets[t]));
  for (; from + 8 <= end; from += 8) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + from));
    __m128i hits = _mm_cmpeq_epi16(block, wanted[0]);
    for (std::size_t t = 1; t < N; ++t)
      hits = _mm_or_si128(hits, _mm_cmpeq_epi16(block, wanted[t]));
    if (const int mask = _mm_movemask_epi8(hits)) return from + (__builtin_ctz(mask) >> 1);
  }
#endif
  for (; from < end; ++from) {
    for (std::size_t t = 0; t < N; ++t) {
      if (units[from] == targets[t]) return from;
    }
  }
  return end;
}

constexpr char16_t kTagOpen[] = {u'<'};
constexpr char16_t kTagClose[] = {u'>'};
constexpr char16_t kTagSignificant[] = {u'>', u'=', u'"', u'\''};

// First occurrence of `marker` (upper-case ASCII, starting with "<") in [from, end), or kNotFound.
std::size_t findMarkerNoCase(const char16_t* units, std::size_t from, std::size_t end,
                             std::string_view marker, ConversionTable upper) {
  if (end < marker.size()) return kNotFound;
  const std::size_t last = end - marker.size() + 1;
  for (std::size_t i = findFirstOf(units, from, last, kTagOpen); i < last;
       i = findFirstOf(units, i + 1, last, kTagOpen)) {
    if (equalsUpperAscii(units + i + 1, marker.substr(1), upper)) return i;
  }
  return kNotFound;
}

// First occurrence of `needle` in [from, end), or kNotFound.
std::size_t findExact(const char16_t* units, std::size_t from, std::size_t end, TextView needle) {
  if (from >= end || end - from < needle.size()) return kNotFound;
  const char16_t first[] = {needle[0]};
  const std::size_t last = end - needle.size() + 1;
  for (std::size_t i = findFirstOf(units, from, last, first); i < last;
       i = findFirstOf(units, i + 1, last, first)) {
    if (TextView(units + i, needle.size()) == needle) return i;
  }
  return kNotFound;
}

// Raw-text elements whose bodies are skipped as a whole.
struct RawTextElement {
  std::string_view name;       // upper case
  std::string_view endMarker;  // upper case
};
constexpr RawTextElement kRawTextElements[] = {
    {"SCRIPT", "</SCRIPT"},
    {"STYLE", "</STYLE"},
};

class Scanner {
 public:
  // A scanner that is not `final` sees a window of a longer text: wherever the answer could
  // depend on units past the window it stops before the item instead (see run).
  Scanner(const char16_t* units, char16_t* mutableUnits, std::size_t length,
          MarkupTagHandler& handler, void* context, bool final = true)
      : units_(units),
        length_(length),
        final_(final),
        handler_(handler),
        tables_(characterTables()) {
    item_.text = TextView(units, length);
    item_.units = units;
    item_.mutableUnits = mutableUnits;
    item_.context = context;
  }

  // Reports the items and answers kNotFound; a window scanner answers instead, when it needs
  // units past the window, the location from which the next window must start: the start of the
  // text run in front of the first item not yet reported.
  std::size_t run() {
    const char16_t* const u = units_;
    const std::size_t n = length_;
    MarkupState state = MarkupState::Text;
    bool afterEquals = false;
    bool inDoubleQuotes = false;
    bool inSingleQuotes = false;
    bool singleDashComment = false;
    std::size_t tagLocation = 0;

    for (std::size_t p = 0; p < n; ++p) {
      if (readingTimeIsUp()) return endEarly();
      // Jump to the next unit that can change anything in this state.
      switch (state) {
        case MarkupState::Text:
          p = findFirstOf(u, p, n, kTagOpen);
          break;
        case MarkupState::Tag:
          p = findFirstOf(u, p, n, kTagSignificant);
          break;
        case MarkupState::Comment:
        case MarkupState::Section:
          p = findFirstOf(u, p, n, kTagClose);
          break;
      }
      if (p >= n) break;
      const char16_t c = u[p];
      switch (state) {
        case MarkupState::Text:
          if (c != u'<') continue;
          if (!final_ && p + 3 >= n) return item_.textLocation;
          tagLocation = p;
          if (p + 2 < n && u[p + 1] == u'!') {
            if (u[p + 2] == u'[') {
              state = MarkupState::Section;
              p += 2;
              continue;
            }
            if (u[p + 2] == u'-') {
              state = MarkupState::Comment;
              singleDashComment = !(p + 3 < n && u[p + 3] == u'-');
              p += 2;
              continue;
            }
          }
          state = MarkupState::Tag;
          continue;

        case MarkupState::Tag:
          if (c == u'=') {
            if (!inDoubleQuotes && !inSingleQuotes) afterEquals = true;
            continue;
          }
          if (c == u'"') {
            // A quote opens a value only right after "="; any other quote closes.
            inDoubleQuotes = afterEquals;
            afterEquals = false;
            continue;
          }
          if (c == u'\'') {
            inSingleQuotes = afterEquals;
            afterEquals = false;
            continue;
          }
          if (c != u'>' || inDoubleQuotes || inSingleQuotes) continue;
          break;

        case MarkupState::Comment:
          // The opener occupies [tagLocation, tagLocation + 3), so p - 3 is inside the text.
          if (c != u'>') continue;
          if (singleDashComment ? u[p - 1] == u'-' : (u[p - 1] == u'-' && u[p - 2] == u'-')) break;
          if (u[p - 1] == u'!' && u[p - 2] == u'-' && u[p - 3] == u'-') break;
          continue;

        case MarkupState::Section:
          if (c != u'>') continue;
          if (u[p - 1] == u']') break;
          if (u[p - 1] == u'-' && u[p - 2] == u'-' && u[p - 3] == u']') break;
          continue;
      }

      // The item ends at p.
      item_.nameLocation = kNotFound;
      item_.nameLength = 0;
      item_.tagLocation = tagLocation;
      item_.tagLength = p - tagLocation + 1;
      item_.state = state;
      if (state == MarkupState::Tag) {
        findName(tagLocation, p);
        if (item_.nameLength != 0) p = skipRawText(p);
        if (needsMore_) return item_.textLocation;
        item_.tagLength = p - tagLocation + 1;
      }
      if (handler_.handleItem(item_)) return kNotFound;
      afterEquals = inDoubleQuotes = inSingleQuotes = false;
      item_.textLocation = p + 1;
      state = MarkupState::Text;
    }

    if (!final_) return item_.textLocation;

    // A comment or section left open runs to the end; an open tag stays part of the text.
    if (state == MarkupState::Comment || state == MarkupState::Section) {
      item_.nameLocation = kNotFound;
      item_.nameLength = 0;
      item_.tagLocation = tagLocation;
      item_.tagLength = n - tagLocation;
      item_.state = state;
      if (handler_.handleItem(item_)) return kNotFound;
      item_.textLocation = n;
    }

    item_.nameLocation = kNotFound;
    item_.nameLength = 0;
    item_.tagLocation = n;
    item_.tagLength = 0;
    item_.state = MarkupState::Text;
    handler_.handleItem(item_);
    return kNotFound;
  }

 private:
  // Out of time: the handler hears the end of the text right here, so that it keeps what it has.
  std::size_t endEarly() {
    item_.nameLocation = kNotFound;
    item_.nameLength = 0;
    item_.textLocation = length_;
    item_.tagLocation = length_;
    item_.tagLength = 0;
    item_.state = MarkupState::Text;
    handler_.handleItem(item_);
    return kNotFound;
  }

  // The name starts at the first letter inside the tag and runs to white, "/" or ">".
  void findName(std::size_t tagLocation, std::size_t tagEnd) {
    const CharacterSetRep& letter = tables_.letter;
    const CharacterSetRep& white = tables_.whiteSpaceAndNewline;
    std::size_t start = tagLocation + 1;
    while (start < tagEnd && !letter.contains(units_[start])) ++start;
    if (start >= tagEnd) return;
    std::size_t end = start;
    while (end < tagEnd && units_[end] != u'/' && !white.contains(units_[end])) ++end;
    item_.nameLocation = start;
    item_.nameLength = end - start;
  }

  // For a script or style start tag ending at p, answers the position of the ">" that ends the
  // whole element, or p when the element has no end tag.
  std::size_t skipRawText(std::size_t p) {
    const char16_t* const u = units_;
    const std::size_t n = length_;
    const std::size_t tagLocation = item_.tagLocation;
    const std::size_t tagLength = p - tagLocation + 1;
    if (tagLength < 3 || u[tagLocation + 1] == u'/' || u[p - 1] == u'/') return p;

    const RawTextElement* element = nullptr;
    for (const RawTextElement& candidate : kRawTextElements) {
      if (item_.nameLength == candidate.name.size() &&
          equalsUpperAscii(u + item_.nameLocation, candidate.name, tables_.upper)) {
        element = &candidate;
        break;
      }
    }
    if (element == nullptr) return p;

    ForwardSearch& memo = endMarkerSearches_[element - kRawTextElements];
    std::size_t marker = memo.find(tagLocation + 1, [&](std::size_t from) {
      return findMarkerNoCase(u, from, n, element->endMarker, tables_.upper);
    });
    // Each search that reaches the end of a window may have an answer past it.
    if (marker == kNotFound) return needMore(p);
    // An end marker inside a "<!-- ... -->" hidden body does not count.
    std::size_t commentOpen = findExact(u, p + 1, marker, u"<!-");
    if (commentOpen != kNotFound) {
      std::size_t commentClose = findExact(u, commentOpen, n, u"-->");
      if (commentClose == kNotFound) {
        needMore(p);
      } else {
        std::size_t later =
            findMarkerNoCase(u, commentClose + 3, n, element->endMarker, tables_.upper);
        if (later != kNotFound)
          marker = later;
        else
          needMore(p);
      }
    }
    std::size_t end = marker + element->endMarker.size();
    while (end < n && u[end] != u'>') ++end;
    if (end >= n) needMore(p);
    // A marker inside the start tag's own quoted values must not move the scan backwards.
    return std::max(p, end < n ? end : n - 1);
  }

  // Searches for an end marker start further on each time. Without remembering the last answer,
  // every unterminated script tag would search the whole rest of the text again.
  struct ForwardSearch {
    std::size_t from = kNotFound;
    std::size_t found = kNotFound;
    template <class Search>
    std::size_t find(std::size_t start, Search search) {
      // The first match at or after `from` is also the first at or after any start up to it.
      if (from != kNotFound && start >= from && (found == kNotFound || start <= found))
        return found;
      from = start;
      found = search(start);
      return found;
    }
  };

  // Marks a window scanner as needing the units past its window; answers p.
  std::size_t needMore(std::size_t p) {
    if (!final_) needsMore_ = true;
    return p;
  }

  const char16_t* units_;
  std::size_t length_;
  bool final_;
  bool needsMore_ = false;
  ForwardSearch endMarkerSearches_[std::size(kRawTextElements)];
  MarkupTagHandler& handler_;
  const CharacterTables& tables_;
  MarkupItem item_;
};

bool withinText(TextView text, TextRange range) {
  return range.location <= text.size() && range.length <= text.size() - range.location;
}

}  // namespace

bool MarkupItem::nameIs(std::string_view asciiName) const {
  if (nameLength != asciiName.size()) return false;
  const CharacterTables& tables = characterTables();
  for (std::size_t i = 0; i < nameLength; ++i) {
    char ascii = asciiName[i];
    if (ascii >= 'a' && ascii <= 'z') ascii = static_cast<char>(ascii - 32);
    if (tables.upper[units[nameLocation + i]] != static_cast<unsigned char>(ascii)) return false;
  }
  return true;
}

bool ScanMarkup(TextView text, MarkupTagHandler& handler, void* context, bool mutableCopy) {
  if (text.empty()) return false;
  std::unique_ptr<char16_t[]> copy;
  const char16_t* units = text.data();
  if (mutableCopy) {
    copy = std::make_unique_for_overwrite<char16_t[]>(text.size());
    std::memcpy(copy.get(), text.data(), text.size() * sizeof(char16_t));
    units = copy.get();
  }
  Scanner scanner(units, copy.get(), text.size(), handler, context);
  scanner.run();
  return true;
}

bool parseXmlWithHandler(TextView text, MarkupTagHandler& handler, void* context,
                         bool mutableCopy) {
  try {
    return ScanMarkup(text, handler, context, mutableCopy);
  } catch (const std::exception& exception) {
    logException("parseXmlWithHandler:context:mutable:", "TextString", exception);
  } catch (...) {
    logUnknownException("parseXmlWithHandler:context:mutable:", "TextString");
  }
  return false;
}

bool parseXmlInWindows(MarkupTextFeed& feed, MarkupTagHandler& handler, std::size_t windowUnits) {
  try {
    TextString window;
    bool more = true;
    while (window.empty() && more) more = feed.appendMore(window, windowUnits);
    if (window.empty()) return false;
    for (;;) {
      Scanner scanner(window.data(), nullptr, window.size(), handler, nullptr, !more);
      const std::size_t resume = scanner.run();
      if (resume == kNotFound) return true;
      window.erase(0, resume);
      // A window held by one long item grows with it, so that rescanning it stays linear.
      more = feed.appendMore(window, std::max(windowUnits, window.size()));
    }
  } catch (const std::exception& exception) {
    logException("parseXmlWithHandler:context:mutable:", "TextString", exception);
  } catch (...) {
    logUnknownException("parseXmlWithHandler:context:mutable:", "TextString");
  }
  return false;
}

bool WholeMarkup::scan(MarkupTagHandler& handler) const {
  return parseXmlWithHandler(text_, handler, nullptr, false);
}

// ---- Attribute lookup ----

TextRange FindTagAttribute(const char16_t* units, TextRange tagRange, std::string_view name,
                           bool contentMode) {
  const std::size_t k = name.size();
  if (units == nullptr || k == 0 || k + 5 >= tagRange.length) return {};
  const CharacterTables& tables = characterTables();
  const CharacterSetRep& white = tables.whiteSpaceAndNewline;
  const CharacterSetRep& alphaNumeric = tables.alphaNumeric;
  const ConversionTable upper = tables.upper;
  const std::size_t start = tagRange.location;
  const std::size_t end = start + tagRange.length;
  const char16_t first = static_cast<unsigned char>(name[0]);

  std::size_t equals = kNotFound;
  for (std::size_t i = start; i + k <= end; ++i) {
    const char16_t c = units[i];
    if (c == u'"' || c == u'\'') {
      // Names inside values never match.
      ++i;
      while (i < end && units[i] != c) ++i;
      continue;
    }
    if (upper[c] != first) continue;
    if (i > start) {
      const char16_t before = units[i - 1];
      if (before == u'-' || before == u'_' || alphaNumeric.contains(before)) continue;
    }
    if (!equalsUpperAscii(units + i + 1, name.substr(1), upper)) continue;
    std::size_t q = i + k;
    while (q < end && white.contains(units[q])) ++q;
    if (q < end && units[q] == u'=') {
      equals = q;
      break;
    }
  }
  if (equals == kNotFound) return {};

  std::size_t q = equals + 1;
  while (q < end && units[q] == u'=') ++q;
  while (q < end && white.contains(units[q])) ++q;
  if (q >= end) return {};

  std::size_t valueStart = q;
  std::size_t valueEnd = q;
  const char16_t quote = units[q];
  if (quote != u'"' && quote != u'\'') {
    while (valueEnd < end && units[valueEnd] != u'>' && !white.contains(units[valueEnd])) {
      ++valueEnd;
    }
  } else if (!contentMode) {
    valueStart = valueEnd = q + 1;
    while (valueEnd < end && units[valueEnd] != quote && units[valueEnd] != u'>') ++valueEnd;
  } else {
    // Meta content sometimes carries markup of its own: let "<" ... ">" nest inside the quotes.
    valueStart = valueEnd = q + 1;
    std::ptrdiff_t level = 0;
    for (; valueEnd < end; ++valueEnd) {
      const char16_t c = units[valueEnd];
      if (c == quote) {
        if (level == 1) {
          if (valueEnd > valueStart && units[valueEnd - 1] == u'<') {
            valueEnd -= 1;
          } else if (valueEnd - valueStart >= 2 && units[valueEnd - 1] == u'/' &&
                     units[valueEnd - 2] == u'<') {
            valueEnd -= 2;
          }
        }
        break;
      }
      if (c == u'<') {
        if (valueEnd + 4 < end && equalsUpperAscii(units + valueEnd + 1, "META", upper)) break;
        ++level;
      } else if (c == u'>') {
        if (level == 0) {
          if (valueEnd != valueStart) break;
        } else {
          --level;
        }
      }
    }
  }

  while (valueEnd > valueStart && white.contains(units[valueEnd - 1])) --valueEnd;
  if (valueEnd == valueStart) return {};
  return {valueStart, valueEnd - valueStart};
}

TextRange rangeOfAttributeOfTagCharacters(const char16_t* units, TextRange tagRange,
                                          std::string_view name) {
  return FindTagAttribute(units, tagRange, name, false);
}

TextRange rangeOfAttributeOfTagCharacters(const char16_t* units, std::size_t length,
                                          std::string_view name) {
  return FindTagAttribute(units, {0, length}, name, false);
}

namespace {

std::optional<TextString> valueAt(const char16_t* units, TextRange range) {
  if (!range.found()) return std::nullopt;
  return TextString(units + range.location, range.length);
}

}  // namespace

std::optional<TextString> attributeOfTagCharacters(const char16_t* units, TextRange tagRange,
                                                   std::string_view name) {
  return valueAt(units, FindTagAttribute(units, tagRange, name, false));
}

std::optional<TextString> attributeOfTagCharacters(const char16_t* units, std::size_t length,
                                                   std::string_view name) {
  return valueAt(units, FindTagAttribute(units, {0, length}, name, false));
}

std::optional<TextString> contentAttributeOfTagCharacters(const char16_t* units,
                                                          TextRange tagRange) {
  return valueAt(units, FindTagAttribute(units, tagRange, "CONTENT", true));
}

std::optional<TextString> attributeOfTagWithName(TextView tag, std::string_view name) {
  return attributeOfTagCharacters(tag.data(), tag.size(), name);
}

std::optional<TextString> attributeOfTagInRange(TextView text, TextRange range,
                                                std::string_view name) {
  if (!withinText(text, range)) return std::nullopt;
  return attributeOfTagCharacters(text.data(), range, name);
}

// ---- Tag predicates ----

bool isTagOpenCharacters(const char16_t* units, TextRange range) {
  return range.length >= 3 && units[range.location + 1] != u'/';
}

bool isTagClosedCharacters(const char16_t* units, TextRange range) {
  return range.length >= 4 &&
         (units[range.location + 1] == u'/' || units[range.location + range.length - 2] == u'/');
}

namespace {

bool isSelfClosing(const char16_t* units, TextRange range) {
  return range.length >= 4 && units[range.location + range.length - 2] == u'/';
}

// At least 3 units, neither an end tag nor self-closing.
bool isStartTagOnly(const char16_t* units, TextRange range) {
  return range.length >= 3 && units[range.location + 1] != u'/' &&
         units[range.location + range.length - 2] != u'/';
}

bool hasMarker(TextView tag, char16_t second) {
  return tag.size() >= 7 && tag[1] == u'!' && tag[2] == second;
}

}  // namespace

bool isTagOpen(TextView tag) { return isTagOpenCharacters(tag.data(), {0, tag.size()}); }
bool isTagOpenInRange(TextView text, TextRange range) {
  return withinText(text, range) && isTagOpenCharacters(text.data(), range);
}
bool isTagClosed(TextView tag) { return isTagClosedCharacters(tag.data(), {0, tag.size()}); }
bool isTagClosedInRange(TextView text, TextRange range) {
  return withinText(text, range) && isTagClosedCharacters(text.data(), range);
}
bool isMetaTag(TextView tag) { return hasMarker(tag, u'['); }
bool isMetaTagInRange(TextView text, TextRange range) {
  return withinText(text, range) && isMetaTag(text.substr(range.location, range.length));
}
bool isRemarkTag(TextView tag) { return hasMarker(tag, u'-'); }
bool isRemarkTagInRange(TextView text, TextRange range) {
  return withinText(text, range) && isRemarkTag(text.substr(range.location, range.length));
}

// ---- Strip operations ----

TextString stripTags(TextView text) {
  TextString output;
  output.reserve(text.size());
  const CharacterSetRep& white = characterTables().whiteSpaceAndNewline;
  ScanMarkup(
      text,
      [&](const MarkupItem& item) {
        TextView run = item.textRun();
        if (run.empty()) return false;
        // An empty output counts as ending in white (its last unit reads as U+0000).
        if (!output.empty() && !white.contains(output.back())) output.push_back(u' ');
        output.append(run);
        return false;
      },
      nullptr, false);
  return output;
}

namespace {

bool nameEquals(const MarkupItem& item, std::string_view upperAscii, ConversionTable upper) {
  return item.nameLength == upperAscii.size() &&
         equalsUpperAscii(item.units + item.nameLocation, upperAscii, upper);
}

// Shared walk of stripTag and stripAttributesOfTag: items named `name` are replaced by what
// `replace` appends; the output exists only once such an item occurred.
template <typename Replace>
TextString rewriteTags(TextView text, std::string_view name, Replace replace) {
  if (name.empty()) return TextString(text);
  const ConversionTable upper = characterTables().upper;
  std::optional<TextString> output;
  ScanMarkup(
      text,
      [&](const MarkupItem& item) {
        if (nameEquals(item, name, upper)) {
          if (!output) {
            output.emplace(text.substr(0, item.tagLocation));
            output->reserve(text.size());
          } else {
            output->append(item.textRun());
          }
          replace(item, *output);
        } else if (output) {
          output->append(item.textRun());
          output->append(item.tag());
        }
        return false;
      },
      nullptr, false);
  return output ? std::move(*output) : TextString(text);
}

}  // namespace

TextString stripTag(TextView text, std::string_view name) {
  return rewriteTags(text, name, [](const MarkupItem&, TextString&) {});
}

TextString stripAttributesOfTag(TextView text, std::string_view name) {
  const TextString tagName = fromAscii(name);
  return rewriteTags(text, name, [&](const MarkupItem& item, TextString& output) {
    const TextRange range = item.tagRange();
    if (!isTagOpenCharacters(item.units, range)) {
      output.append(u"</").append(tagName).append(u">");
      return;
    }
    const bool selfClosing = isSelfClosing(item.units, range);
    for (std::string_view link : {std::string_view("HREF"), std::string_view("SRC")}) {
      TextRange value = FindTagAttribute(item.units, range, link, false);
      if (!value.found()) continue;
      output.append(u"<").append(tagName).append(u" ").append(fromAscii(link)).append(u"=\"");
      output.append(item.text.substr(value.location, value.length));
      output.append(selfClosing ? u"\"/>" : u"\">");
      return;
    }
    if (!selfClosing) output.append(u"<").append(tagName).append(u">");
  });
}

std::optional<TextString> stripTagBodies(TextView text, const std::vector<TextString>& prefixes,
                                         bool except) {
  if (prefixes.empty() || text.empty()) {
    return except ? std::nullopt : std::optional<TextString>(TextString(text));
  }
  const ConversionTable upper = characterTables().upper;
  std::optional<TextString> output;
  auto append = [&](TextView part) {
    if (part.empty()) return;
    if (!output) output.emplace().reserve(except ? 0 : text.size());
    output->append(part);
  };
  auto startsWithNoCase = [&](const MarkupItem& item, const TextString& prefix) {
    if (prefix.empty() || prefix.size() > item.tagLength) return false;
    for (std::size_t i = 0; i < prefix.size(); ++i) {
      if (upper[item.units[item.tagLocation + i]] != upper[prefix[i]]) return false;
    }
    return true;
  };
  auto sameName = [&](const MarkupItem& item, TextView name) {
    if (item.nameLength != name.size()) return false;
    for (std::size_t i = 0; i < name.size(); ++i) {
      if (upper[item.units[item.nameLocation + i]] != upper[name[i]]) return false;
    }
    return true;
  };

  TextView elementName;  // name of the element being removed or kept
  std::size_t depth = 0;
  ScanMarkup(
      text,
      [&](const MarkupItem& item) {
        const TextRange range = item.tagRange();
        if (depth == 0) {
          if (!except) append(item.textRun());
          bool matches = item.hasName() && isStartTagOnly(item.units, range);
          if (matches) {
            matches = false;
            for (const TextString& prefix : prefixes) {
              if (startsWithNoCase(item, prefix)) {
                matches = true;
                break;
              }
            }
          }
          if (!matches) {
            if (!except) append(item.tag());
            return false;
          }
          elementName = item.name();
          depth = 1;
          if (except) append(item.tag());
          return false;
        }

        if (except) append(item.textRun());
        if (item.hasName() && sameName(item, elementName)) {
          if (isStartTagOnly(item.units, range)) {
            ++depth;
          } else if (range.length >= 3) {
            --depth;
          }
        }
        if (except) {
          append(item.tag());
          if (depth == 0) append(u"\n");
        }
        return false;
      },
      nullptr, false);
  return output;
}

std::optional<TextString> stripTagBodies(TextView text, const std::vector<TextString>& prefixes) {
  return stripTagBodies(text, prefixes, false);
}

std::optional<TextString> stripTagBodiesExcept(TextView text,
                                               const std::vector<TextString>& prefixes) {
  return stripTagBodies(text, prefixes, true);
}

}  // namespace ulvek
