// The importer host with real plug-in bundles in a worker process: choosing and calling
// importers, correcting their answers, and plug-ins that crash, hang, print or garble.

#include "importers/metadata_importer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "base/failure.h"
#include "base/file_url.h"
#include "base/property_list.h"
#include "platform/content_types.h"
#include "test_bundles.h"
#include "test_support.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;
using testing::CapturedLog;
using testing::ImporterEnvironment;
using testing::importerInfo;
using testing::kImporterTypeID;
using testing::TemporaryFolder;
using testing::testFactoryID;
using testing::writeBundle;
using testing::writeTypedBundle;

// Bundles of the test plug-in, one per factory, in a folder on the search path.
class ImporterHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    struct Bundle {
      std::string name, function, extension;
    };
    const Bundle bundles[] = {
        {"Good", "GoodFactory", "good"},       {"Crash", "CrashFactory", "crash"},
        {"Hang", "HangFactory", "hang"},       {"Print", "PrintFactory", "talk"},
        {"Url", "UrlFactory", "url-only"},     {"NoInterface", "NoInterfaceFactory", "none"},
        {"Null", "NullFactory", "null"},       {"Garbage", "GarbageFactory", "junk"},
        {"Refuse", "RefuseFactory", "refuse"},
    };
    int n = 0;
    for (const Bundle& bundle : bundles)
      writeBundle(
          folder_, "Importers", bundle.name,
          importerInfo(bundle.name + ".so", testFactoryID(++n), bundle.function, bundle.extension));
    // A bundle whose shared object is not one: found, never registered.
    folder_.write("Importers/Broken.mdimporter/Contents/Linux/Broken.so", "not ELF");
    folder_.write(
        "Importers/Broken.mdimporter/Contents/Info.plist",
        *xmlPropertyList(PropertyValue(importerInfo(
            "Broken.so", "00000000-0000-4000-8000-999999999999", "GoodFactory", "good"))));
  }

  TemporaryFolder folder_;
  ImporterEnvironment environment_{folder_, (folder_.path() / "Importers").string()};
};

std::string textOf(const std::optional<PropertyDictionary>& attributes) {
  if (!attributes) return "(nothing)";
  const PropertyValue* text = find(*attributes, "kMDItemTextContent");
  return text && text->string() ? toUtf8(*text->string()) : "(no text)";
}

TEST_F(ImporterHostTest, MisbehavingPlugInsCostOneRequest) {
  MetaDataImporter importer;
  importer.setLimits({std::chrono::milliseconds(1500), 1024});
  struct Row {
    std::string file;
    std::string text;  // "path" and "url" stand for the file's own path and URL
    std::string log;
    std::string failure = "-";  // the kind an import is told of
  };
  const Row rows[] = {
      {"a.good", "path", ""},
      // The cause is "signal 11", or what a sanitizer makes of the crash.
      {"b.crash", "(nothing)",
       "Importer failed: " + (folder_.path() / "Importers/Crash.mdimporter").string() + " (",
       "importer-crashed"},
      {"c.good", "path", ""},
      {"d.hang", "(nothing)", "(timeout)", "importer-timeout"},
      // What it prints is logged, naming the file.
      {"e.talk", "path", "e.talk: plug-ins should not print, but some do"},
      {"f.url-only", "url", ""},
      {"g.none", "(nothing)",
       "NoInterface.mdimporter: No kMDImporter(URL)Interface 00000000-0000-4000-8000-000000000006"},
      {"h.null", "(nothing)", "Null.mdimporter: No kMDImporter(URL)Interface"},
      {"i.junk", "(nothing)", "(garbage)", "importer-crashed"},
      {"j.good", "path", ""},
      {"k.unknown", "(nothing)", "No importer for public.plain-text: ", "unsupported"},
      {"l.refuse", "(no text)", "", "damaged"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.file);
    std::string path = folder_.write(row.file, "contents");
    CapturedLog log;
    FailureScope failures;
    std::optional<PropertyDictionary> attributes = importer.metaDataOfFileAtPath(path);
    EXPECT_EQ(failures.failure() ? std::string(failureKindName(failures.failure()->kind)) : "-",
              row.failure);
    std::string expected = row.text == "path"  ? path
                           : row.text == "url" ? fileURLWithPath(path)
                                               : row.text;
    EXPECT_EQ(textOf(attributes), expected);
    if (row.log.empty()) {
      EXPECT_TRUE(log.lines().empty()) << log.lines().front();
    } else {
      EXPECT_TRUE(log.contains(row.log))
          << (log.lines().empty() ? "(no log)" : log.lines().front());
    }
  }
  // A bundle without interfaces is taken out of the tables; the others stay.
  EXPECT_FALSE(importer.bundles().extensionsForMDImporter().count(
      (folder_.path() / "Importers/NoInterface.mdimporter").string()));
  EXPECT_TRUE(importer.bundles().extensionsForMDImporter().count(
      (folder_.path() / "Importers/Crash.mdimporter").string()));
  EXPECT_FALSE(importer.bundles().extensionsForMDImporter().count(
      (folder_.path() / "Importers/Broken.mdimporter").string()));
}

TEST_F(ImporterHostTest, AttributesAndQuestions) {
  MetaDataImporter importer;
  std::string good = folder_.write("doc.good", "x");
  std::optional<PropertyDictionary> attributes = importer.metaDataOfFileAtPath(good);
  ASSERT_TRUE(attributes);
  EXPECT_EQ(*find(*attributes, "kMDItemAuthors"), PropertyValue(PropertyArray{u"Ann", u"Bo"}));
  EXPECT_EQ(*find(*attributes, "kMDItemContentCreationDate"), PropertyValue(Date{86400000000}));
  EXPECT_TRUE(importer.supportsFileAtPath(good));
  EXPECT_TRUE(importer.supportsFileAtPath(folder_.write("x.url-only", "x")));
  EXPECT_FALSE(importer.supportsFileAtPath(folder_.write("x.unknown", "x")));
  EXPECT_FALSE(importer.supportsFileAtPath((folder_.path() / "missing.good").string()));
}

// URL plug-ins get a file URL that parses back to the file, whatever its name holds.
TEST_F(ImporterHostTest, URLPlugInsReceiveEncodedFileURLs) {
  struct Row {
    std::string file;
    std::string urlEnd;  // after the folder's own URL
  };
  const Row rows[] = {
      {"plain.url-only", "/plain.url-only"},
      {"a b%c.url-only", "/a%20b%25c.url-only"},
      {"#1 ?.url-only", "/%231%20%3F.url-only"},
      {"%41.url-only", "/%2541.url-only"},
      {"\xC3\xA9t\xC3\xA9.url-only", "/%C3%A9t%C3%A9.url-only"},
  };
  MetaDataImporter importer;
  const std::string folderURL = fileURLWithPath(folder_.path().string());
  for (const Row& row : rows) {
    SCOPED_TRACE(row.file);
    std::string path = folder_.write(row.file, "x");
    std::string url = textOf(importer.metaDataOfFileAtPath(path));
    EXPECT_EQ(url, folderURL + row.urlEnd);
    EXPECT_EQ(pathOfFileURL(url), path);
  }
}

// A relative path is the host's; the worker, which shares its working folder, makes it absolute.
TEST_F(ImporterHostTest, URLPlugInsReceiveAbsoluteURLsForRelativePaths) {
  const fs::path before = fs::current_path();
  fs::current_path(folder_.path());
  folder_.write("sub/a b.url-only", "x");
  std::string url;
  {
    MetaDataImporter importer;
    url = textOf(importer.metaDataOfFileAtPath("sub/a b.url-only"));
  }
  const fs::path expected = fs::current_path() / "sub/a b.url-only";
  fs::current_path(before);
  EXPECT_EQ(url, fileURLWithPath(expected.string()));
}

// Bundles are put through the load preflight only when a file could go to them, or when the
// tables are read; the choice is the one a preflight of every bundle at discovery gives.
TEST_F(ImporterHostTest, PreflightWaitsUntilABundleCouldServe) {
  // "Aaa" cannot be loaded and names F2 first; "Order" names F1 (path text) before F2 (URL
  // text). Without "Aaa", F1 comes first and the file gets its path.
  const std::string f1 = "00000000-0000-4000-8000-000000000101";
  const std::string f2 = "00000000-0000-4000-8000-000000000102";
  auto info = [&](const std::string& executable, PropertyArray types, PropertyDictionary factories,
                  const std::string& extension) {
    PropertyDictionary dictionary = importerInfo(executable, f1, "GoodFactory", extension);
    dictionary["CFPlugInFactories"] = PropertyValue(std::move(factories));
    dictionary["CFPlugInTypes"] =
        PropertyValue(PropertyDictionary{{kImporterTypeID, std::move(types)}});
    return *xmlPropertyList(PropertyValue(dictionary));
  };
  folder_.write("Importers/Aaa.mdimporter/Contents/Linux/Aaa.so", "not ELF");
  folder_.write("Importers/Aaa.mdimporter/Contents/Info.plist",
                info("Aaa.so", PropertyArray{PropertyValue::fromUtf8(f2)}, {{f2, u"UrlFactory"}},
                     "elsewhere"));
  fs::path order = folder_.path() / "Importers/Order.mdimporter/Contents";
  fs::create_directories(order / "Linux");
  fs::copy_file(std::string(ULVEK_BINARY_DIR) + "/tests/test_importer_plugin.so",
                order / "Linux/Order.so");
  folder_.write(
      "Importers/Order.mdimporter/Contents/Info.plist",
      info("Order.so", PropertyArray{PropertyValue::fromUtf8(f1), PropertyValue::fromUtf8(f2)},
           {{f1, u"GoodFactory"}, {f2, u"UrlFactory"}}, "order"));

  MetaDataImporter importer;
  importer.loadExtractorPlugins();
  const std::size_t found = importer.bundles().bundlesAwaitingPreflight();
  EXPECT_EQ(found, 12u);  // nine test bundles, Broken, Aaa and Order

  const std::string good = folder_.write("a.good", "x");
  EXPECT_EQ(textOf(importer.metaDataOfFileAtPath(good)), good);
  EXPECT_EQ(importer.bundles().bundlesAwaitingPreflight(),
            found - 2);  // Good, and Broken, which names "good"

  const std::string ordered = folder_.write("b.order", "x");
  EXPECT_EQ(textOf(importer.metaDataOfFileAtPath(ordered)), ordered);
  EXPECT_EQ(importer.bundles().bundlesAwaitingPreflight(),
            found - 4);  // Order, and Aaa, which names F2

  // Reading the tables tries the rest: the unloadable bundles are gone.
  const std::vector<std::string>& bundles = importer.bundles().bundlePaths();
  EXPECT_EQ(importer.bundles().bundlesAwaitingPreflight(), 0u);
  EXPECT_EQ(bundles.size(), found - 2);
  for (const char* gone : {"Aaa.mdimporter", "Broken.mdimporter"})
    EXPECT_EQ(std::count_if(bundles.begin(), bundles.end(),
                            [&](const std::string& bundle) { return bundle.ends_with(gone); }),
              0)
        << gone;
}

// Documents that readers of the service's own read are not the host's: where no importer
// answers, it answers nothing, whatever the name.
TEST_F(ImporterHostTest, AnswersOnlyWhatAnImporterWrote) {
  folder_.write("Plain.oo3/contents.xml", "<?xml version=\"1.0\"?><outline>Words</outline>");
  folder_.write("One.chatlog/log.xml", "<chat>Hi</chat>");
  folder_.write("Folder.epub/mimetype", "application/epub+zip");
  folder_.write("a.textbundle/text.md", "Words");
  fs::copy_file(testing::dataPath() / "epub/field-notes-epub2.epub", folder_.path() / "book.epub");
  MetaDataImporter importer;
  for (const char* name :
       {"Plain.oo3", "One.chatlog", "Folder.epub", "book.epub", "a.textbundle"}) {
    std::string path = (folder_.path() / name).string();
    EXPECT_EQ(importer.metaDataOfFileAtPath(path), std::nullopt) << name;
    EXPECT_FALSE(importer.supportsFileAtPath(path)) << name;
  }
}

// The host corrects what importers answer by the file's suffix: the test importer answers the
// path as the text, which for a web archive of Internet Explorer is read as HTML.
TEST_F(ImporterHostTest, AnswersAreCorrectedBySuffix) {
  writeBundle(folder_, "Importers", "Archive",
              importerInfo("Archive.so", testFactoryID(30), "GoodFactory", "mht"));
  MetaDataImporter importer;
  std::string archive = folder_.write("Tom &amp; Jerry.MHT", "x");
  std::string text = textOf(importer.metaDataOfFileAtPath(archive));
  EXPECT_NE(text.find("/Tom & Jerry.MHT"), std::string::npos) << text;
  std::string other = folder_.write("Tom &amp; Jerry.good", "x");
  EXPECT_EQ(textOf(importer.metaDataOfFileAtPath(other)), other);
}

// Types a plug-in declares join the registry: its files are typed by them, even text ones,
// and the plug-in receives the type it declared; .chm files reach a CHM importer.
TEST_F(ImporterHostTest, DeclaredTypesReachTheirImporters) {
  writeTypedBundle(folder_, "Words", "00000000-0000-4000-8000-000000000101",
                   u"com.example.wordlist",
                   PropertyArray{PropertyDictionary{
                       {"UTTypeIdentifier", u"com.example.wordlist"},
                       {"UTTypeConformsTo", u"public.plain-text"},
                       {"UTTypeTagSpecification",
                        PropertyDictionary{{"public.filename-extension", u"wordlist"},
                                           {"public.mime-type", u"text/x-wordlist"}}}}});
  writeTypedBundle(folder_, "Help", "00000000-0000-4000-8000-000000000102",
                   u"com.microsoft.chm-archive", {});
  MetaDataImporter importer;
  importer.loadExtractorPlugins();
  struct Row {
    std::string file;
    std::string bytes;
    std::string type;
  };
  const Row rows[] = {
      {"notes.wordlist", "apple\npear\n", "com.example.wordlist"},
      {"NOTES.WORDLIST", "apple\n", "com.example.wordlist"},
      {"manual.chm", "ITSF\x03\0\0\0", "com.microsoft.chm-archive"},
  };
  for (const Row& row : rows) {
    std::string path = folder_.write(row.file, row.bytes);
    EXPECT_EQ(typeOfFile(path), row.type) << row.file;
    std::optional<PropertyDictionary> attributes = importer.metaDataOfFileAtPath(path);
    ASSERT_TRUE(attributes) << row.file;
    const PropertyValue* received = find(*attributes, "kMDItemDescription");
    ASSERT_TRUE(received && received->string()) << row.file;
    EXPECT_EQ(toUtf8(*received->string()), row.type) << row.file;
  }
  EXPECT_EQ(contentTypeForMIMEType("text/x-wordlist"), "com.example.wordlist");
  // A declaration never takes an extension from the registry's own rows.
  EXPECT_EQ(contentTypeForExtension("good"), std::nullopt);
  EXPECT_EQ(contentTypeForExtension("pdf"), "com.adobe.pdf");
}

}  // namespace
}  // namespace ulvek
