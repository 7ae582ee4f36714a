#include "text/string_utilities.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "text/character_tables.h"

namespace ulvek {

namespace {

const UChar* icuUnits(TextView text) { return reinterpret_cast<const UChar*>(text.data()); }
int32_t icuLength(TextView text) { return static_cast<int32_t>(text.size()); }

TextView trimmed(TextView text, const CharacterSetRep& rep) {
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end && rep.contains(text[begin])) ++begin;
  while (end > begin && rep.contains(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

const CharacterSetRep& trimRep(bool feeds) {
  return feeds ? *WhiteSpaceAndNewlineCharacterSetRep() : *WhiteSpaceCharacterSetRep();
}

// One pass: each maximal run of units in the class becomes one replacement unit. Answers nothing
// when that changes no unit, without allocating.
template <typename InClass>
std::optional<TextString> collapsed(TextView text, InClass inClass, char16_t replacement) {
  const std::size_t size = text.size();
  std::size_t first = 0;
  for (; first < size; ++first) {
    char16_t c = text[first];
    if (!inClass(c)) continue;
    if (c != replacement || (first + 1 < size && inClass(text[first + 1]))) break;
  }
  if (first == size) return std::nullopt;

  TextString result(size, u'\0');
  char16_t* out = result.data();
  std::copy(text.begin(), text.begin() + first, out);
  std::size_t length = first;
  for (std::size_t i = first; i < size;) {
    char16_t c = text[i++];
    if (!inClass(c)) {
      out[length++] = c;
      continue;
    }
    out[length++] = replacement;
    while (i < size && inClass(text[i])) ++i;
  }
  result.resize(length);
  return result;
}

auto spaceClass() {
  return [&rep = *WhiteSpaceCharacterSetRep()](char16_t c) { return rep.contains(c); };
}
auto whiteClass() {
  return [&rep = *WhiteSpaceAndNewlineCharacterSetRep()](char16_t c) { return rep.contains(c); };
}
auto lineBreakClass() {
  return [](char16_t c) { return isLineBreak(c); };
}

bool needsFixing(char16_t c) {
  return c == 0 || (c >= 0xD800 && c <= 0xDFFF) || (c >= 0xF400 && c <= 0xF8FF);
}

const UNormalizer2* normalizerFor(NormalizationForm form) {
  UErrorCode status = U_ZERO_ERROR;
  const UNormalizer2* normalizer = nullptr;
  switch (form) {
    case NormalizationForm::D:
      normalizer = unorm2_getNFDInstance(&status);
      break;
    case NormalizationForm::KD:
      normalizer = unorm2_getNFKDInstance(&status);
      break;
    case NormalizationForm::C:
      normalizer = unorm2_getNFCInstance(&status);
      break;
    case NormalizationForm::KC:
      normalizer = unorm2_getNFKCInstance(&status);
      break;
  }
  return U_SUCCESS(status) ? normalizer : nullptr;
}

// Normalises in place; the already normalised prefix is found by quick check and not redone.
void normalizeWith(const UNormalizer2* unormalizer, TextString& text) {
  if (!unormalizer || text.empty()) return;
  UErrorCode status = U_ZERO_ERROR;
  int32_t span = unorm2_spanQuickCheckYes(unormalizer, icuUnits(text), icuLength(text), &status);
  if (U_FAILURE(status) || span == icuLength(text)) return;

  auto* normalizer = reinterpret_cast<const icu::Normalizer2*>(unormalizer);
  icu::UnicodeString first(icuUnits(text), span);
  icu::UnicodeString rest(false, icuUnits(text) + span, icuLength(text) - span);
  normalizer->normalizeSecondAndAppend(first, rest, status);
  if (U_FAILURE(status)) return;
  text.assign(reinterpret_cast<const char16_t*>(first.getBuffer()),
              static_cast<std::size_t>(first.length()));
}

using CaseMapping = int32_t (*)(UChar*, int32_t, const UChar*, int32_t, const char*, UErrorCode*);

// Full case mapping without a locale (the root locale); unchanged on failure.
void caseMap(TextString& text, CaseMapping map) {
  if (text.empty()) return;
  TextString result(text.size() + 16, u'\0');
  UErrorCode status = U_ZERO_ERROR;
  int32_t length = map(reinterpret_cast<UChar*>(result.data()), icuLength(result), icuUnits(text),
                       icuLength(text), "", &status);
  if (status == U_BUFFER_OVERFLOW_ERROR) {
    result.assign(static_cast<std::size_t>(length), u'\0');
    status = U_ZERO_ERROR;
    length = map(reinterpret_cast<UChar*>(result.data()), icuLength(result), icuUnits(text),
                 icuLength(text), "", &status);
  }
  if (U_FAILURE(status)) return;
  result.resize(static_cast<std::size_t>(length));
  text = std::move(result);
}

int32_t toLower(UChar* dest, int32_t capacity, const UChar* src, int32_t length, const char* locale,
                UErrorCode* status) {
  return u_strToLower(dest, capacity, src, length, locale, status);
}

int32_t toUpper(UChar* dest, int32_t capacity, const UChar* src, int32_t length, const char* locale,
                UErrorCode* status) {
  return u_strToUpper(dest, capacity, src, length, locale, status);
}

// Simple (one-to-one) case folding of a BMP unit, so indexes keep their meaning.
char16_t foldedUnit(char16_t c) {
  if (c >= 0xD800 && c <= 0xDFFF) return c;
  UChar32 folded = u_foldCase(c, U_FOLD_CASE_DEFAULT);
  return folded <= 0xFFFF ? static_cast<char16_t>(folded) : c;
}

TextString foldedUnits(TextView text) {
  TextString result(text);
  for (char16_t& c : result) c = foldedUnit(c);
  return result;
}

std::string toPathBytes(TextView path) { return toUtf8(path); }

// Tilde expansion and lexical normalisation, without a trailing separator.
std::vector<std::string> standardizedComponents(TextView path) {
  std::string bytes = toPathBytes(path);
  if (!bytes.empty() && bytes[0] == '~' && (bytes.size() == 1 || bytes[1] == '/')) {
    if (const char* home = std::getenv("HOME")) bytes = std::string(home) + bytes.substr(1);
  }
  std::vector<std::string> components;
  for (const std::filesystem::path& part : std::filesystem::path(bytes).lexically_normal()) {
    if (!part.empty()) components.push_back(part.string());
  }
  return components;
}

}  // namespace

// ---- Trimming ----

TextView trimmedWhiteSpaces(TextView text) {
  return trimmed(text, characterTables().unicodeWhiteSpaceAndNewline);
}

TextString stringByTrimmingWhiteSpaces(TextView text) {
  return TextString(trimmedWhiteSpaces(text));
}

std::optional<TextString> stringByTrimmingWhiteSpacesIfChanged(TextView text) {
  TextView result = trimmedWhiteSpaces(text);
  if (result.size() == text.size()) return std::nullopt;
  return TextString(result);
}

TextString stringByTrimmingSpacesAndFeeds(TextView text, bool feeds) {
  return TextString(trimmed(text, trimRep(feeds)));
}

TextString stringByTrimmingSpacesInRange(TextView text, TextRange range, bool feeds) {
  if (range.location >= text.size() || range.length == 0) return TextString();
  return TextString(trimmed(text.substr(range.location, range.length), trimRep(feeds)));
}

// ---- Collapsing ----

std::optional<TextString> stringByRemovingMultipleSpacesIfChanged(TextView text) {
  return collapsed(text, spaceClass(), u' ');
}
std::optional<TextString> stringByRemovingMultipleWhiteSpacesIfChanged(TextView text) {
  return collapsed(text, whiteClass(), u' ');
}
std::optional<TextString> stringByRemovingMultipleFeedsIfChanged(TextView text) {
  return collapsed(text, lineBreakClass(), u'\n');
}

TextString stringByRemovingMultipleSpaces(TextView text) {
  std::optional<TextString> result = stringByRemovingMultipleSpacesIfChanged(text);
  return result ? std::move(*result) : TextString(text);
}
TextString stringByRemovingMultipleWhiteSpaces(TextView text) {
  std::optional<TextString> result = stringByRemovingMultipleWhiteSpacesIfChanged(text);
  return result ? std::move(*result) : TextString(text);
}
TextString stringByRemovingMultipleFeeds(TextView text) {
  std::optional<TextString> result = stringByRemovingMultipleFeedsIfChanged(text);
  return result ? std::move(*result) : TextString(text);
}

// ---- Cleaning and normalisation ----

void fixAndNormalizeString(TextString& text) {
  for (char16_t& c : text) {
    if (needsFixing(c)) c = u' ';
  }
  normalizeWith(normalizerFor(NormalizationForm::C), text);
}

TextString fixedAndNormalizedString(TextView text) {
  TextString result(text);
  fixAndNormalizeString(result);
  return result;
}

void normalizeString(TextString& text, NormalizationForm form) {
  normalizeWith(normalizerFor(form), text);
}
void normalizeString(TextString& text) { normalizeString(text, NormalizationForm::C); }

TextString normalizedString(TextView text, NormalizationForm form) {
  TextString result(text);
  normalizeString(result, form);
  return result;
}
TextString normalizedString(TextView text) { return normalizedString(text, NormalizationForm::C); }

void normalizeLowercaseString(TextString& text) {
  normalizeString(text);
  caseMap(text, toLower);
}

TextString normalizedLowercaseString(TextView text) {
  TextString result(text);
  normalizeLowercaseString(result);
  return result;
}

TextString normalizedUppercaseString(TextView text) {
  TextString result = normalizedString(text);
  caseMap(result, toUpper);
  return result;
}

// ---- Lines ----

std::vector<TextString> lines(TextView text) {
  std::vector<TextString> result;
  std::size_t start = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!isLineBreak(text[i])) continue;
    if (text[i] == u'\r' && i + 1 < text.size() && text[i + 1] == u'\n') ++i;
    result.emplace_back(text.substr(start, i + 1 - start));
    start = i + 1;
  }
  if (start < text.size()) result.emplace_back(text.substr(start));
  return result;
}

std::vector<TextString> configLines(TextView text) {
  const CharacterSetRep& white = *WhiteSpaceAndNewlineCharacterSetRep();
  std::vector<TextString> result;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = start;
    while (end < text.size() && !isLineBreak(text[end])) ++end;
    TextView line = trimmed(text.substr(start, end - start), white);
    if (line.size() >= 2 && line[0] != u'#') result.emplace_back(line);
    start = end + 1;
  }
  return result;
}

std::optional<TextString> configValueForKey(TextView line, TextView key) {
  if (line.size() <= key.size()) return std::nullopt;
  if (!isEqualToStringNoCase(line.substr(0, key.size()), key)) return std::nullopt;
  if (!isWhiteOrNewline(line[key.size()])) return std::nullopt;
  TextView value = trimmedWhiteSpaces(line.substr(key.size()));
  if (value.empty()) return std::nullopt;
  return TextString(value);
}

// ---- Characters ----

char16_t firstCharacter(TextView text) { return text.empty() ? 0 : text.front(); }
char16_t lastCharacter(TextView text) { return text.empty() ? 0 : text.back(); }

std::size_t findCharacter(TextView text, char16_t c, std::size_t startAt, bool caseInsensitive) {
  if (startAt >= text.size()) return kNotFound;
  ConversionTable upper = upperCharsTable();
  if (caseInsensitive && upper[c] != lowerCharsTable()[c]) {
    char16_t wanted = upper[c];
    for (std::size_t i = startAt; i < text.size(); ++i) {
      if (upper[text[i]] == wanted) return i;
    }
    return kNotFound;
  }
  std::size_t found = text.find(c, startAt);
  return found == TextView::npos ? kNotFound : found;
}

bool containsCharacter(TextView text, char16_t c, bool caseInsensitive) {
  return findCharacter(text, c, 0, caseInsensitive) != kNotFound;
}

bool containsCharacter(TextView text, char16_t c, std::size_t startAt, bool caseInsensitive) {
  return findCharacter(text, c, startAt, caseInsensitive) != kNotFound;
}

TextString stringByReplacingString(TextView text, TextView target, TextView replacement,
                                   bool caseSensitive) {
  if (target.empty() || target.size() > text.size()) return TextString(text);
  TextString foldedText;
  TextString foldedTarget;
  TextView haystack = text;
  TextView needle = target;
  if (!caseSensitive) {
    foldedText = foldedUnits(text);
    foldedTarget = foldedUnits(target);
    haystack = foldedText;
    needle = foldedTarget;
  }
  std::size_t found = haystack.find(needle);
  if (found == TextView::npos) return TextString(text);

  TextString result;
  result.reserve(text.size());
  std::size_t start = 0;
  while (found != TextView::npos) {
    result.append(text.substr(start, found - start));
    result.append(replacement);
    start = found + needle.size();
    found = haystack.find(needle, start);
  }
  result.append(text.substr(start));
  return result;
}

bool boolValue(TextView text) {
  // The integer value: leading white space, an optional sign, then digits.
  std::size_t i = 0;
  while (i < text.size() && isWhiteOrNewline(text[i])) ++i;
  if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) ++i;
  for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) {
    if (text[i] != u'0') return true;
  }
  return isEqualToStringNoCase(text, u"true") || isEqualToStringNoCase(text, u"yes") ||
         isEqualToStringNoCase(text, u"on");
}

// ---- Paths ----

bool pathIsInDirectory(TextView path, TextView directory) {
  while (!directory.empty() && directory.back() == u'/') directory.remove_suffix(1);
  if (directory.empty()) return false;
  if (path.substr(0, directory.size()) != directory) return false;
  return path.size() == directory.size() || path[directory.size()] == u'/';
}

bool pathIsInDirectories(TextView path, std::span<const TextString> directories) {
  for (const TextString& directory : directories) {
    if (pathIsInDirectory(path, directory)) return true;
  }
  return false;
}

TextString relativePathToDirectory(TextView path, TextView directory) {
  std::vector<std::string> pathParts = standardizedComponents(path);
  std::vector<std::string> directoryParts = standardizedComponents(directory);
  std::size_t matched = 0;
  while (matched < pathParts.size() && matched < directoryParts.size() &&
         pathParts[matched] == directoryParts[matched]) {
    ++matched;
  }
  std::string relative;
  if (matched == directoryParts.size()) {
    relative = "./";
  } else {
    for (std::size_t i = matched; i < directoryParts.size(); ++i) relative += "../";
  }
  for (std::size_t i = matched; i < pathParts.size(); ++i) {
    if (i > matched) relative += '/';
    relative += pathParts[i];
  }
  return fromUtf8(relative);
}

}  // namespace ulvek
