#include "text/entity_conversion.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

namespace ulvek {
namespace {

using namespace std::string_literals;

enum Flags : unsigned { kNone = 0, kMarkup = 1, kOnlyNumeric = 2, kNonUmlauted = 4 };

TEST(EntityConversionTest, DecodesReferences) {
  const TextString sample = u"&amp;&lt;&quot;&apos;&nbsp;&eacute;&#60;&#xC4;\u00C4";
  const TextString longName = u"&" + TextString(31, u'a') + u";";
  const TextString body30 = u"&#" + TextString(27, u'0') + u"65;";
  const TextString body31 = u"&#" + TextString(28, u'0') + u"65;";
  using Row = std::tuple<const char*, TextString, unsigned, TextString>;
  const std::vector<Row> rows = {
      {"named", u"&eacute;&Eacute;", kMarkup, u"\u00E9\u00C9"},
      {"names are case-sensitive", u"&EACUTE;", kMarkup, u"&EACUTE;"},
      {"space terminator stays", u"&eacute x", kMarkup, u"\u00E9 x"},
      {"reference at the very end", u"(c) &copy", kMarkup, u"(c) \u00A9"},
      {"other terminator read again", u"&copy&reg;", kMarkup, u"\u00A9\u00AE"},
      {"unknown, non-ASCII, empty names stay", u"&bogus; &\u00E9acute; & b", kMarkup,
       u"&bogus; &\u00E9acute; & b"},
      {"double ampersand", u"&&eacute;abc&", kMarkup, u"&\u00E9abc&"},
      {"fixed forms need no terminator", u"&nbspx it&aposs", kNone, u"\u00A0x it's"},
      {"cedil and fnof are unknown", u"&cedil; &fnof;", kMarkup, u"&cedil; &fnof;"},
      {"31-letter name is no reference", longName, kMarkup, longName},
      {"decimal and hex", u"&#233;&#xE9;&#XeA;", kMarkup, u"\u00E9\u00E9\u00EA"},
      {"astral gives a surrogate pair", u"&#x1F600;&#1114111;", kMarkup, u"\U0001F600\U0010FFFF"},
      {"past U+10FFFF stays", u"&#x110000; &#1114112;", kMarkup, u"&#x110000; &#1114112;"},
      {"huge value stays", u"&#99999999999999999999999;", kMarkup, u"&#99999999999999999999999;"},
      {"surrogate values give lone units", u"&#xD800;x&#57343;", kMarkup, u"\xD800x\xDFFF"},
      {"zero gives NUL", u"&#0;x", kMarkup, u"\0x"s},
      {"no digits", u"&#; &#x; &#", kMarkup, u"&#; &#x; &#"},
      {"missing semicolon, terminator kept", u"&#65x &#x41g &#65a;", kMarkup, u"Ax Ag Aa;"},
      {"30-unit body converts", body30, kMarkup, u"A"},
      {"31-unit body stays", body31, kMarkup, body31},
      {"one level only", u"&amp;lt;", kMarkup, u"&lt;"},
      {"optional semicolons", u"&amp &lt &gt &quot x", kMarkup, u"& < > \" x"},
      {"markup off keeps markup characters", u"&amp; &#60; &#x3E; &#34; &#38;", kNone,
       u"&amp; &#60; &#x3E; &#34; &#38;"},
      {"short text holds no reference", u"&lt", kMarkup, u"&lt"},
      {"short text is still folded", u"\u00C4b", kNonUmlauted, u"Ab"},
      {"flags: none", sample, kNone, u"&amp;&lt;&quot;'\u00A0\u00E9&#60;\u00C4\u00C4"},
      {"flags: markup", sample, kMarkup, u"&<\"'\u00A0\u00E9<\u00C4\u00C4"},
      {"flags: only numeric", sample, kOnlyNumeric,
       u"&amp;&lt;&quot;'\u00A0&eacute;&#60;\u00C4\u00C4"},
      {"flags: non-umlauted", sample, kNonUmlauted, u"&amp;&lt;&quot;'\u00A0e&#60;AA"},
      {"flags: all", sample, kMarkup | kOnlyNumeric | kNonUmlauted, u"&<\"'\u00A0&eacute;<AA"},
  };
  for (const auto& [name, input, flags, expected] : rows) {
    EXPECT_EQ(stringByConvertingEntitiesToCharacters(input, flags & kMarkup, flags & kOnlyNumeric,
                                                     flags & kNonUmlauted),
              expected)
        << name;
  }
  EXPECT_EQ(stringByConvertingEntitiesToCharacters(u"&eacute;&lt;"), u"\u00E9<");
  EXPECT_EQ(stringByConvertingEntitiesToCharactersNonUmlauted(u"&eacute;&lt;", true), u"e<");
}

TEST(EntityConversionTest, InPlaceNeverGrows) {
  // An exact-size heap buffer: a write past its end is caught by the address sanitizer.
  const TextString input = u"&#x1F600&#65536;a&eacute&#1;&amp";
  auto buffer = std::make_unique<char16_t[]>(input.size());
  std::copy(input.begin(), input.end(), buffer.get());
  const std::size_t length =
      ConvertEntitiesToCharacters(buffer.get(), input.size(), true, false, false);
  EXPECT_EQ(TextView(buffer.get(), length), u"\U0001F600\U00010000a\u00E9\u0001&");
  EXPECT_EQ(ConvertEntitiesToCharacters(nullptr, 0, true, false, false), 0u);
}

TEST(EntityConversionTest, StandardEntitiesOnly) {
  const std::vector<std::pair<TextString, TextString>> rows = {
      {u"&quot;&amp;&lt;&gt;&#34;&#38;&#60;&#62;", u"\"&<>\"&<>"},
      {u"&LT; &lt x &eacute; &#233; &apos;", u"&LT; &lt x &eacute; &#233; &apos;"},
      {u"&amp;lt;", u"&lt;"},
      {u"&lt", u"&lt"},
      {u"x &lt", u"x &lt"},
  };
  for (const auto& [input, expected] : rows) {
    EXPECT_EQ(stringByConvertingStandardEntitiesToCharacters(input), expected) << toUtf8(input);
  }
}

TEST(EntityConversionTest, CharactersToEntities) {
  const std::vector<std::pair<TextString, std::string>> rows = {
      {u"\u00E9<\u20AC", "&eacute;<&euro;"},
      {u"\u4E2D", "&#20013;"},
      {u"a&b\"c>", "a&b\"c>"},
      {u"\u00A0\u00B8", "&nbsp;&#184;"},
      {u"\U0001F600", "&#55357;&#56832;"},
      {u"", ""},
  };
  for (const auto& [input, expected] : rows) {
    EXPECT_EQ(toUtf8(stringByConvertingCharactersToEntities(input)), expected) << expected;
  }
  // Every non-ASCII unit, lone surrogates and every named character included, survives the trip
  // out and back.
  TextString all;
  for (char32_t c = 0x80; c <= 0xFFFF; ++c) all.push_back(static_cast<char16_t>(c));
  const TextString escaped = stringByConvertingCharactersToEntities(all);
  for (char16_t c : escaped) ASSERT_LT(c, 128);
  EXPECT_EQ(stringByConvertingEntitiesToCharacters(escaped), all);
}

}  // namespace
}  // namespace ulvek
