#include "text/html_to_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_support.h"

namespace ulvek {
namespace {

std::string utf8(TextView text) { return toUtf8(text); }

// How a row is converted.
enum class Form {
  Import,      // the dispatcher's form: body only, Google comments honoured
  Whole,       // stringByConvertingHtml2PlainText
  Reformat,    // stringByConvertingHtml2ReformattedPlainText
  Junk,        // body only, junk removal on
  NoAlts,      // whole document without image texts
  Folded,      // whole document, non-umlauted
  NoEntities,  // whole document, references left alone
  StdOnly,     // whole document, only the markup references
  Simplified,  // stringByConvertingHtml2SimplifiedPlainText
};

TextString convert(Form form, TextView html, bool* removedJunk = nullptr) {
  switch (form) {
    case Form::Import:
      return stringByConvertingHtml2PlainTextNonUmlauted(html, false, false, true, true);
    case Form::Whole:
      return stringByConvertingHtml2PlainText(html);
    case Form::Reformat:
      return stringByConvertingHtml2ReformattedPlainText(html);
    case Form::Junk:
      return stringByConvertingHtml2PlainTextNonUmlauted(html, false, false, true, true,
                                                         removedJunk, false, true);
    case Form::NoAlts:
      return stringByConvertingHtml2PlainTextNonUmlauted(html, false, false, false, false, false);
    case Form::Folded:
      return stringByConvertingHtml2PlainTextNonUmlauted(html, true);
    case Form::NoEntities:
      return stringByConvertingHtml2PlainTextEntities(html, false, false, false, false, false,
                                                      false, nullptr, false, true);
    case Form::StdOnly:
      return stringByConvertingHtml2PlainTextEntities(html, false, true, false, false, false, false,
                                                      nullptr, false, true);
    case Form::Simplified:
      return stringByConvertingHtml2SimplifiedPlainText(html);
  }
  return {};
}

struct Row {
  const char* name;
  Form form;
  TextView html;
  TextView expected;
};

void checkRows(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    EXPECT_EQ(utf8(convert(row.form, row.html)), utf8(row.expected)) << row.name;
  }
}

TEST(HtmlToText, BlockBreaks) {
  checkRows({
      {"paragraphs", Form::Whole, u"<p>One</p><p>Two</p>", u"One\n\nTwo\n\n"},
      {"line break", Form::Whole, u"a<br>b", u"a\nb"},
      {"a break needs text on the line", Form::Whole, u"a<br><br><br>b", u"a\nb"},
      {"list without bullets", Form::Whole, u"<ul><li>x</li><li>y</li></ul>", u"x\ny\n"},
      {"table cells and rows", Form::Whole, u"<tr><td>a</td><td>b</td></tr><tr><td>c</td></tr>",
       u"a b \nc \n"},
      {"headings are paragraphs", Form::Whole, u"<h1>Title</h1>Text", u"Title\n\nText"},
      {"h plus any digit", Form::Whole, u"<h7>A</h7>B", u"A\n\nB"},
      {"header is no heading", Form::Whole, u"<header>A</header>B", u"AB"},
      {"div and blockquote", Form::Whole, u"<div>a</div><blockquote>b</blockquote>c",
       u"a\n\nb\n\nc"},
      {"tag names ignore case", Form::Whole, u"<P>a</P><BR>b", u"a\n\nb"},
      {"hr", Form::Whole, u"a<hr>b", u"a\n\nb"},
      {"definition list", Form::Whole, u"<dl><dt>t</dt><dd>d</dd></dl>", u"t\nd\n"},
      {"inline tags join words", Form::Whole, u"a<b>b</b>c", u"abc"},
      {"anchor sets a space", Form::Whole, u"x<a href=\"#\">y</a>z", u"x y z"},
      {"code and cite are set off", Form::Whole, u"see<cite>Book</cite>now", u"see Book now"},
      {"input separates", Form::Whole, u"Name<input type=text>Go", u"Name Go"},
      {"table after text gets an empty line", Form::Whole,
       u"<td>a</td><table><tr><td>b</td></tr></table>", u"a \n\nb \n\n"},
  });
}

TEST(HtmlToText, Whitespace) {
  checkRows({
      {"collapsed", Form::Whole, u"a  \n  b", u"a b"},
      {"no-break space collapses", Form::Whole, u"<p>x&nbsp;y</p>", u"x y\n\n"},
      {"leading and trailing white trimmed", Form::Whole, u"<p>  a  </p>", u"a\n\n"},
      {"space kept between runs", Form::Whole, u"a <b>b</b> c", u"a b c"},
      {"pre without reformat collapses", Form::Whole, u"<pre>a  \n  b</pre>", u"a b"},
      {"pre starts a paragraph", Form::Whole, u"x<pre>a\nb</pre>", u"x\n\na b"},
      {"reformat joins single breaks", Form::Reformat, u"<pre>one\ntwo</pre>", u"one two"},
      {"reformat keeps paragraphs", Form::Reformat, u"<pre>one\n\ntwo</pre>", u"one\n\ntwo"},
      {"reformat keeps a break before a dash", Form::Reformat, u"<pre>one\n- two</pre>",
       u"one\n- two"},
      {"reformat counts CR LF once", Form::Reformat, u"<pre>one\r\ntwo</pre>", u"one two"},
      {"reformat collapses blanks", Form::Reformat, u"<pre>a \t  b</pre>", u"a b"},
      {"plaintext starts a paragraph", Form::Whole, u"<plaintext>x", u"\n\nx"},
      {"only NUL units", Form::Whole, TextView(u"\0\0\0\0", 4), u""},
  });
}

TEST(HtmlToText, References) {
  checkRows({
      {"markup references", Form::Whole, u"<p>&lt;b&gt;</p>", u"<b>\n\n"},
      {"named and numeric", Form::Whole, u"Caf&eacute; &#233;&#xE9; &amp; more", u"Café éé & more"},
      {"short runs are not converted", Form::Whole, u"<b>&lt</b>", u"&lt"},
      {"folded", Form::Folded, u"<p>Caf&eacute; Müller é</p>", u"Cafe Muller e\n\n"},
      {"references left alone", Form::NoEntities, u"<p>&eacute; &amp;</p>", u"&eacute; &amp;\n\n"},
      {"only markup references", Form::StdOnly, u"<p>&eacute; &amp; &lt;</p>", u"&eacute; & <\n\n"},
  });
}

TEST(HtmlToText, InvisibleElements) {
  checkRows({
      {"script", Form::Whole, u"a<script>if (a<b) x();</script>b", u"ab"},
      {"style", Form::Whole, u"<style>p{color:red}</style><p>t</p>", u"t\n\n"},
      {"noscript", Form::Whole, u"a<noscript>no</noscript>b", u"ab"},
      {"marquee", Form::Whole, u"a<marquee>m</marquee>b", u"ab"},
      {"textarea", Form::Whole, u"a<textarea>t</textarea>b", u"ab"},
      {"select options", Form::Whole, u"a<select><option>1</option><option>2</option></select>b",
       u"ab"},
      {"iframe content", Form::Whole, u"a<iframe>f</iframe>b", u"ab"},
      {"hidden class", Form::Whole, u"<div class=HIDDEN>h</div>v", u"v"},
      {"display none", Form::Whole, u"<div style=\"display:none\">h</div>v", u"v"},
      {"visibility hidden", Form::Whole, u"<span style=\"visibility: hidden\">h</span>v", u"v"},
      {"off the page", Form::Whole, u"<div style=\"position:absolute; top:-9999px\">h</div>v",
       u"v"},
      {"on the page", Form::Whole, u"<div style=\"position:absolute; top:-10px\">s</div>v",
       u"s\n\nv"},
      {"tiny width", Form::Whole, u"<div width=2 style=\"color:red\">h</div>v", u"v"},
      {"tiny height", Form::Whole, u"<div style=\"width:200px;height:1px\">h</div>v", u"v"},
      {"normal size", Form::Whole, u"<div style=\"width:200px;height:100px\">s</div>", u"s\n\n"},
      {"hiding ends at the next div", Form::Whole,
       u"<div style=\"display:none\">h<div>s</div></div>", u"s\n\n"},
      {"comment", Form::Whole, u"x<!-- a > b -->y", u"xy"},
      {"cdata section", Form::Whole, u"x<![CDATA[c]]>y", u"xy"},
      {"comment in script", Form::Whole, u"<script><!-- </script> --></script>z", u"z"},
      // Without an end tag only the start tag is markup; what follows is ordinary text.
      {"unterminated script", Form::Whole, u"a<script>var x = 1;", u"avar x = 1;"},
  });
}

TEST(HtmlToText, BodyOnly) {
  checkRows({
      {"head text dropped", Form::Import,
       u"<html><head><title>T</title></head><body><p>B</p></body></html>", u"B\n\n"},
      {"whole document keeps the title", Form::Whole,
       u"<html><head><title>T</title></head><body><p>B</p></body></html>", u"T\n\nB\n\n"},
      {"after the body end", Form::Import, u"<body>in</body>out", u"in"},
      {"fragment without body is converted whole", Form::Import, u"<p>a</p>b", u"a\n\nb"},
      {"noscript in head stays out", Form::Import,
       u"<head><noscript>n</noscript></head><body>b</body>", u"b"},
      {"noscript before head opens the body", Form::Import,
       u"<noscript>n</noscript>after<body>b</body>", u"afterb"},
      {"empty body", Form::Import, u"<head><title>T</title></head><body></body>", u""},
  });
}

TEST(HtmlToText, GoogleComments) {
  checkRows({
      {"googleoff index", Form::Import,
       u"<body>a<!--googleoff: index-->b<!--googleon: index-->c</body>", u"ac"},
      {"googleoff snippet drops nothing", Form::Import,
       u"<body>a<!--googleoff: snippet-->b<!--googleon: snippet-->c</body>", u"abc"},
      {"googleoff all", Form::Import, u"<body>a<!--googleoff: all-->b</body>", u"a"},
      {"ignored without Google tags", Form::Whole, u"a<!--googleoff: index-->b", u"ab"},
      {"feed date dropped", Form::Import, u"<body>a<font class=feed_date>1 May</font>b</body>",
       u"ab"},
  });
}

TEST(HtmlToText, ImageTexts) {
  checkRows({
      {"alt", Form::Whole, u"See<img src=l.png alt=\"Logo\">here", u"See Logo here"},
      {"title when no alt", Form::Whole, u"a<img title='T'>b", u"a T b"},
      {"alt references converted", Form::Whole, u"a<img alt=\"R&amp;D\">b", u"a R&D b"},
      {"no alt still separates", Form::Whole, u"a<img src=x>b", u"a b"},
      {"without image texts", Form::NoAlts, u"a<img alt=Logo>b", u"ab"},
  });
}

TEST(HtmlToText, Simplified) {
  checkRows({
      {"runs after a space", Form::Simplified, u"<body><p>a</p><p>b &amp; c</p></body>",
       u" a b & c"},
      {"head ignored", Form::Simplified, u"<head><title>T</title></head><body>x</body>", u" x"},
      {"fragment", Form::Simplified, u"<b>x</b>y", u" x y"},
  });
}

TEST(HtmlToText, DocumentWithoutBody) {
  EXPECT_EQ(stringByConvertingHtml2PlainText(u""), u"");
  // Body-only conversion of a document without a body converts it whole, head included.
  const TextView headOnly = u"<head><title>T</title></head>";
  EXPECT_EQ(utf8(stringByConvertingHtml2PlainTextNonUmlauted(headOnly, false, false, true, true)),
            "T");
}

TEST(HtmlToText, JunkRemoval) {
  // Dropped text counts as prose when words average at least six letters.
  const std::u16string prose =
      u"Comprehensive international documentation describing telecommunications "
      u"infrastructure, particularly regarding interoperability requirements, standardisation "
      u"procedures and implementation considerations.";
  const std::u16string shortWords =
      u"This is a long run of text made of short words. It has more than one hundred letters "
      u"in it, but its words are too short to count as prose here.";
  struct JunkRow {
    const char* name;
    TextString html;
    TextView expected;
    bool removedJunk;
  };
  const std::vector<JunkRow> rows = {
      {"font in body colour with prose",
       u"<body bgcolor=\"#FFFFFF\">a<font color=\"#ffffff\">" + prose + u"</font>b</body>", u"ab",
       true},
      {"font in body colour, short words",
       u"<body bgcolor=white>a<font color=white>" + shortWords + u"</font>b</body>", u"ab", false},
      {"font in body colour, short", u"<body bgcolor=white>a<font color=WHITE>x y</font>b</body>",
       u"ab", false},
      {"other colour is kept", u"<body bgcolor=white>a<font color=red>x</font>b</body>", u"axb",
       false},
      {"tiny font", u"<body>a<font style=\"font-size: 2pt\">x</font>b</body>", u"ab", false},
      {"12pt is no tiny font", u"<body>a<font style=\"font-size: 12pt\">x</font>b</body>", u"axb",
       false},
      {"huge run dropped", u"<body><p>ok</p><p>" + TextString(10001, u'x') + u"</p></body>",
       u"ok\n\n", true},
      {"text around a title in the body dropped", u"<body>t<title>x</title>y</body>", u"y", false},
  };
  for (const JunkRow& row : rows) {
    bool removed = !row.removedJunk;
    EXPECT_EQ(utf8(convert(Form::Junk, row.html, &removed)), utf8(row.expected)) << row.name;
    EXPECT_EQ(removed, row.removedJunk) << row.name;
  }
  // Without junk removal the same text stays.
  EXPECT_EQ(
      utf8(stringByConvertingHtml2PlainTextNonUmlauted(
          u"<body bgcolor=white>a<font color=white>x</font>b</body>", false, false, true, false)),
      "axb");
}

TEST(HtmlToText, LongLineIsDroppedAsJunk) {
  // Many short runs on one line add up past the line limit.
  TextString html = u"<body><p>keep</p>";
  for (int i = 0; i < 3000; ++i) html += u"<b>word word</b>";
  html += u"</body>";
  bool removed = false;
  EXPECT_EQ(utf8(convert(Form::Junk, html, &removed)).substr(0, 6), "keep\n\n");
  EXPECT_TRUE(removed);
}

TEST(HtmlToText, HostileInput) {
  struct HostileRow {
    const char* name;
    TextString html;
  };
  TextString nested;
  for (int i = 0; i < 100000; ++i) nested += u"<div>";
  nested += u"deep";
  TextString binary;
  for (int i = 0; i < 70000; ++i) binary.push_back(static_cast<char16_t>((i * 7919) & 0xFFFF));
  const std::vector<HostileRow> rows = {
      {"nested divs", nested},
      {"binary junk", binary},
      {"unterminated script", u"<body>a<script>var x = '<p>';"},
      {"unterminated comment", u"<body>a<!-- never closed <p>x"},
      {"unterminated tag", u"<body>a<p class=\"x"},
      {"lone surrogates", TextString(u"<p>\xD800\xDC00\xDFFF</p>")},
      {"stray brackets", u"a < b > c <<<>>> &&&; &#; &#x;"},
  };
  for (const HostileRow& row : rows) {
    for (Form form : {Form::Import, Form::Whole, Form::Reformat, Form::Junk, Form::Simplified}) {
      TextString text = convert(form, row.html);
      EXPECT_LE(text.size(), row.html.size() * 8) << row.name;
    }
  }
  EXPECT_EQ(utf8(stringByConvertingHtml2PlainText(nested)), "deep");
}

TEST(HtmlToText, FiftyMebibyteDocument) {
  const TextView paragraph = u"<p>Some paragraph text &amp; more <b>bold</b> words.</p>\n";
  const std::size_t count = (50u << 20) / paragraph.size() + 1;
  TextString html = u"<html><head><title>Big</title><script>var a = '<p>';</script></head><body>";
  html.reserve(html.size() + count * paragraph.size() + 16);
  for (std::size_t i = 0; i < count; ++i) html += paragraph;
  html += u"</body></html>";
  ASSERT_GE(html.size(), 50u << 20);

  const TextString text =
      stringByConvertingHtml2PlainTextNonUmlauted(html, false, false, true, true);
  const TextView expected = u"Some paragraph text & more bold words.\n\n";
  ASSERT_EQ(text.size(), count * expected.size());
  for (std::size_t at = 0; at < text.size(); at += expected.size() * 99991) {
    ASSERT_EQ(TextView(text).substr(at, expected.size()), expected) << at;
  }
  EXPECT_EQ(TextView(text).substr(text.size() - expected.size()), expected);
}

}  // namespace
}  // namespace ulvek
