#include "text/character_tables.h"

#include <gtest/gtest.h>

#include <cstring>

#include <functional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace ulvek {
namespace {

using namespace std::string_literals;

TEST(CharacterTables, RepMembership) {
  // Members and non-members of each rep, chosen at its extras and its range boundaries.
  using Row = std::tuple<const char*, const CharacterSetRep*, TextString, TextString>;
  const std::vector<Row> rows = {
      {"space", WhiteSpaceCharacterSetRep(), u" \t\0\u00A0\u3000"s, u"\n\r\u200B\1"s},
      {"white", WhiteSpaceAndNewlineCharacterSetRep(),
       u"\0\3\t\n\v\f\r\u0085\u00A0\u2028\u2029\u3000\uFEFF\uFFFC"s, u"\1\4\u000E\uFFFDa\xD83D"s},
      {"letter", LetterCharacterSetRep(), u"aA\u00AA\u0301\u4E00\uAC00"s,
       u"@[0\u00D7\uFFFF\xDC00"s},
      {"alphanumeric", AlphaNumericCharacterSetRep(), u"7\u00B2\u2160\u0660\u00E9"s, u"-_"s},
      {"digit", DecimalDigitCharacterSetRep(), u"09\u0660\uFF10"s, u"/:\u00B2"s},
      {"lowercase", LowercaseLetterCharacterSetRep(), u"a\u00DF"s, u"A\u01C5\u00AA`{"s},
      {"uppercase", UppercaseLetterCharacterSetRep(), u"AZ\u01C5\u0130"s, u"a\u4E00"s},
      {"empty", EmptyCharacterSetRep(), u""s, u"\0a\uFFFF"s},
  };
  for (const auto& [name, rep, members, others] : rows) {
    for (char16_t c : members) EXPECT_TRUE(rep->contains(c)) << name << " " << +c;
    for (char16_t c : others) EXPECT_FALSE(rep->contains(c)) << name << " " << +c;
  }
  // Least significant bit first: 'A' (0x41) is bit 1 of byte 8, '@' bit 0.
  EXPECT_EQ(LetterCharacterSetRep()->bytes[8] & 0x03, 0x02);
}

TEST(CharacterTables, InvariantsOverEveryUnit) {
  ConversionTable lower = lowerCharsTable(), upper = upperCharsTable();
  ConversionTable fold = umlautsCharsTable();
  EXPECT_EQ(FirstLetterCharacter(), u'A');
  EXPECT_TRUE(isLetter(LastLetterCharacter()));
  for (std::uint32_t c = 0; c < 0x10000; ++c) {
    const char16_t u = static_cast<char16_t>(c);
    ASSERT_TRUE(!isSpace(u) || isWhiteOrNewline(u)) << c;
    ASSERT_TRUE(!isLineBreak(u) || isWhiteOrNewline(u)) << c;
    ASSERT_TRUE(!(isLetter(u) || isDecimalDigit(u)) || isAlphaNumeric(u)) << c;
    ASSERT_TRUE(!(isLowercaseLetter(u) || isUppercaseLetter(u)) || isLetter(u)) << c;
    ASSERT_TRUE(c <= LastLetterCharacter() || !isLetter(u)) << c;
    // Case maps touch only their governing set; nothing maps a non-letter.
    ASSERT_TRUE(isUppercaseLetter(u) || lower[c] == u) << c;
    ASSERT_TRUE(isLowercaseLetter(u) || upper[c] == u) << c;
    ASSERT_TRUE(isLetter(u) || fold[c] == u) << c;
    ASSERT_EQ(lowerUmlautsCharsTable()[c], lower[fold[c]]) << c;
    ASSERT_EQ(upperUmlautsCharsTable()[c], upper[fold[c]]) << c;
  }
}

TEST(CharacterTables, MappingEntries) {
  // A two-unit result leaves the entry (U+0130, U+00DF). Letters without a decomposition fold
  // only in Latin script (U+00F8, U+0141, U+0127), never as digraphs (U+01F2) or elsewhere
  // (U+0491, U+049B). The ASCII accessors give a space for what does not fold below 128.
  using Row = std::tuple<const char*, char16_t (*)(char16_t), TextString, TextString>;
  const std::vector<Row> rows = {
      {"lower", LowerChar, u"\u00C1\u0130", u"\u00E1\u0130"},
      {"upper", UpperChar, u"\u00E1\u00DF", u"\u00C1\u00DF"},
      {"fold", NonUmlautedChar,
       u"\u00E1\u00DF\u00F8\u0141\u0127\u01F2\u0491\u049B\u00C6\u0439\u0301",
       u"a\u00DFoLh\u01F2\u0491\u049B\u00C6\u0438\u0301"},
      {"upperfold", UpperNonUmlautedChar, u"\u00E1", u"A"},
      {"lowerfold", LowerNonUmlautedChar, u"\u0130", u"i"},
      {"ascii", AsciiChar, u"\u007F\u0080\u00DF", u"\u007F  "},
      {"upper ascii", UpperAsciiChar, u"\u00E9{", u"E{"},
      {"lower ascii", LowerAsciiChar, u"\u00C9@", u"e@"},
  };
  for (const auto& [name, map, from, to] : rows) {
    ASSERT_EQ(from.size(), to.size()) << name;
    for (std::size_t i = 0; i < from.size(); ++i) {
      EXPECT_EQ(+map(from[i]), +to[i]) << name << " of U+" << std::hex << +from[i];
    }
  }
}

TEST(CharacterTables, EntityTableAndReverseIndex) {
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

  // Names are exact and case-sensitive; the reverse index below shows which characters have none.
  EXPECT_EQ(htmlEntityCharacter(std::string_view("nbsp")), 0x00A0);
  EXPECT_EQ(htmlEntityCharacter(TextView(u"diams")), 0x2666);
  for (TextView name : {u"NBSP", u"nbsp;", u"amp", u"", u"n\u00E9sp"}) {
    EXPECT_EQ(htmlEntityCharacter(name), std::nullopt) << toUtf8(name);
  }
  EXPECT_EQ(htmlEntityCharacter(std::string_view("quot")), std::nullopt);

  initConversionTables();
  for (std::size_t i = 0; i < table.size(); ++i) {
    EXPECT_EQ(htmlEntityIndexForCharacter(table[i].character), i);
  }
  EXPECT_EQ(htmlEntityName(0x00E9), "eacute");
  for (char16_t c : {0x0026, 0x00B8, 0x0192, 0x009F, 0x2667, 0xFFFF}) {
    EXPECT_EQ(htmlEntityName(c), std::nullopt) << +c;
  }
}

TEST(CharacterTables, StringPredicates) {
  // An empty string passes the "every unit" tests of white, space, ASCII and case, but not the
  // digit and letter tests. Surrogates are no letters; a lone mark does not fold.
  using Row =
      std::tuple<const char*, bool (*)(TextView), std::vector<TextString>, std::vector<TextString>>;
  const std::vector<Row> rows = {
      {"white", isWhiteString, {u"", u"\u00A0\u00A0", u"\uFEFF\uFFFC"}, {u" \n x"}},
      {"space", isSpaceString, {u"", u"\t \0"s}, {u"\n"}},
      {"digit", isDigitString, {u"0123"}, {u""}},
      {"alpha", isAlphaString, {u"e\u0301\u00DF\u4E2D"}, {u"", u"\U0001D400"}},
      {"ascii", isAsciiString, {u"", u"abc\u007F"}, {u"abc\u0080"}},
      {"umlauted", isUmlautedString, {u"M\u00FCller"}, {u"", u"u\u0308"}},
      {"lower", isLowerCaseString, {u"", u"abc1!", u"\u0130"}, {u"aBc"}},
      {"upper", isUpperCaseString, {u"", u"ABC1!", u"\u00DF"}, {u"Abc"}},
      {"mashed",
       isMashedWord,
       {u"HelloWorld", u"\u041F\u0440\u0438\u0412\u0435\u0442"},
       {u"", u"Hello", u"HW", u"HeLLo", u"ABc", u"HelloW"}},
      {"contains white", containsWhiteCharacter, {u"ab\uFEFF"}, {u"", u"ab"}},
      {"contains digit", containsDigitCharacter, {u"ab\u0661"}, {u"x\u00B2"}},
  };
  for (const auto& [name, predicate, yes, no] : rows) {
    for (const TextString& text : yes) EXPECT_TRUE(predicate(text)) << name << " " << toUtf8(text);
    for (const TextString& text : no) EXPECT_FALSE(predicate(text)) << name << " " << toUtf8(text);
  }

  EXPECT_FALSE(containsCharacterPartOfCharacterSetRep(u"abc", nullptr));
  EXPECT_EQ(countCharactersPartOfCharacterSetRep(u"abc", nullptr), 0u);
  EXPECT_EQ(countAlphaNumCharacters(u"a1 b2-\u00E9"), 5u);
  EXPECT_EQ(countWhiteCharacters(u" a\u00A0\n\uFEFF"), 4u);
  EXPECT_EQ(countAlphaCharacters(u"\U0001D400"), 0u);
}

TEST(CharacterTables, Comparisons) {
  using Row = std::tuple<const char*, bool (*)(TextView, TextView), TextString, TextString, bool>;
  const std::vector<Row> rows = {
      {"no case: Greek", isEqualToStringNoCase, u"\u03A3\u03B1", u"\u03C3\u0391", true},
      {"no case: two empty", isEqualToStringNoCase, u"", u"", true},
      {"no case: accents matter", isEqualToStringNoCase, u"\u00E9", u"e", false},
      {"ascii: M\u00FCller", isAsciiEqualToStringNoCase, u"M\u00FCller", u"MULLER", true},
      {"ascii: Chinese is a space", isAsciiEqualToStringNoCase, u"x\u4E2D", u"X ", true},
      {"ascii: Stra\u00DFe", isAsciiEqualToStringNoCase, u"Stra\u00DFe", u"Stra e", true},
      {"ascii: lengths differ", isAsciiEqualToStringNoCase, u"ab", u"abc", false},
      {"ascii: letters differ", isAsciiEqualToStringNoCase, u"abc", u"abd", false},
      {"folded: M\u00FCller", isNonUmlautedEqualToStringNoCase, u"M\u00FCller", u"MULLER", true},
      {"folded: Chinese differs", isNonUmlautedEqualToStringNoCase, u"\u4E2D", u"\u6587", false},
      {"canonical: decomposed", isCanonicallyEqualToStringNoCase, u"E\u0301t\u00C9",
       u"\u00E9t\u00E9", true},
      {"canonical: sharp s folds to ss", isCanonicallyEqualToStringNoCase, u"Stra\u00DFe",
       u"STRASSE", true},
      {"canonical: accents matter", isCanonicallyEqualToStringNoCase, u"\u00E9", u"e", false},
      {"canonical: two empty", isCanonicallyEqualToStringNoCase, u"", u"", true},
      {"ascii case: letters", isEqualToStringIgnoringAsciiCase, u"TextPack", u"tEXTpACK", true},
      {"ascii case: Kelvin is not k", isEqualToStringIgnoringAsciiCase, u"\u212A", u"k", false},
      {"ascii case: dotted I is not i", isEqualToStringIgnoringAsciiCase, u"\u0130", u"i", false},
      {"ascii case: accents keep case", isEqualToStringIgnoringAsciiCase, u"\u00E9", u"\u00C9",
       false},
      {"ascii case: @ is not `", isEqualToStringIgnoringAsciiCase, u"@", u"`", false},
      {"ascii case: others exact", isEqualToStringIgnoringAsciiCase, u"\u4E2D\u00E9",
       u"\u4E2D\u00E9", true},
      {"ascii case: lengths differ", isEqualToStringIgnoringAsciiCase, u"auto", u"autos", false},
      {"ascii prefix", hasPrefixIgnoringAsciiCase, u"TEXT/html", u"text/", true},
      {"ascii prefix: longer", hasPrefixIgnoringAsciiCase, u"text", u"text/", false},
      {"ascii prefix: empty", hasPrefixIgnoringAsciiCase, u"", u"", true},
      {"ascii prefix: dotted I", hasPrefixIgnoringAsciiCase, u"appl\u0130cation/", u"application/",
       false},
      {"ascii contains: at the end", containsIgnoringAsciiCase, u"application/RSS+XML", u"xml",
       true},
      {"ascii contains: in the middle", containsIgnoringAsciiCase, u"application/xHtMl", u"htm",
       true},
      {"ascii contains: empty part", containsIgnoringAsciiCase, u"", u"", true},
      {"ascii contains: longer part", containsIgnoringAsciiCase, u"xm", u"xml", false},
      {"ascii contains: Kelvin", containsIgnoringAsciiCase, u"\u212Aey", u"key", false},
  };
  for (const auto& [name, compare, a, b, expected] : rows) {
    EXPECT_EQ(compare(a, b), expected) << name;
  }

  const TextView text = u"Der M\u00FCller kommt";
  EXPECT_TRUE(rangeIsAsciiEqualToNoCase(text, {4, 6}, u"MULLER"));
  EXPECT_TRUE(rangeIsNonUmlautedEqualToNoCase(text, {4, 6}, u"muller"));
  EXPECT_FALSE(rangeIsAsciiEqualToNoCase(text, {4, 5}, u"MULLER"));
  EXPECT_FALSE(rangeIsAsciiEqualToNoCase(text, {12, 6}, u"KOMMTX"));  // past the end
  EXPECT_FALSE(rangeIsNonUmlautedEqualToNoCase(text, {kNotFound, 1}, u"x"));
}

TEST(CharacterTables, RemovalAndMapping) {
  auto keepAlphaNum = [](ConversionTable table) {
    return [table](TextView t) {
      return stringByRemovingNonAlphaNumericCharactersAndApplyingConversionTable(t, table);
    };
  };
  auto apply = [](ConversionTable table) {
    return [table](TextView t) { return stringByApplyingConversionTable(t, table); };
  };
  using Row = std::tuple<const char*, std::function<TextString(TextView)>, TextString, TextString>;
  const std::vector<Row> rows = {
      {"remove white", stringByRemovingWhiteSpaces, u" a\u00A0b\n", u"ab"},
      {"remove null rep", [](TextView t) { return stringByRemovingCharactersInRep(t, nullptr); },
       u"a b", u"a b"},
      {"keep alphanumerics", keepAlphaNum(nullptr), u"A-b c!1\U0001F600", u"Abc1"},
      {"apply null table", apply(nullptr), u"Ab", u"Ab"},
      {"nonUmlauted", nonUmlautedString, u"Cr\u00E8me Br\u00FBl\u00E9e", u"Creme Brulee"},
      {"nonUmlauted keeps combining mark", nonUmlautedString, u"e\u0301", u"e\u0301"},
      {"lowercaseNonUmlauted", lowercaseNonUmlautedString, u"\u00C9COLE \u0141\u00D3D\u0179",
       u"ecole lodz"},
      {"normalized folds decomposed", nonUmlautedNormalizedString, u"e\u0301", u"e"},
      {"lowercase normalized", lowercaseNonUmlautedNormalizedString, u"E\u0301T\u00C9", u"ete"},
      {"asciiString", asciiString, u"Stra\u00DFe e\u0301", u"Stra e e"},
      {"asciiString pair is two spaces", asciiString, u"a\U0001F600", u"a  "},
      {"lowercaseAsciiString", lowercaseAsciiString, u"\u00C9t\u00E9 \u4E2D", u"ete  "},
      {"uppercaseAsciiString", uppercaseAsciiString, u"\u00E9t\u00E9!", u"ETE!"},
  };
  for (const auto& [name, operation, text, expected] : rows) {
    EXPECT_EQ(operation(text), expected) << name;
  }

  TextString text = u"\u00C4rger";
  applyConversionTable(text, lowerUmlautsCharsTable());
  EXPECT_EQ(text, u"arger");
}

}  // namespace
}  // namespace ulvek

namespace ulvek {
namespace {

// The tables embedded at build time are the ones ICU gives now: a stale or truncated embedding
// would silently change every text loop.
TEST(CharacterTables, EmbeddedTablesEqualThoseComputedFromICU) {
  std::unique_ptr<CharacterTables> computed = computeCharacterTables();
  const CharacterTables& embedded = characterTables();
  EXPECT_NE(static_cast<const void*>(&embedded), static_cast<const void*>(computed.get()));
  EXPECT_EQ(std::memcmp(&embedded, computed.get(), sizeof(CharacterTables)), 0);
}

}  // namespace
}  // namespace ulvek
