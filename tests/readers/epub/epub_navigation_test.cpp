// What a client displaying a book gets: table of contents, merged HTML, styled text, first page,
// cover and the entry-to-file mapping, over books built here, the project's own books and, where
// present, books of the shared corpus.

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>

#include "base/base64.h"
#include "base/file_url.h"
#include "platform/temporary_items.h"
#include "readers/epub/epub_parser.h"
#include "readers/epub/epub_paths.h"
#include "test_support.h"
#include "zip_test_files.h"

#include "nav_entries_text.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;
using testing::CapturedLog;
using testing::TemporaryFolder;
using testing::ZipEntry;

// Books made by tests/data/epub/make_fixtures.py, and books of the shared corpus.
std::string dataBook(const char* name) { return (testing::dataPath() / "epub" / name).string(); }
std::string corpusBook(const char* name) {
  return (testing::corpusPath() / "docs/epub" / name).string();
}

using testing::render;

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

const std::string kContainer =
    "<container><rootfiles><rootfile full-path=\"OEBPS/p.opf\"/></rootfiles></container>";

std::string item(const std::string& id, const std::string& href,
                 const std::string& type = "application/xhtml+xml", const std::string& extra = "") {
  return "<item id=\"" + id + "\" href=\"" + href + "\" media-type=\"" + type + "\" " + extra +
         "/>";
}

std::string itemrefs(const std::vector<std::string>& ids) {
  std::string spine;
  for (const std::string& id : ids) spine += "<itemref idref=\"" + id + "\"/>";
  return spine;
}

std::string package(const std::string& manifest, const std::string& spine,
                    const std::string& metadata = "<dc:title>T</dc:title>",
                    const std::string& guide = "") {
  return "<package><metadata>" + metadata + "</metadata><manifest>" + manifest +
         "</manifest><spine>" + spine + "</spine>" + guide + "</package>";
}

std::string page(const std::string& body, const std::string& head = "") {
  return "<?xml version=\"1.0\"?><html><head>" + head + "</head><body>" + body + "</body></html>";
}

std::string ncx(const std::string& points) { return "<ncx><navMap>" + points + "</navMap></ncx>"; }

std::string navPoint(const std::string& label, const std::string& src) {
  return "<navPoint><navLabel><text>" + label + "</text></navLabel><content src=\"" + src +
         "\"/></navPoint>";
}

class EPUBNavigationTest : public ::testing::Test {
 protected:
  std::string book(const std::string& name, std::vector<ZipEntry> entries) {
    std::string path = (folder_.path() / name).string();
    EXPECT_TRUE(testing::writeZip(path, entries));
    return path;
  }
  // The three chapters a, b, c plus whatever the row adds, under OEBPS/.
  std::string chapters(const std::string& name, const std::string& manifest,
                       const std::string& spine, std::vector<ZipEntry> more = {}) {
    std::vector<ZipEntry> entries = {
        {"mimetype", "application/epub+zip", false, true},
        {"META-INF/container.xml", kContainer},
        {"OEBPS/p.opf",
         package(item("a", "a.xhtml") + item("b", "b.xhtml") + item("c", "c.xhtml") + manifest,
                 spine)},
        {"OEBPS/a.xhtml", page("<h1>Alpha</h1><p>first</p>")},
        {"OEBPS/b.xhtml", page("<p>Beta</p>")},
        {"OEBPS/c.xhtml", page("")},
    };
    entries.insert(entries.end(), more.begin(), more.end());
    return book(name, entries);
  }

  TemporaryFolder folder_;
};

TEST_F(EPUBNavigationTest, TableOfContents) {
  const std::string ncxItem = item("ncx", "toc.ncx", "application/x-dtbncx+xml");
  const std::string spine = itemrefs({"a", "b", "c"});
  struct Row {
    const char* name;
    std::string path;
    std::string expected;
    const char* logPart;  // null: nothing logged
  };
  std::string cycle;
  for (int i = 0; i < 2000; ++i) cycle += "<itemref idref=\"a\"/><itemref idref=\"b\"/>";
  const Row rows[] = {
      {"NCX names the second of three: the first goes in front, the third below it",
       chapters("second.epub", ncxItem, spine,
                {{"OEBPS/toc.ncx", ncx(navPoint("Bee", "b.xhtml"))}}),
       "Alpha=a.xhtml | Bee=b.xhtml{c=c.xhtml}", nullptr},
      {"complete NCX unchanged",
       chapters("complete.epub", ncxItem, spine,
                {{"OEBPS/toc.ncx", ncx(navPoint("3", "c.xhtml") + navPoint("2", "b.xhtml") +
                                       navPoint("1", "a.xhtml#top"))}}),
       "3=c.xhtml | 2=b.xhtml | 1=a.xhtml", nullptr},
      {"nested NCX unchanged though short",
       chapters("nested.epub", ncxItem, spine,
                {{"OEBPS/toc.ncx",
                  ncx("<navPoint><navLabel><text>P</text></navLabel><content src=\"a.xhtml\"/>" +
                      navPoint("Q", "b.xhtml") + "</navPoint>")}}),
       "P=a.xhtml{Q=b.xhtml}", nullptr},
      {"no navigation documents: the reading order", chapters("none.epub", "", spine),
       "Alpha=a.xhtml | Beta=b.xhtml | c=c.xhtml", "No navigation document"},
      {"nav document in its own folder, targets rebased",
       chapters("nav.epub",
                item("nav", "nav/toc.xhtml", "application/xhtml+xml", "properties=\"nav\""), spine,
                {{"OEBPS/nav/toc.xhtml",
                  page("<nav epub:type=\"toc\"><ol><li><a href=\"../a.xhtml\">A</a><ol><li><a "
                       "href=\"../b.xhtml#s\">B</a></li></ol></li><li><a "
                       "href=\"../c.xhtml\">C</a></li></ol></nav>")}}),
       "A=a.xhtml{B=b.xhtml} | C=c.xhtml", nullptr},
      {"nav document that is no XML gives its link titles to the reading order",
       chapters("navtitles.epub", item("toc", "toc.xhtml"), spine,
                {{"OEBPS/toc.xhtml",
                  "<html><body><nav epub:type=toc><ol><li><a href=a.xhtml>Eh</a><li><a "
                  "href=\"c.xhtml\">  See &amp;\n too</a></ol></nav>"}}),
       "Eh=a.xhtml | Beta=b.xhtml | See & too=c.xhtml", "Damaged navigation document"},
      {"NCX that declares entities is refused",
       chapters("laughs.epub", ncxItem, spine,
                {{"OEBPS/toc.ncx",
                  "<!DOCTYPE ncx [<!ENTITY a \"aaaaaaaaaaaaaaaa\"><!ENTITY b "
                  "\"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\"><!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;&b;\">]>" +
                      ncx(navPoint("&c;", "a.xhtml"))}}),
       "Alpha=a.xhtml | Beta=b.xhtml | c=c.xhtml", "Damaged navigation document"},
      {"cyclic spine read once",
       book("cycle.epub",
            {{"META-INF/container.xml", kContainer},
             {"OEBPS/p.opf", package(item("a", "a.xhtml") + item("b", "b.xhtml"), cycle)},
             {"OEBPS/a.xhtml", page("<p>A</p>")},
             {"OEBPS/b.xhtml", page("<p>B</p>")}}),
       "A=a.xhtml | B=b.xhtml", "Skipped 3998 spine entries"},
      {"images in the spine left out",
       chapters("images.epub", item("img", "i.png", "image/png"), itemrefs({"img", "a"}),
                {{"OEBPS/i.png", "PNG"}}),
       "Alpha=a.xhtml", "Skipped 1 spine entries"},
      {"members that climb out of the book left out",
       book("climb.epub",
            {{"META-INF/container.xml", kContainer},
             {"OEBPS/p.opf",
              package(item("x", "../../x.xhtml") + item("a", "a.xhtml"), itemrefs({"x", "a"}))},
             {"../../x.xhtml", page("<p>outside</p>")},
             {"OEBPS/a.xhtml", page("<p>A</p>")}}),
       "A=a.xhtml", "Skipped 1 spine entries"},
      {"no container", book("nocontainer.epub", {{"mimetype", "application/epub+zip"}}), "",
       "no META-INF/container.xml"},
      {"missing package document", book("noopf.epub", {{"META-INF/container.xml", kContainer}}), "",
       "no OEBPS/p.opf"},
      {"not a zip archive", folder_.write("nozip.epub", "no zip"), "", nullptr},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    CapturedLog log;
    EPUBParser parser(row.path);
    EXPECT_EQ(render(parser.rootChildren()), row.expected);
    // The other views of a damaged book answer too, smaller.
    parser.htmlContents();
    parser.richTextContents();
    parser.firstPage();
    parser.cover();
    if (row.logPart) {
      EXPECT_TRUE(log.contains(row.logPart)) << joined(log.lines());
    }
  }
}

TEST_F(EPUBNavigationTest, TablesOfContentsOfBooks) {
  // EPUB 2: the NCX is in use; the nav document beside it is not marked as one.
  EPUBParser report(dataBook("field-notes-epub2.epub"));
  EXPECT_EQ(report.ncxFile(), "EPUB/toc.ncx");
  EXPECT_EQ(report.tocFile(), "");
  EXPECT_EQ(render(report.rootChildren()),
            "Field Notes \u2014 Rivers, Weirs and Locks=text/title_page.xhtml | "
            "Field Notes \u2014 Rivers, Weirs and Locks=text/ch001.xhtml | "
            "1. Rivers=text/ch002.xhtml | 2. Weirs=text/ch003.xhtml | 3. Locks=text/ch004.xhtml");
  // EPUB 2 with pages in a folder of their own.
  EPUBParser loft(dataBook("net-loft-epub2.epub"));
  EXPECT_EQ(render(loft.rootChildren()),
            "Cover=CoverPage.html | Contents=TableOfContents.html | "
            "Chapter 1: Knots=chapters/chapter1.html | "
            "Chapter 2: Floats and Sinkers=chapters/chapter2.html");
  // EPUB 3 with a nav document only.
  EPUBParser minimal(dataBook("harbour-lights-epub3.epub"));
  EXPECT_EQ(minimal.ncxFile(), "");
  EXPECT_EQ(minimal.tocFile(), "EPUB/nav.xhtml");
  EXPECT_EQ(render(minimal.rootChildren()), "The Last Boat=content_001.xhtml");

  // An NCX four levels deep, used as it is: it names more entries than the spine has pages.
  EPUBParser coast(dataBook("northern-coast-epub3.epub"));
  // The manifest calls the nav document "nav scripted", which does not make it the toc file.
  EXPECT_EQ(coast.tocFile(), "");
  EXPECT_EQ(render(coast.rootChildren()),
            "PART ONE \u2014 TALES OF THE NORTHERN COAST=s01.xhtml{SOURCES=s01.xhtml | A WORD "
            "BEFORE=s01.xhtml | 12 THE LANTERN KEEPER=s01.xhtml{I. The Storm=s01.xhtml | II. The "
            "Lamp=s01.xhtml | III. The Rescue=s01.xhtml | IV. Morning=s01.xhtml} | 13 THE SALT "
            "MILL=s01.xhtml | 14 THE SEAL WIFE=s01.xhtml{I. The Skin on the Rock=s01.xhtml | II. "
            "Seven Winters=s01.xhtml | III. The Return=s01.xhtml} | 15 THE GLASS FLOAT=s01.xhtml | "
            "16 THE FOG BELL=s01.xhtml} | PART TWO \u2014 SONGS OF THE FJORD=s01.xhtml{17 ROWING "
            "SONG=s01.xhtml | 18 THE HERRING YEAR=s01.xhtml | 19 LULLABY FOR A NET "
            "MENDER=s01.xhtml{First verse=s01.xhtml | Second verse=s01.xhtml}} | NOTES=s01.xhtml");
  EXPECT_EQ(countOfEntries(coast.rootChildren()), 22u);
  // Its nav document, read directly: a heading, author names without links of their own that
  // lead to their first story, labels wrapped over lines, and a landmarks list left out.
  std::optional<Data> nav = coast.dataForNamedFile("EPUB/nav.xhtml");
  ASSERT_TRUE(nav);
  NCXParser navTree(*nav, NavigationFormat::NavDocument);
  EXPECT_TRUE(navTree.isWellFormed());
  ASSERT_EQ(navTree.children().size(), 3u);
  EXPECT_EQ(countOfEntries(navTree.children()), 24u);
  const NavEntry& part = navTree.children().front();
  EXPECT_EQ(toUtf8(part.label), "PART ONE \u2014 TALES OF THE NORTHERN COAST");
  ASSERT_EQ(part.children.size(), 4u);
  EXPECT_EQ(render({part.children[0], part.children[1]}),
            "SOURCES=s01.xhtml | A WORD BEFORE=s01.xhtml");
  EXPECT_EQ(toUtf8(part.children[2].label), "Marit Solberg");
  EXPECT_EQ(part.children[2].content, "s01.xhtml");
  EXPECT_EQ(render({part.children[2].children.front()}),
            "12 THE LANTERN KEEPER=s01.xhtml{I. The Storm=s01.xhtml | II. The Lamp=s01.xhtml | "
            "III. The Rescue=s01.xhtml | IV. Morning=s01.xhtml}");
  EXPECT_EQ(toUtf8(part.children[3].label), "J\u00f3n \u00c1sgeirsson");
  EXPECT_EQ(toUtf8(navTree.children().back().label), "NOTES");
}

TEST_F(EPUBNavigationTest, CorpusTablesOfContents) {
  ULVEK_REQUIRE_CORPUS();
  // EPUB 2, NCX only in use.
  EPUBParser report(corpusBook("made-report-pandoc-epub2.epub"));
  EXPECT_EQ(render(report.rootChildren()),
            "Quarterly Import Report \u2014 Tables, Lists and Notes=text/title_page.xhtml | "
            "Quarterly Import Report \u2014 Tables, Lists and Notes=text/ch001.xhtml | "
            "1. Figures=text/ch002.xhtml | 2. Plan=text/ch003.xhtml | "
            "3. Responsibilities=text/ch004.xhtml | 4. Definitions=text/ch005.xhtml | "
            "5. Terms=text/ch006.xhtml");
  // EPUB 3 with a nav document only.
  EPUBParser minimal(corpusBook("epubcheck-epub3-minimal.epub"));
  EXPECT_EQ(minimal.ncxFile(), "");
  EXPECT_EQ(render(minimal.rootChildren()), "content 001=content_001.xhtml");
  // A nav document with headings and four levels, read directly.
  EPUBParser children(corpusBook("idpf-childrens-literature.epub"));
  // Its manifest calls the nav document "nav scripted", which does not make it the toc file.
  EXPECT_EQ(children.tocFile(), "");
  std::optional<Data> nav = children.dataForNamedFile("EPUB/nav.xhtml");
  ASSERT_TRUE(nav);
  NCXParser navTree(*nav, NavigationFormat::NavDocument);
  ASSERT_EQ(navTree.children().size(), 1u);
  const NavEntry& section = navTree.children().front();
  EXPECT_EQ(toUtf8(section.label), "SECTION IV FAIRY STORIES\u2014MODERN FANTASTIC TALES");
  ASSERT_GE(section.children.size(), 3u);
  EXPECT_EQ(render({section.children[0], section.children[1]}),
            "BIBLIOGRAPHY=s04.xhtml | INTRODUCTORY=s04.xhtml");
  EXPECT_EQ(toUtf8(section.children[2].label), "Abram S. Isaacs");
  EXPECT_EQ(render({section.children[2].children.front()}),
            "190 A FOUR-LEAVED CLOVER=s04.xhtml{I. The Rabbi and the Diadem=s04.xhtml | II. "
            "Friendship=s04.xhtml | III. True Charity=s04.xhtml | IV. An Eastern "
            "Garden=s04.xhtml}");
  EXPECT_GT(countOfEntries(children.rootChildren()), 20u);
}

TEST_F(EPUBNavigationTest, MergedHtml) {
  std::string path = book(
      "merged.epub",
      {{"META-INF/container.xml", kContainer},
       {"OEBPS/p.opf",
        package(item("a", "a.xhtml") + item("b", "b.xhtml") + item("png", "i/p.png", "image/png") +
                    item("css", "s.css", "text/css"),
                itemrefs({"a", "b"}))},
       {"OEBPS/a.xhtml",
        "<?xml version=\"1.0\"?><!DOCTYPE html><html><head><link rel=\"stylesheet\" "
        "href=\"s.css\"/></head><body><p>One <a href=\"b.xhtml#x\">next</a></p><img "
        "src=\"i/p.png\"/></body></html>"},
       {"OEBPS/b.xhtml",
        "<html><head><title>B</title></head><body><p>Two</p><img src=\"../OEBPS/i/p.png\" "
        "alt=\"x\"/><img src=\"missing.png\"/><img src=\"http://e.com/x.png\"/>lost</body></html>"},
       {"OEBPS/i/p.png", "PNGDATA"},
       {"OEBPS/s.css", "p{color:red}"}});
  CapturedLog log;
  EPUBParser parser(path);
  std::optional<TextString> html = parser.htmlContents();
  ASSERT_TRUE(html);
  const std::string image = "data:image/png;base64,UE5HREFUQQ==";
  EXPECT_EQ(toUtf8(*html),
            "<html>\n<meta http-equiv=\"Content-Type\" content=\"text/html; charset=UTF-8\"/>\n"
            "<head><style><!--\np{color:red}\n--></style>\n</head><body><a name=\"a.xhtml\"/>\n"
            "<p>One <a href=\"#b.xhtml\">\nnext</a></p><img src=\"" +
                image +
                "\"/></body>"
                "<body>\n<a name=\"b.xhtml\"/>\n<p>Two</p><img src=\"" +
                image + "\" alt=\"x\"/><img src=\"http://e.com/x.png\"/>\n</body></html>");
  EXPECT_TRUE(log.contains("Dropped 1 images"));
  std::optional<StyledText> rich = parser.richTextContents();
  ASSERT_TRUE(rich);
  EXPECT_EQ(toUtf8(rich->string()), "One next\n\nTwo");
  EXPECT_TRUE(rtfString(*rich).starts_with("{\\rtf1"));
}

// Every <img> outside comments carries a data: URL.
void expectImagesInlined(const std::string& html, std::size_t atLeast) {
  std::string visible = std::regex_replace(html, std::regex("<!--[\\s\\S]*?-->"), "");
  std::size_t images = 0;
  for (std::size_t at = visible.find("<img"); at != std::string::npos;
       at = visible.find("<img", at + 1)) {
    std::string tag = visible.substr(at, visible.find('>', at) - at);
    EXPECT_NE(tag.find("src=\"data:image/"), std::string::npos) << tag.substr(0, 200);
    ++images;
  }
  EXPECT_GE(images, atLeast);
}

// The merged HTML and styled text of a book: the document's frame, inlined images, an anchor for
// every spine document, and RTF.
void expectMergedBook(EPUBParser& parser, std::size_t images, const std::string& text) {
  std::optional<TextString> html = parser.htmlContents();
  ASSERT_TRUE(html);
  std::string utf8 = toUtf8(*html);
  EXPECT_TRUE(utf8.starts_with("<html>\n<meta http-equiv")) << utf8.substr(0, 100);
  EXPECT_TRUE(utf8.ends_with("</html>"));
  expectImagesInlined(utf8, images);
  // Every spine document starts with its anchor.
  for (const std::string& idref : parser.spines()) {
    std::string name = memberName(parser.items().at(idref));
    EXPECT_NE(utf8.find("<a name=\"" + name + "\"/>"), std::string::npos) << name;
  }
  std::optional<StyledText> rich = parser.richTextContents();
  ASSERT_TRUE(rich);
  std::string rtf = rtfString(*rich);
  EXPECT_TRUE(rtf.starts_with("{\\rtf1")) << rtf.substr(0, 50);
  EXPECT_NE(toUtf8(rich->string()).find(text), std::string::npos);
}

TEST_F(EPUBNavigationTest, HtmlAndRichTextOfBooks) {
  struct Row {
    const char* book;
    std::size_t images;
    const char* text;      // a piece of the merged text
    const char* htmlPart;  // a piece of the merged HTML
  };
  const Row rows[] = {
      // The cover page's image, as a data: URL of the book's own PNG.
      {"northern-coast-epub3.epub", 1, "12 THE LANTERN KEEPER",
       "<img src=\"data:image/png;base64,"},
      // A link to a later chapter points at its anchor; the style sheet is inlined.
      {"field-notes-epub2.epub", 0, "Shannon", "<a href=\"#ch004.xhtml\">"},
      {"field-notes-epub2.epub", 0, "Field Notes", "<style><!--\nbody { font-family: serif; }"},
      // The cover page is out of the reading order and brings no image.
      {"net-loft-epub2.epub", 0, "Chapter 1: Knots", "<a name=\"chapter2.html\"/>"},
      {"harbour-lights-epub3.epub", 0, "The last boat came in after dark", "<h1>Harbour Lights"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.book);
    EPUBParser parser(dataBook(row.book));
    expectMergedBook(parser, row.images, row.text);
    std::optional<TextString> html = parser.htmlContents();
    ASSERT_TRUE(html);
    EXPECT_NE(toUtf8(*html).find(row.htmlPart), std::string::npos) << row.htmlPart;
  }
  // The data: URL carries the cover's bytes.
  EPUBParser coast(dataBook("northern-coast-epub3.epub"));
  std::optional<EPUBCover> cover = coast.cover();
  ASSERT_TRUE(cover);
  EXPECT_NE(toUtf8(*coast.htmlContents()).find("data:image/png;base64," + base64(cover->bytes)),
            std::string::npos);
}

TEST_F(EPUBNavigationTest, CorpusHtmlAndRichText) {
  ULVEK_REQUIRE_CORPUS();
  struct Row {
    const char* book;
    std::size_t images;
    const char* text;  // a piece of the merged text
  };
  const Row rows[] = {
      {"idpf-childrens-literature.epub", 1, "THE UGLY DUCKLING"},
      {"made-report-pandoc-epub2.epub", 0, "Quarterly Import Report"},
      {"tika-testEPUB.epub", 0, "Chapter 1"},
      {"epubcheck-epub3-minimal.epub", 0, ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.book);
    EPUBParser parser(corpusBook(row.book));
    expectMergedBook(parser, row.images, row.text);
  }
}

// Covers named by a property, a meta element or the guide, in books built here and the
// project's own.
TEST_F(EPUBNavigationTest, Covers) {
  const std::string jpeg = "\xFF\xD8\xFF\xE0" + std::string("\0\x10JFIF\0", 7) + "rest";
  const std::string png = "\x89PNG\r\n\x1A\n" + std::string(8, '\0') + "rest";
  auto coverBook = [&](const std::string& name, const std::string& metadata,
                       const std::string& manifest, const std::string& guide,
                       std::vector<ZipEntry> more) {
    std::vector<ZipEntry> entries = {
        {"META-INF/container.xml", kContainer},
        {"OEBPS/p.opf", package(item("a", "a.xhtml") + manifest, itemrefs({"a"}),
                                "<dc:title>T</dc:title>" + metadata, guide)},
        {"OEBPS/a.xhtml", page("<p>A</p>")}};
    entries.insert(entries.end(), more.begin(), more.end());
    return book(name, entries);
  };
  struct Row {
    const char* name;
    std::string path;
    std::string member;  // empty: no cover
    std::string mimeType;
    std::string bytes;  // the cover's bytes, or their start where `size` is given
    const char* logPart = nullptr;
    std::size_t size = 0;
  };
  const Row rows[] = {
      {"cover-image property",
       coverBook("prop.epub", "", item("c", "img/c.png", "image/png", "properties=\"cover-image\""),
                 "", {{"OEBPS/img/c.png", png}}),
       "OEBPS/img/c.png", "image/png", png},
      {"cover meta",
       coverBook("meta.epub", "<meta name=\"cover\" content=\"Pic\"/>",
                 item("pic", "c.jpeg", "image/jpeg"), "", {{"OEBPS/c.jpeg", jpeg}}),
       "OEBPS/c.jpeg", "image/jpeg", jpeg},
      {"guide cover page with an image",
       coverBook("guide.epub", "", item("cp", "cover.xhtml") + item("im", "i/c.jpg", "image/jpeg"),
                 "<guide><reference type=\"cover\" href=\"cover.xhtml#top\"/></guide>",
                 {{"OEBPS/cover.xhtml", page("<svg><image xlink:href=\"i/c.jpg\"/></svg>")},
                  {"OEBPS/i/c.jpg", jpeg}}),
       "OEBPS/i/c.jpg", "image/jpeg", jpeg},
      {"cover without a media type",
       coverBook("notype.epub", "", "<item id=\"c\" href=\"c.png\" properties=\"cover-image\"/>",
                 "", {{"OEBPS/c.png", png}}),
       "OEBPS/c.png", "image/png", png},
      {"cover that is no image",
       coverBook("text.epub", "", item("c", "c.jpg", "image/jpeg", "properties=\"cover-image\""),
                 "", {{"OEBPS/c.jpg", "just some words, no picture"}}),
       "", "", "", "is no image"},
      {"cover missing from the archive",
       coverBook("missing.epub", "", item("c", "c.jpg", "image/jpeg", "properties=\"cover-image\""),
                 "", {}),
       "", "", ""},
      {"no cover", coverBook("none.epub", "", "", "", {}), "", "", ""},
      // The project's books.
      {"cover-image property of a book", dataBook("northern-coast-epub3.epub"),
       "EPUB/images/cover.png", "image/png", png.substr(0, 8), nullptr, 116},
      {"cover meta of a book", dataBook("net-loft-epub2.epub"), "OPS/CoverDesign.png", "image/png",
       png.substr(0, 8), nullptr, 407},
      {"book without a cover", dataBook("field-notes-epub2.epub"), "", "", ""},
      {"book without a cover, EPUB 3", dataBook("harbour-lights-epub3.epub"), "", "", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    CapturedLog log;
    std::optional<EPUBCover> cover = EPUBParser::coverForFile(row.path);
    if (row.member.empty()) {
      EXPECT_FALSE(cover);
    } else {
      ASSERT_TRUE(cover);
      EXPECT_EQ(cover->member, row.member);
      EXPECT_EQ(cover->mimeType, row.mimeType);
      EXPECT_EQ(cover->bytes.size(), row.size ? row.size : row.bytes.size());
      EXPECT_TRUE(std::string(cover->bytes.begin(), cover->bytes.end()).starts_with(row.bytes));
    }
    if (row.logPart) {
      EXPECT_TRUE(log.contains(row.logPart));
    }
  }
  EXPECT_FALSE(EPUBParser::coverForFile(""));
}

TEST_F(EPUBNavigationTest, CorpusCovers) {
  ULVEK_REQUIRE_CORPUS();
  std::optional<EPUBCover> tika = EPUBParser::coverForFile(corpusBook("tika-testEPUB.epub"));
  ASSERT_TRUE(tika);
  EXPECT_EQ(tika->mimeType, "image/jpeg");
  EXPECT_EQ(tika->bytes.size(), 40437u);
  EXPECT_EQ(tika->bytes[0], 0xFF);
  std::optional<EPUBCover> children =
      EPUBParser::coverForFile(corpusBook("idpf-childrens-literature.epub"));
  ASSERT_TRUE(children);
  EXPECT_EQ(children->member, "EPUB/images/cover.png");
  EXPECT_EQ(children->mimeType, "image/png");
  EXPECT_EQ(children->bytes.size(), 41134u);
}

TEST_F(EPUBNavigationTest, EncryptedBooksShowNothing) {
  std::string path = chapters("drm.epub", item("ncx", "toc.ncx", "application/x-dtbncx+xml"),
                              itemrefs({"a", "b", "c"}),
                              {{"OEBPS/toc.ncx", ncx(navPoint("A", "a.xhtml"))},
                               {"META-INF/rights.xml", "<r><operatorURL>x</operatorURL></r>"}});
  EPUBParser parser(path);
  EXPECT_TRUE(parser.hasDRM());
  EXPECT_FALSE(parser.htmlContents());
  EXPECT_FALSE(parser.richTextContents());
  EXPECT_FALSE(parser.firstPage());
  EXPECT_FALSE(parser.rootChildren().empty());
}

TEST_F(EPUBNavigationTest, FirstPageAndFilesOfTheUnpackedCopy) {
  std::string path =
      chapters("pages.epub", item("ncx", "toc.ncx", "application/x-dtbncx+xml"),
               itemrefs({"a", "b", "c"}), {{"OEBPS/toc.ncx", ncx(navPoint("Bee", "b.xhtml#x"))}});
  std::string unpacked;
  {
    EPUBParser parser(path);
    // Nothing is unpacked until a page is asked for.
    EXPECT_FALSE(parser.URLForContent("b.xhtml"));
    std::optional<std::string> first = parser.firstPage();
    ASSERT_TRUE(first);
    std::optional<std::string> folder = parser.unzippedEPUB();
    ASSERT_TRUE(folder);
    unpacked = *folder;
    EXPECT_EQ(*first, unpacked + "/OEBPS/a.xhtml");
    EXPECT_EQ(testing::readFile(*first), page("<h1>Alpha</h1><p>first</p>"));
    const NavEntries& toc = parser.rootChildren();
    ASSERT_EQ(toc.size(), 2u);
    std::optional<std::string> url = parser.URLForItem(toc[1]);
    ASSERT_TRUE(url);
    EXPECT_EQ(*url, "file://" + unpacked + "/OEBPS/b.xhtml");
    EXPECT_EQ(parser.contentForURL(*url), std::optional<std::string>("b.xhtml"));
    const char* const outside[] = {"file:///etc/passwd", "http://example.com/OEBPS/b.xhtml", ""};
    for (const char* url : outside) EXPECT_FALSE(parser.contentForURL(url)) << url;
    EXPECT_FALSE(parser.contentForURL(fileURLWithPath(unpacked + "/OEBPS/../../x")));
    EXPECT_FALSE(parser.URLForContent("../../../etc/passwd"));
    EXPECT_FALSE(parser.URLForContent(""));
  }
  // The copy goes with the parser.
  EXPECT_FALSE(fs::exists(unpacked));

  // A book folder is its own copy.
  TemporaryFolder bookFolder;
  bookFolder.write("META-INF/container.xml", kContainer);
  bookFolder.write("OEBPS/p.opf",
                   package(item("a", "a.xhtml") + item("nav", "nav.xhtml", "application/xhtml+xml",
                                                       "properties=\"nav\""),
                           itemrefs({"a"})));
  bookFolder.write("OEBPS/a.xhtml", page("<p>A</p>"));
  bookFolder.write(
      "OEBPS/nav.xhtml",
      page("<nav epub:type=\"toc\"><ol><li><a href=\"a.xhtml\">A</a></li></ol></nav>"));
  EPUBParser folderBook(bookFolder.path().string());
  EXPECT_EQ(render(folderBook.rootChildren()), "A=a.xhtml");
  EXPECT_EQ(folderBook.firstPage(), (bookFolder.path() / "OEBPS/a.xhtml").string());
  EXPECT_TRUE(fs::exists(bookFolder.path() / "OEBPS/a.xhtml"));
}

TEST_F(EPUBNavigationTest, UnpackingRefusesMembersThatClimbOut) {
  std::string path =
      book("climb.epub",
           {{"META-INF/container.xml", kContainer},
            {"OEBPS/p.opf",
             package(item("a", "a.xhtml") +
                         item("n", "nav.xhtml", "application/xhtml+xml", "properties=\"nav\""),
                     itemrefs({"a"}))},
            {"OEBPS/a.xhtml", page("<p>A</p>")},
            {"OEBPS/nav.xhtml",
             page("<nav epub:type=\"toc\"><ol><li><a href=\"a.xhtml\">A</a></li></ol></nav>")},
            {"../../escaped.txt", "x"}});
  CapturedLog log;
  EPUBParser parser(path);
  EXPECT_FALSE(parser.firstPage());
  EXPECT_FALSE(parser.unzippedEPUB());
  EXPECT_FALSE(log.lines().empty());
  // Unpacked copies lie two levels below the temporary items' parent.
  std::optional<std::string> temporary = temporaryItemsFolder().take();
  ASSERT_TRUE(temporary);
  EXPECT_FALSE(fs::exists(fs::path(*temporary).parent_path() / "escaped.txt"));
  // The book still reads from the archive.
  EXPECT_EQ(render(parser.rootChildren()), "A=a.xhtml");
  std::optional<TextString> html = parser.htmlContents();
  ASSERT_TRUE(html);
  EXPECT_NE(toUtf8(*html).find("<p>A</p>"), std::string::npos);
}

}  // namespace
}  // namespace ulvek
