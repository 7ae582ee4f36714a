#include "text/html_to_text.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "base/text_limits.h"
#include "test_support.h"

namespace ulvek {
namespace {

// How a row is converted: the arguments of the full conversion, defaulting to those of
// stringByConvertingHtml2PlainText, or the simplified conversion.
struct Form {
  bool entities = true, standard = true, folded = false, reformat = false, onlyBody = false,
       junk = false, google = false, alts = true, simplified = false;
};
constexpr Form kWhole{}, kReformat{.reformat = true}, kFolded{.folded = true},
    kStdOnly{.entities = false}, kNoAlts{.alts = false}, kImport{.onlyBody = true, .google = true},
    kJunk{.onlyBody = true, .junk = true}, kSimplified{.simplified = true};

std::string convert(const Form& f, TextView html, bool* removedJunk = nullptr) {
  if (f.simplified) return toUtf8(stringByConvertingHtml2SimplifiedPlainText(html));
  return toUtf8(stringByConvertingHtml2PlainTextEntities(html, f.entities, f.standard, f.folded,
                                                         f.reformat, f.onlyBody, f.junk,
                                                         removedJunk, f.google, f.alts));
}

TEST(HtmlToText, ShortFormsPassTheirArguments) {
  const TextView html =
      u"<title>T</title><body>Caf&eacute;<img alt=A><pre>a\n\nb</pre>"
      u"<!--googleoff: index-->g";
  bool removed = true;
  EXPECT_EQ(toUtf8(stringByConvertingHtml2PlainText(html)), convert(kWhole, html));
  EXPECT_EQ(toUtf8(stringByConvertingHtml2ReformattedPlainText(html)), convert(kReformat, html));
  EXPECT_EQ(toUtf8(stringByConvertingHtml2PlainTextNonUmlauted(html, true)),
            convert(kFolded, html));
  EXPECT_EQ(toUtf8(stringByConvertingHtml2PlainTextNonUmlauted(html, false, false, true, true)),
            convert(kImport, html));
  EXPECT_EQ(toUtf8(stringByConvertingHtml2PlainTextNonUmlauted(html, false, false, 0, 0, 0)),
            convert(kNoAlts, html));
  EXPECT_EQ(toUtf8(stringByConvertingHtml2PlainTextNonUmlauted(html, false, false, true, true,
                                                               &removed, false, true)),
            convert(kJunk, html));
  EXPECT_FALSE(removed);
}

TEST(HtmlToText, Conversions) {
  const std::vector<std::tuple<const char*, Form, TextView, const char*>> rows = {
      {"paragraphs", kWhole, u"<p>One</p><p>Two</p>", "One\n\nTwo\n\n"},
      {"a break needs text on the line", kWhole, u"a<br><br><br>b", "a\nb"},
      {"list without bullets", kWhole, u"<ul><li>x</li><li>y</li></ul>", "x\ny\n"},
      {"table cells", kWhole, u"<tr><td>a</td><td>b</td></tr><tr><td>c</td></tr>", "a b \nc \n"},
      {"h plus any digit, any case", kWhole, u"<H7>A</H7>B", "A\n\nB"},
      {"header is no heading", kWhole, u"<header>A</header>B", "AB"},
      {"anchor sets a space", kWhole, u"x<a href=\"#\">y</a>z", "x y z"},
      {"cite is set off", kWhole, u"see<cite>Book</cite>now", "see Book now"},
      {"input separates", kWhole, u"Name<input type=text>Go", "Name Go"},
      {"table after text: an empty line", kWhole, u"<td>a</td><table>b", "a \n\nb"},
      // White space.
      {"collapsed", kWhole, u"a  \n  b", "a b"},
      {"no-break space collapses", kWhole, u"<p>x&nbsp;y</p>", "x y\n\n"},
      {"space kept between runs", kWhole, u"a <b>b</b> c", "a b c"},
      {"pre without reformat collapses", kWhole, u"x<pre>a  \n  b</pre>", "x\n\na b"},
      {"reformat joins single breaks", kReformat, u"<pre>one\r\ntwo</pre>", "one two"},
      {"reformat keeps paragraphs", kReformat, u"<pre>one\n\ntwo</pre>", "one\n\ntwo"},
      {"reformat keeps a break before a dash", kReformat, u"<pre>a\n- b</pre>", "a\n- b"},
      {"reformat collapses blanks", kReformat, u"<pre>a \t  b</pre>", "a b"},
      {"plaintext starts a paragraph", kWhole, u"<plaintext>x", "\n\nx"},
      {"only NUL units", kWhole, TextView(u"\0\0\0\0", 4), ""},
      // References.
      {"markup references", kWhole, u"<p>&lt;b&gt;</p>", "<b>\n\n"},
      {"named and numeric", kWhole, u"Caf&eacute; &#233;&#xE9; &amp;", "Café éé &"},
      {"short runs are not converted", kWhole, u"<b>&lt</b>", "&lt"},
      {"folded", kFolded, u"<p>Caf&eacute; Müller</p>", "Cafe Muller\n\n"},
      {"only markup references", kStdOnly, u"<p>&eacute; &amp; &lt;</p>", "&eacute; & <\n\n"},
      // Invisible text.
      {"script", kWhole, u"a<script>if (a<b) x();</script>b", "ab"},
      {"style", kWhole, u"<style>p{color:red}</style><p>t</p>", "t\n\n"},
      {"noscript, marquee, textarea, iframe", kWhole,
       u"a<noscript>n</noscript><marquee>m</marquee><textarea>t</textarea><iframe>f</iframe>b",
       "ab"},
      {"select options", kWhole, u"a<select><option>1</option><option>2</option></select>b", "ab"},
      {"hidden class", kWhole, u"<div class=HIDDEN>h</div>v", "v"},
      {"display none", kWhole, u"<div style=\"display:none\">h</div>v", "v"},
      {"visibility hidden", kWhole, u"<span style=\"visibility: hidden\">h</span>v", "v"},
      {"off the page", kWhole, u"<div style=\"position:absolute; top:-9999px\">h</div>v", "v"},
      {"on the page", kWhole, u"<div style=\"position:absolute; top:-10px\">s</div>v", "s\n\nv"},
      {"tiny width", kWhole, u"<div width=2 style=\"color:red\">h</div>v", "v"},
      {"tiny height", kWhole, u"<div style=\"width:200px;height:1px\">h</div>v", "v"},
      {"hiding ends at the next div", kWhole, u"<div class=hidden>h<div>s</div>", "s\n\n"},
      {"comment and cdata", kWhole, u"x<!-- a > b -->y<![CDATA[c]]>z", "xyz"},
      {"comment in script", kWhole, u"<script><!-- </script> --></script>z", "z"},
      // Without an end tag only the start tag is markup; what follows is ordinary text.
      {"unterminated script", kWhole, u"a<script>var x = 1;", "avar x = 1;"},
      // Body only: the head start tag lowers the depth, noscript raises it.
      {"head text dropped", kImport, u"<head><title>T</title></head><body><p>B</p>", "B\n\n"},
      {"whole document keeps the title", kWhole, u"<head><title>T</title></head><p>B", "T\n\nB"},
      {"after the body end", kImport, u"<body>in</body>out", "in"},
      {"fragment without body is converted whole", kImport, u"<head><title>T</title>", "T"},
      {"noscript in head stays out", kImport, u"<head><noscript>n</noscript></head><body>b", "b"},
      {"noscript before head opens the body", kImport, u"<noscript>n</noscript>a<body>b", "ab"},
      {"empty body", kImport, u"<head><title>T</title></head><body></body>", ""},
      // Google comments, image texts, the simplified form.
      {"googleoff index", kImport, u"<body>a<!--googleoff: index-->b<!--googleon: index-->c", "ac"},
      {"googleoff snippet drops nothing", kImport, u"<body>a<!--googleoff: snippet-->b", "ab"},
      {"googleoff all", kImport, u"<body>a<!--googleoff: all-->b</body>", "a"},
      {"feed date dropped", kImport, u"<body>a<font class=feed_date>1 May</font>b", "ab"},
      {"alt", kWhole, u"See<img src=l.png alt=\"Logo\">here", "See Logo here"},
      {"title when no alt, references converted", kWhole, u"a<img title='R&amp;D'>b", "a R&D b"},
      {"no alt still separates", kWhole, u"a<img src=x>b", "a b"},
      {"without image texts", kNoAlts, u"a<img alt=Logo>b", "ab"},
      {"simplified", kSimplified, u"<head><title>T</title></head><body>a<p>b &amp; c", " a b & c"},
  };
  for (const auto& [name, form, html, expected] : rows)
    EXPECT_EQ(convert(form, html), expected) << name;
}

TEST(HtmlToText, JunkRemoval) {
  // Dropped text counts as prose when words average at least six letters.
  TextString prose, shortWords;
  for (int i = 0; i < 5; ++i) prose += u"Interoperability documentation, ";
  for (int i = 0; i < 30; ++i) shortWords += u"ab cd ";
  TextString longLine = u"<body><p>keep</p>";
  for (int i = 0; i < 3000; ++i) longLine += u"<b>word word</b>";
  const std::vector<std::tuple<const char*, TextString, std::string, bool>> rows = {
      {"font in body colour with prose",
       u"<body bgcolor=\"#FFFFFF\">a<font color=\"#ffffff\">" + prose + u"</font>b", "ab", true},
      {"font in body colour, short words",
       u"<body bgcolor=white>a<font color=white>" + shortWords + u"</font>b", "ab", false},
      {"other colour is kept", u"<body bgcolor=white>a<font color=red>x</font>b", "axb", false},
      {"tiny font", u"<body>a<font style=\"font-size: 2pt\">x</font>b", "ab", false},
      {"12pt is no tiny font", u"<body>a<font style=\"font-size: 12pt\">x</font>b", "axb", false},
      {"huge run", u"<body><p>ok</p><p>" + TextString(10001, u'x') + u"</p>", "ok\n\n", true},
      {"text around a title in the body", u"<body>t<title>x</title>y</body>", "y", false},
  };
  for (const auto& [name, html, expected, removedJunk] : rows) {
    bool removed = !removedJunk;
    EXPECT_EQ(convert(kJunk, html, &removed), expected) << name;
    EXPECT_EQ(removed, removedJunk) << name;
  }
  // Many short runs on one line add up past the line limit: what came after the last break goes.
  bool removed = false;
  EXPECT_EQ(convert(kJunk, longLine, &removed).substr(0, 7), "keep\n\nw");
  EXPECT_TRUE(removed);
  // Without junk removal the same text stays.
  EXPECT_EQ(convert(kImport, u"<body bgcolor=white>a<font color=white>x</font>b"), "axb");
}

TEST(HtmlToText, HostileAndHugeInput) {
  TextString nested;
  for (int i = 0; i < 100000; ++i) nested += u"<div>";
  nested += u"deep";
  TextString binary;
  for (int i = 0; i < 70000; ++i) binary.push_back(static_cast<char16_t>((i * 7919) & 0xFFFF));
  for (const TextString& html :
       {nested, binary, TextString(u"<body>a<script>var x = '<p>';"),
        TextString(u"<body>a<!-- never closed <p>x"), TextString(u"<body>a<p class=\"x"),
        TextString(u"<p>\xD800\xDC00\xDFFF</p>"), TextString(u"a < b > c <<<>>> &&&; &#; &#x;")}) {
    for (Form form : {kImport, kWhole, kReformat, kJunk, kSimplified})
      EXPECT_LE(convert(form, html).size(), html.size() * 8) << toUtf8(html.substr(0, 40));
  }
  EXPECT_EQ(convert(kWhole, nested), "deep");

  const TextView paragraph = u"<p>Some paragraph text &amp; more <b>bold</b> words.</p>\n";
  const std::size_t count = (50u << 20) / paragraph.size() + 1;
  TextString html = u"<html><head><title>Big</title><script>var a = '<p>';</script></head><body>";
  html.reserve(html.size() + count * paragraph.size() + 16);
  for (std::size_t i = 0; i < count; ++i) html += paragraph;
  const TextString text =
      stringByConvertingHtml2PlainTextNonUmlauted(html, false, false, true, true);
  const TextView expected = u"Some paragraph text & more bold words.\n\n";
  ASSERT_EQ(text.size(), count * expected.size());
  for (std::size_t at = 0; at < text.size(); at += expected.size() * 99991)
    ASSERT_EQ(TextView(text).substr(at, expected.size()), expected) << at;
  EXPECT_EQ(TextView(text).substr(text.size() - expected.size()), expected);
}

// Text far past the thread's cap is never built: the result would cut it anyway.
TEST(HtmlToText, StopsALittlePastTheTextCap) {
  const std::size_t previous = textLimitUtf8Bytes();
  setTextLimitUtf8Bytes(1000);
  const TextString html = u"<body><p>" + TextString(1 << 20, u'x') + u"</p><p>y</p></body>";
  for (Form form : {kWhole, kImport, kReformat, kSimplified}) {
    const std::size_t size = convert(form, html).size();
    EXPECT_GT(size, 1000u);
    EXPECT_LT(size, 100'000u);
  }
  setTextLimitUtf8Bytes(previous);
}

}  // namespace
}  // namespace ulvek
