#include "text/character_tables.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace ulvek {
namespace {

// ---- Reps ----

struct MembershipRow {
  const char* name;
  const CharacterSetRep* (*rep)();
  char16_t unit;
  bool member;
};

TEST(CharacterTables, RepMembership) {
  const std::vector<MembershipRow> rows = {
      {"space: U+0020", WhiteSpaceCharacterSetRep, 0x0020, true},
      {"space: tab", WhiteSpaceCharacterSetRep, 0x0009, true},
      {"space: NUL", WhiteSpaceCharacterSetRep, 0x0000, true},
      {"space: no-break space", WhiteSpaceCharacterSetRep, 0x00A0, true},
      {"space: ideographic space", WhiteSpaceCharacterSetRep, 0x3000, true},
      {"space: line feed", WhiteSpaceCharacterSetRep, 0x000A, false},
      {"space: carriage return", WhiteSpaceCharacterSetRep, 0x000D, false},
      {"space: zero width space (Cf)", WhiteSpaceCharacterSetRep, 0x200B, false},
      {"space: U+0001", WhiteSpaceCharacterSetRep, 0x0001, false},

      {"white: NUL", WhiteSpaceAndNewlineCharacterSetRep, 0x0000, true},
      {"white: ETX", WhiteSpaceAndNewlineCharacterSetRep, 0x0003, true},
      {"white: tab", WhiteSpaceAndNewlineCharacterSetRep, 0x0009, true},
      {"white: line feed", WhiteSpaceAndNewlineCharacterSetRep, 0x000A, true},
      {"white: vertical tab", WhiteSpaceAndNewlineCharacterSetRep, 0x000B, true},
      {"white: form feed", WhiteSpaceAndNewlineCharacterSetRep, 0x000C, true},
      {"white: carriage return", WhiteSpaceAndNewlineCharacterSetRep, 0x000D, true},
      {"white: next line", WhiteSpaceAndNewlineCharacterSetRep, 0x0085, true},
      {"white: no-break space", WhiteSpaceAndNewlineCharacterSetRep, 0x00A0, true},
      {"white: line separator", WhiteSpaceAndNewlineCharacterSetRep, 0x2028, true},
      {"white: paragraph separator", WhiteSpaceAndNewlineCharacterSetRep, 0x2029, true},
      {"white: ideographic space", WhiteSpaceAndNewlineCharacterSetRep, 0x3000, true},
      {"white: byte-order mark", WhiteSpaceAndNewlineCharacterSetRep, 0xFEFF, true},
      {"white: object replacement", WhiteSpaceAndNewlineCharacterSetRep, 0xFFFC, true},
      {"white: U+0001", WhiteSpaceAndNewlineCharacterSetRep, 0x0001, false},
      {"white: U+0004", WhiteSpaceAndNewlineCharacterSetRep, 0x0004, false},
      {"white: U+000E", WhiteSpaceAndNewlineCharacterSetRep, 0x000E, false},
      {"white: replacement character", WhiteSpaceAndNewlineCharacterSetRep, 0xFFFD, false},
      {"white: zero width space", WhiteSpaceAndNewlineCharacterSetRep, 0x200B, false},
      {"white: high surrogate", WhiteSpaceAndNewlineCharacterSetRep, 0xD83D, false},
      {"white: letter", WhiteSpaceAndNewlineCharacterSetRep, u'a', false},

      {"letter: a", LetterCharacterSetRep, u'a', true},
      {"letter: A (lowest)", LetterCharacterSetRep, u'A', true},
      {"letter: @ (below A)", LetterCharacterSetRep, u'@', false},
      {"letter: [ (after Z)", LetterCharacterSetRep, u'[', false},
      {"letter: feminine ordinal (Lo)", LetterCharacterSetRep, 0x00AA, true},
      {"letter: combining acute (Mn)", LetterCharacterSetRep, 0x0301, true},
      {"letter: CJK ideograph", LetterCharacterSetRep, 0x4E00, true},
      {"letter: Hangul syllable", LetterCharacterSetRep, 0xAC00, true},
      {"letter: digit", LetterCharacterSetRep, u'0', false},
      {"letter: multiplication sign", LetterCharacterSetRep, 0x00D7, false},
      {"letter: low surrogate", LetterCharacterSetRep, 0xDC00, false},
      {"letter: U+FFFF", LetterCharacterSetRep, 0xFFFF, false},

      {"alphanumeric: digit", AlphaNumericCharacterSetRep, u'7', true},
      {"alphanumeric: superscript two (No)", AlphaNumericCharacterSetRep, 0x00B2, true},
      {"alphanumeric: roman numeral (Nl)", AlphaNumericCharacterSetRep, 0x2160, true},
      {"alphanumeric: Arabic-Indic digit", AlphaNumericCharacterSetRep, 0x0660, true},
      {"alphanumeric: letter", AlphaNumericCharacterSetRep, 0x00E9, true},
      {"alphanumeric: hyphen", AlphaNumericCharacterSetRep, u'-', false},
      {"alphanumeric: underscore", AlphaNumericCharacterSetRep, u'_', false},

      {"digit: 0", DecimalDigitCharacterSetRep, u'0', true},
      {"digit: 9", DecimalDigitCharacterSetRep, u'9', true},
      {"digit: / (before 0)", DecimalDigitCharacterSetRep, u'/', false},
      {"digit: : (after 9)", DecimalDigitCharacterSetRep, u':', false},
      {"digit: Arabic-Indic", DecimalDigitCharacterSetRep, 0x0660, true},
      {"digit: fullwidth", DecimalDigitCharacterSetRep, 0xFF10, true},
      {"digit: superscript two", DecimalDigitCharacterSetRep, 0x00B2, false},

      {"lowercase: a", LowercaseLetterCharacterSetRep, u'a', true},
      {"lowercase: sharp s", LowercaseLetterCharacterSetRep, 0x00DF, true},
      {"lowercase: A", LowercaseLetterCharacterSetRep, u'A', false},
      {"lowercase: titlecase Dz", LowercaseLetterCharacterSetRep, 0x01C5, false},
      {"lowercase: feminine ordinal (Lo)", LowercaseLetterCharacterSetRep, 0x00AA, false},
      {"lowercase: ` (before a)", LowercaseLetterCharacterSetRep, u'`', false},
      {"lowercase: { (after z)", LowercaseLetterCharacterSetRep, u'{', false},

      {"uppercase: A", UppercaseLetterCharacterSetRep, u'A', true},
      {"uppercase: Z", UppercaseLetterCharacterSetRep, u'Z', true},
      {"uppercase: titlecase Dz", UppercaseLetterCharacterSetRep, 0x01C5, true},
      {"uppercase: capital I with dot", UppercaseLetterCharacterSetRep, 0x0130, true},
      {"uppercase: a", UppercaseLetterCharacterSetRep, u'a', false},
      {"uppercase: CJK", UppercaseLetterCharacterSetRep, 0x4E00, false},

      {"empty: NUL", EmptyCharacterSetRep, 0x0000, false},
      {"empty: a", EmptyCharacterSetRep, u'a', false},
      {"empty: U+FFFF", EmptyCharacterSetRep, 0xFFFF, false},
  };
  for (const MembershipRow& row : rows) {
    EXPECT_EQ(row.rep()->contains(row.unit), row.member) << row.name;
  }
}

TEST(CharacterTables, RepsAreBuiltOnceAndKept) {
  EXPECT_EQ(WhiteSpaceCharacterSetRep(), WhiteSpaceCharacterSetRep());
  EXPECT_EQ(lowerCharsTable(), lowerCharsTable());
  EXPECT_EQ(&characterTables(), &buildCharacterTables());
}

TEST(CharacterTables, BitLayoutIsLeastSignificantBitFirst) {
  const CharacterSetRep& letters = *LetterCharacterSetRep();
  // 'A' is 0x41: byte 8, bit 1.
  EXPECT_EQ(letters.bytes[8] & 0x02, 0x02);
  EXPECT_EQ(letters.bytes[8] & 0x01, 0x00);  // '@'
  const CharacterSetRep& empty = *EmptyCharacterSetRep();
  for (std::uint8_t byte : empty.bytes) ASSERT_EQ(byte, 0);
}

TEST(CharacterTables, HelpersAgreeWithReps) {
  for (std::uint32_t c = 0; c < 0x10000; ++c) {
    char16_t unit = static_cast<char16_t>(c);
    ASSERT_EQ(isSpace(unit), WhiteSpaceCharacterSetRep()->contains(unit)) << c;
    ASSERT_EQ(isWhiteOrNewline(unit), WhiteSpaceAndNewlineCharacterSetRep()->contains(unit)) << c;
    ASSERT_EQ(isLetter(unit), LetterCharacterSetRep()->contains(unit)) << c;
    // Every line break is white.
    ASSERT_TRUE(!isLineBreak(unit) || isWhiteOrNewline(unit)) << c;
    // Space is a subset of white, letters and digits of alphanumerics, cased letters of letters.
    ASSERT_TRUE(!isSpace(unit) || isWhiteOrNewline(unit)) << c;
    ASSERT_TRUE(!(isLetter(unit) || isDecimalDigit(unit)) || isAlphaNumeric(unit)) << c;
    ASSERT_TRUE(!(isLowercaseLetter(unit) || isUppercaseLetter(unit)) || isLetter(unit)) << c;
  }
}

TEST(CharacterTables, FirstAndLastLetter) {
  EXPECT_EQ(FirstLetterCharacter(), u'A');
  char16_t last = LastLetterCharacter();
  EXPECT_TRUE(isLetter(last));
  for (std::uint32_t c = last + 1u; c < 0x10000; ++c) {
    ASSERT_FALSE(isLetter(static_cast<char16_t>(c))) << c;
  }
}

// ---- Mapping tables ----

struct MappingRow {
  const char* name;
  ConversionTable (*table)();
  char16_t from;
  char16_t to;
};

TEST(CharacterTables, MappingEntries) {
  const std::vector<MappingRow> rows = {
      {"lower: A acute", lowerCharsTable, 0x00C1, 0x00E1},
      {"lower: A", lowerCharsTable, u'A', u'a'},
      {"lower: a stays", lowerCharsTable, u'a', u'a'},
      {"lower: capital I dot (two units) stays", lowerCharsTable, 0x0130, 0x0130},
      {"lower: Greek Alpha", lowerCharsTable, 0x0391, 0x03B1},
      {"lower: Cyrillic A", lowerCharsTable, 0x0410, 0x0430},
      {"lower: titlecase Dz", lowerCharsTable, 0x01C5, 0x01C6},
      {"lower: Kelvin sign", lowerCharsTable, 0x212A, u'k'},
      {"lower: digit", lowerCharsTable, u'5', u'5'},
      {"lower: high surrogate", lowerCharsTable, 0xD801, 0xD801},

      {"upper: sharp s (two units) stays", upperCharsTable, 0x00DF, 0x00DF},
      {"upper: a", upperCharsTable, u'a', u'A'},
      {"upper: a acute", upperCharsTable, 0x00E1, 0x00C1},
      {"upper: y diaeresis", upperCharsTable, 0x00FF, 0x0178},
      {"upper: final sigma", upperCharsTable, 0x03C2, 0x03A3},
      {"upper: fi ligature (two units) stays", upperCharsTable, 0xFB01, 0xFB01},
      {"upper: n apostrophe (two units) stays", upperCharsTable, 0x0149, 0x0149},
      {"upper: A stays", upperCharsTable, u'A', u'A'},
      {"upper: U+FFFF", upperCharsTable, 0xFFFF, 0xFFFF},

      {"fold: a acute", umlautsCharsTable, 0x00E1, u'a'},
      {"fold: A ring", umlautsCharsTable, 0x00C5, u'A'},
      {"fold: o diaeresis", umlautsCharsTable, 0x00F6, u'o'},
      {"fold: c cedilla", umlautsCharsTable, 0x00E7, u'c'},
      {"fold: n tilde", umlautsCharsTable, 0x00F1, u'n'},
      {"fold: sharp s stays", umlautsCharsTable, 0x00DF, 0x00DF},
      {"fold: o stroke (no decomposition)", umlautsCharsTable, 0x00F8, u'o'},
      {"fold: L stroke (no decomposition)", umlautsCharsTable, 0x0141, u'L'},
      {"fold: D stroke (no decomposition)", umlautsCharsTable, 0x0110, u'D'},
      {"fold: h stroke (no decomposition)", umlautsCharsTable, 0x0127, u'h'},
      {"fold: Dz digraph stays", umlautsCharsTable, 0x01F2, 0x01F2},
      {"fold: Ukrainian ghe with upturn stays", umlautsCharsTable, 0x0491, 0x0491},
      {"fold: Kazakh ka with descender stays", umlautsCharsTable, 0x049B, 0x049B},
      {"fold: AE stays", umlautsCharsTable, 0x00C6, 0x00C6},
      {"fold: AE acute", umlautsCharsTable, 0x01FC, 0x00C6},
      {"fold: fi ligature stays", umlautsCharsTable, 0xFB01, 0xFB01},
      {"fold: oe ligature stays", umlautsCharsTable, 0x0153, 0x0153},
      {"fold: Cyrillic short i", umlautsCharsTable, 0x0439, 0x0438},
      {"fold: Cyrillic io", umlautsCharsTable, 0x0451, 0x0435},
      {"fold: Greek alpha tonos", umlautsCharsTable, 0x03AC, 0x03B1},
      {"fold: hiragana ga", umlautsCharsTable, 0x304C, 0x304B},
      {"fold: Hangul syllable stays", umlautsCharsTable, 0xAC00, 0xAC00},
      {"fold: CJK stays", umlautsCharsTable, 0x4E00, 0x4E00},
      {"fold: lone combining acute stays", umlautsCharsTable, 0x0301, 0x0301},
      {"fold: punctuation stays", umlautsCharsTable, u'!', u'!'},
      {"fold: digit stays", umlautsCharsTable, u'3', u'3'},

      {"upperfold: a acute", upperUmlautsCharsTable, 0x00E1, u'A'},
      {"upperfold: o diaeresis", upperUmlautsCharsTable, 0x00F6, u'O'},
      {"upperfold: sharp s stays", upperUmlautsCharsTable, 0x00DF, 0x00DF},
      {"lowerfold: E acute", lowerUmlautsCharsTable, 0x00C9, u'e'},
      {"lowerfold: capital I dot loses its dot", lowerUmlautsCharsTable, 0x0130, u'i'},
      {"lowerfold: Cyrillic capital short i", lowerUmlautsCharsTable, 0x0419, 0x0438},
  };
  for (const MappingRow& row : rows) {
    EXPECT_EQ(static_cast<int>(row.table()[row.from]), static_cast<int>(row.to)) << row.name;
  }
}

TEST(CharacterTables, NonLettersMapToThemselvesInEveryTable) {
  const ConversionTable tables[] = {lowerCharsTable(), upperCharsTable(), umlautsCharsTable(),
                                    lowerUmlautsCharsTable(), upperUmlautsCharsTable()};
  for (std::uint32_t c = 0; c < 0x10000; ++c) {
    char16_t unit = static_cast<char16_t>(c);
    if (isLetter(unit)) continue;
    for (ConversionTable table : tables) ASSERT_EQ(table[unit], unit) << c;
  }
}

TEST(CharacterTables, CombinedTablesComposeCaseAndFold) {
  for (std::uint32_t c = 0; c < 0x10000; ++c) {
    char16_t folded = umlautsCharsTable()[c];
    ASSERT_EQ(lowerUmlautsCharsTable()[c], lowerCharsTable()[folded]) << c;
    ASSERT_EQ(upperUmlautsCharsTable()[c], upperCharsTable()[folded]) << c;
    // Case mapping only ever touches its governing set.
    char16_t unit = static_cast<char16_t>(c);
    ASSERT_TRUE(isUppercaseLetter(unit) || lowerCharsTable()[c] == unit) << c;
    ASSERT_TRUE(isLowercaseLetter(unit) || upperCharsTable()[c] == unit) << c;
  }
}

struct AccessorRow {
  const char* name;
  char16_t (*accessor)(char16_t);
  char16_t from;
  char16_t to;
};

TEST(CharacterTables, PerUnitAccessors) {
  const std::vector<AccessorRow> rows = {
      {"LowerChar", LowerChar, 0x00C4, 0x00E4},
      {"UpperChar", UpperChar, 0x00E4, 0x00C4},
      {"NonUmlautedChar", NonUmlautedChar, 0x00E4, u'a'},
      {"LowerNonUmlautedChar", LowerNonUmlautedChar, 0x00C4, u'a'},
      {"UpperNonUmlautedChar", UpperNonUmlautedChar, 0x00E4, u'A'},
      {"AsciiChar: e acute", AsciiChar, 0x00E9, u'e'},
      {"AsciiChar: DEL stays", AsciiChar, 0x007F, 0x007F},
      {"AsciiChar: CJK becomes space", AsciiChar, 0x4E00, u' '},
      {"AsciiChar: sharp s becomes space", AsciiChar, 0x00DF, u' '},
      {"AsciiChar: surrogate becomes space", AsciiChar, 0xD83D, u' '},
      {"UpperAsciiChar: e acute", UpperAsciiChar, 0x00E9, u'E'},
      {"UpperAsciiChar: digit", UpperAsciiChar, u'4', u'4'},
      {"UpperAsciiChar: brace stays", UpperAsciiChar, u'{', u'{'},
      {"UpperAsciiChar: Cyrillic becomes space", UpperAsciiChar, 0x0430, u' '},
      {"LowerAsciiChar: Q", LowerAsciiChar, u'Q', u'q'},
      {"LowerAsciiChar: E acute", LowerAsciiChar, 0x00C9, u'e'},
      {"LowerAsciiChar: @ stays", LowerAsciiChar, u'@', u'@'},
  };
  for (const AccessorRow& row : rows) {
    EXPECT_EQ(static_cast<int>(row.accessor(row.from)), static_cast<int>(row.to)) << row.name;
  }
}

// ---- Entities ----

TEST(CharacterTables, EntityTableHasUniqueNamesAndCharacters) {
  std::span<const HtmlEntity> table = htmlEntityTable();
  ASSERT_EQ(table.size(), 246u);
  std::set<std::string_view> names;
  std::set<char16_t> characters;
  for (const HtmlEntity& entity : table) {
    EXPECT_TRUE(names.insert(entity.name).second) << entity.name;
    EXPECT_TRUE(characters.insert(entity.character).second) << entity.name;
  }
  EXPECT_EQ(*characters.begin(), 0x00A0);
  EXPECT_EQ(*characters.rbegin(), 0x2666);
}

TEST(CharacterTables, EntityLookups) {
  struct Row {
    const char* name;
    std::optional<char16_t> character;
  };
  const std::vector<Row> rows = {
      {"nbsp", 0x00A0},        {"AElig", 0x00C6},      {"aelig", 0x00E6},
      {"yuml", 0x00FF},        {"Yuml", 0x0178},       {"OElig", 0x0152},
      {"Scaron", 0x0160},      {"alpha", 0x03B1},      {"Omega", 0x03A9},
      {"ldquo", 0x201C},       {"mdash", 0x2014},      {"euro", 0x20AC},
      {"diams", 0x2666},       {"amp", std::nullopt},  {"lt", std::nullopt},
      {"gt", std::nullopt},    {"quot", std::nullopt}, {"cedil", std::nullopt},
      {"fnof", std::nullopt},  {"NBSP", std::nullopt}, {"", std::nullopt},
      {"nbsp;", std::nullopt},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(htmlEntityCharacter(std::string_view(row.name)), row.character) << row.name;
    EXPECT_EQ(htmlEntityCharacter(TextView(fromAscii(row.name))), row.character) << row.name;
  }
  EXPECT_EQ(htmlEntityCharacter(TextView(u"n\u00E9sp")), std::nullopt);
  EXPECT_EQ(htmlEntityCharacter(TextView(u"averyveryverylongname")), std::nullopt);
}

TEST(CharacterTables, ReverseEntityIndex) {
  initConversionTables();
  struct Row {
    char16_t character;
    std::optional<std::string_view> name;
  };
  const std::vector<Row> rows = {
      {0x00A0, "nbsp"},       {0x2666, "diams"},      {0x00E9, "eacute"},
      {0x20AC, "euro"},       {0x0026, std::nullopt}, {0x00B8, std::nullopt},
      {0x0192, std::nullopt}, {0x009F, std::nullopt}, {0x2667, std::nullopt},
      {0x0100, std::nullopt}, {0xFFFF, std::nullopt},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(htmlEntityName(row.character), row.name) << static_cast<int>(row.character);
  }
  for (std::size_t i = 0; i < htmlEntityTable().size(); ++i) {
    EXPECT_EQ(htmlEntityIndexForCharacter(htmlEntityTable()[i].character), i);
  }
}

// ---- String operations ----

struct PredicateRow {
  const char* name;
  std::function<bool(TextView)> predicate;
  TextString text;
  bool expected;
};

TEST(CharacterTables, StringPredicates) {
  const TextString nul(1, u'\0');
  const std::vector<PredicateRow> rows = {
      {"isWhiteString empty", isWhiteString, u"", true},
      {"isWhiteString two no-break spaces", isWhiteString, u"\u00A0\u00A0", true},
      {"isWhiteString BOM and object replacement", isWhiteString, u"\uFEFF\uFFFC", true},
      {"isWhiteString NUL", isWhiteString, nul, true},
      {"isWhiteString with letter", isWhiteString, u" \n x", false},
      {"isSpaceString tab space NUL", isSpaceString, TextString(u"\t ") + nul, true},
      {"isSpaceString line feed", isSpaceString, u"\n", false},
      {"isSpaceString empty", isSpaceString, u"", true},
      {"isDigitString empty", isDigitString, u"", false},
      {"isDigitString digits", isDigitString, u"0123456789", true},
      {"isDigitString with sign", isDigitString, u"-1", false},
      {"isAlphaString empty", isAlphaString, u"", false},
      {"isAlphaString letters and marks", isAlphaString, u"e\u0301\u00DF\u4E2D", true},
      {"isAlphaString astral letter (surrogates)", isAlphaString, u"\U0001D400", false},
      {"isAlphaNumString", isAlphaNumString, u"abc123", true},
      {"isAlphaNumString with space", isAlphaNumString, u"abc 123", false},
      {"isAlphaNumString empty", isAlphaNumString, u"", false},
      {"isAsciiString empty", isAsciiString, u"", true},
      {"isAsciiString DEL", isAsciiString, u"abc\u007F", true},
      {"isAsciiString U+0080", isAsciiString, u"abc\u0080", false},
      {"isUmlautedString", isUmlautedString, u"M\u00FCller", true},
      {"isUmlautedString plain", isUmlautedString, u"Muller", false},
      {"isUmlautedString empty", isUmlautedString, u"", false},
      {"isUmlautedString decomposed (mark alone does not fold)", isUmlautedString, u"u\u0308",
       false},
      {"isLowerCaseString empty", isLowerCaseString, u"", true},
      {"isLowerCaseString abc1!", isLowerCaseString, u"abc1!", true},
      {"isLowerCaseString aBc", isLowerCaseString, u"aBc", false},
      {"isLowerCaseString capital I dot has no one-unit lowercase", isLowerCaseString, u"\u0130",
       true},
      {"isUpperCaseString ABC1!", isUpperCaseString, u"ABC1!", true},
      {"isUpperCaseString sharp s has no one-unit uppercase", isUpperCaseString, u"\u00DF", true},
      {"isUpperCaseString Abc", isUpperCaseString, u"Abc", false},
      {"isMashedWord HelloWorld", isMashedWord, u"HelloWorld", true},
      {"isMashedWord MacBook", isMashedWord, u"MacBook", true},
      {"isMashedWord Hello", isMashedWord, u"Hello", false},
      {"isMashedWord HW", isMashedWord, u"HW", false},
      {"isMashedWord HeLLo", isMashedWord, u"HeLLo", false},
      {"isMashedWord ABc", isMashedWord, u"ABc", false},
      {"isMashedWord ends on capital", isMashedWord, u"HelloW", false},
      {"isMashedWord Cyrillic", isMashedWord, u"\u041F\u0440\u0438\u0412\u0435\u0442", true},
      {"isMashedWord empty", isMashedWord, u"", false},
      {"containsAlphaNumCharacter", containsAlphaNumCharacter, u"--7--", true},
      {"containsAlphaNumCharacter none", containsAlphaNumCharacter, u"-- --", false},
      {"containsAlphaCharacter", containsAlphaCharacter, u"12a", true},
      {"containsAlphaCharacter empty", containsAlphaCharacter, u"", false},
      {"containsWhiteCharacter BOM", containsWhiteCharacter, u"ab\uFEFF", true},
      {"containsWhiteCharacter none", containsWhiteCharacter, u"ab", false},
      {"containsDigitCharacter", containsDigitCharacter, u"ab\u0661", true},
      {"containsDigitCharacter superscript", containsDigitCharacter, u"x\u00B2", false},
  };
  for (const PredicateRow& row : rows) {
    EXPECT_EQ(row.predicate(row.text), row.expected) << row.name;
  }
}

TEST(CharacterTables, NullRepBehavesAsEmptyString) {
  EXPECT_FALSE(containsCharacterPartOfCharacterSetRep(u"abc", nullptr));
  EXPECT_EQ(countCharactersPartOfCharacterSetRep(u"abc", nullptr), 0u);
  EXPECT_EQ(stringByRemovingCharactersInRep(u"a b", nullptr), u"a b");
  EXPECT_FALSE(containsCharacterPartOfCharacterSetRep(u"abc", EmptyCharacterSetRep()));
}

TEST(CharacterTables, Counts) {
  struct Row {
    const char* name;
    std::size_t (*count)(TextView);
    TextString text;
    std::size_t expected;
  };
  const std::vector<Row> rows = {
      {"alphanumeric", countAlphaNumCharacters, u"a1 b2-\u00E9", 5},
      {"letters", countAlphaCharacters, u"a1 b2-\u00E9", 3},
      {"white", countWhiteCharacters, u" a\u00A0\n\uFEFF", 4},
      {"digits", countDigitCharacters, u"2026-11-23", 8},
      {"astral letter counts no units", countAlphaCharacters, u"\U0001D400", 0},
      {"empty", countAlphaCharacters, u"", 0},
  };
  for (const Row& row : rows) EXPECT_EQ(row.count(row.text), row.expected) << row.name;
}

TEST(CharacterTables, Comparisons) {
  struct Row {
    const char* name;
    bool (*compare)(TextView, TextView);
    TextString a;
    TextString b;
    bool expected;
  };
  const std::vector<Row> rows = {
      {"no case: equal", isEqualToStringNoCase, u"Hello", u"hELLO", true},
      {"no case: two empty", isEqualToStringNoCase, u"", u"", true},
      {"no case: lengths differ", isEqualToStringNoCase, u"Hello", u"Hell", false},
      {"no case: Greek", isEqualToStringNoCase, u"\u03A3\u03B1", u"\u03C3\u0391", true},
      {"no case: accents matter", isEqualToStringNoCase, u"\u00E9", u"e", false},
      {"ascii: Müller against MULLER", isAsciiEqualToStringNoCase, u"M\u00FCller", u"MULLER", true},
      {"ascii: Chinese becomes space", isAsciiEqualToStringNoCase, u"x\u4E2D", u"X ", true},
      {"ascii: Straße against Stra e", isAsciiEqualToStringNoCase, u"Stra\u00DFe", u"Stra e", true},
      {"ascii: two Chinese strings", isAsciiEqualToStringNoCase, u"\u4E2D\u6587", u"\u65E5\u672C",
       true},
      {"ascii: lengths differ", isAsciiEqualToStringNoCase, u"ab", u"abc", false},
      {"ascii: empty", isAsciiEqualToStringNoCase, u"", u"", true},
      {"ascii: letters differ", isAsciiEqualToStringNoCase, u"abc", u"abd", false},
      {"non-umlauted: Müller against MULLER", isNonUmlautedEqualToStringNoCase, u"M\u00FCller",
       u"MULLER", true},
      {"non-umlauted: Chinese strings differ", isNonUmlautedEqualToStringNoCase, u"\u4E2D",
       u"\u6587", false},
      {"non-umlauted: Cyrillic", isNonUmlautedEqualToStringNoCase, u"\u0419", u"\u0438", true},
      {"non-umlauted: lengths differ", isNonUmlautedEqualToStringNoCase, u"a", u"", false},
  };
  for (const Row& row : rows) EXPECT_EQ(row.compare(row.a, row.b), row.expected) << row.name;
}

TEST(CharacterTables, RangeComparisons) {
  const TextView text = u"Der M\u00FCller kommt";
  EXPECT_TRUE(rangeIsAsciiEqualToNoCase(text, {4, 6}, u"MULLER"));
  EXPECT_TRUE(rangeIsNonUmlautedEqualToNoCase(text, {4, 6}, u"muller"));
  EXPECT_FALSE(rangeIsAsciiEqualToNoCase(text, {4, 5}, u"MULLER"));
  EXPECT_FALSE(rangeIsAsciiEqualToNoCase(text, {12, 6}, u"KOMMTX"));  // past the end
  EXPECT_FALSE(rangeIsNonUmlautedEqualToNoCase(text, {kNotFound, 1}, u"x"));
  EXPECT_TRUE(rangeIsAsciiEqualToNoCase(text, {text.size(), 0}, u""));
}

TEST(CharacterTables, RemovalAndMapping) {
  struct Row {
    const char* name;
    std::function<TextString(TextView)> operation;
    TextString text;
    TextString expected;
  };
  const TextString nul(1, u'\0');
  const std::vector<Row> rows = {
      {"remove white", stringByRemovingWhiteSpaces, u" a\u00A0b\n", u"ab"},
      {"remove white: NUL and BOM", stringByRemovingWhiteSpaces, u"a" + nul + u"\uFEFFb", u"ab"},
      {"remove white: empty", stringByRemovingWhiteSpaces, u"", u""},
      {"remove non-alphanumeric, no table",
       [](TextView t) {
         return stringByRemovingNonAlphaNumericCharactersAndApplyingConversionTable(t, nullptr);
       },
       u"A-b c!1", u"Abc1"},
      {"remove non-alphanumeric, upper table",
       [](TextView t) {
         return stringByRemovingNonAlphaNumericCharactersAndApplyingConversionTable(
             t, upperCharsTable());
       },
       u"\u00E9t\u00E9 2026", u"\u00C9T\u00C92026"},
      {"remove non-alphanumeric drops surrogates",
       [](TextView t) {
         return stringByRemovingNonAlphaNumericCharactersAndApplyingConversionTable(t, nullptr);
       },
       u"a\U0001F600b", u"ab"},
      {"apply null table", [](TextView t) { return stringByApplyingConversionTable(t, nullptr); },
       u"Ab", u"Ab"},
      {"apply lower table",
       [](TextView t) { return stringByApplyingConversionTable(t, lowerCharsTable()); },
       u"\u00C0B\U0001F600", u"\u00E0b\U0001F600"},
      {"nonUmlauted", nonUmlautedString, u"Cr\u00E8me Br\u00FBl\u00E9e", u"Creme Brulee"},
      {"nonUmlauted keeps combining mark", nonUmlautedString, u"e\u0301", u"e\u0301"},
      {"lowercaseNonUmlauted", lowercaseNonUmlautedString, u"\u00C9COLE \u0141\u00D3D\u0179",
       u"ecole lodz"},
      {"lowercaseNonUmlauted keeps ligature and sharp s", lowercaseNonUmlautedString,
       u"\uFB01\u00DF", u"\uFB01\u00DF"},
      {"lowercaseNonUmlauted keeps astral pair", lowercaseNonUmlautedString, u"\U0001D400",
       u"\U0001D400"},
      {"uppercaseNonUmlauted", uppercaseNonUmlautedString, u"\u00E9t\u00E9", u"ETE"},
      {"nonUmlautedNormalized folds decomposed", nonUmlautedNormalizedString, u"e\u0301", u"e"},
      {"lowercaseNonUmlautedNormalized", lowercaseNonUmlautedNormalizedString, u"E\u0301T\u00C9",
       u"ete"},
      {"uppercaseNonUmlautedNormalized", uppercaseNonUmlautedNormalizedString, u"e\u0301t\u00E9",
       u"ETE"},
      {"asciiString", asciiString, u"Stra\u00DFe e\u0301", u"Stra e e"},
      {"asciiString surrogate pair becomes two spaces", asciiString, u"a\U0001F600", u"a  "},
      {"lowercaseAsciiString", lowercaseAsciiString, u"\u00C9t\u00E9 \u4E2D", u"ete  "},
      {"uppercaseAsciiString", uppercaseAsciiString, u"\u00E9t\u00E9!", u"ETE!"},
      {"asciiString empty", asciiString, u"", u""},
  };
  for (const Row& row : rows) EXPECT_EQ(row.operation(row.text), row.expected) << row.name;
}

TEST(CharacterTables, ApplyConversionTableInPlace) {
  TextString text = u"\u00C4rger";
  applyConversionTable(text, lowerUmlautsCharsTable());
  EXPECT_EQ(text, u"arger");
  applyConversionTable(text, nullptr);
  EXPECT_EQ(text, u"arger");
}

}  // namespace
}  // namespace ulvek
