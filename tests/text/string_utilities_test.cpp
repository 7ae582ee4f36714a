#include "text/string_utilities.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace ulvek {
namespace {

const TextString kNul(1, u'\0');

struct TransformRow {
  const char* name;
  std::function<TextString(TextView)> operation;
  TextString text;
  TextString expected;
};

void runRows(const std::vector<TransformRow>& rows) {
  for (const TransformRow& row : rows) {
    EXPECT_EQ(row.operation(row.text), row.expected) << row.name;
  }
}

TEST(StringUtilities, Trimming) {
  auto feeds = [](TextView t) { return stringByTrimmingSpacesAndFeeds(t, true); };
  auto spaces = [](TextView t) { return stringByTrimmingSpacesAndFeeds(t, false); };
  runRows({
      {"white spaces: both ends", stringByTrimmingWhiteSpaces, u" \t a b \r\n", u"a b"},
      {"white spaces: no-break and ideographic space", stringByTrimmingWhiteSpaces,
       u"\u00A0x\u3000", u"x"},
      {"white spaces: next line and vertical tab", stringByTrimmingWhiteSpaces, u"\u0085x\u000B",
       u"x"},
      {"white spaces: byte-order mark is not Unicode white", stringByTrimmingWhiteSpaces,
       u"\uFEFFx", u"\uFEFFx"},
      {"white spaces: NUL is not Unicode white", stringByTrimmingWhiteSpaces, kNul + u"x",
       kNul + u"x"},
      {"white spaces: all white", stringByTrimmingWhiteSpaces, u" \n\t ", u""},
      {"white spaces: empty", stringByTrimmingWhiteSpaces, u"", u""},
      {"white spaces: astral characters kept", stringByTrimmingWhiteSpaces, u" \U0001F600 ",
       u"\U0001F600"},
      {"feeds: extras trimmed", feeds, kNul + u" a\n\uFEFF\uFFFC\u0003", u"a"},
      {"feeds: all white", feeds, u"\u00A0\u2028", u""},
      {"spaces: line feed kept", spaces, u" a\n", u"a\n"},
      {"spaces: tab and NUL trimmed", spaces, u"\t" + kNul + u"a \t", u"a"},
      {"spaces: empty", spaces, u"", u""},
  });
}

TEST(StringUtilities, TrimmingInRange) {
  struct Row {
    const char* name;
    TextRange range;
    bool feeds;
    TextString expected;
  };
  const TextView text = u"  ab \n cd  ";
  const std::vector<Row> rows = {
      {"first word", {0, 5}, true, u"ab"},
      {"keeps line feed without feeds", {2, 4}, false, u"ab \n"},
      {"second word", {5, 6}, true, u"cd"},
      {"empty range", {2, 0}, true, u""},
      {"all-white range", {0, 2}, true, u""},
      {"location past the end", {40, 3}, true, u""},
      {"length past the end is clipped", {7, 100}, true, u"cd"},
      {"not found location", {kNotFound, 0}, true, u""},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(stringByTrimmingSpacesInRange(text, row.range, row.feeds), row.expected) << row.name;
  }
}

TEST(StringUtilities, Collapsing) {
  runRows({
      {"white: tab and line feed run", stringByRemovingMultipleWhiteSpaces, u"a \t\n b", u"a b"},
      {"white: no-break space", stringByRemovingMultipleWhiteSpaces, u"a\u00A0b", u"a b"},
      {"white: lone tab", stringByRemovingMultipleWhiteSpaces, u"\t", u" "},
      {"white: ends kept as one space", stringByRemovingMultipleWhiteSpaces, u"  a  ", u" a "},
      {"white: NUL and BOM", stringByRemovingMultipleWhiteSpaces, u"a" + kNul + u"\uFEFFb", u"a b"},
      {"white: astral characters untouched", stringByRemovingMultipleWhiteSpaces,
       u"\U0001F600 \n \U0001F600", u"\U0001F600 \U0001F600"},
      {"white: lone surrogates untouched", stringByRemovingMultipleWhiteSpaces, u"\xD800  \xDC00",
       u"\xD800 \xDC00"},
      {"white: empty", stringByRemovingMultipleWhiteSpaces, u"", u""},
      {"spaces: line feed separates runs", stringByRemovingMultipleSpaces, u"a \t b\n\n c",
       u"a b\n\n c"},
      {"spaces: NUL run", stringByRemovingMultipleSpaces, u"a" + kNul + kNul + u"b", u"a b"},
      {"feeds: CRLF pairs", stringByRemovingMultipleFeeds, u"a\r\n\r\nb", u"a\nb"},
      {"feeds: lone CR", stringByRemovingMultipleFeeds, u"a\rb", u"a\nb"},
      {"feeds: separators and ETX", stringByRemovingMultipleFeeds, u"a\u2028\u2029\u0003b",
       u"a\nb"},
      {"feeds: spaces break runs", stringByRemovingMultipleFeeds, u"a\n \nb", u"a\n \nb"},
  });
}

TEST(StringUtilities, CollapsingAnswersNothingWhenUnchanged) {
  struct Row {
    const char* name;
    std::function<std::optional<TextString>(TextView)> operation;
    TextString text;
  };
  const std::vector<Row> rows = {
      {"white: no white", stringByRemovingMultipleWhiteSpacesIfChanged, u"ab"},
      {"white: single spaces", stringByRemovingMultipleWhiteSpacesIfChanged, u"a b c "},
      {"white: empty", stringByRemovingMultipleWhiteSpacesIfChanged, u""},
      {"spaces: line feeds are not spaces", stringByRemovingMultipleSpacesIfChanged, u"a\n\nb"},
      {"feeds: single line feeds", stringByRemovingMultipleFeedsIfChanged, u"a\nb\n"},
  };
  for (const Row& row : rows) EXPECT_EQ(row.operation(row.text), std::nullopt) << row.name;
  EXPECT_EQ(stringByRemovingMultipleWhiteSpacesIfChanged(u"a  b"), u"a b");
  EXPECT_EQ(stringByRemovingMultipleWhiteSpacesIfChanged(u"a\tb"), u"a b");
  EXPECT_EQ(stringByRemovingMultipleFeedsIfChanged(u"a\r\nb"), u"a\nb");
  EXPECT_EQ(stringByTrimmingWhiteSpacesIfChanged(u"ab"), std::nullopt);
  EXPECT_EQ(stringByTrimmingWhiteSpacesIfChanged(u" ab"), u"ab");
}

TEST(StringUtilities, FixedAndNormalized) {
  runRows({
      {"emoji becomes two spaces", fixedAndNormalizedString, u"a\U0001F600b", u"a  b"},
      {"private use U+F8FF", fixedAndNormalizedString, u"\uF8FF", u" "},
      {"private use U+F400", fixedAndNormalizedString, u"\uF400", u" "},
      {"U+F3FF is kept", fixedAndNormalizedString, u"\uF3FF", u"\uF3FF"},
      {"NUL", fixedAndNormalizedString, u"a" + kNul, u"a "},
      {"lone low surrogate", fixedAndNormalizedString, u"\xDC00x", u" x"},
      {"decomposed e acute composes", fixedAndNormalizedString, u"e\u0301", u"\u00E9"},
      {"Hangul jamo compose", fixedAndNormalizedString, u"\u1100\u1161", u"\uAC00"},
      {"compatibility ideograph", fixedAndNormalizedString, u"\uF900", u"\u8C48"},
      {"mark after a replaced surrogate", fixedAndNormalizedString, u"\xD800\u0301", u" \u0301"},
      {"empty", fixedAndNormalizedString, u"", u""},
      {"already normal", fixedAndNormalizedString, u"\u00E9t\u00E9", u"\u00E9t\u00E9"},
  });
  TextString inPlace = u"x\U0001F600e\u0301";
  fixAndNormalizeString(inPlace);
  EXPECT_EQ(inPlace, u"x  \u00E9");
}

TEST(StringUtilities, Normalization) {
  auto form = [](NormalizationForm f) {
    return [f](TextView t) { return normalizedString(t, f); };
  };
  runRows({
      {"C", form(NormalizationForm::C), u"A\u030A", u"\u00C5"},
      {"C keeps ligature", form(NormalizationForm::C), u"\uFB01", u"\uFB01"},
      {"D", form(NormalizationForm::D), u"\u00E9", u"e\u0301"},
      {"KD", form(NormalizationForm::KD), u"\uFB01\u00E9", u"fie\u0301"},
      {"KC", form(NormalizationForm::KC), u"\uFB01e\u0301", u"fi\u00E9"},
      {"D grows beyond the input", form(NormalizationForm::D), u"\u1E69\u1E69",
       u"s\u0323\u0307s\u0323\u0307"},
      {"lowercase", normalizedLowercaseString, u"E\u0301COLE", u"\u00E9cole"},
      {"lowercase of capital I dot is two units", normalizedLowercaseString, u"\u0130", u"i\u0307"},
      {"uppercase of sharp s is two units", normalizedUppercaseString, u"stra\u00DFe", u"STRASSE"},
      {"uppercase keeps astral pair", normalizedUppercaseString, u"a\U0001F600", u"A\U0001F600"},
      {"empty", form(NormalizationForm::C), u"", u""},
  });
  TextString text = u"A\u030A";
  normalizeLowercaseString(text);
  EXPECT_EQ(text, u"\u00E5");
}

TEST(StringUtilities, Lines) {
  struct Row {
    const char* name;
    TextString text;
    std::vector<TextString> expected;
  };
  const std::vector<Row> rows = {
      {"mixed terminators", u"a\r\nb\nc", {u"a\r\n", u"b\n", u"c"}},
      {"final terminator adds no empty line", u"a\n", {u"a\n"}},
      {"empty", u"", {}},
      {"empty lines", u"\n\n", {u"\n", u"\n"}},
      {"lone CR", u"a\rb", {u"a\r", u"b"}},
      {"LF CR is two terminators", u"a\n\rb", {u"a\n", u"\r", u"b"}},
      {"CRLF alone", u"\r\n", {u"\r\n"}},
      {"line separator", u"a\u2028b", {u"a\u2028", u"b"}},
      {"form feed and BOM", u"a\fb\uFEFF", {u"a\f", u"b\uFEFF"}},
  };
  for (const Row& row : rows) EXPECT_EQ(lines(row.text), row.expected) << row.name;
}

TEST(StringUtilities, ConfigLines) {
  struct Row {
    const char* name;
    TextString text;
    std::vector<TextString> expected;
  };
  const std::vector<Row> rows = {
      {"comment, padding, blank", u"# comment\n  key value  \n\nx\n", {u"key value"}},
      {"CRLF leaves nothing extra", u"ab\r\ncd\r\n", {u"ab", u"cd"}},
      {"indented comment", u"  # c\nk v", {u"k v"}},
      {"hash inside a line", u"key#x", {u"key#x"}},
      {"one unit is dropped", u"a\nbb", {u"bb"}},
      {"empty", u"", {}},
      {"white only", u" \t\n\u00A0", {}},
  };
  for (const Row& row : rows) EXPECT_EQ(configLines(row.text), row.expected) << row.name;
}

TEST(StringUtilities, ConfigValueForKey) {
  struct Row {
    const char* name;
    TextString line;
    TextString key;
    std::optional<TextString> expected;
  };
  const std::vector<Row> rows = {
      {"case-insensitive key", u"key value", u"KEY", u"value"},
      {"no white after key", u"keyvalue", u"KEY", std::nullopt},
      {"line is only the key", u"key", u"key", std::nullopt},
      {"value is white", u"key   ", u"key", std::nullopt},
      {"tab separator, value trimmed", u"key\t v w \n", u"key", u"v w"},
      {"key is a longer word", u"keys value", u"key", std::nullopt},
      {"different key", u"name value", u"key", std::nullopt},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(configValueForKey(row.line, row.key), row.expected) << row.name;
  }
}

TEST(StringUtilities, Characters) {
  EXPECT_EQ(firstCharacter(u"abc"), u'a');
  EXPECT_EQ(lastCharacter(u"abc"), u'c');
  EXPECT_EQ(firstCharacter(u""), 0);
  EXPECT_EQ(lastCharacter(u""), 0);
  EXPECT_EQ(lastCharacter(u"a\U0001F600"), 0xDE00);

  struct Row {
    const char* name;
    TextString text;
    char16_t c;
    std::size_t start;
    bool caseInsensitive;
    std::size_t expected;
  };
  const std::vector<Row> rows = {
      {"a in Banana", u"Banana", u'a', 0, false, 1},
      {"B case-insensitive in abc", u"abc", u'B', 0, true, 1},
      {"b case-insensitive in ABC", u"ABC", u'b', 0, true, 1},
      {"B case-sensitive in abc", u"abc", u'B', 0, false, kNotFound},
      {"? in query", u"html?x=1", u'?', 0, false, 4},
      {"start skips earlier match", u"Banana", u'a', 2, false, 3},
      {"start at length", u"Banana", u'a', 6, false, kNotFound},
      {"start far beyond", u"Banana", u'a', kNotFound, false, kNotFound},
      {"empty text", u"", u'a', 0, false, kNotFound},
      {"accented letter case-insensitive", u"CAF\u00C9", 0x00E9, 0, true, 3},
      {"digit case-insensitive", u"a1", u'1', 0, true, 1},
      {"NUL unit", u"a" + kNul + u"b", u'\0', 0, false, 1},
      {"surrogate half", u"a\U0001F600", 0xDE00, 0, false, 2},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(findCharacter(row.text, row.c, row.start, row.caseInsensitive), row.expected)
        << row.name;
    EXPECT_EQ(containsCharacter(row.text, row.c, row.start, row.caseInsensitive),
              row.expected != kNotFound)
        << row.name;
  }
  EXPECT_TRUE(containsCharacter(u"ABC", u'c', true));
  EXPECT_FALSE(containsCharacter(u"ABC", u'c'));
}

TEST(StringUtilities, Replacing) {
  struct Row {
    const char* name;
    TextString text;
    TextString target;
    TextString replacement;
    bool caseSensitive;
    TextString expected;
  };
  const std::vector<Row> rows = {
      {"every occurrence", u"a-b-c", u"-", u"+", true, u"a+b+c"},
      {"absent target", u"abc", u"x", u"y", true, u"abc"},
      {"empty target", u"abc", u"", u"y", true, u"abc"},
      {"empty replacement deletes", u"a--b", u"-", u"", true, u"ab"},
      {"no overlap", u"aaa", u"aa", u"b", true, u"ba"},
      {"case-sensitive misses", u"Hello HELLO", u"hello", u"x", true, u"Hello HELLO"},
      {"case-insensitive", u"Hello HELLO", u"hello", u"x", false, u"x x"},
      {"case-insensitive Greek", u"\u03A3\u03C3\u03C2", u"\u03C3", u"s", false, u"sss"},
      {"longer replacement", u"a.b", u".", u"\U0001F600", true, u"a\U0001F600b"},
      {"target longer than text", u"a", u"abc", u"x", true, u"a"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(stringByReplacingString(row.text, row.target, row.replacement, row.caseSensitive),
              row.expected)
        << row.name;
  }
}

TEST(StringUtilities, BoolValue) {
  struct Row {
    TextString text;
    bool expected;
  };
  const std::vector<Row> rows = {
      {u"1", true},    {u"-3", true},  {u"YES", true},  {u"True", true},  {u"on", true},
      {u" 12", true},  {u"007", true}, {u"no", false},  {u"off", false},  {u"0", false},
      {u"", false},    {u"+0", false}, {u"0x1", false}, {u"yes ", false}, {u"onx", false},
      {u"tru", false}, {u"-", false},  {u"00", false},  {u"ON", true},    {u"\u0661", false},
  };
  for (const Row& row : rows) EXPECT_EQ(boolValue(row.text), row.expected) << toUtf8(row.text);
}

TEST(StringUtilities, PathIsInDirectory) {
  struct Row {
    TextString path;
    TextString directory;
    bool expected;
  };
  const std::vector<Row> rows = {
      {u"/a/b", u"/a/b", true},   {u"/a/b/c", u"/a/b/", true}, {u"/a/bc", u"/a/b", false},
      {u"/a/b/c", u"/a/b", true}, {u"/a/b", u"/", false},      {u"/a/b", u"///", false},
      {u"/a/b", u"", false},      {u"/a", u"/a/b", false},     {u"/A/b", u"/a", false},
      {u"/a/b", u"/a//", true},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(pathIsInDirectory(row.path, row.directory), row.expected)
        << toUtf8(row.path) << " in " << toUtf8(row.directory);
  }
  const std::vector<TextString> directories = {u"/x", u"/a/b"};
  EXPECT_TRUE(pathIsInDirectories(u"/a/b/c", directories));
  EXPECT_FALSE(pathIsInDirectories(u"/a/c", directories));
  EXPECT_FALSE(pathIsInDirectories(u"/a/c", {}));
}

TEST(StringUtilities, RelativePathToDirectory) {
  struct Row {
    TextString path;
    TextString directory;
    TextString expected;
  };
  const std::vector<Row> rows = {
      {u"/a/b/c", u"/a", u"./b/c"},
      {u"/a/x", u"/a/b", u"../x"},
      {u"/x/y", u"/a/b", u"../../x/y"},
      {u"/a/b", u"/a/b", u"./"},
      {u"/a/./b//c/", u"/a/", u"./b/c"},
      {u"/a/b/../c", u"/a", u"./c"},
      {u"/a/\u00E9t\u00E9", u"/a", u"./\u00E9t\u00E9"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(relativePathToDirectory(row.path, row.directory), row.expected)
        << toUtf8(row.path) << " to " << toUtf8(row.directory);
  }
}

}  // namespace
}  // namespace ulvek
