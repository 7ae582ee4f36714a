#include "text/string_utilities.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

namespace ulvek {
namespace {

using namespace std::string_literals;

TEST(StringUtilities, TrimCollapseAndNormalize) {
  auto feeds = [](TextView t) { return stringByTrimmingSpacesAndFeeds(t, true); };
  auto spaces = [](TextView t) { return stringByTrimmingSpacesAndFeeds(t, false); };
  auto form = [](NormalizationForm f) {
    return [f](TextView t) { return normalizedString(t, f); };
  };
  using Row = std::tuple<const char*, std::function<TextString(TextView)>, TextString, TextString>;
  const std::vector<Row> rows = {
      {"trim both ends", stringByTrimmingWhiteSpaces, u" \t a b \r\n\u00A0", u"a b"},
      {"trim: BOM is not Unicode white", stringByTrimmingWhiteSpaces, u"\uFEFFx", u"\uFEFFx"},
      {"trim: NUL is not Unicode white", stringByTrimmingWhiteSpaces, u"\0x"s, u"\0x"s},
      {"trim feeds: extras", feeds, u"\0 a\n\uFEFF\uFFFC\u0003"s, u"a"},
      {"trim feeds: all white", feeds, u"\u00A0\u2028", u""},
      {"trim spaces: line feed kept", spaces, u"\t\0a\n"s, u"a\n"},
      {"collapse", stringByRemovingMultipleWhiteSpaces, u"a \t\n b", u"a b"},
      {"collapse: no-break", stringByRemovingMultipleWhiteSpaces, u"a\u00A0b", u"a b"},
      {"collapse: ends", stringByRemovingMultipleWhiteSpaces, u"  a\0\uFEFF"s, u" a "},
      {"collapse: lone surrogates", stringByRemovingMultipleWhiteSpaces, u"\xD800  \xDC00",
       u"\xD800 \xDC00"},
      {"spaces: LF stays", stringByRemovingMultipleSpaces, u"a \t b\n\n c", u"a b\n\n c"},
      {"feeds: CRLF pairs", stringByRemovingMultipleFeeds, u"a\r\n\r\nb", u"a\nb"},
      {"feeds: separators", stringByRemovingMultipleFeeds, u"a\u2028\u0003\rb", u"a\nb"},
      {"feeds: spaces break runs", stringByRemovingMultipleFeeds, u"a\n \nb", u"a\n \nb"},
      {"fix: emoji is two spaces", fixedAndNormalizedString, u"a\U0001F600b", u"a  b"},
      {"fix: U+F400..U+F8FF", fixedAndNormalizedString, u"\uF3FF\uF400\uF8FF", u"\uF3FF  "},
      {"fix: NUL and lone surrogate", fixedAndNormalizedString, u"\0\xDC00x"s, u"  x"},
      {"fix: composes", fixedAndNormalizedString, u"e\u0301\u1100\u1161", u"\u00E9\uAC00"},
      {"fix: mark after surrogate", fixedAndNormalizedString, u"\xD800\u0301", u" \u0301"},
      {"form C", form(NormalizationForm::C), u"A\u030A\uFB01", u"\u00C5\uFB01"},
      {"form KD", form(NormalizationForm::KD), u"\uFB01\u00E9", u"fie\u0301"},
      {"form D grows", form(NormalizationForm::D), u"\u1E69\u1E69", u"s\u0323\u0307s\u0323\u0307"},
      {"lowercase of I dot grows", normalizedLowercaseString, u"\u0130E\u0301", u"i\u0307\u00E9"},
      {"uppercase of sharp s grows", normalizedUppercaseString, u"stra\u00DFe", u"STRASSE"},
  };
  for (const auto& [name, operation, text, expected] : rows) {
    EXPECT_EQ(operation(text), expected) << name;
  }
  // Unchanged text answers nothing, so callers can keep the receiver.
  EXPECT_EQ(stringByRemovingMultipleWhiteSpacesIfChanged(u"a b c "), std::nullopt);
  EXPECT_EQ(stringByRemovingMultipleSpacesIfChanged(u"a\n\nb"), std::nullopt);
  EXPECT_EQ(stringByRemovingMultipleFeedsIfChanged(u"a\nb\n"), std::nullopt);
  EXPECT_EQ(stringByRemovingMultipleWhiteSpacesIfChanged(u"a\tb"), u"a b");
  EXPECT_EQ(stringByTrimmingWhiteSpacesIfChanged(u"ab"), std::nullopt);
  TextString inPlace = u"x\U0001F600e\u0301";
  fixAndNormalizeString(inPlace);
  EXPECT_EQ(inPlace, u"x  \u00E9");
}

TEST(StringUtilities, TrimmingInRangeStaysInside) {
  const TextView text = u"  ab \n cd  ";
  EXPECT_EQ(stringByTrimmingSpacesInRange(text, {0, 5}, true), u"ab");
  EXPECT_EQ(stringByTrimmingSpacesInRange(text, {2, 4}, false), u"ab \n");
  EXPECT_EQ(stringByTrimmingSpacesInRange(text, {0, 2}, true), u"");
  EXPECT_EQ(stringByTrimmingSpacesInRange(text, {40, 3}, true), u"");
  EXPECT_EQ(stringByTrimmingSpacesInRange(text, {7, 100}, true), u"cd");
  EXPECT_EQ(stringByTrimmingSpacesInRange(text, {kNotFound, 0}, true), u"");
}

TEST(StringUtilities, LinesAndConfiguration) {
  using Lines = std::vector<TextString>;
  EXPECT_EQ(lines(u"a\r\nb\nc"), (Lines{u"a\r\n", u"b\n", u"c"}));
  EXPECT_EQ(lines(u"a\n"), (Lines{u"a\n"}));
  EXPECT_EQ(lines(u""), Lines{});
  EXPECT_EQ(lines(u"a\n\rb"), (Lines{u"a\n", u"\r", u"b"}));
  EXPECT_EQ(lines(u"a\u2028b\uFEFF"), (Lines{u"a\u2028", u"b\uFEFF"}));

  EXPECT_EQ(configLines(u"# comment\n  key value  \n\nx\n"), Lines{u"key value"});
  EXPECT_EQ(configLines(u"ab\r\n  # c\r\nkey#x"), (Lines{u"ab", u"key#x"}));
  EXPECT_EQ(configLines(u" \t\n\u00A0"), Lines{});

  EXPECT_EQ(configValueForKey(u"key value", u"KEY"), u"value");
  EXPECT_EQ(configValueForKey(u"key\t v w \n", u"key"), u"v w");
  for (const char16_t* line : {u"keyvalue", u"key", u"key   ", u"keys value", u"name value"}) {
    EXPECT_EQ(configValueForKey(line, u"key"), std::nullopt) << toUtf8(line);
  }
}

TEST(StringUtilities, FindCharacter) {
  EXPECT_EQ(findCharacter(u"Banana", u'a'), 1u);
  EXPECT_EQ(findCharacter(u"abc", u'B', 0, true), 1u);
  EXPECT_EQ(findCharacter(u"abc", u'B', 0, false), kNotFound);
  EXPECT_EQ(findCharacter(u"html?x=1", u'?'), 4u);
  EXPECT_EQ(findCharacter(u"Banana", u'a', 2), 3u);
  EXPECT_EQ(findCharacter(u"Banana", u'a', 6), kNotFound);
  EXPECT_EQ(findCharacter(u"Banana", u'a', kNotFound), kNotFound);
  EXPECT_EQ(findCharacter(u"", u'a'), kNotFound);
  EXPECT_EQ(findCharacter(u"CAF\u00C9", 0x00E9, 0, true), 3u);
  EXPECT_EQ(findCharacter(u"a\0b"s, u'\0'), 1u);
  EXPECT_TRUE(containsCharacter(u"ABC", u'c', true));
  EXPECT_FALSE(containsCharacter(u"ABC", u'c'));
  EXPECT_EQ(firstCharacter(u""), 0);
  EXPECT_EQ(lastCharacter(u"a\U0001F600"), 0xDE00);
}

TEST(StringUtilities, Replacing) {
  EXPECT_EQ(stringByReplacingString(u"a-b-c", u"-", u"+", true), u"a+b+c");
  EXPECT_EQ(stringByReplacingString(u"abc", u"", u"y", true), u"abc");
  EXPECT_EQ(stringByReplacingString(u"aaa", u"aa", u"b", true), u"ba");
  EXPECT_EQ(stringByReplacingString(u"Hello HELLO", u"hello", u"x", true), u"Hello HELLO");
  EXPECT_EQ(stringByReplacingString(u"Hello HELLO", u"hello", u"x", false), u"x x");
  EXPECT_EQ(stringByReplacingString(u"a", u"abc", u"x", true), u"a");
}

TEST(StringUtilities, BoolValue) {
  for (const char16_t* text : {u"1", u"-3", u"YES", u"True", u"on", u"ON", u" 12", u"007"}) {
    EXPECT_TRUE(boolValue(text)) << toUtf8(text);
  }
  for (const char16_t* text :
       {u"no", u"off", u"0", u"", u"+0", u"0x1", u"yes ", u"onx", u"tru", u"-", u"\u0661"}) {
    EXPECT_FALSE(boolValue(text)) << toUtf8(text);
  }
}

TEST(StringUtilities, Paths) {
  EXPECT_TRUE(pathIsInDirectory(u"/a/b", u"/a/b"));
  EXPECT_TRUE(pathIsInDirectory(u"/a/b/c", u"/a/b/"));
  EXPECT_TRUE(pathIsInDirectory(u"/a/b", u"/a//"));
  EXPECT_FALSE(pathIsInDirectory(u"/a/bc", u"/a/b"));
  EXPECT_FALSE(pathIsInDirectory(u"/a/b", u"///"));  // only slashes: no directory at all
  EXPECT_FALSE(pathIsInDirectory(u"/a/b", u""));
  EXPECT_FALSE(pathIsInDirectory(u"/a", u"/a/b"));
  EXPECT_FALSE(pathIsInDirectory(u"/A/b", u"/a"));
  const std::vector<TextString> directories = {u"/x", u"/a/b"};
  EXPECT_TRUE(pathIsInDirectories(u"/a/b/c", directories));
  EXPECT_FALSE(pathIsInDirectories(u"/a/c", directories));

  EXPECT_EQ(relativePathToDirectory(u"/a/b/c", u"/a"), u"./b/c");
  EXPECT_EQ(relativePathToDirectory(u"/a/x", u"/a/b"), u"../x");
  EXPECT_EQ(relativePathToDirectory(u"/x/y", u"/a/b"), u"../../x/y");
  EXPECT_EQ(relativePathToDirectory(u"/a/b", u"/a/b"), u"./");
  EXPECT_EQ(relativePathToDirectory(u"/a/./b//c/", u"/a/"), u"./b/c");
  EXPECT_EQ(relativePathToDirectory(u"/a/b/../c", u"/a"), u"./c");
}

}  // namespace
}  // namespace ulvek
