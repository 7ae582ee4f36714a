#include "import/file_types.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/content_types.h"
#include "platform/extended_attributes.h"
#include "platform/property_list.h"
#include "platform/user_defaults.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::TemporaryFolder;
using namespace std::string_view_literals;

// The user defaults hold "AdditionalPlainTextExtensions" before any test asks for the list, so
// the order in which tests run does not matter.
class DefaultsEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    folder_ = std::make_unique<TemporaryFolder>();
    setenv("XDG_CONFIG_HOME", folder_->path().c_str(), 1);
    writeDefaults(u"foo.Bar2.with-hyphen.abcdefghijklmnopqr.abcdefghijklmnopq.caf\u00e9");
  }
  void TearDown() override { folder_.reset(); }

  static void writeDefaults(TextView extensions) {
    PropertyDictionary defaults{{"AdditionalPlainTextExtensions", PropertyValue(extensions)}};
    std::optional<Data> plist = binaryPropertyList(PropertyValue(defaults));
    ASSERT_TRUE(plist);
    std::filesystem::path file = userDefaultsPath();
    std::filesystem::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(plist->data()),
              static_cast<std::streamsize>(plist->size()));
  }

 private:
  std::unique_ptr<TemporaryFolder> folder_;
};

[[maybe_unused]] ::testing::Environment* const kDefaults =
    ::testing::AddGlobalTestEnvironment(new DefaultsEnvironment);

using FileTest = bool (*)(OptionalText extension, OptionalText type);
#define EXTENSION_ONLY(test) [](OptionalText e, OptionalText) { return test(e); }

TextString upper(TextView text) {
  TextString result(text);
  for (char16_t& c : result)
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
  return result;
}

TextString lower(TextView text) {
  TextString result(text);
  for (char16_t& c : result)
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
  return result;
}

// One row per test: every extension and type code it accepts. Each entry must answer YES as
// written and (unless the test compares exactly) in upper and lower case; one unit more or less
// must not match; type codes must not match in another case.
struct TableRow {
  const char* name;
  FileTest test;
  std::vector<TextView> extensions;
  std::vector<TextView> types;
  bool exactExtensions = false;
  bool caseInsensitiveTypes = false;
};

const std::vector<TableRow>& tableRows() {
  static const std::vector<TableRow> rows = {
      {"isInternetLocationExtension",
       isInternetLocationExtension,
       {u"webloc", u"mailloc", u"ftploc", u"inetloc", u"newsloc", u"fileloc", u"vncloc", u"url",
        u"webhistory", u"webbookmark"},
       {u"'LINK'", u"'ilaf'", u"'ilat'", u"'ilfi'", u"'ilft'", u"'ilge'", u"'ilht'", u"'ilma'",
        u"'ilns'", u"'ilnw'"}},
      {"isEmailExtension", EXTENSION_ONLY(isEmailExtension), {u"eml", u"emlx"}, {}},
      {"isPDFBundleExtension", EXTENSION_ONLY(isPDFBundleExtension), {u"pdfd", u"lpdf"}, {}},
      {"isPDFExtension", isPDFExtension, {u"pdf", u"ps", u"eps", u"ai"}, {u"'PDF '"}},
      {"isPostScriptExtension", EXTENSION_ONLY(isPostScriptExtension), {u"ps", u"eps", u"ai"}, {}},
      {"isImageExtension",
       isImageExtension,
       {u"png", u"jpg", u"jpeg", u"gif", u"tiff", u"tif", u"bmp", u"heic", u"webp", u"psd", u"jpe",
        u"JPE", u"ps", u"PS", u"eps", u"EPS", u"ai", u"AI"},
       {u"'PNGf'", u"'JPEG'", u"'TIFF'", u"'GIFf'"}},
      {"isWebArchiveExtension", EXTENSION_ONLY(isWebArchiveExtension), {u"webarchive"}, {}},
      {"isTextBundleExtension", isTextBundleExtension, {u"textbundle", u"textpack"}, {}},
      {"isHTMLExtension",
       EXTENSION_ONLY(isHTMLExtension),
       {u"HTML", u"HTM", u"SHTML", u"XHTML", u"PHTML", u"MHTML", u"JHTML", u"SHTM", u"XHTM", u"CFM",
        u"PHP", u"PHP3", u"PHP4", u"PHP5", u"JSP", u"ASP", u"ASPX", u"CGI"},
       {}},
      {"isPropertyListExtension",
       EXTENSION_ONLY(isPropertyListExtension),
       {u"PLIST", u"strings", u"qfilter", u"scriptSuite", u"entitlements", u"scriptTerminology"},
       {}},
      {"isXMLExtension",
       EXTENSION_ONLY(isXMLExtension),
       {u"XML",  u"XSL",  u"ENT",  u"WML",  u"DTD",   u"SGM",      u"XBL",
        u"RSS",  u"RDF",  u"RSD",  u"TBX",  u"XSD",   u"SGML",     u"OPML",
        u"SHTM", u"XSLT", u"SDEF", u"WSDL", u"IDATA", u"OOUTLINE", u"XMLOUTLINE"},
       {}},
      {"isSheetExtension",
       EXTENSION_ONLY(isSheetExtension),
       {u"CSV", u"TAB", u"TSV", u"BIB", u"TDF", u"ID2XF"},
       {}},
      {"isFormExtension", EXTENSION_ONLY(isFormExtension), {u"VCF"}, {}},
      {"isWordPerfectExtension", isWordPerfectExtension, {u"WPD"}, {u"'WPD4'"}, false, true},
      {"isRTFExtension", isRTFExtension, {u"RTF", u"RTFD"}, {u"'RTF '", u"'ttro'", u"'sEXT'"}},
      {"isAttributedExtension",
       isAttributedExtension,
       {u"rtf", u"rtfd", u"doc", u"dot", u"docx", u"dotx", u"docm", u"dotm", u"odt", u"ott", u"sxw",
        u"stw", u"wordml", u"html", u"htm"},
       {}},
      {"isTextClippingExtension",
       isTextClippingExtension,
       {u"textClipping", u"clipping"},
       {u"'clpt'"}},
      {"isTextExtension",
       isTextExtension,
       {u"tex", u"bibtex", u"f", u"for", u"f77", u"f90", u"fpp", u"x", u"v", u"c", u"cpp", u"hpp",
        u"cp", u"m", u"mm", u"swift", u"h", u"java", u"applescript", u"pl", u"py", u"pm", u"js",
        u"lisp", u"tcl", u"text", u"txt", u"org", u"csv", u"tsv", u"tdf", u"tab", u"vcf", u"css",
        u"seq", u"log", u"strings", u"scriptsuite", u"scriptterminology", u"sdef", u"sh", u"rc",
        u"hlp", u"bib", u"cls", u"ml", u"mli", u"mly", u"sty", u"mll", u"sql", u"sqc", u"cmd",
        u"lst", u"con", u"bat", u"err", u"pp", u"p", u"pas", u"inc", u"command", u"pir", u"sw",
        u"swiss", u"gb", u"genbank", u"em", u"embl", u"fasta", u"gff", u"aln", u"msf", u"xchatlog",
        u"conf", u"cfg", u"config", u"template", u"lpd", u"wrl", u"hs", u"lhs", u"ss", u"scm",
        u"mis", u"xd", u"ans", u"rb", u"ads", u"adb", u"erl", u"hrl", u"crash", u"diag", u"hang",
        u"textile", u"markdown", u"mdtext", u"mdown", u"mark", u"mkdown", u"mmd", u"mdwn", u"md",
        u"json", u"dot", u"nb", u"haml", u"sass", u"taskpaper", u"ft", u"xqy", u"xq", u"pgn",
        u"entitlements", u"lua", u"srt", u"mediawiki", u"asciidoc",
        // from "AdditionalPlainTextExtensions"
        u"foo", u"Bar2", u"abcdefghijklmnopq"},
       {u"'TEXT'", u"'ttro'", u"'sEXT'", u"'TERO'"}},
      {"isChatExtension", isChatExtension, {u"chat", u"ichat", u"ychat"}, {u"'YMSG'"}, true},
      {"isAppleScriptExtension",
       isAppleScriptExtension,
       {u"scpt", u"scptd", u"applescript", u"templatescript", u"templatescriptd"},
       {u"'scpt'", u"'osas'", u"'APPL'"}},
      {"isWordExtension",
       isWordExtension,
       {u"DOC", u"DOT", u"DOCX", u"DOTX", u"DOCM", u"DOTM"},
       {u"'W8TN'", u"'W8BN'"}},
      {"isOpenOfficeExtension",
       EXTENSION_ONLY(isOpenOfficeExtension),
       {u"odt", u"ott", u"stw", u"sxw"},
       {}},
  };
  return rows;
}

bool listed(const std::vector<TextView>& list, TextView candidate) {
  for (TextView entry : list)
    if (lower(entry) == lower(candidate)) return true;
  return false;
}

TEST(FileTypes, EveryTableEntryInEveryCase) {
  for (const TableRow& row : tableRows()) {
    SCOPED_TRACE(row.name);
    EXPECT_FALSE(row.test(std::nullopt, std::nullopt));
    EXPECT_FALSE(row.test(u"", std::nullopt));
    EXPECT_FALSE(row.test(u"", u""));
    for (TextView extension : row.extensions) {
      SCOPED_TRACE(toUtf8(extension));
      EXPECT_TRUE(row.test(extension, std::nullopt));
      EXPECT_EQ(row.test(upper(extension), std::nullopt),
                !row.exactExtensions || upper(extension) == extension);
      EXPECT_EQ(row.test(lower(extension), std::nullopt),
                !row.exactExtensions || lower(extension) == extension);
      TextString longer = TextString(extension) + u"x";
      if (!listed(row.extensions, longer)) EXPECT_FALSE(row.test(longer, std::nullopt));
      TextView shorter = extension.substr(0, extension.size() - 1);
      if (!listed(row.extensions, shorter)) EXPECT_FALSE(row.test(shorter, std::nullopt));
      // A quoted code is no extension, except where one list holds both (the image types).
      TextString quoted = u"'" + TextString(extension) + u"'";
      if (!listed(row.types, quoted)) EXPECT_FALSE(row.test(quoted, std::nullopt));
    }
    for (TextView type : row.types) {
      SCOPED_TRACE(toUtf8(type));
      EXPECT_TRUE(row.test(std::nullopt, type));
      EXPECT_TRUE(row.test(u"", type));
      for (TextString other : {upper(type), lower(type)}) {
        if (other == type) continue;
        EXPECT_EQ(row.test(std::nullopt, other), row.caseInsensitiveTypes);
      }
      EXPECT_FALSE(row.test(std::nullopt, type.substr(1)));
    }
  }
}

TEST(FileTypes, RulesBeyondTheTables) {
  struct Row {
    const char* name;
    FileTest test;
    OptionalText extension;
    OptionalText type;
    bool expected;
  };
  const Row rows[] = {
      {"PDF in capitals", isPDFExtension, u"PDF", std::nullopt, true},
      {"Illustrator counts as PDF", isPDFExtension, u"Ai", std::nullopt, true},
      {"TXT in capitals is text", isTextExtension, u"TXT", std::nullopt, true},
      {"txt is attributed only when styled", isAttributedExtension, u"txt", std::nullopt, false},
      {"txt with ttro is attributed", isAttributedExtension, u"txt", u"'ttro'", true},
      {"TEXT with sEXT is attributed", isAttributedExtension, u"TEXT", u"'sEXT'", true},
      {"txt with TEXT is not attributed", isAttributedExtension, u"txt", u"'TEXT'", false},
      {"rtf with TEXT is not attributed", isAttributedExtension, u"rtf", u"'TEXT'", false},
      {"no extension, TEXT is text", isTextExtension, std::nullopt, u"'TEXT'", true},
      {"empty extension, TERO is text", isTextExtension, u"", u"'TERO'", true},
      {"unknown extension, TEXT is text", isTextExtension, u"qqq", u"'TEXT'", true},
      {"zip stamped TEXT is not", isTextExtension, u"zip", u"'TEXT'", false},
      {"PS stamped TEXT is not", isTextExtension, u"PS", u"'TEXT'", false},
      {"svg stamped TEXT is not", isTextExtension, u"Svg", u"'TEXT'", false},
      {"text code compared exactly", isTextExtension, std::nullopt, u"'text'", false},
      {"hyphenated default ignored", isTextExtension, u"with-hyphen", std::nullopt, false},
      {"18-unit default ignored", isTextExtension, u"abcdefghijklmnopqr", std::nullopt, false},
      {"non-ASCII default kept", isTextExtension, u"CAF\u00c9", std::nullopt, true},
      {"php with a query", EXTENSION_ONLY(isHTMLExtension), u"php?id=3&x=4", std::nullopt, true},
      {"query alone", EXTENSION_ONLY(isHTMLExtension), u"?html", std::nullopt, false},
      {"CHAT in capitals", isChatExtension, u"CHAT", std::nullopt, false},
      {"wpd4 in lower case", isWordPerfectExtension, std::nullopt, u"'wpd4'", true},
      {"text bundle ignores the type", isTextBundleExtension, std::nullopt, u"'TEXT'", false},
      {"image type with another extension", isImageExtension, u"qqq", u"'PNGf'", true},
      {"image type code is exact", isImageExtension, std::nullopt, u"'pngf'", false},
      {"XML needs three units", EXTENSION_ONLY(isXMLExtension), u"xm", std::nullopt, false},
      {"XML takes ten units", EXTENSION_ONLY(isXMLExtension), u"xmloutline", std::nullopt, true},
      {"location type wins", isInternetLocationExtension, u"txt", u"'ilht'", true},
      {"location type of wrong length", isInternetLocationExtension, std::nullopt, u"'LINKS'",
       false},
      {"url in capitals", isInternetLocationExtension, u"URL", std::nullopt, true},
      {"extension with a NUL", isTextExtension, u"txt\0"sv, std::nullopt, false},
      {"longer than any entry", isTextExtension, u"txttxttxttxttxttxttxttxttxttxttxttxt",
       std::nullopt, false},
      {"single letter", isTextExtension, u"F", std::nullopt, true},
  };
  for (const Row& row : rows)
    EXPECT_EQ(row.test(row.extension, row.type), row.expected) << row.name;
}

TEST(FileTypes, MIMETypes) {
  using MIMETest = bool (*)(OptionalText);
  struct Row {
    const char* name;
    MIMETest test;
    OptionalText mimeType;
    bool expected;
  };
  const Row rows[] = {
      {"pdf", isPDFMIMEType, u"application/pdf", true},
      {"x-pdf", isPDFMIMEType, u"application/x-pdf", true},
      {"PDF in capitals", isPDFMIMEType, u"Application/PDF", true},
      {"pdf with parameters", isPDFMIMEType, u"application/pdf; q=1", false},
      {"pdf absent", isPDFMIMEType, std::nullopt, false},
      {"pdf empty", isPDFMIMEType, u"", false},
      {"postscript", isPostScriptMIMEType, u"application/postscript", true},
      {"x-postscript", isPostScriptMIMEType, u"application/X-PostScript", true},
      {"eps is not postscript", isPostScriptMIMEType, u"application/eps", false},
      {"rtf", isRTFMIMEType, u"text/rtf", true},
      {"RTF in capitals", isRTFMIMEType, u"text/RTF", true},
      {"x-rtf", isRTFMIMEType, u"application/x-rtf", true},
      {"richtext", isRTFMIMEType, u"text/richtext", true},
      {"RichText is exact", isRTFMIMEType, u"text/RichText", false},
      {"rtf empty", isRTFMIMEType, u"", false},
      {"msword", isMSWordMIMEType, u"application/msword", true},
      {"MSWord", isMSWordMIMEType, u"application/MSWord", true},
      {"vnd.ms-word", isMSWordMIMEType, u"application/vnd.ms-word", false},
      {"doc", isMSWordMIMEType, u"application/doc", true},
      {"docx", isMSWordMIMEType, u"application/DOCX", true},
      {"x-doc", isMSWordMIMEType, u"application/x-doc", true},
      {"x-docx", isMSWordMIMEType, u"application/x-docx", true},
      {"dot", isMSWordMIMEType, u"application/dot", true},
      {"x-dot", isMSWordMIMEType, u"application/x-dot", true},
      {"docm", isMSWordMIMEType, u"application/docm", false},
      {"opendocument text", isOpenOfficeMIMEType, u"application/vnd.oasis.opendocument.text", true},
      {"opendocument template", isOpenOfficeMIMEType,
       u"application/vnd.oasis.opendocument.text-template", true},
      {"opendocument sheet", isOpenOfficeMIMEType,
       u"application/vnd.oasis.opendocument.spreadsheet", false},
      {"opendocument in capitals", isOpenOfficeMIMEType, u"application/VND.OASIS.OPENDOCUMENT.TEXT",
       true},
      {"staroffice writer", isStarOfficeMIMEType, u"application/vnd.sun.xml.writer", true},
      {"staroffice calc", isStarOfficeMIMEType, u"application/vnd.sun.xml.calc", false},
      {"staroffice absent", isStarOfficeMIMEType, std::nullopt, false},
  };
  for (const Row& row : rows) EXPECT_EQ(row.test(row.mimeType), row.expected) << row.name;
}

TEST(FileTypes, DispatcherOrder) {
  struct Row {
    OptionalText extension;
    OptionalText type;
    bool package;
    FileClass fileClass;
    int step;
    std::string_view test;
  };
  const Row rows[] = {
      {u"webloc", std::nullopt, false, FileClass::InternetLocation, 1,
       "isInternetLocationExtension:type:"},
      {std::nullopt, u"'LINK'", false, FileClass::InternetLocation, 1,
       "isInternetLocationExtension:type:"},
      {u"eml", std::nullopt, false, FileClass::Email, 2, "isEmailExtension:"},
      {u"pdfd", std::nullopt, false, FileClass::PDF, 3, "isPDFBundleExtension:"},
      {u"PDF", std::nullopt, false, FileClass::PDF, 3, "isPDFExtension:type:"},
      {u"eps", std::nullopt, false, FileClass::PDF, 3, "isPDFExtension:type:"},
      {u"png", std::nullopt, false, FileClass::Image, 4, "isImageExtension:type:"},
      {std::nullopt, u"'JPEG'", false, FileClass::Image, 4, "isImageExtension:type:"},
      {u"webarchive", std::nullopt, false, FileClass::WebArchive, 5, "isWebArchiveExtension:"},
      {u"textpack", std::nullopt, false, FileClass::TextBundle, 6, "isTextBundleExtension:type:"},
      {u"php?id=3", std::nullopt, false, FileClass::HTML, 7, "isHTMLExtension:"},
      {u"SHTM", std::nullopt, false, FileClass::HTML, 7, "isHTMLExtension:"},
      {u"strings", std::nullopt, false, FileClass::PropertyList, 8, "isPropertyListExtension:"},
      {u"xsl", std::nullopt, false, FileClass::XML, 9, "isXMLExtension:"},
      {u"csv", std::nullopt, false, FileClass::Sheet, 10, "isSheetExtension:"},
      {u"vcf", std::nullopt, false, FileClass::Form, 11, "isFormExtension:"},
      {std::nullopt, u"'wpd4'", false, FileClass::WordPerfect, 12, "isWordPerfectExtension:type:"},
      {u"rtf", std::nullopt, false, FileClass::AttributedDocument, 13, "isRTFExtension:type:"},
      {u"txt", u"'ttro'", false, FileClass::AttributedDocument, 13, "isRTFExtension:type:"},
      {u"docx", std::nullopt, false, FileClass::AttributedDocument, 13,
       "isAttributedExtension:type:"},
      {u"clipping", std::nullopt, false, FileClass::TextClipping, 14,
       "isTextClippingExtension:type:"},
      {u"TXT", std::nullopt, false, FileClass::PlainText, 15, "isTextExtension:type:"},
      {std::nullopt, u"'TEXT'", false, FileClass::PlainText, 15, "isTextExtension:type:"},
      {u"applescript", std::nullopt, false, FileClass::PlainText, 15, "isTextExtension:type:"},
      {u"applescript", std::nullopt, true, FileClass::AppleScript, 17,
       "isAppleScriptExtension:type:"},
      {u"txt", std::nullopt, true, FileClass::None, 0, ""},
      {u"chat", std::nullopt, false, FileClass::Chat, 16, "isChatExtension:type:"},
      {u"CHAT", std::nullopt, false, FileClass::None, 0, ""},
      {u"scptd", std::nullopt, false, FileClass::AppleScript, 17, "isAppleScriptExtension:type:"},
      {u"zip", u"'TEXT'", false, FileClass::None, 0, ""},
      {u"", std::nullopt, false, FileClass::None, 0, ""},
      {std::nullopt, std::nullopt, false, FileClass::None, 0, ""},
  };
  for (const Row& row : rows) {
    std::string name = row.extension ? toUtf8(*row.extension) : "(none)";
    if (row.type) name += " " + toUtf8(*row.type);
    SCOPED_TRACE(name);
    int packageQuestions = 0;
    FileClassification found = classifyFile(row.extension, row.type, [&] {
      ++packageQuestions;
      return row.package;
    });
    EXPECT_EQ(found.fileClass, row.fileClass) << fileClassName(found.fileClass);
    EXPECT_EQ(found.step, row.step);
    EXPECT_EQ(found.test, row.test);
    // Only a text extension costs a look at the file system.
    bool textAnswered = isTextExtension(row.extension, row.type);
    bool reachedTextTest = found.step == 0 || found.step >= 15;
    EXPECT_EQ(packageQuestions, reachedTextTest && textAnswered ? 1 : 0);
    EXPECT_EQ(found.packageSkipped, row.package && textAnswered);
  }
}

TEST(FileTypes, ContentTypeDecidesWhenNoTestDoes) {
  struct Row {
    std::optional<std::string_view> contentType;
    ContentTypeRoute expected;
  };
  const Row rows[] = {
      {std::nullopt, ContentTypeRoute::Importer},
      {"public.html", ContentTypeRoute::HTML},
      {"public.plain-text", ContentTypeRoute::PlainText},
      {"public.c-source", ContentTypeRoute::PlainText},
      {"public.xml", ContentTypeRoute::Importer},
      {"com.adobe.pdf", ContentTypeRoute::Importer},
      {"dyn.filename-extension.qqq", ContentTypeRoute::Importer},
  };
  for (const Row& row : rows)
    EXPECT_EQ(routeForContentType(row.contentType), row.expected)
        << row.contentType.value_or("(none)");
}

TEST(FileTypes, PathExtension) {
  const std::pair<std::string_view, TextView> rows[] = {
      {"/a/b.txt", u"txt"},
      {"/a/b", u""},
      {"/a/.profile", u""},
      {"/a/b.", u""},
      {"/a.d/b", u""},
      {"/a/b.tar.gz", u"gz"},
      {"/a/b.rtfd/", u"rtfd"},
      {"x.php?id=3", u"php?id=3"},
      {"", u""},
      {"/a/B.TXT", u"TXT"},
      {"/a/\xc3\xa9.\xc3\xa9t\xc3\xa9", u"\u00e9t\u00e9"},
      {"name.md", u"md"},
  };
  for (const auto& [path, expected] : rows) EXPECT_EQ(pathExtension(path), expected) << path;
}

TEST(FileTypes, ValidPathExtensions) {
  const std::pair<TextView, bool> rows[] = {
      {u"txt", true},
      {u"a", true},
      {u"abcdefghijklmnopq", true},
      {u"", false},
      {u"abcdefghijklmnopqr", false},
      {u"with-hyphen", false},
      {u"a.b", false},
      {u"caf\u00e9", true},
      {u"\u0661\u0662", true},  // Arabic-Indic digits
      {u"a b", false},
  };
  for (const auto& [extension, expected] : rows)
    EXPECT_EQ(isValidPathExtension(extension), expected) << toUtf8(extension);
}

TEST(FileTypes, AdditionalPlainTextExtensionsFromAValue) {
  struct Row {
    const char* name;
    std::optional<PropertyValue> value;
    std::vector<TextString> expected;
  };
  const Row rows[] = {
      {"absent", std::nullopt, {}},
      {"one string", PropertyValue(u"foo"), {u"foo"}},
      {"joined by dots", PropertyValue(u"foo.bar"), {u"foo", u"bar"}},
      {"empty parts dropped", PropertyValue(u".foo..bar."), {u"foo", u"bar"}},
      {"list keeps order",
       PropertyValue(PropertyArray{PropertyValue(u"b"), PropertyValue(u"a")}),
       {u"b", u"a"}},
      {"list drops non-strings",
       PropertyValue(PropertyArray{PropertyValue(u"ok"), PropertyValue(std::int64_t{3}),
                                   PropertyValue(u"no-no")}),
       {u"ok"}},
      {"a number", PropertyValue(std::int64_t{7}), {}},
      {"a dictionary", PropertyValue(PropertyDictionary{{"a", PropertyValue(u"txt")}}), {}},
  };
  for (const Row& row : rows)
    EXPECT_EQ(textFileTypesFromDefault(row.value), row.expected) << row.name;
}

TEST(FileTypes, AdditionalPlainTextExtensionsAreReadOnce) {
  const std::vector<TextString> expected = {u"foo", u"Bar2", u"abcdefghijklmnopq", u"caf\u00e9"};
  std::span<const TextString> first = customTextFileTypes();
  EXPECT_EQ(std::vector<TextString>(first.begin(), first.end()), expected);
  DefaultsEnvironment::writeDefaults(u"other");
  std::span<const TextString> second = customTextFileTypes();
  EXPECT_EQ(std::vector<TextString>(second.begin(), second.end()), expected);
  EXPECT_FALSE(isTextExtension(u"other", std::nullopt));
  DefaultsEnvironment::writeDefaults(
      u"foo.Bar2.with-hyphen.abcdefghijklmnopqr.abcdefghijklmnopq.caf\u00e9");
}

TEST(FileTypes, TextClippingFiles) {
  TemporaryFolder folder;
  std::string stamped = folder.write("note", "x");
  Data info = {'c', 'l', 'p', 't', 'M', 'A', 'C', 'S'};
  ASSERT_TRUE(writeMetadataAttribute(stamped, "com.apple.FinderInfo", info, false));
  EXPECT_TRUE(isTextClippingFile(stamped));
  EXPECT_TRUE(isTextClippingFile(folder.write("a.textClipping", "x")));
  EXPECT_TRUE(isTextClippingFile(folder.write("b.CLIPPING", "x")));
  EXPECT_FALSE(isTextClippingFile(folder.write("c.txt", "x")));
}

TEST(FileTypes, ListsInOnePlace) {
  std::span<const TextView> images = imageFileTypes();
  ASSERT_GE(images.size(), 8u);
  const TextView added[] = {u"jpe", u"JPE", u"ps", u"PS", u"eps", u"EPS", u"ai", u"AI"};
  for (std::size_t i = 0; i < 8; ++i) EXPECT_EQ(images[images.size() - 8 + i], added[i]);
  const TextView attributed[] = {u"rtf",    u"rtfd", u"doc", u"dot", u"docx", u"dotx",
                                 u"docm",   u"dotm", u"odt", u"ott", u"sxw",  u"stw",
                                 u"wordml", u"html", u"htm", u"txt", u"text"};
  std::span<const TextView> list = attributedFileTypes();
  EXPECT_EQ(std::vector<TextView>(list.begin(), list.end()),
            std::vector<TextView>(std::begin(attributed), std::end(attributed)));
}

}  // namespace
}  // namespace ulvek
