#pragma once

// Character classes and folding tables over UTF-16 code units.
//
// Every text loop classifies or maps a unit with one bitmap or table load instead of asking ICU per
// character. All reps and tables are built together on first use and kept for the life of the
// process. A surrogate half is classified and mapped as the 16-bit value it is.
//
// In a hot loop, fetch the rep or table once before the loop:
//   const CharacterSetRep& white = *WhiteSpaceAndNewlineCharacterSetRep();
//   for (char16_t c : text) if (white.contains(c)) ...
// The isWhiteOrNewline(c)-style helpers are fine for occasional tests.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "base/text_string.h"

namespace ulvek {

// Membership bitmap over the 65536 unit values: unit c is a member when bit (c & 7) of byte
// (c >> 3) is set, least significant bit first.
struct CharacterSetRep {
  static constexpr std::size_t kByteCount = 8192;
  std::uint8_t bytes[kByteCount];

  bool contains(char16_t c) const { return (bytes[c >> 3] >> (c & 7)) & 1u; }
  void insert(char16_t c) { bytes[c >> 3] |= static_cast<std::uint8_t>(1u << (c & 7)); }
};

// A unit-for-unit map: 65536 entries indexed by a code unit.
using ConversionTable = const char16_t*;
inline constexpr std::size_t kConversionTableSize = 65536;

// Everything built once; one instance per process, never freed. The build computes it from ICU
// and embeds the bytes in the program, so starting a process costs nothing.
struct CharacterTables {
  CharacterSetRep whiteSpace;            // Zs, U+0009, U+0000
  CharacterSetRep whiteSpaceAndNewline;  // all Z, U+000A..U+000D, U+0085 and 11 extras
  CharacterSetRep letter;                // L, M
  CharacterSetRep alphaNumeric;          // L, M, N
  CharacterSetRep decimalDigit;          // Nd
  CharacterSetRep lowercaseLetter;       // Ll
  CharacterSetRep uppercaseLetter;       // Lu, Lt
  CharacterSetRep empty;
  // The plain Unicode white space and line breaks, without the extras (used for trimming).
  CharacterSetRep unicodeWhiteSpaceAndNewline;

  char16_t lower[kConversionTableSize];
  char16_t upper[kConversionTableSize];
  char16_t umlauts[kConversionTableSize];  // diacritic fold
  char16_t lowerUmlauts[kConversionTableSize];
  char16_t upperUmlauts[kConversionTableSize];

  char16_t firstLetterCharacter = 0;
  char16_t lastLetterCharacter = 0;
};

// The embedded tables, or (in the generator, or if they are missing) tables computed on first
// call; thread-safe, always the same object.
const CharacterTables& buildCharacterTables();
// Computes the tables from ICU, as the build does.
std::unique_ptr<CharacterTables> computeCharacterTables();
inline const CharacterTables& characterTables() {
  static const CharacterTables& tables = buildCharacterTables();
  return tables;
}

// The reps.
inline const CharacterSetRep* WhiteSpaceCharacterSetRep() { return &characterTables().whiteSpace; }
inline const CharacterSetRep* WhiteSpaceAndNewlineCharacterSetRep() {
  return &characterTables().whiteSpaceAndNewline;
}
inline const CharacterSetRep* LetterCharacterSetRep() { return &characterTables().letter; }
inline const CharacterSetRep* AlphaNumericCharacterSetRep() {
  return &characterTables().alphaNumeric;
}
inline const CharacterSetRep* DecimalDigitCharacterSetRep() {
  return &characterTables().decimalDigit;
}
inline const CharacterSetRep* LowercaseLetterCharacterSetRep() {
  return &characterTables().lowercaseLetter;
}
inline const CharacterSetRep* UppercaseLetterCharacterSetRep() {
  return &characterTables().uppercaseLetter;
}
inline const CharacterSetRep* EmptyCharacterSetRep() { return &characterTables().empty; }

// Lowest and highest unit of the letter rep.
inline char16_t FirstLetterCharacter() { return characterTables().firstLetterCharacter; }
inline char16_t LastLetterCharacter() { return characterTables().lastLetterCharacter; }

// One-unit class tests.
inline bool isSpace(char16_t c) { return characterTables().whiteSpace.contains(c); }
inline bool isWhiteOrNewline(char16_t c) {
  return characterTables().whiteSpaceAndNewline.contains(c);
}
inline bool isLetter(char16_t c) { return characterTables().letter.contains(c); }
inline bool isAlphaNumeric(char16_t c) { return characterTables().alphaNumeric.contains(c); }
inline bool isDecimalDigit(char16_t c) { return characterTables().decimalDigit.contains(c); }
inline bool isLowercaseLetter(char16_t c) { return characterTables().lowercaseLetter.contains(c); }
inline bool isUppercaseLetter(char16_t c) { return characterTables().uppercaseLetter.contains(c); }
// Line-break units: U+000A, U+000C, U+000D, U+0003, U+2028, U+2029, U+FFFC, U+FEFF.
inline constexpr bool isLineBreak(char16_t c) {
  return c == 0x0A || c == 0x0C || c == 0x0D || c == 0x03 || c == 0x2028 || c == 0x2029 ||
         c == 0xFFFC || c == 0xFEFF;
}

// The five mapping tables (65536 entries each).
inline ConversionTable lowerCharsTable() { return characterTables().lower; }
inline ConversionTable upperCharsTable() { return characterTables().upper; }
inline ConversionTable umlautsCharsTable() { return characterTables().umlauts; }
inline ConversionTable lowerUmlautsCharsTable() { return characterTables().lowerUmlauts; }
inline ConversionTable upperUmlautsCharsTable() { return characterTables().upperUmlauts; }

// Per-unit accessors.
inline char16_t LowerChar(char16_t c) { return characterTables().lower[c]; }
inline char16_t UpperChar(char16_t c) { return characterTables().upper[c]; }
inline char16_t NonUmlautedChar(char16_t c) { return characterTables().umlauts[c]; }
inline char16_t LowerNonUmlautedChar(char16_t c) { return characterTables().lowerUmlauts[c]; }
inline char16_t UpperNonUmlautedChar(char16_t c) { return characterTables().upperUmlauts[c]; }
// fold[c] when it is ASCII, else a space.
inline char16_t AsciiChar(char16_t c) {
  char16_t folded = characterTables().umlauts[c];
  return folded < 128 ? folded : u' ';
}
inline char16_t UpperAsciiChar(char16_t c) {
  char16_t folded = AsciiChar(c);
  return (folded >= u'a' && folded <= u'z') ? static_cast<char16_t>(folded - 32) : folded;
}
inline char16_t LowerAsciiChar(char16_t c) {
  char16_t folded = AsciiChar(c);
  return (folded >= u'A' && folded <= u'Z') ? static_cast<char16_t>(folded + 32) : folded;
}

// ---- HTML character entities (HTML 4.01 less amp, lt, gt, quot, cedil, fnof) ----

struct HtmlEntity {
  std::string_view name;  // ASCII, case-sensitive
  char16_t character;
};

// The 246 entities.
std::span<const HtmlEntity> htmlEntityTable();
// Builds the reverse index once (and makes sure the reps exist); later calls do nothing.
void initConversionTables();
// The character for an entity name, exact and case-sensitive.
std::optional<char16_t> htmlEntityCharacter(std::string_view name);
std::optional<char16_t> htmlEntityCharacter(TextView name);
// Position in htmlEntityTable() of the entity for a character, through the reverse index.
std::optional<std::size_t> htmlEntityIndexForCharacter(char16_t c);
// The entity name for a character, or nothing when it has none.
std::optional<std::string_view> htmlEntityName(char16_t c);

// ---- String operations (receiver first) ----

// Set tests. A null rep behaves as an empty string.
bool containsCharacterPartOfCharacterSetRep(TextView text, const CharacterSetRep* rep);
bool containsAlphaNumCharacter(TextView text);
bool containsAlphaCharacter(TextView text);
bool containsWhiteCharacter(TextView text);
bool containsDigitCharacter(TextView text);

std::size_t countCharactersPartOfCharacterSetRep(TextView text, const CharacterSetRep* rep);
std::size_t countAlphaNumCharacters(TextView text);
std::size_t countAlphaCharacters(TextView text);
std::size_t countWhiteCharacters(TextView text);
std::size_t countDigitCharacters(TextView text);

bool isSpaceString(TextView text);     // YES for empty
bool isWhiteString(TextView text);     // YES for empty
bool isDigitString(TextView text);     // NO for empty
bool isAlphaString(TextView text);     // NO for empty
bool isAlphaNumString(TextView text);  // NO for empty
bool isAsciiString(TextView text);     // YES for empty
bool isUmlautedString(TextView text);  // some unit changes under the fold table
bool isLowerCaseString(TextView text);
bool isUpperCaseString(TextView text);
// Two capitalised words run together ('MacBook', 'HelloWorld').
bool isMashedWord(TextView text);

// Comparisons. The one family of case-insensitive comparisons: ICU's full case folding
// (isEqualToStringNoCase, and with canonical equivalence isCanonicallyEqualToStringNoCase),
// ASCII letters only (IgnoringAsciiCase), the fold tables unit for unit (NoCase below and the
// non-umlauted and ASCII forms).
bool isEqualToStringNoCase(TextView text, TextView other);
// Canonically equivalent once case is folded: a decomposed "E\u0301" equals "\u00E9", "STRASSE"
// equals "Stra\u00DFe". Exact comparison when ICU fails.
bool isCanonicallyEqualToStringNoCase(TextView text, TextView other);
// A-Z and a-z alike, every other unit exact: for names that are ASCII by definition
// (extensions, MIME types, keywords), where "\u212A" must not match "k".
bool isEqualToStringIgnoringAsciiCase(TextView text, TextView other);
bool hasPrefixIgnoringAsciiCase(TextView text, TextView prefix);
bool containsIgnoringAsciiCase(TextView text, TextView part);
// Equal unit for unit once both sides go through the lower-case table.
bool isLowerEqualToStringNoCase(TextView text, TextView other);
bool hasSuffixNoCase(TextView text, TextView suffix);
bool containsNoCase(TextView text, TextView part);
bool isAsciiEqualToStringNoCase(TextView text, TextView other);
bool isNonUmlautedEqualToStringNoCase(TextView text, TextView other);
// The receiver's units in range against other; false when the range is out of bounds.
bool rangeIsAsciiEqualToNoCase(TextView text, TextRange range, TextView other);
bool rangeIsNonUmlautedEqualToNoCase(TextView text, TextRange range, TextView other);

// Removal and mapping. Each returns a new string (a copy of the receiver when nothing applies).
TextString stringByRemovingCharactersInRep(TextView text, const CharacterSetRep* rep);
TextString stringByRemovingWhiteSpaces(TextView text);
TextString stringByApplyingConversionTable(TextView text, ConversionTable table);
TextString stringByRemovingNonAlphaNumericCharactersAndApplyingConversionTable(
    TextView text, ConversionTable table);
TextString nonUmlautedString(TextView text);
TextString lowercaseNonUmlautedString(TextView text);
TextString uppercaseNonUmlautedString(TextView text);
// Form C first, then the fold.
TextString nonUmlautedNormalizedString(TextView text);
TextString lowercaseNonUmlautedNormalizedString(TextView text);
TextString uppercaseNonUmlautedNormalizedString(TextView text);
// Form C, then AsciiChar / LowerAsciiChar / UpperAsciiChar per unit.
TextString asciiString(TextView text);
TextString lowercaseAsciiString(TextView text);
TextString uppercaseAsciiString(TextView text);

// In-place mapping for callers that own the string.
void applyConversionTable(TextString& text, ConversionTable table);

}  // namespace ulvek
