#include "text/html_meta.h"

#include <gtest/gtest.h>

#include "base/text_limits.h"

#include <string>
#include <tuple>
#include <vector>

namespace ulvek {
namespace {

TEST(HtmlTitle, RawAndNormalized) {
  const std::vector<std::tuple<TextView, TextView, TextView>> rows = {
      {u"<title> Caf&eacute; &amp; Bar </title>", u" Caf&eacute; &amp; Bar ", u"Café & Bar"},
      {u"<html><head><TITLE>Home</TITLE></head><body>x</body>", u"Home", u"Home"},
      {u"<body><title>Late</title></body>", u"", u""},
      {u"</body><title>x</title>", u"", u""},
      {u"<html><head></head><body>x</body></html>", u"", u""},
      {u"<title>A <b>B</b> C</title>", u" C", u"C"},  // the run after the last inner tag
      {u"<title>Open", u"", u""},
      {u"<title>\n One\n Two | Site \n</title>", u"\n One\n Two | Site \n", u"One\n Two | Site"},
  };
  for (const auto& [html, raw, normalized] : rows) {
    EXPECT_EQ(htmlTitle(html), raw) << toUtf8(html);
    EXPECT_EQ(normalizedHtmlTitle(html), normalized) << toUtf8(html);
  }
}

TEST(HtmlMeta, KeysValuesAndCleaning) {
  const std::vector<std::pair<TextView, HtmlMetaAttributes>> rows = {
      {u"<meta name=Keywords content=\"a, b\"><meta name=keywords content=c>",
       {{u"keywords", u"a, b c"}}},
      {u"<meta property=\"og:title\" content=\"X\">", {{u"og:title", u"X"}}},
      {u"<meta property=\"og:title\" name=\"title\" content=\"N\">", {{u"title", u"N"}}},
      {u"<META NAME=\"DC.Title\" CONTENT=\"T\">", {{u"dc.title", u"T"}}},
      {u"<meta name=d content=\"Line one&lt;br&gt;Line two\">", {{u"d", u"Line one\nLine two"}}},
      {u"<meta name=d content=\"<p>One</p><p>Two</p>\">", {{u"d", u"One\nTwo\n"}}},
      {u"<meta name=d content=\"a  \n  b\">", {{u"d", u"a b"}}},
      {u"<meta name=d content=\"1 &lt;  2 &amp; 3\">", {{u"d", u"1 < 2 & 3"}}},
      {u"<meta http-equiv=\"refresh\" content=\"5\">", {}},
      {u"<meta name=\"robots\"><meta name=\"x\" content=\"\">", {}},
      {u"<head><meta name=a content=1></head><body><meta name=b content=2>", {{u"a", u"1"}}},
  };
  for (const auto& [html, expected] : rows)
    EXPECT_EQ(htmlMetaAttributesByConvertingEntitiesToCharacters(html), expected) << toUtf8(html);
  EXPECT_EQ(htmlMetaAttributes(u"<meta name=D content=\"a &amp;  b\"><meta name=d content=\"c\">"),
            (HtmlMetaAttributes{{u"d", u"a &amp;  b c"}}));
}

// A huge title or meta value costs a bounded copy: the result keeps 1 MiB of it anyway.
TEST(HtmlTitle, HugeValuesAreReadOnlyInPart) {
  const TextString huge(5 * kMaxValueUtf8Bytes, u't');
  const TextString page = u"<title>" + huge + u"</title><meta name=d content=\"" + huge +
                          u"\"><meta name=d content=\"" + huge + u"\">";
  const std::size_t cap = 4 * kMaxValueUtf8Bytes;
  EXPECT_EQ(htmlTitle(page).size(), cap);
  EXPECT_EQ(normalizedHtmlTitle(page).size(), cap);
  const HtmlMetaAttributes meta = htmlMetaAttributesByConvertingEntitiesToCharacters(page);
  ASSERT_EQ(meta.count(u"d"), 1u);
  EXPECT_LE(meta.at(u"d").size(), cap);
  EXPECT_GT(meta.at(u"d").size(), kMaxValueUtf8Bytes);
}

TEST(CountLT, BalancedOnlyWhenEqualAndNotZero) {
  std::size_t lessThan = 99, greaterThan = 99;
  EXPECT_FALSE(countLT(u"plain", &lessThan, &greaterThan));
  EXPECT_EQ(lessThan + greaterThan, 0u);
  EXPECT_TRUE(countLT(u"a > b < c"));
  EXPECT_FALSE(countLT(u"<<>", &lessThan, &greaterThan));
  EXPECT_EQ(lessThan, 2u);
  EXPECT_EQ(greaterThan, 1u);
}

}  // namespace
}  // namespace ulvek
