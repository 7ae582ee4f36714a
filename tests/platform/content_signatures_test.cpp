#include "platform/content_signatures.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "base/property_list.h"
#include "platform/formats.h"
#include "test_support.h"
#include "zip_test_files.h"

namespace ulvek {
namespace {

using testing::TemporaryFolder;
using testing::ZipEntry;

std::string binaryListWithKey(const char* key) {
  PropertyDictionary dictionary;
  dictionary[key] = PropertyValue(u"value");
  std::optional<Data> bytes = binaryPropertyList(PropertyValue(std::move(dictionary)));
  return bytes ? std::string(bytes->begin(), bytes->end()) : std::string();
}

struct Row {
  const char* name;
  std::string bytes;                        // the file, unless `zip` has entries
  std::vector<ZipEntry> zip = {};           // written as a zip archive
  std::optional<std::string_view> any;      // with text signatures
  std::optional<std::string_view> notText;  // without them
};

TEST(ContentSignatures, ContainersThenLeadingBytesThenText) {
  constexpr std::string_view kDOCX = "org.openxmlformats.wordprocessingml.document";
  constexpr std::string_view kODT = "org.oasis-open.opendocument.text";
  const Row rows[] = {
      {"PDF", "%PDF-1.7\n%\xE2\xE3\n", {}, "com.adobe.pdf", "com.adobe.pdf"},
      {"PostScript", "%!PS-Adobe-3.0\n", {}, "com.adobe.postscript", "com.adobe.postscript"},
      {"RTF", "{\\rtf1\\ansi hello}", {}, "public.rtf", "public.rtf"},
      {"WordPerfect",
       std::string("\xFFWPC\x10\x00\x00\x00", 8),
       {},
       "com.corel.wordperfect.doc",
       "com.corel.wordperfect.doc"},
      {"PNG", "\x89PNG\r\n\x1A\n....", {}, "public.png", "public.png"},
      {"PDF signature after a blank is none", " %PDF-1.7", {}, std::nullopt, std::nullopt},
      {"HTML page", "\xEF\xBB\xBF\n  <!DOCTYPE html><html>", {}, "public.html", std::nullopt},
      {"HTML without a doctype", "<HTML><body>x", {}, "public.html", std::nullopt},
      {"XHTML after its declaration",
       "<?xml version=\"1.0\"?>\n<!DOCTYPE html PUBLIC \"\">",
       {},
       "public.html",
       std::nullopt},
      {"XML", "<?xml version=\"1.0\"?><root/>", {}, "public.xml", std::nullopt},
      {"address card", "begin:VCARD\r\nVERSION:3.0\r\n", {}, "public.vcard", std::nullopt},
      {"mail",
       "Received: from here\r\nFrom: a@b\r\n\r\nbody",
       {},
       "public.email-message",
       std::nullopt},
      {"plain text", "just words", {}, std::nullopt, std::nullopt},
      {"DOCX",
       "",
       {{"[Content_Types].xml", "<Types/>"}, {"word/document.xml", "<w:document/>"}},
       kDOCX,
       kDOCX},
      {"member names in any case", "", {{"WORD/Document.xml", "<w:document/>"}}, kDOCX, kDOCX},
      {"ODT by its mimetype",
       "",
       {{"mimetype", "application/vnd.oasis.opendocument.text", false, true},
        {"content.xml", "<office:document-content/>"}},
       kODT,
       kODT},
      {"EPUB by its compressed mimetype",
       "",
       {{"mimetype", "application/epub+zip\n"}, {"OEBPS/content.opf", "<package/>"}},
       "org.idpf.epub-container",
       "org.idpf.epub-container"},
      {"a mimetype of no registry row",
       "",
       {{"mimetype", "application/x-other"}},
       "public.zip-archive",
       "public.zip-archive"},
      {"Keynote",
       "",
       {{"index.apxl", "<key:presentation/>"}},
       "com.apple.iwork.keynote.sffkey",
       "com.apple.iwork.keynote.sffkey"},
      {"plain zip", "", {{"notes.txt", "words"}}, "public.zip-archive", "public.zip-archive"},
      {"web archive",
       binaryListWithKey("WebMainResource"),
       {},
       "com.apple.webarchive",
       "com.apple.webarchive"},
      {"XML web archive",
       "<?xml version=\"1.0\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"\">\n"
       "<plist version=\"1.0\"><dict><key>WebMainResource</key><dict/></dict></plist>",
       {},
       "com.apple.webarchive",
       "com.apple.webarchive"},
      {"UTF-16 address card",
       std::string("\xFF\xFE"
                   "B\0E\0G\0I\0N\0:\0V\0C\0A\0R\0D\0",
                   24),
       {},
       "public.vcard",
       std::nullopt},
      {"other binary property list",
       binaryListWithKey("CFBundleName"),
       {},
       "com.apple.binary-property-list",
       "com.apple.binary-property-list"},
      {"truncated zip",
       std::string("PK\x03\x04\x14\x00", 6),
       {},
       "public.zip-archive",
       "public.zip-archive"},
      {"empty", "", {}, std::nullopt, std::nullopt},
  };
  TemporaryFolder folder;
  for (const Row& row : rows) {
    std::string path = (folder.path() / row.name).string();
    if (row.zip.empty())
      folder.write(row.name, row.bytes);
    else
      ASSERT_TRUE(testing::writeZip(path, row.zip)) << row.name;
    std::optional<std::string> head = fileHead(path);
    ASSERT_TRUE(head) << row.name;
    EXPECT_EQ(signatureType(*head, path, true), row.any) << row.name;
    EXPECT_EQ(signatureType(*head, path, false), row.notText) << row.name;
  }
}

TEST(ContentSignatures, HeadsOnlyOfRegularFiles) {
  TemporaryFolder folder;
  std::string large = folder.write("large", std::string(3 * kSignatureHeadSize, 'x'));
  EXPECT_EQ(fileHead(large)->size(), kSignatureHeadSize);
  EXPECT_EQ(fileHead(folder.path().string()), std::nullopt);
  EXPECT_EQ(fileHead((folder.path() / "missing").string()), std::nullopt);
}

// Every signature parses into a kind the matcher knows, so a typo in the registry cannot turn a
// row's signature off unnoticed.
TEST(ContentSignatures, EveryRegistrySignatureHasAKnownKind) {
  constexpr std::string_view kKinds[] = {"zip:", "mimetype:", "plist:", "^", "~"};
  for (const Format& format : formats()) {
    std::string_view rest = format.signatures;
    while (!rest.empty()) {
      std::string_view one = rest.substr(0, rest.find('|'));
      rest = one.size() < rest.size() ? rest.substr(one.size() + 1) : std::string_view();
      bool known = false;
      for (std::string_view kind : kKinds)
        known = known || (one.starts_with(kind) && one.size() > kind.size());
      EXPECT_TRUE(known) << format.identifier << ": " << one;
    }
  }
}

}  // namespace
}  // namespace ulvek
