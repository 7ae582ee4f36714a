#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/property_list.h"
#include "fork_test_files.h"
#include "html_page_expectation.h"
#include "import/mime_type_helper.h"
#include "import/reader_set.h"
#include "metadata/file_types.h"
#include "metadata/internet_location.h"
#include "metadata/metadata_store.h"
#include "platform/resource_fork.h"
#include "protocol/import_result.h"
#include "readers/reader.h"
#include "readers/zip/zip_archive.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::CapturedLog;
using testing::TemporaryFolder;
namespace fs = std::filesystem;
namespace Key = MetaDataKey;
using namespace std::string_view_literals;

void store(const std::string& path, std::string_view key, const PropertyValue& value) {
  ASSERT_TRUE(OVMetaDataStore::setObject(value, key, path, false)) << key;
}

void storeWhereFrom(const std::string& path) {
  store(path, Key::WhereFroms, PropertyArray{u"https://stored.example/"});
}

// Finder information whose first four bytes are the type code; the bundle flag makes a package.
void setFinderInfo(const std::string& path, std::string_view type, bool package = false) {
  std::string info(32, '\0');
  info.replace(0, type.size(), type);
  if (package) info[8] = 0x20;
  ASSERT_EQ(::setxattr(path.c_str(), kFinderInfoAttribute, info.data(), info.size(), 0), 0);
}

std::string xmlList(const PropertyDictionary& dictionary) {
  return *xmlPropertyList(PropertyValue(dictionary));
}

// Expected string keys: a value, or nothing for "absent".
using Expectations = std::map<std::string, std::optional<std::u16string>, std::less<>>;

void expectKeys(const ImportResult& result, const Expectations& expected) {
  for (const auto& [key, value] : expected) {
    const TextString* stored = result.string(key);
    EXPECT_EQ(stored ? std::optional<std::u16string>(*stored) : std::nullopt, value) << key;
  }
}

constexpr char16_t kStored[] = u"https://stored.example/";
constexpr std::nullopt_t kNone = std::nullopt;

// Every file carries a stored where-from address, and whatever else its row stores.
TEST(FileImport, RoutesAndPrecedence) {
  struct Case {
    std::string fileName;
    std::string bytes;
    std::vector<std::pair<std::string_view, PropertyValue>> stored;
    Expectations expected;
    std::u16string textHas;  // a part of "Text" (markup whose layout is not this test's concern)
  };
  const std::string page =
      "<html><head><title> Page &amp; Title </title><meta name=\"title\" content=\"Meta\">"
      "<meta name=\"description\" content=\"About it\"></head><body><p>Hello there</p>";
  const std::vector<Case> cases = {
      {"page.html", page, {}, {{"Title", u"Page & Title"}, {"Description", u"About it"}}, u"Hello"},
      {"meta-title.htm", "<meta name=\"og:title\" content=\"Meta\">x", {}, {{"Title", u"Meta"}}},
      {"data.xml", "<a>fish &amp; chips &#233;</a>", {}, {{"Text", u"<a>fish & chips \u00e9</a>"}}},
      {"Info.plist", xmlList({{"CFBundleName", u"Bundle"}}), {}, {{"Title", u"Bundle"}}, u"Bundle"},
      {"mentions-name.plist", xmlList({{"N", u"CFBundleName"}}), {}, {{"Title", kNone}}},
      {"OpenStep.plist",
       "{ CFBundleName = \"Old App\"; }",
       {},
       {{"Title", u"Old App"}},
       u"Old App"},
      {"Localizable.strings",
       std::string("\xFF\xFE\"\0K\0\"\0=\0\"\0\xD6\0l\0\"\0;\0", 18),
       {},
       {{"Title", u"Localizable.strings"}},
       u"\u00D6l"},
      {"notes.txt", "Words.\n", {}, {{"Title", u"notes.txt"}, {"Text", u"Words.\n"}}},
      {"table.csv", "a,b\n", {}, {{"Text", u"a,b\n"}}},
      {"sniffed", "<!DOCTYPE html>\n<title>Sniffed</title>", {}, {{"Title", u"Sniffed"}}},
      {"README", "Plain words.\n", {}, {{"Text", u"Plain words.\n"}}},
      // A location file's own address replaces the stored one, even when it has none.
      {"site.url", "URL=http://o/s\n", {}, {{"URL", u"http://o/s"}, {"Text", kNone}}},
      {"unreadable.url", "URL=http://o/caf\xE9", {}, {{"URL", kNone}}},
      {"page.webloc",
       xmlList({{"URL", u"http://o/p"}, {"Name", u" N "}}),
       {},
       {{"URL", u"http://o/p"}, {"Title", u" N "}}},
      {"tagged.txt",
       "text",
       {{Key::UserTags, PropertyArray{u"red\n6", u"blue"}}},
       {{"URL", kStored}, {"Tags", u"red\nblue"}}},
      {"untagged.txt", "text", {{Key::UserTags, PropertyArray{}}}, {{"Tags", u""}}},
      {"noted.txt", "text", {{Key::FinderComment, u"Note"}}, {{"SpotlightComment", u"Note"}}},
      {"titled.txt", "text", {{"kMDItemTitle", u" Stored \n"}}, {{"Title", u"Stored"}}},
      {"untitled.txt", "text", {{"kMDItemTitle", u""}}, {{"Title", u""}}},
      {"empty.html",
       "",
       {{Key::UserTags, PropertyArray{u"t"}}},
       {{"Title", u"empty.html"}, {"Text", kNone}, {"URL", kStored}, {"Tags", u"t"}}},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.fileName);
    TemporaryFolder folder;
    std::string path = folder.write(row.fileName, row.bytes);
    storeWhereFrom(path);
    for (const auto& [key, value] : row.stored) store(path, key, value);
    ImportResult result = MIMETypeHelper().openFile(path);
    expectKeys(result, row.expected);
    EXPECT_EQ(*result.get("FileSize")->unsignedInteger(), row.bytes.size());
    if (row.textHas.empty()) continue;
    ASSERT_TRUE(result.string("Text"));
    EXPECT_NE(result.string("Text")->find(row.textHas), TextString::npos);
    EXPECT_EQ(result.string("Text")->find(u"<"), TextString::npos);
  }
}

// A reader that answers what it was given, throws when asked to, and counts its calls.
class StandInReader final : public Reader {
 public:
  explicit StandInReader(std::optional<ReaderOutput> output = std::nullopt, bool throws = false)
      : output_(std::move(output)), throws_(throws) {}
  std::string_view name() const override { return "stand-in"; }
  std::optional<ReaderOutput> read(const ReaderSource&) const override {
    ++calls;
    if (throws_) throw std::runtime_error("reader broke");
    return output_;
  }
  mutable int calls = 0;

 private:
  std::optional<ReaderOutput> output_;
  bool throws_;
};

// Every reader answers its route's name as text, so the text tells which route a file took.
TEST(FileImport, EachKindReachesItsReaderAndItsAnswerIsMapped) {
  struct RouteCase {
    Route route;
    std::u16string text;
    std::vector<std::string> files;
    ReaderOutput output;  // besides the text
  };
  const RouteCase routes[] = {
      {Route::Importer,
       u"importer",
       {"mail.eml", "photo.png", "talk.chat", "script.scpt", "blob.bin"},
       {.title = u"Subject line",
        .finderComment = u"importer comment",
        .url = u"https://importer.example/",
        .authors = TextList{u"A", u"B", u"C"},
        .keywords = TextList{u"x", u"y", u"z"}}},
      {Route::PDF,
       u"pdf",
       {"doc.pdf", "art.eps", "odd.pdfd"},
       {.title = u"<title>", .subject = u"Subject"}},
      {Route::WebArchive,
       u"web archive",
       {"saved.webarchive"},
       {.convention = Convention::HTMLPage,
        .title = u"HTML",
        .url = u"https://archive.example/",
        .htmlMeta = {{u"title", u"Meta"}}}},
      {Route::TextBundle, u"text bundle", {"a.textpack", "b.textbundle"}, {}},
      {Route::EPUB, u"book", {"a.epub", "b.ibooks"}, {}},
      {Route::WordPerfect, u"WordPerfect", {"a.wpd"}, {}},
      {Route::AttributedDocument,
       u"rich",
       {"a.rtf", "b.docx"},
       {.convention = Convention::AttributedDocument, .documentType = kRTFTextDocumentType}},
      {Route::TextClipping,
       u"clipping",
       {"a.textClipping"},
       {.convention = Convention::AttributedDocument}},
      {Route::AddressCard,
       u"card",
       {"person.vcf"},
       {.emailAddresses = TextList{u"a@x.org"}, .phoneNumbers = TextList{u"1", u"2"}}},
  };
  std::vector<std::unique_ptr<StandInReader>> readers;
  ReaderSet set;
  for (const RouteCase& route : routes) {
    ReaderOutput output = route.output;
    output.text = route.text;
    readers.push_back(std::make_unique<StandInReader>(output));
    set.set(route.route, readers.back().get());
  }
  TemporaryFolder folder;
  MIMETypeHelper helper(set);
  for (const RouteCase& route : routes) {
    for (const std::string& name : route.files) {
      ImportResult result = helper.openFile(folder.write(name, "\x00\x01\xFF"sv));
      EXPECT_EQ(result.string("Text") ? *result.string("Text") : u"(none)", route.text) << name;
    }
  }
  std::string mail = (folder.path() / "mail.eml").string();
  store(mail, Key::FinderComment, u"stored comment");
  expectKeys(helper.openFile(mail), {{"Title", u"Subject line"},
                                     {"Author", u"A\nB\nC"},
                                     {"Keywords", u"x y z"},
                                     {"URL", u"https://importer.example/"},
                                     {"SpotlightComment", u"importer comment"}});
  storeWhereFrom(mail);
  expectKeys(helper.openFile(mail), {{"URL", kStored}});
  expectKeys(helper.openFile((folder.path() / "doc.pdf").string()),
             {{"Title", u"Subject"}, {"Description", kNone}});
  expectKeys(helper.openFile((folder.path() / "person.vcf").string()),
             {{"Email", u"a@x.org"}, {"Phone", u"1\n2"}});
  std::string archive = (folder.path() / "saved.webarchive").string();
  storeWhereFrom(archive);
  expectKeys(helper.openFile(archive), {{"Title", u"Meta"}, {"URL", u"https://archive.example/"}});
}

// Document folders are read by the built-in readers of their kind, never by the importer
// host; the text is normalized as an importer's would be.
TEST(FileImport, DocumentFoldersReachTheirReaders) {
  TemporaryFolder folder;
  folder.write("Plan.oo3/contents.xml",
               "<?xml version=\"1.0\"?><outline><item>Buy &amp; sow</item>"
               "<item>Water\r\ndaily</item></outline>");
  folder.write("Talk.chatlog/log.xml", "<chat><message>Hi &lt;there&gt;</message></chat>\n");
  folder.write("Notes.textbundle/text.md", "# Notes\n");
  // The project's own packed book, unpacked: the same title and text as packed.
  const std::string book = (folder.path() / "Book.epub").string();
  std::filesystem::create_directory(book);
  auto packed =
      ZipArchive::initWithZipFile((testing::dataPath() / "epub/field-notes-epub2.epub").string());
  ASSERT_TRUE(packed && unpackZipArchive(*packed, book).ok());
  struct Row {
    const char* name;
    std::optional<std::u16string> text;  // the start of it
    std::optional<std::u16string> title;
  };
  const Row rows[] = {
      {"Plan.oo3", u"Buy & sow Water daily", u"Plan.oo3"},
      {"Talk.chatlog", u"Hi <there>", u"Talk.chatlog"},
      {"Notes.textbundle", u"# Notes\n", u"Notes.textbundle"},
      {"Book.epub", u"Field Notes \u2014 Rivers", u"Field Notes \u2014 Rivers, Weirs and Locks"},
  };
  StandInReader importer;
  ReaderSet set = ReaderSet::builtin();
  set.set(Route::Importer, &importer).set(Route::PDF, &importer);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::optional<std::string> contentType;
    ImportResult result =
        MIMETypeHelper(set).openFile((folder.path() / row.name).string(), contentType);
    const TextString* text = result.string("Text");
    ASSERT_TRUE(text);
    EXPECT_TRUE(text->starts_with(*row.text)) << toUtf8(*text);
    expectKeys(result, {{"Title", row.title}});
    EXPECT_EQ(contentType, planImport((folder.path() / row.name).string()).contentType);
  }
  EXPECT_EQ(importer.calls, 0);
}

TEST(FileImport, AttributedDocuments) {
  const ReaderOutput rich{.convention = Convention::AttributedDocument,
                          .text = u"Rich text",
                          .title = u"Doc",
                          .comment = u"C",
                          .documentType = kRTFTextDocumentType};
  const ReaderOutput fellBack{.convention = Convention::AttributedDocument,
                              .text = u"Fallback",
                              .title = u"Doc",
                              .documentType = kPlainTextDocumentType};
  struct Row {
    std::string fileName;
    std::optional<ReaderOutput> attributed;
    Expectations expected;
    int importerCalls;
  };
  const Row rows[] = {
      {"letter.rtf", rich, {{"Text", u"Rich text"}, {"Title", u"Doc"}, {"Description", u"C"}}, 0},
      // Only a Word file read as plain text goes to the importers, unmapped.
      {"plain.rtf", fellBack, {{"Text", u"Fallback"}, {"Title", u"Doc"}}, 0},
      {"report.doc", fellBack, {{"Text", kNone}, {"Title", u"report.doc"}}, 1},
      // Nothing read: the content type decides.
      {"broken.rtf", std::nullopt, {{"Text", kNone}}, 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.fileName);
    StandInReader attributed(row.attributed);
    StandInReader importer;
    ReaderSet set;
    set.set(Route::AttributedDocument, &attributed).set(Route::Importer, &importer);
    TemporaryFolder folder;
    expectKeys(MIMETypeHelper(set).openFile(folder.write(row.fileName, "{\\rtf1 x}")),
               row.expected);
    EXPECT_EQ(attributed.calls, 1);
    EXPECT_EQ(importer.calls, row.importerCalls);
  }
}

TEST(FileImport, ReaderThatThrowsIsLoggedAndTheContentTypeDecides) {
  StandInReader broken(std::nullopt, /*throws=*/true);
  StandInReader importer(ReaderOutput{.text = u"from the importer"});
  ReaderSet set;
  set.set(Route::TextBundle, &broken).set(Route::Importer, &importer);
  TemporaryFolder folder;
  std::string path = folder.write("notes.textpack", "PK");
  CapturedLog log;
  ImportResult result = MIMETypeHelper(set).openFile(path);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.lines()[0].starts_with("openFile: (MIMETypeHelper):\n")) << log.lines()[0];
  EXPECT_NE(log.lines()[0].find("\nreader broke\n"), std::string::npos) << log.lines()[0];
  // A text pack is no HTML or plain text, so the content type sends it to the importers.
  EXPECT_EQ(broken.calls, 1);
  expectKeys(result, {{"Title", u"notes.textpack"}, {"Text", u"from the importer"}});
}

TEST(FileImport, PackageWithTextExtensionIsNotReadAsText) {
  TemporaryFolder folder;
  folder.write("Notes.txt/content", "inside the package");
  std::string package = (folder.path() / "Notes.txt").string();
  setFinderInfo(package, "", /*package=*/true);
  StandInReader importer;
  ReaderSet set;
  set.set(Route::Importer, &importer);
  ImportResult result = MIMETypeHelper(set).openFile(package);
  EXPECT_FALSE(result.contains("Text"));
  EXPECT_EQ(importer.calls, 1);
  EXPECT_EQ(*result.get("FileSize")->unsignedInteger(), 18u);
}

TEST(FileImport, SkipRuleForLargePlainTextOnly) {
  const std::pair<std::size_t, std::string> rows[] = {
      {4194303, ""}, {4194304, "4"}, {5000000, "4"}};
  for (const auto& [size, megabytes] : rows) {
    SCOPED_TRACE(size);
    TemporaryFolder folder;
    std::string path = folder.write("big.txt", std::string(size, 'a'));
    CapturedLog log;
    ImportResult result = MIMETypeHelper().openFile(path);
    if (megabytes.empty()) {
      EXPECT_TRUE(log.lines().empty());
      ASSERT_TRUE(result.string("Text"));
      EXPECT_EQ(result.string("Text")->size(), size);
    } else {
      EXPECT_FALSE(result.contains("Text"));
      EXPECT_EQ(log.lines(),
                std::vector<std::string>{"Skipped: " + path + " (" + megabytes + " MB)"});
    }
  }
  TemporaryFolder folder;
  std::string page = "<html><body>" + std::string(5 * 1048576, 'x') + "</body></html>";
  EXPECT_TRUE(MIMETypeHelper().openFile(folder.write("big.html", page)).contains("Text"));
}

TEST(FileImport, HostileInputImportsWithoutError) {
  const std::pair<std::string, std::string> rows[] = {
      {"zeros.txt", std::string(4096, '\0')},
      {"zeros.html", std::string(4096, '\0')},
      {"zeros", std::string(100, '\0')},
      {"binary.html", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\xff\xfe", 18)},
      {"script.html", "<html><body><script>var a = '<p>"},
      {"broken.plist", "<plist><dict><key>CFBundleName</key><str"},
      {"broken.xml", "<a><b>&unknown; &#xFFFFFFFF; &#0;"},
      {"binary.xml", std::string("\xff\xfe\x00\x00\x01", 5)},
      {"bad.txt", "\xC3\x28\xA0\xA1\xF0\x28\x8C\xBC"},
  };
  for (const auto& [name, bytes] : rows) {
    TemporaryFolder folder;
    ImportResult result = MIMETypeHelper().openFile(folder.write(name, bytes));
    EXPECT_EQ(*result.get("FileSize")->unsignedInteger(), bytes.size()) << name;
  }
  TemporaryFolder folder;
  ImportResult missing = MIMETypeHelper().openFile((folder.path() / "gone.txt").string());
  EXPECT_EQ(missing.values(),
            (PropertyDictionary{{"Title", u"gone.txt"}, {"FileSize", std::uint64_t{0}}}));
}

// A desktop link is a location; any other desktop entry is read as text.
TEST(FileImport, DesktopEntries) {
  TemporaryFolder folder;
  expectKeys(MIMETypeHelper().openFile(folder.write(
                 "a.desktop", "[Desktop Entry]\nType=Link\nName=Docs\nURL=https://d.example/\n")),
             {{"Title", u"Docs"}, {"URL", u"https://d.example/"}, {"Text", kNone}});
  ImportResult app = MIMETypeHelper().openFile(
      folder.write("b.desktop", "[Desktop Entry]\nType=Application\nName=Editor\nExec=ed\n"));
  ASSERT_TRUE(app.string("Text"));
  EXPECT_NE(app.string("Text")->find(u"Exec=ed"), TextString::npos);
  EXPECT_FALSE(app.contains("URL"));
}

// A FIFO whose AppleDouble companion carries a resource fork has a size, yet opening it would
// block until a writer comes: only regular files and folders are read.
TEST(FileImport, SpecialFilesAreNeverOpened) {
  TemporaryFolder folder;
  for (std::string name : {"pipe.txt", "pipe.html", "pipe.rtf", "pipe"}) {
    SCOPED_TRACE(name);
    std::string path = (folder.path() / name).string();
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    folder.write("._" + name, testing::appleDouble({{2, std::string(300, 'r')}}));
    ImportResult result = MIMETypeHelper().openFile(path);
    EXPECT_FALSE(result.contains("Text"));
    EXPECT_GT(*result.get("FileSize")->unsignedInteger(), 0u);
  }
}

// Our own web pages through the import answer what is written beside each: the page's title
// over any meta title, the author, description and keywords of its meta tags, and its text in the
// charset it is really in.
TEST(FileImport, OwnHtmlPagesGiveTitleMetaAndText) {
  MIMETypeHelper helper;
  const std::vector<testing::Page> pages = testing::ownPages();
  for (const testing::Page& page : pages) {
    SCOPED_TRACE(page.name);
    ImportResult result = helper.openFile(page.path.string());
    Expectations expected = {{"Title", fromUtf8(page.expected.title)}};
    for (const auto& [meta, key] : {std::pair{"author", "Author"},
                                    {"description", "Description"},
                                    {"keywords", "Keywords"}}) {
      auto value = page.expected.meta.find(meta);
      expected[key] = value == page.expected.meta.end()
                          ? std::nullopt
                          : std::optional<std::u16string>(fromUtf8(value->second));
    }
    expectKeys(result, expected);
    const TextString* text = result.string("Text");
    ASSERT_TRUE(text);
    EXPECT_EQ(testing::trimmedEnd(toUtf8(*text)), testing::trimmedEnd(page.expected.text));
  }
  EXPECT_GE(pages.size(), 10u);
}

// A page past the size from which files are decoded window by window, in the charset it
// declares: the title and keywords after a long head script, and the whole body's text.
TEST(FileImport, LargeHtmlPageIsReadInWindows) {
  std::string page =
      "<html><head><meta http-equiv=\"Content-Type\" content=\"text/html; charset=windows-1251\">"
      "<script>";
  while (page.size() < 2 * 1048576) page += "var bell = \"</p>\"; ring(bell, 7);\n";
  page +=
      "</script><title>\xCF\xE0\xF0\xEE\xEC</title>"                           // Паром
      "<meta name=\"keywords\" content=\"\xF0\xE5\xEA\xE0\"></head><body>\n";  // река
  for (int i = 0; page.size() < 5 * 1048576; ++i)
    page +=
        "<p>\xD0\xE5\xE9\xF1 " + std::to_string(i) + " &mdash; <!-- ring() --> ok</p>\n";  // Рейс
  page += "<p>\xCA\xEE\xED\xE5\xF6</p></body></html>";  // Конец
  TemporaryFolder folder;
  ImportResult result = MIMETypeHelper().openFile(folder.write("large.html", page));
  expectKeys(result, {{"Title", u"Паром"}, {"Keywords", u"река"}});
  const TextString* text = result.string("Text");
  ASSERT_TRUE(text);
  EXPECT_NE(text->find(u"Рейс 0 \u2014 ok"), TextString::npos);
  EXPECT_NE(text->find(u"Конец"), TextString::npos);
  EXPECT_EQ(text->find(u"ring"), TextString::npos);
}

TEST(FileImport, EveryCorpusPageImports) {
  ULVEK_REQUIRE_CORPUS();
  MIMETypeHelper helper;
  std::size_t files = 0;
  for (const auto& entry : fs::directory_iterator(testing::corpusPath() / "html")) {
    if (!entry.is_regular_file()) continue;
    ++files;
    ImportResult result = helper.openFile(entry.path().string());
    EXPECT_TRUE(result.contains("Title") && result.contains("Text")) << entry.path();
  }
  EXPECT_GT(files, 0u);
}

TEST(IsPlainFile, AnswersByExtensionAndType) {
  struct Row {
    std::string fileName;
    std::string type;  // four characters or empty
    bool expected;
  };
  const Row rows[] = {
      {"table.csv", "", true},  {"page.HTML", "", true},        {"feed.rss", "", true},
      {"Info.plist", "", true}, {"notes.md", "", true},         {"a.textbundle", "", true},
      {"doc.pdf", "", false},   {"letter.rtf", "", false},      {"noext", "", false},
      {"noext", "TEXT", true},  {"picture.jpg", "TEXT", false}, {"archive.zip", "TEXT", false},
  };
  for (const Row& row : rows) {
    TemporaryFolder folder;
    std::string path = folder.write(row.fileName, "x");
    if (!row.type.empty()) setFinderInfo(path, row.type);
    EXPECT_EQ(MIMETypeHelper().isPlainFile(path), row.expected) << row.fileName << " " << row.type;
  }
}

}  // namespace
}  // namespace ulvek
