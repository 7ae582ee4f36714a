#include "text/entity_conversion.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "text/character_tables.h"

namespace ulvek {
namespace {

TextString u16(std::string_view utf8) { return fromUtf8(utf8); }

// Flags of the decoder, as the rows spell them.
enum Flags : unsigned { kNone = 0, kMarkup = 1, kOnlyNumeric = 2, kNonUmlauted = 4 };

struct DecodeRow {
  const char* name;
  TextString input;
  unsigned flags;
  TextString expected;
};

TextString decode(TextView input, unsigned flags) {
  return stringByConvertingEntitiesToCharacters(input, flags & kMarkup, flags & kOnlyNumeric,
                                                flags & kNonUmlauted);
}

TEST(EntityConversionTest, NamedReferences) {
  const std::vector<DecodeRow> rows = {
      {"lower-case name", u"&eacute;", kMarkup, u"\u00E9"},
      {"upper-case initial", u"&Eacute;", kMarkup, u"\u00C9"},
      {"names are case-sensitive", u"&EACUTE;", kMarkup, u"&EACUTE;"},
      {"space terminator stays", u"&eacute x", kMarkup, u"\u00E9 x"},
      {"reference at the very end", u"(c) &copy", kMarkup, u"(c) \u00A9"},
      {"other terminator read again", u"&copy&reg;", kMarkup, u"\u00A9\u00AE"},
      {"unknown name stays", u"&bogus; &", kMarkup, u"&bogus; &"},
      {"non-ASCII name stays", u"&\u00E9acute;", kMarkup, u"&\u00E9acute;"},
      {"empty name stays", u"a & b;", kMarkup, u"a & b;"},
      {"double ampersand", u"&&eacute;", kMarkup, u"&\u00E9"},
      {"lone ampersand at the end", u"abc&", kMarkup, u"abc&"},
      {"fixed form needs no terminator", u"&nbspx", kNone, u"\u00A0x"},
      {"apos without terminator", u"it&aposs", kNone, u"it's"},
      {"cedil is unknown", u"&cedil; &fnof;", kMarkup, u"&cedil; &fnof;"},
      {"euro and card suits", u"&euro;&diams;", kMarkup, u"\u20AC\u2666"},
      {"31-letter name is no reference", u"&" + TextString(31, u'a') + u";", kMarkup,
       u"&" + TextString(31, u'a') + u";"},
  };
  for (const DecodeRow& row : rows) {
    EXPECT_EQ(decode(row.input, row.flags), row.expected) << row.name;
  }
}

TEST(EntityConversionTest, NumericReferences) {
  const std::vector<DecodeRow> rows = {
      {"decimal", u"&#233;", kMarkup, u"\u00E9"},
      {"hex lower x", u"&#xE9;", kMarkup, u"\u00E9"},
      {"hex upper X and digits", u"&#XeA;", kMarkup, u"\u00EA"},
      {"astral gives a surrogate pair", u"&#x1F600;", kMarkup, u"\U0001F600"},
      {"last code point", u"&#1114111;", kMarkup, u"\U0010FFFF"},
      {"past U+10FFFF stays", u"&#x110000;", kMarkup, u"&#x110000;"},
      {"decimal past U+10FFFF stays", u"&#1114112;", kMarkup, u"&#1114112;"},
      {"huge value stays", u"&#99999999999999999999999;", kMarkup, u"&#99999999999999999999999;"},
      {"surrogate value gives the lone unit", u"&#xD800;", kMarkup, TextString(1, 0xD800)},
      {"zero gives NUL", u"&#0;x", kMarkup, TextString(u"\0x", 2)},
      {"no digits", u"&#; &#x; &#", kMarkup, u"&#; &#x; &#"},
      {"missing semicolon, terminator kept", u"&#65x &#x41g", kMarkup, u"Ax Ag"},
      {"decimal stops at a hex letter", u"&#65a;", kMarkup, u"Aa;"},
      {"30-unit body converts", u"&#" + TextString(27, u'0') + u"65;", kMarkup, u"A"},
      {"31-unit body stays", u"&#" + TextString(28, u'0') + u"65;", kMarkup,
       u"&#" + TextString(28, u'0') + u"65;"},
      {"only-numeric still converts numbers", u"&#233;&eacute;", kMarkup | kOnlyNumeric,
       u"\u00E9&eacute;"},
  };
  for (const DecodeRow& row : rows) {
    EXPECT_EQ(decode(row.input, row.flags), row.expected) << row.name;
  }
}

TEST(EntityConversionTest, FlagCombinations) {
  const TextString sample = u"&amp;&lt;&gt;&quot;&apos;&nbsp;&eacute;&#60;&#xC4;\u00C4";
  const std::vector<DecodeRow> rows = {
      {"none", sample, kNone, u"&amp;&lt;&gt;&quot;'\u00A0\u00E9&#60;\u00C4\u00C4"},
      {"markup", sample, kMarkup, u"&<>\"'\u00A0\u00E9<\u00C4\u00C4"},
      {"only numeric", sample, kOnlyNumeric,
       u"&amp;&lt;&gt;&quot;'\u00A0&eacute;&#60;\u00C4\u00C4"},
      {"non-umlauted", sample, kNonUmlauted, u"&amp;&lt;&gt;&quot;'\u00A0e&#60;AA"},
      {"markup, only numeric", sample, kMarkup | kOnlyNumeric,
       u"&<>\"'\u00A0&eacute;<\u00C4\u00C4"},
      {"markup, non-umlauted", sample, kMarkup | kNonUmlauted, u"&<>\"'\u00A0e<AA"},
      {"only numeric, non-umlauted", sample, kOnlyNumeric | kNonUmlauted,
       u"&amp;&lt;&gt;&quot;'\u00A0&eacute;&#60;AA"},
      {"all", sample, kMarkup | kOnlyNumeric | kNonUmlauted, u"&<>\"'\u00A0&eacute;<AA"},
  };
  for (const DecodeRow& row : rows) {
    EXPECT_EQ(decode(row.input, row.flags), row.expected) << row.name;
  }
}

TEST(EntityConversionTest, MarkupReferences) {
  const std::vector<DecodeRow> rows = {
      {"one level only", u"&amp;lt;", kMarkup, u"&lt;"},
      {"optional semicolons", u"&amp &lt &gt &quot x", kMarkup, u"& < > \" x"},
      {"markup off keeps amp", u"&amp; x", kNone, u"&amp; x"},
      {"markup off keeps numeric lt", u"&#60; &#x3E; &#34; &#38;", kNone,
       u"&#60; &#x3E; &#34; &#38;"},
      {"markup off still converts apos and nbsp", u"&apos; &nbsp;", kNone, u"' \u00A0"},
      {"markup on converts numeric markup", u"&#60;&#x3E;&#34;&#38;", kMarkup, u"<>\"&"},
  };
  for (const DecodeRow& row : rows) {
    EXPECT_EQ(decode(row.input, row.flags), row.expected) << row.name;
  }
}

TEST(EntityConversionTest, ShortTextsHoldNoReference) {
  EXPECT_EQ(decode(u"&lt", kMarkup), u"&lt");
  EXPECT_EQ(decode(u"&gt;", kMarkup), u">");
  EXPECT_EQ(decode(u"\u00C4b", kNonUmlauted), u"Ab");
  EXPECT_EQ(decode(u"", kMarkup | kNonUmlauted), u"");
  EXPECT_EQ(stringByConvertingEntitiesToCharacters(u"&eacute;"), u"\u00E9");
  EXPECT_EQ(stringByConvertingEntitiesToCharactersNonUmlauted(u"&eacute;&lt;", true), u"e<");
  EXPECT_EQ(stringByConvertingEntitiesToCharactersNonUmlauted(u"&eacute;", false), u"\u00E9");
}

TEST(EntityConversionTest, EveryTableEntityDecodes) {
  for (const HtmlEntity& entity : htmlEntityTable()) {
    const TextString reference = u"&" + fromAscii(entity.name) + u";";
    EXPECT_EQ(stringByConvertingEntitiesToCharacters(reference), TextString(1, entity.character))
        << entity.name;
  }
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

struct StandardRow {
  const char* name;
  std::string input;
  std::string expected;
};

TEST(EntityConversionTest, StandardEntitiesOnly) {
  const std::vector<StandardRow> rows = {
      {"lt", "a &lt; b", "a < b"},
      {"numeric gt", "&#62;", ">"},
      {"all eight", "&quot;&amp;&lt;&gt;&#34;&#38;&#60;&#62;", "\"&<>\"&<>"},
      {"upper case stays", "&LT;", "&LT;"},
      {"semicolon required", "&lt x", "&lt x"},
      {"other names stay", "&eacute; &#233; &apos;", "&eacute; &#233; &apos;"},
      {"one level only", "&amp;lt;", "&lt;"},
      {"short text", "&lt", "&lt"},
      {"ampersand at the end", "x &lt", "x &lt"},
  };
  for (const StandardRow& row : rows) {
    EXPECT_EQ(toUtf8(stringByConvertingStandardEntitiesToCharacters(u16(row.input))), row.expected)
        << row.name;
  }
}

TEST(EntityConversionTest, CharactersToEntities) {
  const std::vector<StandardRow> rows = {
      {"named and ASCII", "\xC3\xA9<\xE2\x82\xAC", "&eacute;<&euro;"},
      {"unnamed BMP", "\xE4\xB8\xAD", "&#20013;"},
      {"markup characters stay", "a&b\"c>", "a&b\"c>"},
      {"no-break space", "\xC2\xA0", "&nbsp;"},
      {"cedilla has no name", "\xC2\xB8", "&#184;"},
      {"astral as two units", "\xF0\x9F\x98\x80", "&#55357;&#56832;"},
      {"empty", "", ""},
  };
  for (const StandardRow& row : rows) {
    EXPECT_EQ(toUtf8(stringByConvertingCharactersToEntities(u16(row.input))), row.expected)
        << row.name;
  }
}

TEST(EntityConversionTest, ReverseConversionRoundTrips) {
  // Every non-ASCII unit, lone surrogates included, survives the trip out and back.
  TextString all;
  for (char32_t c = 0x80; c <= 0xFFFF; ++c) all.push_back(static_cast<char16_t>(c));
  const TextString escaped = stringByConvertingCharactersToEntities(all);
  for (char16_t c : escaped) ASSERT_LT(c, 128);
  EXPECT_EQ(stringByConvertingEntitiesToCharacters(escaped), all);
}

}  // namespace
}  // namespace ulvek
