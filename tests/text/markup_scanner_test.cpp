#include "text/markup_scanner.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "test_support.h"

namespace ulvek {
namespace {

TextString u16(std::string_view utf8) { return fromUtf8(utf8); }
std::string u8(TextView text) { return toUtf8(text); }

// Each item as "state|text run|tag|name".
std::vector<std::string> scanItems(TextView text) {
  std::vector<std::string> items;
  ScanMarkup(
      text,
      [&](const MarkupItem& item) {
        items.push_back(std::to_string(static_cast<int>(item.state)) + "|" + u8(item.textRun()) +
                        "|" + u8(item.tag()) + "|" + u8(item.name()));
        return false;
      },
      nullptr, false);
  return items;
}

struct ScanRow {
  const char* name;
  std::string input;
  std::vector<std::string> items;
};

TEST(MarkupScannerTest, ReportsItemsInEveryState) {
  const std::vector<ScanRow> rows = {
      {"plain text only", "abc", {"0|abc||"}},
      {"start and end tag", "a<b>c</b>d", {"1|a|<b>|b", "1|c|</b>|b", "0|d||"}},
      {"xml declaration", "<?xml version=\"1.0\"?>x", {"1||<?xml version=\"1.0\"?>|xml", "0|x||"}},
      {"doctype", "<!DOCTYPE html><p>", {"1||<!DOCTYPE html>|DOCTYPE", "1||<p>|p", "0|||"}},
      {"self-closing name stops at slash", "<br/>", {"1||<br/>|br", "0|||"}},
      {"name after leading junk", "<123 abc>", {"1||<123 abc>|abc", "0|||"}},
      {"no letter, no name", "<123>", {"1||<123>|", "0|||"}},
      {"empty tag", "a<>b", {"1|a|<>|", "0|b||"}},
      {"comment", "x<!--a-->y", {"2|x|<!--a-->|", "0|y||"}},
      {"comment ending --!>", "<!--a--!>y", {"2||<!--a--!>|", "0|y||"}},
      {"comment keeps inner >", "x<!-- a > b -->y", {"2|x|<!-- a > b -->|", "0|y||"}},
      {"single-dash comment", "<!-a->y", {"2||<!-a->|", "0|y||"}},
      {"single-dash comment ignores lone >", "<!-a>b->y", {"2||<!-a>b->|", "0|y||"}},
      {"comment may close on its opener", "<!-->y", {"2||<!-->|", "0|y||"}},
      {"cdata section", "<![CDATA[x]]>y", {"3||<![CDATA[x]]>|", "0|y||"}},
      {"cdata keeps inner >", "<![CDATA[a>b]]>", {"3||<![CDATA[a>b]]>|", "0|||"}},
      {"conditional section ]-->", "<![endif]-->z", {"3||<![endif]-->|", "0|z||"}},
      {"processing instruction", "<?php echo 1; ?>t", {"1||<?php echo 1; ?>|php", "0|t||"}},
      {"double-quoted > stays inside",
       "<a title=\"x>y\" href=z>t",
       {"1||<a title=\"x>y\" href=z>|a", "0|t||"}},
      {"single-quoted > stays inside", "<a title='x>y'>t", {"1||<a title='x>y'>|a", "0|t||"}},
      {"white between = and quote", "<a b = \"x>y\">t", {"1||<a b = \"x>y\">|a", "0|t||"}},
      {"quote without = does not open", "<a \"x>y\">", {"1||<a \"x>|a", "0|y\">||"}},
      {"mixed quotes nest", "<a b=\"it's>\">t", {"1||<a b=\"it's>\">|a", "0|t||"}},
      {"stray less-than starts a tag", "a < b > c", {"1|a |< b >|b", "0| c||"}},
      {"less-than inside tag ignored", "a<<b>c", {"1|a|<<b>|b", "0|c||"}},
      {"greater-than in text is text", "a>b", {"0|a>b||"}},
      {"open tag at end is text", "a<b", {"0|a<b||"}},
      {"open comment at end reported once", "a<!-- x", {"2|a|<!-- x|", "0|||"}},
      {"open section at end reported once", "<![CDATA[x", {"3||<![CDATA[x|", "0|||"}},
      {"short <! is a tag", "<!>", {"1||<!>|", "0|||"}},
      {"nul bytes are text",
       std::string("a\0<b\0>c", 7),
       {std::string("1|a\0|<b\0>|b", 11), "0|c||"}},
  };
  for (const ScanRow& row : rows) {
    EXPECT_EQ(scanItems(u16(row.input)), row.items) << row.name;
  }
}

TEST(MarkupScannerTest, SkipsRawTextElementsAsOneItem) {
  const std::vector<ScanRow> rows = {
      {"script body",
       "<script>if (a<b) x();</script>y",
       {"1||<script>if (a<b) x();</script>|script", "0|y||"}},
      {"style body", "<style>p>a{}</style>b", {"1||<style>p>a{}</style>|style", "0|b||"}},
      {"end marker case and spaces",
       "<SCRIPT>a</Script >b",
       {"1||<SCRIPT>a</Script >|SCRIPT", "0|b||"}},
      {"start tag with attributes",
       "<script type=\"t\">x</script>",
       {"1||<script type=\"t\">x</script>|script", "0|||"}},
      {"end marker hidden in a comment",
       "<script><!-- w('</script>') --></script>z",
       {"1||<script><!-- w('</script>') --></script>|script", "0|z||"}},
      {"comment without close keeps first marker",
       "<script><!-- a</script>b",
       {"1||<script><!-- a</script>|script", "0|b||"}},
      {"no end marker reports start tag only", "<script>abc", {"1||<script>|script", "0|abc||"}},
      {"end marker without > runs to the end",
       "<script>x</script",
       {"1||<script>x</script|script", "0|||"}},
      {"self-closing script is no raw text",
       "<script src=x />y<b>",
       {"1||<script src=x />|script", "1|y|<b>|b", "0|||"}},
      {"lone end tag is ordinary", "</script>x", {"1||</script>|script", "0|x||"}},
      {"scripts is not script", "<scripts>a<b>", {"1||<scripts>|scripts", "1|a|<b>|b", "0|||"}},
      {"marker inside the start tag",
       "<script a=\"</script>\">b</script>",
       {"1||<script a=\"</script>\">|script", "1|b|</script>|script", "0|||"}},
  };
  for (const ScanRow& row : rows) {
    EXPECT_EQ(scanItems(u16(row.input)), row.items) << row.name;
  }
}

TEST(MarkupScannerTest, EmptyTextCallsNothing) {
  int calls = 0;
  EXPECT_FALSE(ScanMarkup(
      u"", [&](const MarkupItem&) { return ++calls, false; }, nullptr, false));
  EXPECT_EQ(calls, 0);
}

TEST(MarkupScannerTest, StopSkipsTheRest) {
  std::vector<std::string> names;
  EXPECT_TRUE(ScanMarkup(
      u"<a><b><c>",
      [&](const MarkupItem& item) {
        names.push_back(u8(item.name()));
        return item.nameIs("b");
      },
      nullptr, false));
  EXPECT_EQ(names, (std::vector<std::string>{"a", "b"}));

  // Stopping at an unterminated comment also skips the final call.
  int calls = 0;
  ScanMarkup(
      u"x<!-- y", [&](const MarkupItem&) { return ++calls, true; }, nullptr, false);
  EXPECT_EQ(calls, 1);
}

TEST(MarkupScannerTest, FinalCallCarriesTrailingText) {
  std::optional<MarkupItem> last;
  ScanMarkup(
      u"<p>tail", [&](const MarkupItem& item) { return last = item, false; }, nullptr, false);
  ASSERT_TRUE(last);
  EXPECT_TRUE(last->isFinal());
  EXPECT_EQ(last->tagLocation, 7u);
  EXPECT_EQ(last->nameLocation, kNotFound);
  EXPECT_EQ(last->state, MarkupState::Text);
  EXPECT_EQ(last->textRun(), u"tail");
}

TEST(MarkupScannerTest, MutableModeHandsOutAPrivateCopy) {
  const TextString text = u"abc<b>def<i>";
  int seen = 0;
  ScanMarkup(
      text,
      [&](const MarkupItem& item) {
        EXPECT_NE(item.units, text.data());
        EXPECT_EQ(item.mutableUnits, item.units);
        EXPECT_EQ(item.context, &seen);
        // Rewriting the run in front of the item does not disturb the scan.
        for (std::size_t i = item.textLocation; i < item.tagLocation; ++i) {
          item.mutableUnits[i] = u'x';
        }
        ++seen;
        return false;
      },
      &seen, true);
  EXPECT_EQ(seen, 3);
  EXPECT_EQ(text, u"abc<b>def<i>");

  ScanMarkup(
      text,
      [&](const MarkupItem& item) {
        EXPECT_EQ(item.units, text.data());
        EXPECT_EQ(item.mutableUnits, nullptr);
        return false;
      },
      nullptr, false);
}

class ThrowingHandler : public MarkupTagHandler {
 public:
  bool handleItem(const MarkupItem& item) override {
    if (item.nameIs("b")) throw std::runtime_error("handler failed");
    return false;
  }
};

TEST(MarkupScannerTest, ParseXmlLogsExceptionsAndAnswersNo) {
  testing::CapturedLog log;
  ThrowingHandler handler;
  EXPECT_FALSE(parseXmlWithHandler(u"<a>x<b>y", handler, nullptr, true));
  ASSERT_EQ(log.lines().size(), 1u);
  const std::string& line = log.lines()[0];
  EXPECT_EQ(line.rfind("parseXmlWithHandler:context:mutable: (TextString):\n", 0), 0u) << line;
  EXPECT_NE(line.find("\nstd::runtime_error\nhandler failed\n"), std::string::npos) << line;

  EXPECT_TRUE(parseXmlWithHandler(u"<a>", handler, nullptr, false));
  EXPECT_FALSE(parseXmlWithHandler(u"", handler, nullptr, false));
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST(MarkupScannerTest, ParseXmlCatchesUnknownExceptions) {
  testing::CapturedLog log;
  EXPECT_FALSE(parseXmlWithHandler(
      u"<a>", [](const MarkupItem&) -> bool { throw 42; }, nullptr, false));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.contains("parseXmlWithHandler:context:mutable: (TextString):\n"));
}

struct AttributeRow {
  const char* name;
  std::string tag;
  std::string attribute;
  std::optional<std::string> value;
};

TEST(MarkupScannerTest, FindsAttributeValues) {
  const std::vector<AttributeRow> rows = {
      {"double quotes", "<a href=\"x\">", "HREF", "x"},
      {"single quotes and spaces", "<a Href = 'x'>", "HREF", "x"},
      {"unquoted to white", "<a href=x y>", "HREF", "x"},
      {"unquoted to >", "<a href=x>", "HREF", "x"},
      {"repeated =", "<a href==x>", "HREF", "x"},
      {"leading white kept, trailing trimmed", "<a href=' x '>", "HREF", " x"},
      {"empty value is absent", "<a href=\"\">", "HREF", std::nullopt},
      {"all-white value is absent", "<a href=\"  \">", "HREF", std::nullopt},
      {"hyphen before name", "<a data-href=\"y\">", "HREF", std::nullopt},
      {"underscore before name", "<a _href=\"y\">", "HREF", std::nullopt},
      {"letter before name", "<a xhref=\"y\">", "HREF", std::nullopt},
      {"word boundary found later", "<a data-href=y href=z>", "HREF", "z"},
      {"name inside a value is skipped", "<a title=\"href=z\" href=w>", "HREF", "w"},
      {"name without =", "<a href target=x>", "HREF", std::nullopt},
      {"> ends a quoted value", "<a href=\"x>y\">", "HREF", "x"},
      {"missing quote runs to the tag end", "<a href=\"xyz", "HREF", "xyz"},
      {"references stay", "<a href=\"a&amp;b\">", "HREF", "a&amp;b"},
      {"tag too short for the name", "<a href=x", "HREF", std::nullopt},
      {"empty name", "<a href=x>", "", std::nullopt},
      {"lower-case document name", "<META CONTENT=\"v\">", "CONTENT", "v"},
      {"plain lookup stops at inner >", "<meta content=\"a<b>c\">", "CONTENT", "a<b"},
  };
  for (const AttributeRow& row : rows) {
    std::optional<TextString> value = attributeOfTagWithName(u16(row.tag), row.attribute);
    std::optional<std::string> actual;
    if (value) actual = u8(*value);
    EXPECT_EQ(actual, row.value) << row.name;
  }
}

TEST(MarkupScannerTest, ContentModeAllowsNestedMarkup) {
  const std::vector<AttributeRow> rows = {
      {"nested tag", "<meta content=\"a<b>c\">", "", "a<b>c"},
      {"plain value", "<meta name=x content='v w'>", "", "v w"},
      {"unquoted value", "<meta content=v>", "", "v"},
      {"> at level 0 ends", "<meta content=\"a>b\">", "", "a"},
      {"> as first unit stays", "<meta content=\">b\">", "", ">b"},
      {"<meta ends the value", "<meta content=\"a<META name=b>\">", "", "a"},
      {"trailing < cut", "<meta content=\"a<\">", "", "a"},
      {"trailing </ cut", "<meta content=\"a</\">", "", "a"},
      {"balanced markup", "<meta content=\"x<br>y<i>z</i>\">", "", "x<br>y<i>z</i>"},
      {"no content", "<meta name=\"x\" value=y>", "", std::nullopt},
  };
  for (const AttributeRow& row : rows) {
    const TextString tag = u16(row.tag);
    std::optional<TextString> value = contentAttributeOfTagCharacters(tag.data(), {0, tag.size()});
    std::optional<std::string> actual;
    if (value) actual = u8(*value);
    EXPECT_EQ(actual, row.value) << row.name;
  }
}

TEST(MarkupScannerTest, AttributeRangesIndexTheWholeText) {
  const TextString text = u"text <a href=\"link\"> more";
  const TextRange tag{5, 15};
  EXPECT_EQ(rangeOfAttributeOfTagCharacters(text.data(), tag, "HREF"), (TextRange{14, 4}));
  EXPECT_EQ(attributeOfTagCharacters(text.data(), tag, "HREF"), u"link");
  EXPECT_EQ(attributeOfTagInRange(text, tag, "HREF"), u"link");
  EXPECT_FALSE(rangeOfAttributeOfTagCharacters(text.data(), tag, "SRC").found());
  EXPECT_EQ(attributeOfTagInRange(text, {20, 100}, "HREF"), std::nullopt);
  const TextString bare = u"<img src=p.png>";
  EXPECT_EQ(rangeOfAttributeOfTagCharacters(bare.data(), bare.size(), "SRC"), (TextRange{9, 5}));
  EXPECT_EQ(attributeOfTagCharacters(bare.data(), bare.size(), "SRC"), u"p.png");
}

struct PredicateRow {
  std::string tag;
  bool open, closed, meta, remark;
};

TEST(MarkupScannerTest, TagPredicates) {
  const std::vector<PredicateRow> rows = {
      {"<p>", true, false, false, false},         {"</p>", false, true, false, false},
      {"<br/>", true, true, false, false},        {"<a/>", true, true, false, false},
      {"<>", false, false, false, false},         {"</>", false, false, false, false},
      {"<!--x-->", true, false, false, true},     {"<!-x->", true, false, false, false},
      {"<![CDATA[]]>", true, false, true, false}, {"<![x]>", true, false, false, false},
  };
  for (const PredicateRow& row : rows) {
    const TextString tag = u16(row.tag);
    EXPECT_EQ(isTagOpen(tag), row.open) << row.tag;
    EXPECT_EQ(isTagClosed(tag), row.closed) << row.tag;
    EXPECT_EQ(isMetaTag(tag), row.meta) << row.tag;
    EXPECT_EQ(isRemarkTag(tag), row.remark) << row.tag;

    const TextString text = u"xx" + tag + u"yy";
    const TextRange range{2, tag.size()};
    EXPECT_EQ(isTagOpenCharacters(text.data(), range), row.open) << row.tag;
    EXPECT_EQ(isTagClosedCharacters(text.data(), range), row.closed) << row.tag;
    EXPECT_EQ(isTagOpenInRange(text, range), row.open) << row.tag;
    EXPECT_EQ(isTagClosedInRange(text, range), row.closed) << row.tag;
    EXPECT_EQ(isMetaTagInRange(text, range), row.meta) << row.tag;
    EXPECT_EQ(isRemarkTagInRange(text, range), row.remark) << row.tag;
  }
  EXPECT_FALSE(isTagOpenInRange(u"<p>", {1, 5}));
  EXPECT_FALSE(isRemarkTagInRange(u"<!--x-->", {0, 9}));
}

struct StripRow {
  const char* name;
  std::string input;
  std::string expected;
};

TEST(MarkupScannerTest, StripTags) {
  const std::vector<StripRow> rows = {
      {"runs joined by a space", "a<b>b</b>c", "a b c"},
      {"no leading space", "<p>x</p>", "x"},
      {"script body dropped", "<script>if (a<b) x();</script>y", "y"},
      {"style body dropped", "a<style>p{}</style>b", "a b"},
      {"comment dropped", "x<!-- a > b -->y", "x y"},
      {"stray < swallows to >", "a < b > c", "a  c"},
      {"white end needs no space", "a\n<br>b", "a\nb"},
      {"no-break space is white", "a\xC2\xA0<b>c",
       "a\xC2\xA0"
       "c"},
      {"open tag at end kept", "a<b", "a<b"},
      {"open comment at end dropped", "a<!-- b", "a"},
      {"cdata dropped", "<![CDATA[x]]>y", "y"},
      {"references kept", "&amp;<b>&lt;", "&amp; &lt;"},
      {"nothing but markup", "<a><b></b></a>", ""},
      {"plain text unchanged", "just text", "just text"},
      {"empty", "", ""},
  };
  for (const StripRow& row : rows) {
    EXPECT_EQ(u8(stripTags(u16(row.input))), row.expected) << row.name;
  }
}

struct NamedStripRow {
  const char* name;
  std::string input;
  std::string tag;
  std::string expected;
};

TEST(MarkupScannerTest, StripTag) {
  const std::vector<NamedStripRow> rows = {
      {"start and end removed", "<p>a</p><b>x</b>", "P", "a<b>x</b>"},
      {"any case in the document", "x<P class=c>a</P>y", "P", "xay"},
      {"items before kept", "<!--c--><i>i</i><p>a</p>z", "P", "<!--c--><i>i</i>az"},
      {"open comment after match kept", "<p>a<!-- b", "P", "a<!-- b"},
      {"other names kept", "<pre>a</pre>", "P", "<pre>a</pre>"},
      {"no such tag", "<b>x</b>", "P", "<b>x</b>"},
      {"empty name", "<p>x</p>", "", "<p>x</p>"},
      {"lower-case name never matches", "<p>x</p>", "p", "<p>x</p>"},
  };
  for (const NamedStripRow& row : rows) {
    EXPECT_EQ(u8(stripTag(u16(row.input), row.tag)), row.expected) << row.name;
  }
}

TEST(MarkupScannerTest, StripAttributesOfTag) {
  const std::vector<NamedStripRow> rows = {
      {"href kept", "<a href=\"x\" class=y>t</a>", "A", "<A HREF=\"x\">t</A>"},
      {"href self-closing", "<a class=y href='x'/>", "A", "<A HREF=\"x\"/>"},
      {"src when no href", "<img alt=z src=\"i.png\">", "IMG", "<IMG SRC=\"i.png\">"},
      {"src self-closing", "<img src=\"i.png\" />", "IMG", "<IMG SRC=\"i.png\"/>"},
      {"href wins over src", "<a src=s href=h>", "A", "<A HREF=\"h\">"},
      {"no link", "<div class=x>a</div>", "DIV", "<DIV>a</DIV>"},
      {"no link self-closing vanishes", "a<br class=x/>b", "BR", "ab"},
      {"other tags kept", "<b>x</b><a href=h>y</a>", "A", "<b>x</b><A HREF=\"h\">y</A>"},
      {"no such tag", "<b>x</b>", "A", "<b>x</b>"},
  };
  for (const NamedStripRow& row : rows) {
    EXPECT_EQ(u8(stripAttributesOfTag(u16(row.input), row.tag)), row.expected) << row.name;
  }
}

struct BodiesRow {
  const char* name;
  std::string input;
  std::vector<std::string> prefixes;
  bool keep;
  std::optional<std::string> expected;
};

TEST(MarkupScannerTest, StripTagBodies) {
  const std::string nested =
      "a<style-attribute x>b<style-attribute>c</style-attribute>d</style-attribute>e";
  const std::vector<BodiesRow> rows = {
      {"nested element removed whole", nested, {"<style-attribute"}, false, "ae"},
      {"nested element kept whole",
       nested,
       {"<style-attribute"},
       true,
       "<style-attribute x>b<style-attribute>c</style-attribute>d</style-attribute>\n"},
      {"prefix ignores case", "x<PRINT-INFO>y</print-info>z", {"<print-info>"}, false, "xz"},
      {"each kept element ends with a line feed",
       "<k>1</k>-<k>2</k>",
       {"<k"},
       true,
       "<k>1</k>\n<k>2</k>\n"},
      {"self-closing does not start an element", "<k/>x<k>y</k>", {"<k"}, false, "<k/>x"},
      {"comments are no elements", "<!--k-->x", {"<!--"}, false, "<!--k-->x"},
      {"empty prefix ignored", "<b>x</b>y", {"", "<b"}, false, "y"},
      {"first of several prefixes", "<i>1</i><b>2</b>3", {"<b", "<i"}, false, "3"},
      {"unterminated element runs to the end", "a<x>b<c>", {"<x"}, false, "a"},
      {"unterminated element kept to the end", "a<x>b<c>d", {"<x"}, true, "<x>b<c>d"},
      {"everything removed is nothing", "<x>y</x>", {"<x"}, false, std::nullopt},
      {"nothing kept is nothing", "<b>y</b>", {"<x"}, true, std::nullopt},
      {"no prefixes, remove mode", "<x>y</x>", {}, false, "<x>y</x>"},
      {"no prefixes, keep mode", "<x>y</x>", {}, true, std::nullopt},
      {"empty text, remove mode", "", {"<x"}, false, ""},
      {"empty text, keep mode", "", {"<x"}, true, std::nullopt},
  };
  for (const BodiesRow& row : rows) {
    std::vector<TextString> prefixes;
    for (const std::string& prefix : row.prefixes) prefixes.push_back(u16(prefix));
    std::optional<TextString> result = stripTagBodies(u16(row.input), prefixes, row.keep);
    std::optional<std::string> actual;
    if (result) actual = u8(*result);
    EXPECT_EQ(actual, row.expected) << row.name;
  }
  EXPECT_EQ(stripTagBodies(u"a<x>b</x>", {u"<x"}), u"a");
  EXPECT_EQ(stripTagBodiesExcept(u"a<x>b</x>", {u"<x"}), u"<x>b</x>\n");
}

TEST(MarkupScannerTest, HostileInputStaysBounded) {
  // Deep nesting costs nothing: there is no tree.
  TextString nested;
  for (int i = 0; i < 10000; ++i) nested += u"<div>";
  nested += u"x";
  for (int i = 0; i < 10000; ++i) nested += u"</div>";
  std::size_t items = 0;
  ScanMarkup(
      nested, [&](const MarkupItem&) { return ++items, false; }, nullptr, false);
  EXPECT_EQ(items, 20001u);
  EXPECT_EQ(stripTags(nested), u"x");
  EXPECT_EQ(stripTagBodies(nested, {u"<div"}), std::nullopt);

  // An unterminated comment or script swallows the rest once, not unit by unit.
  const TextString comment = u"a<!--" + TextString(200000, u'-');
  EXPECT_EQ(scanItems(comment).size(), 2u);
  EXPECT_EQ(stripTags(comment), u"a");
  const TextString script = u"<script>" + TextString(200000, u'a') + u"<";
  EXPECT_EQ(stripTags(script).size(), 200001u);
  // Many script and style tags without end tags: each is a plain tag, found in linear time.
  TextString manyOpen;
  for (int i = 0; i < 100000; ++i) manyOpen += i % 2 ? u"<script>" : u"<STYLE x=1>";
  manyOpen += u"x";
  EXPECT_EQ(stripTags(manyOpen), u"x");
  EXPECT_EQ(stripTags(manyOpen + u"</style>y"), u"y");

  // Lone surrogates and NULs are only units.
  const TextString odd = {u'<', 0xD800, u'a', 0xDC00, u'>', 0, u'<', u'/', 0xDBFF, u'>'};
  EXPECT_EQ(scanItems(odd).size(), 3u);

  // Stray quotes never let a value run past the text.
  EXPECT_EQ(scanItems(u16("<a b=\"c' d='e>f")), (std::vector<std::string>{"0|<a b=\"c' d='e>f||"}));
  EXPECT_EQ(attributeOfTagWithName(u16("<a b=\"c' d='e>"), "D"), std::nullopt);
  EXPECT_EQ(attributeOfTagWithName(u16("<a d='e\" b=\"c>"), "D"), u"e\" b=\"c");
}

}  // namespace
}  // namespace ulvek
