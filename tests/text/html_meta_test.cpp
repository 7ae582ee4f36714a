#include "text/html_meta.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ulvek {
namespace {

std::string utf8(TextView text) { return toUtf8(text); }

TEST(HtmlTitle, RawAndNormalized) {
  struct Row {
    const char* name;
    TextView html;
    TextView raw;
    TextView normalized;
  };
  const std::vector<Row> rows = {
      {"references and white", u"<title> Caf&eacute; &amp; Bar </title>",
       u" Caf&eacute; &amp; Bar ", u"Café & Bar"},
      {"in a head", u"<html><head><TITLE>Home</TITLE></head><body>x</body>", u"Home", u"Home"},
      {"after the body start tag", u"<body><title>Late</title></body>", u"", u""},
      {"no title", u"<html><head></head><body>x</body></html>", u"", u""},
      {"markup inside keeps the last run", u"<title>A <b>B</b> C</title>", u" C", u"C"},
      {"start tag alone", u"<title>Open", u"", u""},
      {"inner line breaks stay", u"<title>\n One\n Two \n</title>", u"\n One\n Two \n",
       u"One\n Two"},
      {"no site suffix cut", u"<title>Story | Site</title>", u"Story | Site", u"Story | Site"},
      {"empty", u"", u"", u""},
      {"end tag of body stops too", u"</body><title>x</title>", u"", u""},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(utf8(htmlTitle(row.html)), utf8(row.raw)) << row.name;
    EXPECT_EQ(utf8(normalizedHtmlTitle(row.html)), utf8(row.normalized)) << row.name;
  }
}

TEST(HtmlMeta, ConvertedAttributes) {
  struct Row {
    const char* name;
    TextView html;
    HtmlMetaAttributes expected;
  };
  const std::vector<Row> rows = {
      {"repeated names joined in order",
       u"<meta name=Keywords content=\"a, b\"><meta name=\"keywords\" content=\"c\">",
       {{u"keywords", u"a, b c"}}},
      {"property keys", u"<meta property=\"og:title\" content=\"X\">", {{u"og:title", u"X"}}},
      {"name beats property",
       u"<meta property=\"og:title\" name=\"title\" content=\"N\">",
       {{u"title", u"N"}}},
      {"keys lower-cased", u"<META NAME=\"DC.Title\" CONTENT=\"T\">", {{u"dc.title", u"T"}}},
      {"balanced markup becomes text",
       u"<meta name=description content=\"Line one&lt;br&gt;Line two\">",
       {{u"description", u"Line one\nLine two"}}},
      {"white runs collapse",
       u"<meta name=description content=\"a  \n  b\">",
       {{u"description", u"a b"}}},
      {"lone less-than only collapses", u"<meta name=d content=\"1 &lt;  2\">", {{u"d", u"1 < 2"}}},
      {"references converted",
       u"<meta name=author content=\"Jos&eacute; &amp; Ana\">",
       {{u"author", u"José & Ana"}}},
      {"http-equiv adds nothing", u"<meta http-equiv=\"refresh\" content=\"5\">", {}},
      {"no content adds nothing", u"<meta name=\"robots\">", {}},
      {"empty content adds nothing", u"<meta name=\"robots\" content=\"\">", {}},
      {"body stops the search",
       u"<head><meta name=a content=1></head><body><meta name=b content=2></body>",
       {{u"a", u"1"}}},
  };
  for (const Row& row : rows) {
    HtmlMetaAttributes meta = htmlMetaAttributesByConvertingEntitiesToCharacters(row.html);
    ASSERT_EQ(meta.size(), row.expected.size()) << row.name;
    for (const auto& [key, value] : row.expected) {
      auto found = meta.find(key);
      ASSERT_NE(found, meta.end()) << row.name << ": " << utf8(key);
      EXPECT_EQ(utf8(found->second), utf8(value)) << row.name << ": " << utf8(key);
    }
  }
}

TEST(HtmlMeta, RawAttributesKeepReferencesAndWhite) {
  HtmlMetaAttributes meta = htmlMetaAttributes(
      u"<meta name=Description content=\"a &amp;  b\"><meta name=description content=\"c\">");
  ASSERT_EQ(meta.size(), 1u);
  EXPECT_EQ(utf8(meta[u"description"]), "a &amp;  b c");
}

TEST(HtmlMeta, ContentWithNestedMarkup) {
  // A quoted content value may hold markup with its own ">" units.
  HtmlMetaAttributes meta = htmlMetaAttributesByConvertingEntitiesToCharacters(
      u"<meta name=\"description\" content=\"<p>One</p><p>Two</p>\">");
  ASSERT_EQ(meta.count(u"description"), 1u);
  EXPECT_EQ(utf8(meta[u"description"]), "One\nTwo\n");
}

TEST(CountLT, CountsBothBrackets) {
  struct Row {
    TextView text;
    bool balanced;
    std::size_t lessThan;
    std::size_t greaterThan;
  };
  const std::vector<Row> rows = {
      {u"", false, 0, 0},      {u"plain", false, 0, 0},    {u"<b>x</b>", true, 2, 2},
      {u"1 < 2", false, 1, 0}, {u"a > b < c", true, 1, 1}, {u"<<>", false, 2, 1},
  };
  for (const Row& row : rows) {
    std::size_t lessThan = 99;
    std::size_t greaterThan = 99;
    EXPECT_EQ(countLT(row.text, &lessThan, &greaterThan), row.balanced) << utf8(row.text);
    EXPECT_EQ(lessThan, row.lessThan) << utf8(row.text);
    EXPECT_EQ(greaterThan, row.greaterThan) << utf8(row.text);
  }
  EXPECT_TRUE(countLT(u"<a>"));
}

}  // namespace
}  // namespace ulvek
