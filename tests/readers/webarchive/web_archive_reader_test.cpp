#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "base/property_list.h"
#include "fixture_files.h"
#include "reader_output_printer.h"
#include "readers/webarchive/web_archive.h"
#include "readers/webarchive/web_archive_reader.h"
#include "test_support.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;
using testing::CapturedLog;

PropertyValue resource(std::string_view html, TextView mime = u"text/html",
                       TextView url = u"https://example.org/",
                       std::optional<TextView> encoding = u"UTF-8") {
  PropertyDictionary fields{
      {"WebResourceData", PropertyValue(Data(html.begin(), html.end()))},
      {"WebResourceMIMEType", PropertyValue(mime)},
      {"WebResourceURL", PropertyValue(url)},
  };
  if (encoding) fields.emplace("WebResourceTextEncodingName", PropertyValue(*encoding));
  return PropertyValue(std::move(fields));
}

PropertyValue archive(PropertyValue main, PropertyArray frames = {},
                      PropertyArray subresources = {}) {
  PropertyDictionary root{{"WebMainResource", std::move(main)}};
  if (!frames.empty()) root.emplace("WebSubframeArchives", PropertyValue(std::move(frames)));
  if (!subresources.empty())
    root.emplace("WebSubresources", PropertyValue(std::move(subresources)));
  return PropertyValue(std::move(root));
}

std::string page(std::string_view body) {
  return "<html><head><title>T</title></head><body>" + std::string(body) + "</body></html>";
}

std::optional<WebArchive> decode(const PropertyValue& list) {
  std::optional<Data> bytes = binaryPropertyList(list);
  EXPECT_TRUE(bytes);
  return WebArchive::initWithData(*bytes, "test");
}

TEST(WebArchive, MarkupMIMETypes) {
  const std::vector<std::pair<std::u16string, bool>> rows = {
      {u"text/html", true},
      {u"TEXT/plain", true},
      {u"application/xhtml+xml", true},
      {u"application/rss+xml", true},
      {u"application/RSS", false},
      {u"application/RDF", false},
      {u"application/ATOM+XML", true},
      {u"image/svg+xml", false},
      {u"application/octet-stream", false},
      {u"", false},
  };
  for (const auto& [mime, markup] : rows) EXPECT_EQ(isMarkupMIMEType(mime), markup) << toUtf8(mime);
}

constexpr std::string_view kRss =
    "<?xml version='1.0' encoding='UTF-8'?><rss version='2.0'><channel><title>Harbour</title>"
    "<link>https://example.org/</link><description>Notes</description><image><title>Logo"
    "</title></image><item><title>Ferry</title><link>https://example.org/f</link><description>"
    "&lt;p&gt;The &lt;b&gt;morning ferry&lt;/b&gt; leaves.&lt;/p&gt;</description></item><item>"
    "<title>Lighthouse</title><description><![CDATA[<p>Red stripes.</p>]]></description>"
    "</item></channel></rss>";

TEST(WebArchive, SearchableTextOfPagesAndFrames) {
  struct Row {
    std::string name;
    PropertyValue list;
    TextString expectedText;
    bool hasSource;
  };
  const std::vector<Row> rows = {
      {"one page", archive(resource(page("Main"))), u"\n\nMain", true},
      {"two frames",
       archive(resource(page("Main")),
               {archive(resource(page("A"))), archive(resource(page("B")))}),
       u"\n\nMain\n\nA\n\nB", true},
      {"frames depth first",
       archive(resource(page("M")), {archive(resource(page("A")), {archive(resource(page("A1")))}),
                                     archive(resource(page("B")))}),
       u"\n\nM\n\nA\n\nA1\n\nB", true},
      {"image main page", archive(resource("\x89PNG", u"image/png")), u"", false},
      {"image main, text frame",
       archive(resource("\x89PNG", u"image/png"), {archive(resource(page("F")))}), u"\n\nF", false},
      {"latin-1 xhtml without encoding name",
       archive(resource(page("Gr\xFC\xDF"
                             "e"),
                        u"application/xhtml+xml", u"https://example.org/", std::nullopt)),
       u"\n\nGrüße", true},
      {"subresources do not count",
       archive(resource(page("Main")), {}, {resource("body{}", u"text/css")}), u"\n\nMain", true},
      // Feeds: titles and bodies on lines of their own, bodies' HTML as text.
      {"rss 2.0", archive(resource(kRss, u"application/rss+xml")),
       u"\n\nHarbour\nNotes\nFerry\nThe morning ferry leaves.\nLighthouse\nRed stripes.", true},
      {"rss cut short", archive(resource(std::string(kRss).substr(0, 330), u"text/xml")),
       u"\n\nHarbour\nNotes\nFerry\nThe morning ferry leaves.", true},
      {"atom, xhtml and escaped content",
       archive(resource("<feed xmlns='http://www.w3.org/2005/Atom'><title>Log</title>"
                        "<entry><title>One</title><summary>Short</summary>"
                        "<content type='html'>&lt;p&gt;Long&lt;/p&gt;</content></entry>"
                        "<entry><title>Two</title><content type='xhtml'><div><p>Deep</p></div>"
                        "</content></entry></feed>",
                        u"application/atom+xml")),
       u"\n\nLog\nOne\nShort\nTwo\nDeep", true},
      {"rss 1.0",
       archive(resource("<rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>"
                        "<channel><title>Old</title></channel>"
                        "<item><title>Item</title><description>Body</description></item>"
                        "</rdf:RDF>",
                        u"application/rdf+xml")),
       u"\n\nOld\nItem\nBody", true},
      {"latin-1 declaration in a decoded feed",
       archive(resource("<?xml version='1.0' encoding='ISO-8859-1'?><rss><channel>"
                        "<title>Gr\xFC\xDF"
                        "e</title></channel></rss>",
                        u"application/rss+xml", u"https://example.org/", u"ISO-8859-1")),
       u"\n\nGrüße", true},
      {"xml that is no feed is a page",
       archive(resource("<note><to>Tove</to><body>Hello</body></note>", u"text/xml")), u"\n\nHello",
       true},
  };
  for (const Row& row : rows) {
    std::optional<WebArchive> web = decode(row.list);
    ASSERT_TRUE(web) << row.name;
    std::optional<TextString> source;
    EXPECT_EQ(web->searchableTextAndSource(&source), row.expectedText) << row.name;
    EXPECT_EQ(source.has_value(), row.hasSource) << row.name;
  }
}

TEST(WebArchive, LookupByURL) {
  std::optional<WebArchive> web =
      decode(archive(resource(page("M"), u"text/html", u"u:main"),
                     {archive(resource(page("F"), u"text/html", u"u:frame"), {},
                              {resource("x", u"image/gif", u"u:inner")})},
                     {resource("y", u"text/css", u"u:css")}));
  ASSERT_TRUE(web);
  struct Row {
    std::u16string url;
    std::string expectedResourceMIME;  // "" for none
    std::u16string expectedArchiveURL;
  };
  const std::vector<Row> rows = {
      {u"u:main", "text/html", u"u:main"},
      {u"u:css", "text/css", u""},
      {u"u:inner", "image/gif", u""},
      {u"u:frame", "text/html", u"u:frame"},
      {u"u:none", "", u""},
  };
  for (const Row& row : rows) {
    const WebResource* found = web->subresourceForURL(row.url);
    EXPECT_EQ(found ? toUtf8(found->MIMEType) : "", row.expectedResourceMIME) << toUtf8(row.url);
    const WebArchive* sub = web->subArchiveForURL(TextView(row.url));
    EXPECT_EQ(sub ? sub->mainResource->URL : u"", row.expectedArchiveURL) << toUtf8(row.url);
  }
  EXPECT_EQ(web->subArchiveForURL(std::nullopt), nullptr);
}

// A binary list whose root dictionary holds itself as its main resource.
Data selfContainingList() {
  std::string bytes = "bplist00";
  bytes += "\xD1\x01\x00";  // object 0: dictionary {object 1: object 0}
  bytes +=
      "\x5F\x10\x0F"
      "WebMainResource";  // object 1
  bytes += "\x08\x0B";    // offset table
  std::string trailer(6, '\0');
  trailer += "\x01\x01";
  trailer += std::string(7, '\0') + "\x02";
  trailer += std::string(8, '\0');
  trailer += std::string(7, '\0') + "\x1D";
  bytes += trailer;
  return Data(bytes.begin(), bytes.end());
}

std::string deeplyNestedXML(int depth) {
  std::string xml = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
  for (int i = 0; i < depth; ++i) {
    xml +=
        "<dict><key>WebMainResource</key><dict><key>WebResourceMIMEType</key>"
        "<string>text/html</string></dict><key>WebSubframeArchives</key><array>";
  }
  for (int i = 0; i < depth; ++i) xml += "</array></dict>";
  return xml + "</plist>";
}

TEST(WebArchive, DamagedArchivesAnswerLess) {
  struct Row {
    std::string name;
    Data bytes;
    bool readable;
    std::string logFragment;
  };
  auto bytesOf = [](std::string_view text) { return Data(text.begin(), text.end()); };
  auto binary = [](const PropertyValue& list) { return *binaryPropertyList(list); };
  PropertyValue wrongData = archive(
      PropertyValue(PropertyDictionary{{"WebResourceData", PropertyValue(std::int64_t{7})},
                                       {"WebResourceMIMEType", PropertyValue(u"text/html")}}));
  const std::vector<Row> rows = {
      {"not a list", bytesOf("<html>nope</html>"), false, "Not a web archive"},
      {"root array", binary(PropertyValue(PropertyArray{})), false, "is not a dictionary"},
      {"no main resource", binary(PropertyValue(PropertyDictionary{})), false,
       "has no main resource"},
      {"wrong data type", binary(wrongData), true, "wrong kind (WebResourceData)"},
      {"frames not an array",
       binary(PropertyValue(PropertyDictionary{{"WebMainResource", resource(page("M"))},
                                               {"WebSubframeArchives", PropertyValue(u"x")}})),
       true, "wrong kind (WebSubframeArchives)"},
      {"self-containing", selfContainingList(), false, "Not a web archive"},
      {"10,000 frames deep", bytesOf(deeplyNestedXML(10000)), false, "Not a web archive"},
      {"100 frames deep", bytesOf(deeplyNestedXML(100)), true, "nested too deep"},
  };
  for (const Row& row : rows) {
    CapturedLog log;
    std::optional<WebArchive> web = WebArchive::initWithData(row.bytes, "test");
    EXPECT_EQ(web.has_value(), row.readable) << row.name;
    if (web) (void)web->searchableText();
    EXPECT_TRUE(log.contains(row.logFragment)) << row.name;
  }
}

TEST(WebArchive, HugeMarkupIsSkipped) {
  WebResource huge;
  huge.MIMEType = u"text/html";
  huge.data.assign(kMaxWebResourceMarkup + 1, 'a');
  CapturedLog log;
  EXPECT_EQ(huge.documentSource(), std::nullopt);
  EXPECT_TRUE(log.contains("Skipped"));
}

TEST(WebArchiveReader, AnswersHTMLMetaAttributes) {
  testing::TemporaryFolder folder;
  std::string html =
      "<html><head><title>Page &amp; title</title><meta name=\"Description\" content=\"About\">"
      "</head><body>Body</body></html>";
  std::optional<Data> bytes =
      binaryPropertyList(archive(resource(html, u"text/html", u"https://x/")));
  std::string path = folder.write("a.webarchive", std::string(bytes->begin(), bytes->end()));
  std::optional<ReaderOutput> output = webArchiveReader().read(ReaderSource::file(path));
  ASSERT_TRUE(output);
  EXPECT_EQ(*output, (ReaderOutput{.convention = Convention::HTMLPage,
                                   .text = u"\n\nBody",
                                   .title = u"Page & title",
                                   .url = u"https://x/",
                                   .htmlMeta = {{u"description", u"About"}}}));

  std::optional<TextString> base;
  std::optional<TextString> source;
  EXPECT_EQ(searchableTextOfFile(path, &base, &source), u"\n\nBody");
  EXPECT_EQ(base, u"https://x/");
  EXPECT_TRUE(source);
  EXPECT_EQ(searchableTextOfFile(folder.write("empty.webarchive", ""), &base, &source),
            std::nullopt);
  EXPECT_FALSE(base || source);
}

// The archives of tests/data/webarchive (made by make_fixtures.py there), each against its
// .expect.json.
TEST(WebArchiveReader, ReadsArchives) {
  const std::vector<fs::path> archives =
      testing::filesOf(testing::dataPath() / "webarchive", {".webarchive"});
  ASSERT_GE(archives.size(), 7u);
  for (const fs::path& path : archives) {
    SCOPED_TRACE(path.filename().string());
    auto expect = nlohmann::json::parse(testing::readFile(path.string() + ".expect.json"));
    CapturedLog log;
    std::optional<ReaderOutput> output = webArchiveReader().read(ReaderSource::file(path.string()));
    if (!expect.value("readable", true)) {
      EXPECT_FALSE(output);
      EXPECT_FALSE(log.lines().empty());
      continue;
    }
    ASSERT_TRUE(output && output->text);
    EXPECT_EQ(toUtf8(*output->text), expect["text"].get<std::string>());
    auto utf8 = [](const std::optional<TextString>& value) {
      return value ? toUtf8(*value) : std::string("(none)");
    };
    auto description = output->htmlMeta.find(u"description");
    EXPECT_EQ(utf8(output->title), expect.value("title", "(none)"));
    EXPECT_EQ(utf8(output->url), expect.value("baseURL", "(none)"));
    EXPECT_EQ(description == output->htmlMeta.end() ? "(none)" : toUtf8(description->second),
              expect.value("description", "(none)"));
    EXPECT_TRUE(log.lines().empty()) << log.lines().front();
  }
}

TEST(WebArchiveReader, ReadsCorpusArchives) {
  ULVEK_REQUIRE_CORPUS();
  struct Row {
    std::string file;
    std::u16string fragment;
  };
  const std::vector<Row> rows = {
      {"made-frames.webarchive", u"Zweiter Rahmen: Grüße."},
      {"made-lemonde-latin1.webarchive", u"é"},
  };
  for (const Row& row : rows) {
    std::string path = (testing::corpusPath() / "docs/webarchive" / row.file).string();
    std::optional<TextString> text = searchableTextOfFile(path);
    ASSERT_TRUE(text) << row.file;
    EXPECT_NE(text->find(row.fragment), TextString::npos) << row.file;
  }
}

}  // namespace
}  // namespace ulvek
