#include "text/markup_scanner.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "base/deadline.h"
#include "piece_feed.h"
#include "test_support.h"

namespace ulvek {
namespace {

TextString u16(std::string_view utf8) { return fromUtf8(utf8); }
std::optional<std::string> u8(const std::optional<TextString>& text) {
  if (!text) return std::nullopt;
  return toUtf8(*text);
}

// Each item as its text run, then "{state name|tag}"; the final call adds the trailing run.
std::string scan(TextView text) {
  std::string out;
  ScanMarkup(
      text,
      [&](const MarkupItem& item) {
        out += toUtf8(item.textRun());
        if (!item.isFinal()) {
          out += "{" + std::to_string(static_cast<int>(item.state)) + toUtf8(item.name()) + "|" +
                 toUtf8(item.tag()) + "}";
        }
        return false;
      },
      nullptr, false);
  return out;
}

std::size_t countItems(TextView text) {
  std::size_t items = 0;
  ScanMarkup(
      text, [&](const MarkupItem&) { return ++items, false; }, nullptr, false);
  return items;
}

// Inputs and what the scan reports of them.
const std::vector<std::pair<std::string, std::string>> kItemRows = {
    {"a<b>c</b>d", "a{1b|<b>}c{1b|</b>}d"},
    {"<?xml v=\"1\"?><!DOCTYPE x>", "{1xml|<?xml v=\"1\"?>}{1DOCTYPE|<!DOCTYPE x>}"},
    {"<br/><1>", "{1br|<br/>}{1|<1>}"},  // the name stops at "/"; no letter, no name
    {"<!--a--!>y", "{2|<!--a--!>}y"},
    {"<!-a>b->y", "{2|<!-a>b->}y"},  // a single-dash comment ends at "->"
    {"<!-->y", "{2|<!-->}y"},
    {"<![CDATA[a>b]]>y", "{3|<![CDATA[a>b]]>}y"},
    {"<![endif]-->z", "{3|<![endif]-->}z"},
    {"<a title=\"x>y\" href=z>t", "{1a|<a title=\"x>y\" href=z>}t"},
    {"<a b = 'x>y'>t", "{1a|<a b = 'x>y'>}t"},
    {"<a \"x>y\">", "{1a|<a \"x>}y\">"},  // a quote opens a value only after "="
    {"<a b=\"it's>\">t", "{1a|<a b=\"it's>\">}t"},
    {"a < b > c", "a {1b|< b >} c"},
    {"a<b", "a<b"},  // an open tag at the end is not reported
    {"a<!-- x", "a{2|<!-- x}"},
    {"<![CDATA[x", "{3|<![CDATA[x}"},
    {std::string("a\0<b\0>c", 7), std::string("a\0{1b|<b\0>}c", 12)},
    {"<script>if (a<b) x();</script>y", "{1script|<script>if (a<b) x();</script>}y"},
    {"<SCRIPT>a</Script >b", "{1SCRIPT|<SCRIPT>a</Script >}b"},
    {"<script><!-- '</script>' --></script>z", "{1script|<script><!-- '</script>' --></script>}z"},
    {"<script><!-- a</script>b", "{1script|<script><!-- a</script>}b"},
    {"<script>abc", "{1script|<script>}abc"},
    {"<style>x</style", "{1style|<style>x</style}"},
    {"<script src=x />y<b>", "{1script|<script src=x />}y{1b|<b>}"},
    {"<scripts>a<b>", "{1scripts|<scripts>}a{1b|<b>}"},
    {"<script a=\"</script>\">b</script>",
     "{1script|<script a=\"</script>\">}b{1script|</script>}"},
};

TEST(MarkupScannerTest, ReportsItems) {
  for (const auto& [input, expected] : kItemRows) EXPECT_EQ(scan(u16(input)), expected) << input;
}

TEST(MarkupScannerTest, HandlerProtocol) {
  int calls = 0;
  auto count = [&](const MarkupItem&) { return ++calls, false; };
  EXPECT_FALSE(ScanMarkup(u"", count, nullptr, false));
  EXPECT_EQ(calls, 0);

  // Answering true stops the scan; stopping at an unterminated comment skips the final call.
  EXPECT_TRUE(ScanMarkup(
      u"<a><b><c>", [&](const MarkupItem& item) { return ++calls, item.nameIs("b"); }, nullptr,
      false));
  EXPECT_EQ(calls, 2);
  ScanMarkup(
      u"x<!-- y", [&](const MarkupItem&) { return ++calls, true; }, nullptr, false);
  EXPECT_EQ(calls, 3);

  std::optional<MarkupItem> last;
  ScanMarkup(
      u"<p>tail", [&](const MarkupItem& item) { return last = item, false; }, nullptr, false);
  EXPECT_TRUE(last && last->isFinal() && last->tagLocation == 7 && !last->hasName());

  // Mutable mode hands out a private copy that handlers may rewrite behind the scan.
  const TextString text = u"abc<b>def<i>";
  ScanMarkup(
      text,
      [&](const MarkupItem& item) {
        EXPECT_NE(item.units, text.data());
        EXPECT_EQ(item.context, &calls);
        for (std::size_t i = item.textLocation; i < item.tagLocation; ++i) {
          item.mutableUnits[i] = u'x';
        }
        return false;
      },
      &calls, true);
  EXPECT_EQ(text, u"abc<b>def<i>");
}

TEST(MarkupScannerTest, ParseXmlLogsExceptionsAndAnswersNo) {
  testing::CapturedLog log;
  auto handler = [](const MarkupItem& item) {
    if (item.nameIs("b")) throw std::runtime_error("handler failed");
    if (item.nameIs("c")) throw 42;
    return false;
  };
  EXPECT_FALSE(parseXmlWithHandler(u"<a>x<b>y", handler, nullptr, true));
  ASSERT_EQ(log.lines().size(), 1u);
  const std::string& line = log.lines()[0];
  EXPECT_EQ(line.rfind("parseXmlWithHandler:context:mutable: (TextString):\n", 0), 0u) << line;
  EXPECT_NE(line.find("\nstd::runtime_error\nhandler failed\n"), std::string::npos) << line;
  EXPECT_FALSE(parseXmlWithHandler(u"<c>", handler, nullptr, false));
  EXPECT_EQ(log.lines().size(), 2u);
  EXPECT_TRUE(parseXmlWithHandler(u"<a>", handler, nullptr, false));
  EXPECT_FALSE(parseXmlWithHandler(u"", handler, nullptr, false));
  EXPECT_EQ(log.lines().size(), 2u);
}

TEST(MarkupScannerTest, AttributeLookup) {
  // Tag, attribute (empty: CONTENT in content mode, where values may hold markup), value.
  using Row = std::tuple<std::string, std::string, std::optional<std::string>>;
  const std::vector<Row> rows = {
      {"<a Href = 'x'>", "HREF", "x"},
      {"<a href==x y>", "HREF", "x"},
      {"<a href=' x '>", "HREF", " x"},  // only trailing white is trimmed
      {"<a href=\"  \">", "HREF", {}},
      {"<a data-href=\"y\" _href=y>", "HREF", {}},  // a name needs a word boundary
      {"<a data-href=y href=z>", "HREF", "z"},
      {"<a title=\"href=z\" href=w>", "HREF", "w"},
      {"<a href target=x>", "HREF", {}},
      {"<a href=\"x>y\">", "HREF", "x"},
      {"<a href=\"xyz", "HREF", "xyz"},
      {"<a href=\"a&amp;b\">", "HREF", "a&amp;b"},
      {"<a href=x", "HREF", {}},  // too short to hold the name and a value
      {"<a href=x>", "", {}},
      {"<meta content=\"x<br>y<i>z</i>\">", "", "x<br>y<i>z</i>"},
      {"<meta content=\"a>b\">", "", "a"},
      {"<meta content=\">b\">", "", ">b"},
      {"<meta content=\"a<META name=b>\">", "", "a"},
      {"<meta content=\"a<\">", "", "a"},
      {"<meta content=\"a</\">", "", "a"},
  };
  for (const auto& [tagText, attribute, expected] : rows) {
    const TextString tag = u16(tagText);
    std::optional<TextString> value =
        attribute.empty() ? contentAttributeOfTagCharacters(tag.data(), {0, tag.size()})
                          : attributeOfTagWithName(tag, attribute);
    EXPECT_EQ(u8(value), expected) << tagText;
  }
  const TextString text = u"text <a href=\"link\"> more";
  EXPECT_EQ(rangeOfAttributeOfTagCharacters(text.data(), {5, 15}, "HREF"), (TextRange{14, 4}));
  EXPECT_EQ(attributeOfTagInRange(text, {5, 15}, "HREF"), u"link");
  EXPECT_EQ(attributeOfTagInRange(text, {20, 100}, "HREF"), std::nullopt);
}

TEST(MarkupScannerTest, TagPredicates) {
  // Which predicates hold: o(pen), c(losed), m(eta section), r(emark).
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"<p>", "o"},       {"</p>", "c"},   {"<a/>", "oc"},         {"<>", ""},      {"</>", ""},
      {"<!--x-->", "or"}, {"<!-x->", "o"}, {"<![CDATA[]]>", "om"}, {"<![x]>", "o"},
  };
  for (const auto& [tag, expected] : rows) {
    const TextString text = u"xx" + u16(tag) + u"yy";
    const TextRange range{2, tag.size()};
    std::string holds;
    if (isTagOpenInRange(text, range)) holds += "o";
    if (isTagClosedCharacters(text.data(), range)) holds += "c";
    if (isMetaTagInRange(text, range)) holds += "m";
    if (isRemarkTagInRange(text, range)) holds += "r";
    EXPECT_EQ(holds, expected) << tag;
    EXPECT_EQ(isTagClosed(u16(tag)), isTagClosedInRange(text, range)) << tag;
  }
  EXPECT_FALSE(isTagOpenInRange(u"<p>", {1, 5}));
  EXPECT_FALSE(isRemarkTagInRange(u"<!--x-->", {0, 9}));
}

TEST(MarkupScannerTest, StripOperations) {
  auto tag = [](std::string name) { return [name](TextView t) { return stripTag(t, name); }; };
  auto attributes = [](std::string name) {
    return [name](TextView t) { return stripAttributesOfTag(t, name); };
  };
  using Row = std::tuple<std::function<TextString(TextView)>, std::string, std::string>;
  const std::vector<Row> rows = {
      {stripTags, "a<b>b</b>c", "a b c"},
      {stripTags, "<p>x</p>", "x"},
      {stripTags, "<script>if (a<b) x();</script>y", "y"},
      {stripTags, "x<!-- a > b -->y", "x y"},
      {stripTags, "a < b > c", "a  c"},
      {stripTags, "a\u00A0<b>c", "a\u00A0c"},  // a no-break space is white
      {stripTags, "&amp;<b>&lt;", "&amp; &lt;"},
      {tag("P"), "x<P class=c>a</P><pre>b</pre>", "xa<pre>b</pre>"},
      {tag("P"), "<!--c--><i>i</i><p>a</p>z", "<!--c--><i>i</i>az"},
      {tag("p"), "<p>x</p>", "<p>x</p>"},  // names are passed in upper case
      {attributes("A"), "<a href=\"x\" class=y>t</a>", "<A HREF=\"x\">t</A>"},
      {attributes("A"), "<a class=y href='x'/>", "<A HREF=\"x\"/>"},
      {attributes("IMG"), "<img alt=z src=\"i.png\" />", "<IMG SRC=\"i.png\"/>"},
      {attributes("A"), "<a src=s href=h>", "<A HREF=\"h\">"},
      {attributes("DIV"), "<div class=x>a</div>", "<DIV>a</DIV>"},
      {attributes("BR"), "a<br class=x/>b", "ab"},
  };
  for (const auto& [operation, input, expected] : rows) {
    EXPECT_EQ(toUtf8(operation(u16(input))), expected) << input;
  }
}

TEST(MarkupScannerTest, StripTagBodies) {
  const std::string nested =
      "a<style-attribute x>b<style-attribute>c</style-attribute>d</style-attribute>e";
  using Row = std::tuple<std::string, std::vector<TextString>, bool, std::optional<std::string>>;
  const std::vector<Row> rows = {
      {nested, {u"<style-attribute"}, false, "ae"},
      {nested, {u"<style-attribute"}, true, nested.substr(1, nested.size() - 2) + "\n"},
      {"x<PRINT-INFO>y</print-info>z", {u"<print-info>"}, false, "xz"},
      {"<k>1</k>-<k>2</k>", {u"<k"}, true, "<k>1</k>\n<k>2</k>\n"},
      {"<k/>x<k>y</k>", {u"<k"}, false, "<k/>x"},  // self-closing starts no element
      {"<i>1</i><b>2</b>3", {u"", u"<b", u"<i"}, false, "3"},
      {"a<x>b<c>", {u"<x"}, false, "a"},  // an unterminated element runs to the end
      {"<x>y</x>", {u"<x"}, false, {}},
      {"<b>y</b>", {u"<x"}, true, {}},
      {"<x>y</x>", {}, false, "<x>y</x>"},
      {"<x>y</x>", {}, true, {}},
  };
  for (const auto& [input, prefixes, keep, expected] : rows) {
    EXPECT_EQ(u8(stripTagBodies(u16(input), prefixes, keep)), expected)
        << input << (keep ? " (keep)" : "");
  }
}

TEST(MarkupScannerTest, HostileInputStaysBounded) {
  // Deep nesting costs nothing: there is no tree.
  TextString nested;
  for (int i = 0; i < 10000; ++i) nested += u"<div>";
  nested += u"x";
  for (int i = 0; i < 10000; ++i) nested += u"</div>";
  EXPECT_EQ(countItems(nested), 20001u);
  EXPECT_EQ(stripTags(nested), u"x");
  EXPECT_EQ(stripTagBodies(nested, {u"<div"}), std::nullopt);

  // An unterminated comment or script swallows the rest once, not unit by unit.
  const TextString comment = u"a<!--" + TextString(200000, u'-');
  EXPECT_EQ(countItems(comment), 2u);
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
  EXPECT_EQ(countItems(odd), 3u);

  // Stray quotes never let a value run past the text.
  EXPECT_EQ(scan(u16("<a b=\"c' d='e>f")), "<a b=\"c' d='e>f");
  EXPECT_EQ(attributeOfTagWithName(u16("<a b=\"c' d='e>"), "D"), std::nullopt);
  EXPECT_EQ(attributeOfTagWithName(u16("<a d='e\" b=\"c>"), "D"), u"e\" b=\"c");
}

// scan() of a text fed window by window.
std::string scanInWindows(TextView text, std::size_t windowUnits) {
  std::string out;
  testing::PieceFeed feed(text);
  auto handler = [&](const MarkupItem& item) {
    out += toUtf8(item.textRun());
    if (!item.isFinal()) {
      out += "{" + std::to_string(static_cast<int>(item.state)) + toUtf8(item.name()) + "|" +
             toUtf8(item.tag()) + "}";
    }
    return false;
  };
  parseXmlInWindows(feed, handler, windowUnits);
  return out;
}

TEST(MarkupScannerTest, WindowsReportWhatTheWholeTextReports) {
  std::vector<std::string> inputs;
  for (const auto& row : kItemRows) inputs.push_back(row.first);
  for (const char* input : {
           "",
           "<",
           "a<",
           "<!",
           "<!-",
           "<![",
           "ab<!--c-->d<![x]]>e",
           "<script>a<!-- b --> c</script>d<script>e</script>",
           "<script>a<!-- b </script> c --></script>d",  // the hidden end marker is skipped
           "<script>a<!-- b --> c",                      // no end marker after the comment
           "<style>x</style   y>z",
           "<script>a</script",
           "<p>one<p>two<br/>three</p>",
           "<!-a-><!-->x<!--->y<a b='>'c=\">\">z",
       })
    inputs.push_back(input);
  for (const std::string& input : inputs) {
    const std::string whole = scan(u16(input));
    for (std::size_t window : {1, 2, 3, 5, 8, 64})
      EXPECT_EQ(scanInWindows(u16(input), window), whole) << input << " in windows of " << window;
  }
}

TEST(MarkupScannerTest, WindowsStopWhenTheHandlerSaysSo) {
  const TextString text = u16("<a>1<b>2<c>3<d>4");
  testing::PieceFeed feed(text);
  std::vector<std::string> names;
  auto handler = [&](const MarkupItem& item) {
    names.push_back(toUtf8(item.name()));
    return item.nameIs("c");
  };
  EXPECT_TRUE(parseXmlInWindows(feed, handler, 2));
  EXPECT_EQ(names, (std::vector<std::string>{"a", "b", "c"}));

  testing::CapturedLog log;
  testing::PieceFeed throwing(text);
  auto thrower = [](const MarkupItem&) -> bool { throw std::runtime_error("bad item"); };
  EXPECT_FALSE(parseXmlInWindows(throwing, thrower, 2));
  EXPECT_TRUE(log.contains("bad item"));
}

TEST(MarkupScannerTest, APassedDeadlineEndsTheTextWhereTheScanStands) {
  TextString text;
  for (int i = 0; i < 10000; ++i) text += u"<p>x</p>";
  struct Row {
    const char* name;
    std::optional<ReadingDeadline::Clock::duration> limit;
    bool windows;
    bool whole;
  };
  const Row rows[] = {
      {"no deadline", std::nullopt, false, true},
      {"no deadline, in windows", std::nullopt, true, true},
      {"time passed", std::chrono::seconds(0), false, false},
      {"time passed, in windows", std::chrono::seconds(0), true, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    testing::CapturedLog log;
    ReadingDeadline deadline(row.limit);
    std::size_t tags = 0, finals = 0;
    bool lastWasFinal = false, finalTextEmpty = true;
    auto handler = [&](const MarkupItem& item) {
      lastWasFinal = item.isFinal();
      if (lastWasFinal) {
        ++finals;
        finalTextEmpty = item.textRun().empty();
      } else {
        ++tags;
      }
      return false;
    };
    testing::PieceFeed feed(text);
    if (row.windows) {
      EXPECT_TRUE(parseXmlInWindows(feed, handler, 4096));
    } else {
      EXPECT_TRUE(parseXmlWithHandler(text, handler, nullptr, false));
    }
    EXPECT_EQ(tags == 20000u, row.whole) << tags;
    // The handler hears of the end either way, and a cut leaves no half-read text behind it.
    EXPECT_EQ(finals, 1u);
    EXPECT_TRUE(lastWasFinal);
    EXPECT_TRUE(finalTextEmpty);
    EXPECT_EQ(log.contains("Time limit reached"), !row.whole);
  }
}

TEST(MarkupScannerTest, WindowsStayLinearOnHostileInput) {
  // Unterminated scripts, a comment and one long text run each make the window grow until the
  // end; the growth doubles, so the rescans add up to a few passes.
  TextString manyOpen;
  for (int i = 0; i < 100000; ++i) manyOpen += i % 2 ? u"<script>" : u"<STYLE x=1>";
  const TextString comment = u"a<!--" + TextString(300000, u'-');
  const TextString plain(300000, u'p');
  for (const TextString* text : {&std::as_const(manyOpen), &comment, &plain}) {
    std::size_t fed = 0, calls = 0;
    class CountingFeed final : public MarkupTextFeed {
     public:
      CountingFeed(TextView text, std::size_t& fed, std::size_t& calls)
          : inner_(text), fed_(fed), calls_(calls) {}
      bool appendMore(TextString& window, std::size_t units) override {
        const std::size_t before = window.size();
        const bool more = inner_.appendMore(window, units);
        fed_ += window.size() - before;
        ++calls_;
        return more;
      }

     private:
      testing::PieceFeed inner_;
      std::size_t& fed_;
      std::size_t& calls_;
    } feed(*text, fed, calls);
    std::size_t items = 0;
    auto handler = [&](const MarkupItem&) { return ++items, false; };
    EXPECT_TRUE(parseXmlInWindows(feed, handler, 1024));
    EXPECT_EQ(fed, text->size());
    EXPECT_LT(calls, 20u) << "the window grows by doubling";
    EXPECT_EQ(items, countItems(*text));
  }
}

}  // namespace
}  // namespace ulvek
