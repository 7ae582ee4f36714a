#include "import/route_table.h"
#include "import/reader_set.h"

#include <gtest/gtest.h>

#include <string>

#include "import/mime_type_helper.h"
#include "platform/content_types.h"
#include "test_support.h"

namespace ulvek {
namespace {

// FileClass lists the classes in the order of the steps that choose them.
TEST(RouteTable, DispatcherOrder) {
  struct Row {
    OptionalText extension;
    OptionalText type;
    bool package;
    int step;  // 0: no test answered
    std::string_view test;
  };
  const Row rows[] = {
      {{}, u"'LINK'", false, 1, "isInternetLocationExtension:type:"},
      {u"eml", {}, false, 2, "isEmailExtension:"},
      {u"pdfd", {}, false, 3, "isPDFBundleExtension:"},
      {u"eps", {}, false, 3, "isPDFExtension:type:"},
      {{}, u"'JPEG'", false, 4, "isImageExtension:type:"},
      {u"webarchive", {}, false, 5, "isWebArchiveExtension:"},
      {u"textpack", {}, false, 6, "isTextBundleExtension:type:"},
      {u"SHTM", {}, false, 7, "isHTMLExtension:"},
      {u"strings", {}, false, 8, "isPropertyListExtension:"},
      {u"xsl", {}, false, 9, "isXMLExtension:"},
      {u"csv", {}, false, 10, "isSheetExtension:"},
      {u"vcf", {}, false, 11, "isFormExtension:"},
      {{}, u"'wpd4'", false, 12, "isWordPerfectExtension:type:"},
      {u"txt", u"'ttro'", false, 13, "isRTFExtension:type:"},
      {u"docx", {}, false, 13, "isAttributedExtension:type:"},
      {u"clipping", {}, false, 14, "isTextClippingExtension:type:"},
      {u"TXT", {}, false, 15, "isTextExtension:type:"},
      {u"applescript", {}, false, 15, "isTextExtension:type:"},
      {u"applescript", {}, true, 17, "isAppleScriptExtension:type:"},
      {u"txt", {}, true, 0, ""},
      {u"chat", {}, false, 16, "isChatExtension:type:"},
      {u"CHAT", {}, false, 0, ""},
      {u"zip", u"'TEXT'", false, 0, ""},
      {{}, {}, false, 0, ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(toUtf8(row.extension.value_or(u"-")) + " " + toUtf8(row.type.value_or(u"-")));
    int packageQuestions = 0;
    FileClassification found = classifyFile(row.extension, row.type, [&] {
      ++packageQuestions;
      return row.package;
    });
    EXPECT_EQ(static_cast<int>(found.fileClass), row.step) << fileClassName(found.fileClass);
    EXPECT_EQ(found.step, row.step);
    EXPECT_EQ(found.test, row.test);
    // Only a text extension costs a look at the file system.
    bool textAnswered = isTextExtension(row.extension, row.type);
    EXPECT_EQ(packageQuestions, (found.step == 0 || found.step >= 15) && textAnswered ? 1 : 0);
    EXPECT_EQ(found.packageSkipped, row.package && textAnswered);
  }
}

// Where no name test answers, or a text name hides a document of another kind, the content's
// type picks the reader; a name that its reader reads keeps deciding.
TEST(RouteTable, ContentBeforeAMissingOrLyingName) {
  struct Row {
    const char* name;
    std::string_view bytes;
    Route route;
    bool typeDecided;
  };
  constexpr std::string_view kPDF = "%PDF-1.4\n%%EOF\n";
  constexpr std::string_view kRTF = "{\\rtf1 words}";
  constexpr std::string_view kPage = "<!DOCTYPE html><title>T</title>";
  const Row rows[] = {
      {"document", kPDF, Route::PDF, true},
      {"document.txt", kPDF, Route::PDF, true},
      {"document.bin", kPDF, Route::PDF, true},
      {"document.pdf", kPDF, Route::PDF, false},
      {"letter", kRTF, Route::AttributedDocument, true},
      {"letter.txt", kRTF, Route::AttributedDocument, true},
      {"letter.rtf", kRTF, Route::AttributedDocument, false},
      {"page", kPage, Route::HTML, true},
      {"page.txt", kPage, Route::HTML, true},
      {"page.html", kPage, Route::HTML, false},
      {"notes.txt", "words", Route::PlainText, false},
      {"notes", "words", Route::PlainText, true},
      {"settings.yaml", "a: 1", Route::PlainText, true},
      // A name of a binary kind is not second-guessed by content.
      {"picture.jpg", kPDF, Route::Importer, false},
      {"card.vcf", kPDF, Route::PDF, true},
      // Books go to their reader, not to the importers to be read by the host.
      {"book.epub", "PK\x03\x04", Route::EPUB, true},
      // A type only an importer declares goes to the importers, though it says it is text.
      {"words.routelist", "apple\npear\n", Route::Importer, true},
  };
  declareContentType({"com.example.routelist", {"routelist"}, {}, {"public.plain-text"}});
  testing::TemporaryFolder folder;
  for (const Row& row : rows) {
    ImportPlan plan = planImport(folder.write(row.name, row.bytes));
    EXPECT_EQ(plan.route, row.route) << row.name;
    EXPECT_EQ(plan.typeDecided, row.typeDecided) << row.name;
  }
}

TEST(RouteTable, DownloadedDataGoesByItsMIMETypeThenItsAddress) {
  struct Row {
    std::optional<std::u16string> mimeType, extension;
    std::optional<Route> route;
  };
  const Row rows[] = {
      {u"application/pdf", {}, Route::PDF},
      {u"application/x-postscript", {}, Route::PDF},
      {{}, u"PDF", Route::PDF},
      {u"text/rtf", {}, Route::AttributedDocument},
      {u"text/richtext", {}, Route::AttributedDocument},
      {u"application/msword", {}, Route::AttributedDocument},
      {u"application/vnd.oasis.opendocument.text", {}, Route::AttributedDocument},
      {u"application/vnd.sun.xml.writer", {}, Route::AttributedDocument},
      {{}, u"docx", Route::AttributedDocument},
      {{}, u"odt", Route::AttributedDocument},
      // The PDF row is asked first, the address's extension included.
      {u"text/rtf", u"pdf", Route::PDF},
      {u"text/html", u"html", std::nullopt},
      {{}, u"txt", std::nullopt},
      {{}, {}, std::nullopt},
  };
  for (const Row& row : rows) {
    auto view = [](const std::optional<std::u16string>& text) {
      return text ? OptionalText(*text) : OptionalText(std::nullopt);
    };
    EXPECT_EQ(routeForData(view(row.mimeType), view(row.extension)), row.route)
        << toUtf8(row.mimeType.value_or(u"-")) << " " << toUtf8(row.extension.value_or(u"-"));
  }
}

// A reader column names a route, or a reader a family registers; a typo would send files of
// the type nowhere.
TEST(RouteTable, EveryRegistryReaderIsARouteOrARegisteredReader) {
  for (const Format& format : formats()) {
    if (format.reader.empty() || routeNamed(format.reader)) continue;
    EXPECT_NE(ReaderSet::builtin().named(format.reader), nullptr)
        << format.identifier << " names " << format.reader;
  }
}

// Documents that are folders go to the readers of their kind, which the built-in set has;
// packed books and text packs too. What `classify` names is what reads them.
TEST(RouteTable, DocumentFoldersTakeTheirReadersRoutes) {
  struct Row {
    const char* name;  // a folder ending in "/", else a file
    std::string_view bytes;
    std::string_view contentType;
    Route route;
    std::string_view reader;
  };
  const Row rows[] = {
      {"Plan.oo3/", "<?xml version=\"1.0\"?><outline/>", "com.omnigroup.omnioutliner.oo3-package",
       Route::Registered, "outline package"},
      {"Talk.chatlog/", "<chat/>", "com.apple.ichat.chatlog", Route::Registered, "chat log"},
      {"Book.epub/", "application/epub+zip", "org.idpf.epub-folder", Route::EPUB, "epub"},
      {"Book.IBOOKS/", "application/epub+zip", "org.idpf.epub-folder", Route::EPUB, "epub"},
      {"book.epub", "PK\x03\x04", "org.idpf.epub-container", Route::EPUB, "epub"},
      {"Notes.textbundle/", "words", "org.textbundle.package", Route::TextBundle, "text bundle"},
      {"notes.textpack", "PK\x03\x04", "org.textbundle.compressed", Route::TextBundle,
       "text bundle"},
  };
  testing::TemporaryFolder folder;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::string name = row.name;
    bool isFolder = name.ends_with('/');
    std::string path = folder.write(isFolder ? name + "inside" : name, row.bytes);
    if (isFolder) path = (folder.path() / name.substr(0, name.size() - 1)).string();
    ImportPlan plan = planImport(path);
    EXPECT_EQ(plan.contentType, row.contentType);
    EXPECT_EQ(plan.route, row.route);
    const Reader* reader = MIMETypeHelper().plannedReader(plan);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->name(), row.reader);
  }
}

}  // namespace
}  // namespace ulvek
