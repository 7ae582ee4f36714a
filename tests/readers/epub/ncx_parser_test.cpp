// Navigation documents into nested entries: NCX navMaps and EPUB 3 toc navs, well-formed and
// hostile.

#include "readers/epub/ncx_parser.h"

#include <gtest/gtest.h>

#include <string>

#include "nav_entries_text.h"

namespace ulvek {
namespace {

using testing::render;

NavEntries parse(const std::string& xml, NavigationFormat format) {
  NCXParser parser(Bytes(reinterpret_cast<const std::uint8_t*>(xml.data()), xml.size()), format);
  return parser.children();
}

std::string point(const std::string& label, const std::string& src, const std::string& inner = "") {
  return "<navPoint><navLabel><text>" + label + "</text></navLabel><content src=\"" + src + "\"/>" +
         inner + "</navPoint>";
}

std::string ncx(const std::string& map) {
  return "<?xml version=\"1.0\"?><ncx><docTitle><text>Book</text></docTitle><navMap>" + map +
         "</navMap></ncx>";
}

// Cut inside the second navPoint.
std::string truncated(const std::string& xml) {
  return xml.substr(0, xml.find("<navPoint>", xml.find("</navPoint>")) + 20);
}

struct Row {
  const char* name;
  std::string xml;
  std::string expected;
};

TEST(NCXParser, NavMaps) {
  const Row rows[] = {
      {"flat", ncx(point("One", "a.xhtml") + point("Two", "b.xhtml")), "One=a.xhtml | Two=b.xhtml"},
      {"nested",
       ncx(point("Part", "p.xhtml", point("Ch 1", "c1.xhtml") + point("Ch 2", "c2.xhtml")) +
           point("End", "e.xhtml")),
       "Part=p.xhtml{Ch 1=c1.xhtml | Ch 2=c2.xhtml} | End=e.xhtml"},
      {"three levels", ncx(point("A", "a", point("B", "b", point("C", "c")))), "A=a{B=b{C=c}}"},
      {"label trimmed, inner white kept",
       ncx("<navPoint><navLabel>\n  <text>  Two  words </text>\n</navLabel><content "
           "src=\"x.xhtml\"/></navPoint>"),
       "Two  words=x.xhtml"},
      {"fragment cut", ncx(point("F", "ch.xhtml#sec2")), "F=ch.xhtml"},
      {"document fragments kept", ncx(point("G", "ch.xhtml#!/4/2") + point("H", "ch.xhtml#/x")),
       "G=ch.xhtml#!/4/2 | H=ch.xhtml#/x"},
      {"short fragment cut", ncx(point("I", "ch.xhtml#!")), "I=ch.xhtml"},
      {"percent-decoded", ncx(point("P", "Text/ch%201.xhtml")), "P=Text/ch 1.xhtml"},
      {"broken escape kept", ncx(point("Q", "a%zz.xhtml")), "Q=a%zz.xhtml"},
      {"entity in label", ncx(point("Tom &amp; Jerry", "t.xhtml")), "Tom & Jerry=t.xhtml"},
      // A navPoint without content makes no entry but still ends a level: its parent's later
      // children move up.
      {"missing content pops its parent",
       ncx(point("A", "a",
                 "<navPoint><navLabel><text>X</text></navLabel></navPoint>" + point("B", "b"))),
       "A=a | B=b"},
      {"missing content at the top", ncx("<navPoint></navPoint>" + point("A", "a")), "A=a"},
      {"pageList after the map ignored",
       ncx(point("A", "a")) + "<pageList><pageTarget><navLabel><text>1</text></navLabel><content "
                              "src=\"p1\"/></pageTarget></pageList>",
       "A=a"},
      {"no navMap", "<ncx/>", ""},
      {"not XML", "this is no xml", ""},
      {"empty", "", ""},
      {"truncated keeps what came before", truncated(ncx(point("A", "a") + point("B", "b"))),
       "A=a"},
      {"entities declared are refused",
       "<!DOCTYPE ncx [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;\">]>" +
           ncx(point("&b;", "a")),
       ""},
      {"external entity never read",
       "<!DOCTYPE ncx [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>" + ncx(point("&x;", "a")), ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(render(parse(row.xml, NavigationFormat::NCX)), row.expected);
  }
}

TEST(NCXParser, DeepNestingStopsAtTheDepthLimit) {
  std::string open, close;
  for (int i = 0; i < 5000; ++i) {
    open += "<navPoint><navLabel><text>L</text></navLabel><content src=\"x\"/>";
    close += "</navPoint>";
  }
  NavEntries entries = parse(ncx(open + close), NavigationFormat::NCX);
  std::size_t depth = 0;
  for (const NavEntries* level = &entries; !level->empty(); level = &level->front().children)
    ++depth;
  EXPECT_GT(depth, 100u);
  EXPECT_LT(depth, 1001u);
  EXPECT_EQ(countOfEntries(entries), depth);
}

std::string navDocument(const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPE html><html "
         "xmlns=\"http://www.w3.org/1999/xhtml\" xmlns:epub=\"http://www.idpf.org/2007/ops\">"
         "<head><title>Nav</title></head><body>" +
         body + "</body></html>";
}

TEST(NCXParser, NavDocuments) {
  const Row rows[] = {
      {"flat",
       navDocument("<nav epub:type=\"toc\"><ol><li><a href=\"a.xhtml\">A</a></li><li><a "
                   "href=\"b.xhtml#x\">B</a></li></ol></nav>"),
       "A=a.xhtml | B=b.xhtml"},
      {"nested lists",
       navDocument("<nav epub:type=\"toc\"><h2>Contents</h2><ol><li><a href=\"p.xhtml\">Part</a>"
                   "<ol><li><a href=\"c1.xhtml\">One</a></li><li><a "
                   "href=\"c2.xhtml\">Two</a><ol><li><a "
                   "href=\"c2.xhtml#s\">Sub</a></li></ol></li></ol></li></ol></nav>"),
       "Part=p.xhtml{One=c1.xhtml | Two=c2.xhtml{Sub=c2.xhtml}}"},
      {"heading span leads to its first link",
       navDocument("<nav epub:type=\"toc\"><ol><li><span>Authors</span><ol><li><a "
                   "href=\"x.xhtml\">X</a></li><li><a "
                   "href=\"y.xhtml\">Y</a></li></ol></li></ol></nav>"),
       "Authors=x.xhtml{X=x.xhtml | Y=y.xhtml}"},
      {"heading without links left out",
       navDocument("<nav epub:type=\"toc\"><ol><li><span>Nothing</span></li><li><a "
                   "href=\"a.xhtml\">A</a></li></ol></nav>"),
       "A=a.xhtml"},
      {"label white collapsed, markup inside kept as text",
       navDocument("<nav epub:type=\"toc\"><ol><li><a href=\"a.xhtml\">\n  Chapter\n  "
                   "<em>One</em>\n</a></li></ol></nav>"),
       "Chapter One=a.xhtml"},
      {"other navs ignored",
       navDocument(
           "<nav epub:type=\"landmarks\"><ol><li><a "
           "href=\"cover.xhtml\">Cover</a></li></ol></nav><nav epub:type=\"toc\"><ol><li><a "
           "href=\"a.xhtml\">A</a></li></ol></nav><nav epub:type=\"page-list\"><ol><li><a "
           "href=\"a.xhtml#p1\">1</a></li></ol></nav>"),
       "A=a.xhtml"},
      {"toc among several types",
       navDocument("<nav epub:type=\"x toc\"><ol><li><a href=\"a.xhtml\">A</a></li></ol></nav>"),
       "A=a.xhtml"},
      {"only the first toc",
       navDocument("<nav epub:type=\"toc\"><ol><li><a href=\"a.xhtml\">A</a></li></ol></nav><nav "
                   "epub:type=\"toc\"><ol><li><a href=\"b.xhtml\">B</a></li></ol></nav>"),
       "A=a.xhtml"},
      {"no toc nav", navDocument("<ol><li><a href=\"a.xhtml\">A</a></li></ol>"), ""},
      {"li without list",
       navDocument("<nav epub:type=\"toc\"><li><a href=\"a.xhtml\">A</a><li><a "
                   "href=\"b.xhtml\">B</a></li></li></nav>"),
       "A=a.xhtml{B=b.xhtml}"},
      {"breaks off at an HTML entity, keeping the label read so far",
       navDocument(
           "<nav epub:type=\"toc\"><ol><li><a href=\"a.xhtml\">A&nbsp;B</a></li></ol></nav>"),
       "A=a.xhtml"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(render(parse(row.xml, NavigationFormat::NavDocument)), row.expected);
  }
}

}  // namespace
}  // namespace ulvek
