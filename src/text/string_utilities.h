#pragma once

// Trimming, white-space collapsing, cleaning and normalisation, lines, character search, truth
// values, replacement and path tests. Each operation is one pass over the UTF-16 units through the
// reps and tables of text/character_tables.h.
//
// Operations returning TextString give an unchanged copy when nothing changes. The ...IfChanged
// forms answer nothing instead, so a caller holding the string can keep it without a copy:
//   if (auto collapsed = stringByRemovingMultipleWhiteSpacesIfChanged(text)) text = *collapsed;

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "base/text_string.h"

namespace ulvek {

// ---- Trimming ----

// Trims Unicode white space and line breaks (Z categories, U+0009..U+000D, U+0085) at both ends.
TextString stringByTrimmingWhiteSpaces(TextView text);
std::optional<TextString> stringByTrimmingWhiteSpacesIfChanged(TextView text);
// The same bounds as a view into text (no copy).
TextView trimmedWhiteSpaces(TextView text);
// Trims the white class (feeds true) or the space class (feeds false) at both ends.
TextString stringByTrimmingSpacesAndFeeds(TextView text, bool feeds);
// The trimmed part of range (clipped to the text); "" for an empty, out-of-bounds or all-trimmed
// range.
TextString stringByTrimmingSpacesInRange(TextView text, TextRange range, bool feeds);

// ---- Collapsing: every maximal run of the class becomes one replacement unit ----

TextString stringByRemovingMultipleSpaces(TextView text);       // space class → U+0020
TextString stringByRemovingMultipleWhiteSpaces(TextView text);  // white class → U+0020
TextString stringByRemovingMultipleFeeds(TextView text);        // line breaks → U+000A
std::optional<TextString> stringByRemovingMultipleSpacesIfChanged(TextView text);
std::optional<TextString> stringByRemovingMultipleWhiteSpacesIfChanged(TextView text);
std::optional<TextString> stringByRemovingMultipleFeedsIfChanged(TextView text);

// ---- Cleaning and normalisation ----

// NUL, every surrogate unit and U+F400..U+F8FF become U+0020; then Form C.
TextString fixedAndNormalizedString(TextView text);
void fixAndNormalizeString(TextString& text);

enum class NormalizationForm { D = 0, KD = 1, C = 2, KC = 3 };

TextString normalizedString(TextView text);  // Form C
void normalizeString(TextString& text);
TextString normalizedLowercaseString(TextView text);  // Form C, then lower case, no locale
void normalizeLowercaseString(TextString& text);
TextString normalizedUppercaseString(TextView text);  // Form C, then upper case, no locale
TextString normalizedString(TextView text, NormalizationForm form);
void normalizeString(TextString& text, NormalizationForm form);

// ---- Lines ----

// Lines with their terminators; "\r\n" is one terminator. Empty text gives no lines.
std::vector<TextString> lines(TextView text);
// Non-empty, non-comment ("#") lines, trimmed, at least 2 units, without terminators.
std::vector<TextString> configLines(TextView text);
// For one configuration line: the trimmed rest after key (case-insensitive) and a white unit.
std::optional<TextString> configValueForKey(TextView line, TextView key);

// ---- Characters ----

char16_t firstCharacter(TextView text);  // 0 for empty
char16_t lastCharacter(TextView text);   // 0 for empty
// Index of the first unit at or after startAt equal to c, else kNotFound.
std::size_t findCharacter(TextView text, char16_t c, std::size_t startAt = 0,
                          bool caseInsensitive = false);
bool containsCharacter(TextView text, char16_t c, bool caseInsensitive = false);
bool containsCharacter(TextView text, char16_t c, std::size_t startAt, bool caseInsensitive);

// Every occurrence of target replaced; an unchanged copy when target is empty or absent.
TextString stringByReplacingString(TextView text, TextView target, TextView replacement,
                                   bool caseSensitive = true);

// YES for a non-zero integer value, or "true", "yes", "on" in any case.
bool boolValue(TextView text);

// ---- Paths ----

// The path is the directory itself or lies below it (trailing "/" of the directory ignored).
bool pathIsInDirectory(TextView path, TextView directory);
bool pathIsInDirectories(TextView path, std::span<const TextString> directories);
// "./rest" when path lies below directory, else one "../" per unmatched directory component.
TextString relativePathToDirectory(TextView path, TextView directory);

}  // namespace ulvek
