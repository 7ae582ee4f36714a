#include "metadata/file_types.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/user_defaults.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::TemporaryFolder;
using namespace std::string_view_literals;

constexpr char kDefaults[] =
    "foo.Bar2.with-hyphen.abcdefghijklmnopqr.abcdefghijklmnopq.caf\xc3\xa9";

// The user defaults hold "AdditionalPlainTextExtensions" before any test asks for the list, so
// the order in which tests run does not matter.
class DefaultsEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    folder_ = std::make_unique<TemporaryFolder>();
    setenv("XDG_CONFIG_HOME", folder_->path().c_str(), 1);
    writeDefaults(kDefaults);
  }
  void TearDown() override { folder_.reset(); }

  static void writeDefaults(std::string_view extensions) {
    std::filesystem::path file = userDefaultsPath();
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << "<plist><dict><key>AdditionalPlainTextExtensions</key><string>"
                        << extensions << "</string></dict></plist>";
  }

 private:
  std::unique_ptr<TemporaryFolder> folder_;
};

[[maybe_unused]] ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new DefaultsEnvironment);

using FileTest = bool (*)(OptionalText extension, OptionalText type);
#define BY_NAME(test) [](OptionalText e, OptionalText) { return test(e); }

std::vector<TextString> split(TextView list) {
  std::vector<TextString> items;
  for (std::size_t start = 0, end; start < list.size(); start = end + 1) {
    end = std::min(list.find(u',', start), list.size());
    items.emplace_back(list.substr(start, end - start));
  }
  return items;
}

TextString withCase(TextView text, bool upper) {
  TextString result(text);
  for (char16_t& c : result) {
    if (upper && c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
    if (!upper && c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
  }
  return result;
}

// A few entries of each table (the first, the last, the longest) and names that must not match.
// Extensions answer YES in any case unless the table compares exactly; type codes only as given.
TEST(FileTypes, RepresentativeTableEntries) {
  struct Row {
    const char* name;
    FileTest test;
    const char16_t* extensions;  // lists joined with commas
    const char16_t* types;
    const char16_t* notExtensions;
    bool exact = false;
  };
  const Row rows[] = {
      {"location", isInternetLocationExtension, u"webloc,url,webbookmark", u"'LINK','ilaf','ilnw'",
       u"loc,weblocs"},
      {"email", BY_NAME(isEmailExtension), u"eml,emlx", u"", u"em,mbox"},
      {"PDF bundle", BY_NAME(isPDFBundleExtension), u"pdfd,lpdf", u"", u"pdf"},
      {"PDF", isPDFExtension, u"pdf,ps,eps,ai", u"'PDF '", u"pd,pdfd,'PDF '"},
      {"image", isImageExtension, u"png,jpeg,jpe,EPS,AI", u"'PNGf','JPEG'", u"pn,pngs,txt"},
      {"web archive", BY_NAME(isWebArchiveExtension), u"webarchive", u"", u"web"},
      {"text bundle", isTextBundleExtension, u"textbundle,textpack", u"", u"text"},
      {"HTML", BY_NAME(isHTMLExtension), u"html,HTM,SHTM,cgi,PHP5", u"", u"ht,xml,php6,?html"},
      {"property list", BY_NAME(isPropertyListExtension), u"plist,scriptTerminology", u"", u"plis"},
      {"XML", BY_NAME(isXMLExtension), u"xml,SHTM,xmloutline,rss", u"", u"xm,html"},
      {"sheet", BY_NAME(isSheetExtension), u"csv,id2xf", u"", u"cs,xls"},
      {"form", BY_NAME(isFormExtension), u"vcf", u"", u"vcard"},
      {"WordPerfect", isWordPerfectExtension, u"wpd", u"'WPD4','wpd4'", u"wp"},
      {"RTF", isRTFExtension, u"rtf,RTFD", u"'RTF ','ttro','sEXT'", u"rt"},
      {"attributed", isAttributedExtension, u"rtf,docx,wordml,htm,FODT", u"", u"txt,pdf"},
      {"clipping", isTextClippingExtension, u"textClipping,clipping", u"'clpt'", u"clip"},
      {"text", isTextExtension, u"tex,f,scriptterminology,asciidoc,foo,Bar2,abcdefghijklmnopq",
       u"'TEXT','ttro','sEXT','TERO'", u"te,zip,with-hyphen,abcdefghijklmnopqr"},
      {"chat", isChatExtension, u"chat,ichat,ychat", u"'YMSG'", u"CHAT,Chat", true},
      {"AppleScript", isAppleScriptExtension, u"scpt,templatescriptd", u"'scpt','osas','APPL'",
       u"scp"},
      {"Word", isWordExtension, u"doc,DOTM", u"'W8TN','W8BN'", u"docs,rtf"},
      {"OpenOffice", BY_NAME(isOpenOfficeExtension), u"odt,sxw", u"", u"ods"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_FALSE(row.test(std::nullopt, std::nullopt));
    EXPECT_FALSE(row.test(u"", u""));
    for (const TextString& extension : split(row.extensions)) {
      EXPECT_TRUE(row.test(extension, std::nullopt)) << toUtf8(extension);
      for (TextString other : {withCase(extension, true), withCase(extension, false)})
        EXPECT_EQ(row.test(other, std::nullopt), !row.exact || other == extension) << toUtf8(other);
    }
    for (const TextString& extension : split(row.notExtensions))
      EXPECT_FALSE(row.test(extension, std::nullopt)) << toUtf8(extension);
    for (const TextString& type : split(row.types)) {
      EXPECT_TRUE(row.test(std::nullopt, type)) << toUtf8(type);
      EXPECT_TRUE(row.test(u"", type)) << toUtf8(type);
      EXPECT_FALSE(row.test(std::nullopt, TextView(type).substr(1))) << toUtf8(type);
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
      {"txt with ttro is attributed", isAttributedExtension, u"txt", u"'ttro'", true},
      {"rtf with TEXT is not attributed", isAttributedExtension, u"rtf", u"'TEXT'", false},
      {"unknown extension, TEXT is text", isTextExtension, u"qqq", u"'TEXT'", true},
      {"zip stamped TEXT is not", isTextExtension, u"zip", u"'TEXT'", false},
      {"text code compared exactly", isTextExtension, {}, u"'text'", false},
      {"non-ASCII default kept", isTextExtension, u"CAF\u00c9", {}, true},
      {"php with a query", BY_NAME(isHTMLExtension), u"php?id=3&x=4", {}, true},
      {"text bundle ignores the type", isTextBundleExtension, {}, u"'TEXT'", false},
      {"image type with another extension", isImageExtension, u"qqq", u"'PNGf'", true},
      {"image type code is exact", isImageExtension, {}, u"'pngf'", false},
      {"location type wins", isInternetLocationExtension, u"txt", u"'ilht'", true},
      {"location type of wrong length", isInternetLocationExtension, {}, u"'LINKS'", false},
      {"extension with a NUL", isTextExtension, u"txt\0"sv, {}, false},
  };
  for (const Row& row : rows)
    EXPECT_EQ(row.test(row.extension, row.type), row.expected) << row.name;
}

TEST(FileTypes, MIMETypes) {
  using MIMETest = bool (*)(OptionalText);
  struct Row {
    MIMETest test;
    OptionalText mimeType;
    bool expected;
  };
  const Row rows[] = {
      {isPDFMIMEType, u"Application/PDF", true},
      {isPDFMIMEType, u"application/pdf; q=1", false},
      {isPDFMIMEType, {}, false},
      {isPostScriptMIMEType, u"application/X-PostScript", true},
      {isRTFMIMEType, u"text/RTF", true},
      {isRTFMIMEType, u"text/richtext", true},
      {isRTFMIMEType, u"text/RichText", false},
      {isMSWordMIMEType, u"application/MSWord", true},
      {isMSWordMIMEType, u"application/vnd.ms-word", false},
      {isOpenOfficeMIMEType, u"application/VND.OASIS.OPENDOCUMENT.TEXT", true},
      {isOpenOfficeMIMEType, u"application/vnd.oasis.opendocument.spreadsheet", false},
      {isStarOfficeMIMEType, u"application/vnd.sun.xml.writer", true},
  };
  for (const Row& row : rows)
    EXPECT_EQ(row.test(row.mimeType), row.expected) << toUtf8(row.mimeType.value_or(u"(none)"));
}

TEST(FileTypes, PathExtensions) {
  const std::pair<std::string_view, TextView> rows[] = {
      {"/a/b", u""},
      {"/a/.profile", u""},
      {"/a/b.", u""},
      {"/a.d/b", u""},
      {"/a/b.tar.gz", u"gz"},
      {"/a/b.rtfd/", u"rtfd"},
      {"x.php?id=3", u"php?id=3"},
      {"/a/\xc3\xa9.\xc3\xa9t\xc3\xa9", u"\u00e9t\u00e9"}};
  for (const auto& [path, expected] : rows) EXPECT_EQ(pathExtension(path), expected) << path;
}

// The setting's string form is the environment's; a list keeps only its valid extensions.
TEST(FileTypes, AdditionalPlainTextExtensionsAreReadOnce) {
  PropertyValue list(PropertyArray{u"ok", std::int64_t{3}, u"no-no", u"b"});
  EXPECT_EQ(textFileTypesFromDefault(list), (std::vector<TextString>{u"ok", u"b"}));
  EXPECT_TRUE(textFileTypesFromDefault(PropertyValue(std::int64_t{7})).empty());
  const std::vector<TextString> expected = {u"foo", u"Bar2", u"abcdefghijklmnopq", u"caf\u00e9"};
  std::span<const TextString> first = customTextFileTypes();
  EXPECT_EQ(std::vector<TextString>(first.begin(), first.end()), expected);
  DefaultsEnvironment::writeDefaults("other");
  std::span<const TextString> second = customTextFileTypes();
  EXPECT_EQ(std::vector<TextString>(second.begin(), second.end()), expected);
  EXPECT_FALSE(isTextExtension(u"other", std::nullopt));
  DefaultsEnvironment::writeDefaults(kDefaults);
}

}  // namespace
}  // namespace ulvek
