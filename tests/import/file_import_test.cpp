#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "import/file_types.h"
#include "import/import_result.h"
#include "import/mime_type_helper.h"
#include "metadata/internet_location.h"
#include "platform/property_list.h"
#include "platform/resource_fork.h"
#include "readers/reader.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::CapturedLog;
using testing::TemporaryFolder;
namespace fs = std::filesystem;

// Writes a metadata key the way the metadata store does: a binary property list under "user.K".
void storeAttribute(const std::string& path, const std::string& key, const PropertyValue& value) {
  Data bytes = *binaryPropertyList(value);
  ASSERT_EQ(::setxattr(path.c_str(), ("user." + key).c_str(), bytes.data(), bytes.size(), 0), 0);
}

void storeWhereFrom(const std::string& path, std::u16string address) {
  storeAttribute(path, "com.apple.metadata:kMDItemWhereFroms",
                 PropertyValue(PropertyArray{PropertyValue(std::move(address))}));
}

std::optional<std::u16string> stringValue(const ImportResult& result, std::string_view key) {
  const TextString* value = result.string(key);
  return value ? std::optional<std::u16string>(*value) : std::nullopt;
}

// Expected string keys: a value, or nothing for "absent".
using Expectations = std::map<std::string, std::optional<std::u16string>, std::less<>>;

void expectKeys(const ImportResult& result, const Expectations& expected) {
  for (const auto& [key, value] : expected) {
    SCOPED_TRACE(key);
    if (!value) {
      EXPECT_FALSE(result.contains(key));
    } else {
      EXPECT_EQ(stringValue(result, key), value);
    }
  }
}

std::string xmlPropertyListText(const PropertyDictionary& dictionary) {
  return *xmlPropertyList(PropertyValue(dictionary));
}

struct ImportCase {
  std::string label;
  std::string fileName;
  std::string bytes;
  std::function<void(const std::string&)> store;  // extended attributes of the file
  Expectations expected;
};

TEST(FileImport, RoutesAndPrecedence) {
  const std::vector<ImportCase> cases = {
      {"HTML: text, HTML title over meta title, meta description",
       "page.html",
       "<html><head><title> Page &amp; Title </title><meta name=\"title\" content=\"Meta\">"
       "<meta name=\"description\" content=\"About it\"></head><body><p>Hello there</p>"
       "</body></html>",
       {},
       {{"Title", u"Page & Title"}, {"Description", u"About it"}}},
      {"HTML: meta title when there is no HTML title",
       "meta.htm",
       "<html><head><meta name=\"og:title\" content=\"Meta Title\"></head><body>x</body></html>",
       {},
       {{"Title", u"Meta Title"}}},
      {"HTML: a php query extension is HTML", "index.php?x=1", "<p>Query page</p>", {}, {}},
      {"XML keeps markup, converts references",
       "data.xml",
       "<a>fish &amp; chips &#233;</a>",
       {},
       {{"Title", u"data.xml"}, {"Text", u"<a>fish & chips \u00e9</a>"}}},
      {"SHTM is HTML before XML", "page.shtm", "<b>bold &amp; clear</b>", {}, {}},
      {"property list with CFBundleName",
       "Info.plist",
       xmlPropertyListText(
           {{"CFBundleName", PropertyValue(u"Bundle Title")}, {"Other", PropertyValue(u"value")}}),
       {},
       {{"Title", u"Bundle Title"}}},
      {"property list mentioning CFBundleName without the entry has no title",
       "notes.plist",
       xmlPropertyListText({{"Note", PropertyValue(u"see CFBundleName")}}),
       {},
       {{"Title", std::nullopt}}},
      {"plain text",
       "notes.txt",
       "Just some words.\n",
       {},
       {{"Title", u"notes.txt"}, {"Text", u"Just some words.\n"}}},
      {"comma-separated sheet is plain text",
       "table.csv",
       "a,b\n1,2\n",
       {},
       {{"Text", u"a,b\n1,2\n"}}},
      {"address card with no reader yet has no text",
       "person.vcf",
       "BEGIN:VCARD\nFN:Someone\nEND:VCARD\n",
       {},
       {{"Text", std::nullopt}}},
      {"shortcut: its address replaces the stored one",
       "site.url",
       "[InternetShortcut]\nURL=https://example.org/site\n",
       [](const std::string& path) { storeWhereFrom(path, u"https://stored.example/"); },
       {{"URL", u"https://example.org/site"}, {"Title", u"site.url"}, {"Text", std::nullopt}}},
      {"webloc name becomes the title",
       "page.webloc",
       xmlPropertyListText({{"URL", PropertyValue(u"https://example.org/p")},
                            {"Name", PropertyValue(u"  Named  ")}}),
       {},
       {{"URL", u"https://example.org/p"}, {"Title", u"  Named  "}}},
      {"unreadable location gives up the stored address",
       "latin.url",
       "URL=https://example.org/caf\xE9",
       [](const std::string& path) { storeWhereFrom(path, u"https://stored.example/"); },
       {{"URL", std::nullopt}}},
      {"stored where-from, tags and comment",
       "tagged.txt",
       "text",
       [](const std::string& path) {
         storeWhereFrom(path, u"https://stored.example/");
         storeAttribute(
             path, "com.apple.metadata:_kMDItemUserTags",
             PropertyValue(PropertyArray{PropertyValue(u"red\n6"), PropertyValue(u"blue")}));
         storeAttribute(path, "com.apple.metadata:kMDItemFinderComment",
                        PropertyValue(u"A comment"));
       },
       {{"URL", u"https://stored.example/"},
        {"Tags", u"red\nblue"},
        {"SpotlightComment", u"A comment"}}},
      {"empty tag list is an empty string",
       "untagged.txt",
       "text",
       [](const std::string& path) {
         storeAttribute(path, "com.apple.metadata:_kMDItemUserTags",
                        PropertyValue(PropertyArray{}));
       },
       {{"Tags", u""}}},
      {"stored title is trimmed",
       "titled.txt",
       "text",
       [](const std::string& path) {
         storeAttribute(path, "kMDItemTitle", PropertyValue(u"  Stored Title \n"));
       },
       {{"Title", u"Stored Title"}}},
      {"stored empty title stays empty",
       "untitled.txt",
       "text",
       [](const std::string& path) { storeAttribute(path, "kMDItemTitle", PropertyValue(u"")); },
       {{"Title", u""}}},
      {"zero-length file: title, size and stored keys, no text",
       "empty.html",
       "",
       [](const std::string& path) {
         storeWhereFrom(path, u"https://stored.example/empty");
         storeAttribute(path, "com.apple.metadata:_kMDItemUserTags",
                        PropertyValue(PropertyArray{PropertyValue(u"t")}));
       },
       {{"Title", u"empty.html"},
        {"Text", std::nullopt},
        {"URL", u"https://stored.example/empty"},
        {"Tags", u"t"}}},
      {"no extension, HTML content: the content type decides",
       "webpage",
       "<!DOCTYPE html>\n<html><head><title>Sniffed</title></head><body>Body</body></html>\n",
       {},
       {{"Title", u"Sniffed"}}},
      {"no extension, plain content: the content type decides",
       "README",
       "Plain words in a file without extension.\n",
       {},
       {{"Text", u"Plain words in a file without extension.\n"}}},
      {"unknown binary goes to the importers",
       "blob.bin",
       std::string("\x00\x01\x02\xFF", 4),
       {},
       {{"Text", std::nullopt}}},
  };
  for (const ImportCase& row : cases) {
    SCOPED_TRACE(row.label);
    TemporaryFolder folder;
    std::string path = folder.write(row.fileName, row.bytes);
    if (row.store) row.store(path);
    ImportResult result = MIMETypeHelper().openFile(path);
    expectKeys(result, row.expected);
    ASSERT_NE(result.get("FileSize"), nullptr);
    EXPECT_EQ(*result.get("FileSize")->unsignedInteger(), row.bytes.size());
  }
}

TEST(FileImport, TextOfMarkupRoutes) {
  TemporaryFolder folder;
  MIMETypeHelper helper;
  ImportResult html = helper.openFile(folder.write(
      "page.html", "<html><head><title>T</title></head><body><p>Hello there</p></body></html>"));
  ASSERT_TRUE(html.string("Text"));
  EXPECT_NE(html.string("Text")->find(u"Hello there"), TextString::npos);
  EXPECT_EQ(html.string("Text")->find(u"<p>"), TextString::npos);

  ImportResult shtm = helper.openFile(folder.write("page.shtm", "<b>bold &amp; clear</b>"));
  ASSERT_TRUE(shtm.string("Text"));
  EXPECT_EQ(shtm.string("Text")->find(u"<b>"), TextString::npos);

  ImportResult plist = helper.openFile(folder.write(
      "Info.plist", xmlPropertyListText({{"CFBundleName", PropertyValue(u"Bundle &amp; Co")}})));
  ASSERT_TRUE(plist.string("Text"));
  EXPECT_NE(plist.string("Text")->find(u"CFBundleName"), TextString::npos);
  EXPECT_EQ(plist.string("Text")->find(u"<key>"), TextString::npos);
  EXPECT_EQ(stringValue(plist, "Title"), u"Bundle &amp; Co");
}

// Routes whose readers land later answer no text today, and keep every item key.
TEST(FileImport, RoutesWithoutReadersYet) {
  const std::vector<std::string> names = {
      "doc.pdf",   "art.eps",     "mail.eml",   "photo.png",         "saved.webarchive",
      "doc.wpd",   "letter.rtf",  "report.doc", "snip.textClipping", "person.vcf",
      "talk.chat", "script.scpt", "odd.pdfd"};
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    TemporaryFolder folder;
    std::string path = folder.write(name, "some bytes that no reader understands");
    storeWhereFrom(path, u"https://stored.example/");
    ImportResult result = MIMETypeHelper().openFile(path);
    EXPECT_FALSE(result.contains("Text"));
    EXPECT_EQ(stringValue(result, "Title"), fromUtf8(name));
    EXPECT_EQ(stringValue(result, "URL"), u"https://stored.example/");
  }
}

// A reader that answers what it was given, throws when asked to, and counts its calls.
class StandInReader final : public Reader {
 public:
  explicit StandInReader(std::optional<ReaderOutput> output = std::nullopt, bool throws = false)
      : output_(std::move(output)), throws_(throws) {}
  std::optional<ReaderOutput> read(const std::string&) const override {
    ++calls;
    if (throws_) throw std::runtime_error("reader broke");
    return output_;
  }
  mutable int calls = 0;

 private:
  std::optional<ReaderOutput> output_;
  bool throws_;
};

ReaderOutput spotlight(PropertyDictionary attributes) { return {std::nullopt, attributes}; }

TEST(FileImport, ImporterAnswersAreMappedAndStoredAddressWins) {
  StandInReader importer(spotlight({
      {"kMDItemTitle", PropertyValue(u"Mail Subject Line")},
      {"kMDItemTextContent", PropertyValue(u"caf\u0065\u0301 \U0001F600")},
      {"kMDItemAuthors", PropertyValue(PropertyArray{PropertyValue(u"A"), PropertyValue(u"B")})},
      {"kMDItemKeywords", PropertyValue(PropertyArray{PropertyValue(u"x"), PropertyValue(u"y")})},
      {"kMDItemURL", PropertyValue(u"https://importer.example/")},
      {"kMDItemFinderComment", PropertyValue(u"importer comment")},
  }));
  ScopedReaderStandIn standIn(ReaderRoute::ImporterHost, importer);
  TemporaryFolder folder;
  std::string path = folder.write("message.eml", "From: a\n\nbody");
  storeAttribute(path, "com.apple.metadata:kMDItemFinderComment", PropertyValue(u"xattr comment"));
  ImportResult result = MIMETypeHelper().openFile(path);
  EXPECT_EQ(importer.calls, 1);
  expectKeys(result, {{"Title", u"Mail Subject Line"},
                      {"Text", u"caf\u00e9   "},
                      {"Author", u"A\nB"},
                      {"Keywords", u"x y"},
                      {"URL", u"https://importer.example/"},
                      {"SpotlightComment", u"importer comment"}});

  storeWhereFrom(path, u"https://stored.example/");
  EXPECT_EQ(stringValue(MIMETypeHelper().openFile(path), "URL"), u"https://stored.example/");
}

TEST(FileImport, AttributedDocuments) {
  const ReaderOutput rich{u"Rich text",
                          {{"DocumentType", PropertyValue(u"NSRTF")},
                           {"Title", PropertyValue(u"Doc Title")},
                           {"Comment", PropertyValue(u"A comment")}}};
  const ReaderOutput fellBack{u"Plain fallback",
                              {{"DocumentType", PropertyValue(u"NSPlainText")},
                               {"Title", PropertyValue(u"Must not be mapped")}}};
  struct Row {
    std::string label;
    std::string fileName;
    std::optional<ReaderOutput> attributed;
    Expectations expected;
    int importerCalls;
  };
  const std::vector<Row> rows = {
      {"RTF is mapped",
       "letter.rtf",
       rich,
       {{"Text", u"Rich text"}, {"Title", u"Doc Title"}, {"Description", u"A comment"}},
       0},
      {"RTF read as plain text stays attributed",
       "plain.rtf",
       fellBack,
       {{"Text", u"Plain fallback"}, {"Title", u"Must not be mapped"}},
       0},
      {"Word read as plain text goes to the importers",
       "report.doc",
       fellBack,
       {{"Text", std::nullopt}, {"Title", u"report.doc"}},
       1},
      {"nothing read: the content type decides",
       "broken.rtf",
       std::nullopt,
       {{"Text", std::nullopt}},
       1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    StandInReader attributed(row.attributed);
    StandInReader importer;
    ScopedReaderStandIn attributedStandIn(ReaderRoute::AttributedDocument, attributed);
    ScopedReaderStandIn importerStandIn(ReaderRoute::ImporterHost, importer);
    TemporaryFolder folder;
    ImportResult result = MIMETypeHelper().openFile(folder.write(row.fileName, "{\\rtf1 x}"));
    expectKeys(result, row.expected);
    EXPECT_EQ(attributed.calls, 1);
    EXPECT_EQ(importer.calls, row.importerCalls);
  }
}

TEST(FileImport, WebArchiveMetaTitleWinsAndBaseAddressReplacesStoredOne) {
  StandInReader archive(ReaderOutput{
      u"Archive text",
      {{"BaseURL", PropertyValue(u"https://archive.example/page")},
       {"HTMLSource", PropertyValue(u"<html><head><title>HTML Title</title><meta name=\"title\" "
                                    u"content=\"Meta Title\"></head><body>x</body></html>")}}});
  ScopedReaderStandIn standIn(ReaderRoute::WebArchive, archive);
  TemporaryFolder folder;
  std::string path = folder.write("saved.webarchive", "bplist00");
  storeWhereFrom(path, u"https://stored.example/");
  expectKeys(MIMETypeHelper().openFile(path), {{"Title", u"Meta Title"},
                                               {"Text", u"Archive text"},
                                               {"URL", u"https://archive.example/page"}});
}

TEST(FileImport, TextReadersAndAddressCards) {
  StandInReader bundle(ReaderOutput{u"Bundle text", {}});
  StandInReader wordPerfect(ReaderOutput{u"WordPerfect text", {}});
  StandInReader clipping(ReaderOutput{u"Clipped", {{"DocumentType", PropertyValue(u"NSRTF")}}});
  StandInReader card(spotlight(
      {{"kMDItemTextContent", PropertyValue(u"Someone\nsomeone@x.org\n")},
       {"kMDItemEmailAddresses", PropertyValue(PropertyArray{PropertyValue(u"someone@x.org")})}}));
  StandInReader pdf(spotlight({{"kMDItemTextContent", PropertyValue(TextString(u"PDF\0text", 8))},
                               {"kMDItemTitle", PropertyValue(u"<title>")},
                               {"kMDItemSubject", PropertyValue(u"Subject as title")}}));
  ScopedReaderStandIn s1(ReaderRoute::TextBundle, bundle);
  ScopedReaderStandIn s2(ReaderRoute::WordPerfect, wordPerfect);
  ScopedReaderStandIn s3(ReaderRoute::TextClipping, clipping);
  ScopedReaderStandIn s4(ReaderRoute::AddressCard, card);
  ScopedReaderStandIn s5(ReaderRoute::PDF, pdf);
  TemporaryFolder folder;
  MIMETypeHelper helper;
  EXPECT_EQ(stringValue(helper.openFile(folder.write("a.textpack", "zip")), "Text"),
            u"Bundle text");
  EXPECT_EQ(stringValue(helper.openFile(folder.write("a.wpd", "wpd")), "Text"),
            u"WordPerfect text");
  EXPECT_EQ(stringValue(helper.openFile(folder.write("a.clipping", "c")), "Text"), u"Clipped");
  expectKeys(helper.openFile(folder.write("a.vcf", "BEGIN:VCARD")),
             {{"Text", u"Someone\nsomeone@x.org\n"}, {"Email", u"someone@x.org"}});
  expectKeys(
      helper.openFile(folder.write("a.eps", "%!PS")),
      {{"Text", u"PDF text"}, {"Title", u"Subject as title"}, {"Description", std::nullopt}});
}

TEST(FileImport, ReaderThatThrowsIsLoggedAndTheContentTypeDecides) {
  StandInReader broken(std::nullopt, /*throws=*/true);
  ScopedReaderStandIn standIn(ReaderRoute::TextBundle, broken);
  TemporaryFolder folder;
  // A text bundle named file whose content is HTML: the content type step reads it as HTML.
  std::string path = folder.write("page.textbundle",
                                  "<!DOCTYPE html>\n<html><head><title>Rescued</title></head><body>"
                                  "<p>Body text</p></body></html>\n");
  CapturedLog log;
  ImportResult result = MIMETypeHelper().openFile(path);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.lines()[0].starts_with("openFile: (MIMETypeHelper):\n"));
  EXPECT_NE(log.lines()[0].find("reader broke"), std::string::npos);
  EXPECT_EQ(broken.calls, 1);
  EXPECT_TRUE(result.contains("FileSize"));
  EXPECT_TRUE(result.contains("Title"));
}

TEST(FileImport, PackageWithTextExtensionIsNotReadAsText) {
  TemporaryFolder folder;
  fs::create_directories(folder.path() / "Notes.txt");
  folder.write("Notes.txt/content", "inside the package");
  // Finder flags with the bundle bit make the folder a package.
  std::string info(32, '\0');
  info[8] = 0x20;
  std::string package = (folder.path() / "Notes.txt").string();
  ASSERT_EQ(::setxattr(package.c_str(), kFinderInfoAttribute, info.data(), info.size(), 0), 0);
  StandInReader importer;
  ScopedReaderStandIn standIn(ReaderRoute::ImporterHost, importer);
  ImportResult result = MIMETypeHelper().openFile(package);
  EXPECT_FALSE(result.contains("Text"));
  EXPECT_EQ(importer.calls, 1);
  EXPECT_EQ(*result.get("FileSize")->unsignedInteger(), 18u);
}

TEST(FileImport, SkipRuleForLargePlainText) {
  struct Row {
    std::uint64_t size;
    bool read;
    std::string megabytes;
  };
  const std::vector<Row> rows = {
      {4194303, true, ""}, {4194304, false, "4"}, {5000000, false, "4"}, {9 * 1048576, false, "9"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.size);
    TemporaryFolder folder;
    std::string path = folder.write("big.txt", std::string(row.size, 'a'));
    CapturedLog log;
    ImportResult result = MIMETypeHelper().openFile(path);
    EXPECT_EQ(result.contains("Text"), row.read);
    if (row.read) {
      EXPECT_TRUE(log.lines().empty());
      EXPECT_EQ(result.string("Text")->size(), row.size);
    } else {
      ASSERT_EQ(log.lines().size(), 1u);
      EXPECT_EQ(log.lines()[0], "Skipped: " + path + " (" + row.megabytes + " MB)");
    }
  }
}

TEST(FileImport, LargeFilesOfOtherRoutesAreRead) {
  TemporaryFolder folder;
  std::string body = "<html><body>" + std::string(5 * 1048576, 'x') + "</body></html>";
  ImportResult result = MIMETypeHelper().openFile(folder.write("big.html", body));
  EXPECT_TRUE(result.contains("Text"));
}

TEST(FileImport, FiftyMegabyteHTMLImports) {
  TemporaryFolder folder;
  std::string paragraph = "<p>Some words &amp; a <a href=\"x\">link</a></p>\n";
  std::string body = "<html><head><title>Huge</title></head><body>";
  while (body.size() < 50 * 1048576) body += paragraph;
  body += "</body></html>";
  ImportResult result = MIMETypeHelper().openFile(folder.write("huge.html", body));
  EXPECT_EQ(stringValue(result, "Title"), u"Huge");
  EXPECT_TRUE(result.contains("Text"));
}

TEST(FileImport, HostileInputImportsWithoutError) {
  struct Row {
    std::string label;
    std::string fileName;
    std::string bytes;
  };
  const std::vector<Row> rows = {
      {"NUL bytes as text", "zeros.txt", std::string(4096, '\0')},
      {"NUL bytes as HTML", "zeros.html", std::string(4096, '\0')},
      {"binary named HTML", "binary.html",
       std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\xff\xfe", 18)},
      {"unterminated script", "script.html", "<html><body><script>var a = '<p>"},
      {"unterminated comment", "comment.html", "<html><body><!-- never closed <p>text"},
      // Mentions CFBundleName but is no dictionary, so even the file-name title is removed.
      {"broken property list", "broken.plist", "<plist><dict><key>CFBundleName</key><str"},
      {"broken XML", "broken.xml", "<a><b>&unknown; &#xFFFFFFFF; &#0;"},
      {"binary named XML", "binary.xml", std::string("\xff\xfe\x00\x00\x01", 5)},
      {"invalid UTF-8 text", "bad.txt", "\xC3\x28\xA0\xA1\xF0\x28\x8C\xBC"},
      {"NUL bytes without extension", "zeros", std::string(100, '\0')},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    TemporaryFolder folder;
    ImportResult result = MIMETypeHelper().openFile(folder.write(row.fileName, row.bytes));
    EXPECT_EQ(*result.get("FileSize")->unsignedInteger(), row.bytes.size());
  }
}

TEST(FileImport, EveryCorpusPageImports) {
  MIMETypeHelper helper;
  std::size_t withText = 0;
  std::size_t files = 0;
  for (const auto& entry : fs::directory_iterator(testing::corpusPath() / "html")) {
    if (!entry.is_regular_file()) continue;
    SCOPED_TRACE(entry.path().string());
    ImportResult result = helper.openFile(entry.path().string());
    ++files;
    EXPECT_TRUE(result.contains("Title"));
    if (result.contains("Text")) ++withText;
  }
  EXPECT_GT(files, 0u);
  EXPECT_EQ(withText, files);
}

TEST(FileImport, MissingFileAnswersTitleAndZeroSize) {
  TemporaryFolder folder;
  ImportResult result = MIMETypeHelper().openFile((folder.path() / "gone.txt").string());
  EXPECT_EQ(stringValue(result, "Title"), u"gone.txt");
  EXPECT_EQ(*result.get("FileSize")->unsignedInteger(), 0u);
  EXPECT_FALSE(result.contains("Text"));
}

// The location reader sits below the classification and keeps its own copy of the rule; the two
// must name the same files.
TEST(FileImport, LocationReaderAgreesWithTheClassification) {
  const std::vector<std::string> extensions = {
      "webloc", "mailloc", "ftploc",     "inetloc",     "newsloc", "fileloc",
      "vncloc", "url",     "webhistory", "webbookmark", "WEBLOC",  "Url",
      "txt",    "html",    "webloc2",    "loc",         ""};
  const std::vector<std::string> types = {"",     "LINK", "ilaf", "ilat", "ilfi", "ilft", "ilge",
                                          "ilht", "ilma", "ilns", "ilnw", "link", "TEXT", "ilxx"};
  std::string list = xmlPropertyListText({{"URL", PropertyValue(u"https://example.org/")}});
  for (const std::string& extension : extensions) {
    for (const std::string& type : types) {
      SCOPED_TRACE(extension + " '" + type + "'");
      TemporaryFolder folder;
      bool shortcut = type == "LINK" || extension == "url" || extension == "Url";
      std::string name = extension.empty() ? "item" : "item." + extension;
      std::string path = folder.write(name, shortcut ? "URL=https://example.org/\n" : list);
      std::optional<TextString> typeCode;
      if (!type.empty()) {
        std::string info(32, '\0');
        info.replace(0, 4, type);
        ASSERT_EQ(::setxattr(path.c_str(), kFinderInfoAttribute, info.data(), info.size(), 0), 0);
        typeCode = u"'" + fromUtf8(type) + u"'";
      }
      TextString ext = fromUtf8(extension);
      bool classified = isInternetLocationExtension(
          TextView(ext), typeCode ? OptionalText(*typeCode) : std::nullopt);
      EXPECT_EQ(resolveInternetLocation(path).has_value(), classified);
    }
  }
}

TEST(IsPlainFile, AnswersByExtensionAndType) {
  struct Row {
    std::string fileName;
    std::string type;  // four characters or empty
    bool expected;
  };
  const std::vector<Row> rows = {
      {"table.csv", "", true},        {"page.HTML", "", true},        {"feed.rss", "", true},
      {"Info.plist", "", true},       {"notes.txt", "", true},        {"notes.md", "", true},
      {"a.textbundle", "", true},     {"doc.pdf", "", false},         {"photo.png", "", false},
      {"letter.rtf", "", false},      {"noext", "", false},           {"noext", "TEXT", true},
      {"picture.jpg", "TEXT", false}, {"archive.zip", "TEXT", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.fileName + " " + row.type);
    TemporaryFolder folder;
    std::string path = folder.write(row.fileName, "x");
    if (!row.type.empty()) {
      std::string info(32, '\0');
      info.replace(0, 4, row.type);
      ASSERT_EQ(::setxattr(path.c_str(), kFinderInfoAttribute, info.data(), info.size(), 0), 0);
    }
    EXPECT_EQ(MIMETypeHelper().isPlainFile(path), row.expected);
  }
}

}  // namespace
}  // namespace ulvek
