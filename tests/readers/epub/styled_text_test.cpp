// HTML into styled runs, and the runs as RTF.

#include "readers/epub/styled_text.h"

#include <gtest/gtest.h>

namespace ulvek {
namespace {

// Each run as its text with style marks: *bold*, /italic/, #N heading, [text](link).
std::string render(const StyledText& text) {
  std::string shown;
  for (const StyledRun& run : text.runs) {
    std::string part = toUtf8(run.text);
    if (run.style.bold) part = "*" + part + "*";
    if (run.style.italic) part = "/" + part + "/";
    if (run.style.heading) part = "#" + std::to_string(run.style.heading) + " " + part;
    if (!run.style.link.empty()) part = "[" + part + "](" + run.style.link + ")";
    shown += part;
  }
  return shown;
}

TEST(StyledText, FromHtml) {
  struct Row {
    const char* name;
    const char16_t* html;
    const char* expected;
  };
  const Row rows[] = {
      {"plain", u"<p>Hello   world</p>", "Hello world"},
      {"paragraphs", u"<p>One</p>\n<p>Two</p>", "One\n\nTwo"},
      {"line break", u"a<br/>b", "a\nb"},
      {"bold and italic", u"<p>a <b>bold</b> and <em>it <strong>both</strong></em>.</p>",
       "a *bold* and /it //*both*/."},
      {"heading", u"<h2>Title</h2><p>Text</p>", "#2 Title\n\nText"},
      {"link", u"<p>see <a href=\"ch2.xhtml#x\">there</a> now</p>", "see [there](ch2.xhtml#x) now"},
      {"anchor without href ends nothing", u"<a name=\"x\"/>text", "text"},
      {"head, script and style hidden",
       u"<html><head><title>T</title><style>p{}</style></head><body><script>x()</script>"
       u"<p>Body</p></body></html>",
       "Body"},
      {"entities", u"<p>Tom &amp; Jerry &eacute;&#x263A;</p>", "Tom & Jerry \u00E9\u263A"},
      {"pre keeps white", u"<pre>a  b\n c</pre>", "a  b\n c"},
      {"unbalanced end tags", u"</b></i></a>text</h1>", "text"},
      {"empty", u"", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(render(styledTextFromHtml(row.html)), row.expected);
  }
}

TEST(StyledText, RTF) {
  StyledText text = styledTextFromHtml(
      u"<h1>Big {x}</h1><p>a\\b <i>it</i> \u00E9\U0001F600 <a "
      u"href=\"#ch2.xhtml\">in</a> <a href=\"http://e.com/\">out</a></p>");
  std::string rtf = rtfString(text);
  EXPECT_TRUE(rtf.starts_with("{\\rtf1")) << rtf;
  EXPECT_TRUE(rtf.ends_with("}\n")) << rtf;
  const char* const parts[] = {
      "{\\b\\fs48 Big \\{x\\}}",
      "a\\\\b ",
      "{\\i it}",
      "\\u233?\\u-10179?\\u-8704?",
      "{\\field{\\*\\fldinst{HYPERLINK \\\\l \"ch2.xhtml\"}}{\\fldrslt{\\ul in}}}",
      "{\\field{\\*\\fldinst{HYPERLINK \"http://e.com/\"}}{\\fldrslt{\\ul out}}}",
      "\\par\n",
  };
  for (const char* part : parts)
    EXPECT_NE(rtf.find(part), std::string::npos) << part << "\n" << rtf;
  // Braces balance, so readers see one document.
  int depth = 0;
  for (std::size_t i = 0; i < rtf.size(); ++i) {
    if (rtf[i] == '\\') {
      ++i;
      continue;
    }
    depth += rtf[i] == '{' ? 1 : rtf[i] == '}' ? -1 : 0;
    ASSERT_GE(depth, 0);
  }
  EXPECT_EQ(depth, 0);
}

}  // namespace
}  // namespace ulvek
