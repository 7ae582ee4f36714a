// The bundle registry: registration from Info.plist, discovery on the search path, a user's
// copy replacing an installed bundle, and entries of importer folders that cannot be used.

#include "importers/bundle_registry.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>

#include "importers/metadata_importer.h"
#include "test_bundles.h"
#include "test_support.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;
using testing::CapturedLog;
using testing::ImporterEnvironment;
using testing::importerInfo;
using testing::TemporaryFolder;
using testing::testFactoryID;
using testing::writeBundle;
using testing::writeTypedBundle;

// Registration from the information dictionary alone.
TEST(BundleRegistry, Registration) {
  BundleRegistry bundles(nullptr);
  PropertyDictionary info{
      {"CFBundleDocumentTypes",
       PropertyArray{
           PropertyDictionary{{"CFBundleTypeRole", u"Viewer"},
                              {"LSItemContentTypes", PropertyArray{u"public.viewer"}}},
           PropertyDictionary{{"CFBundleTypeRole", u"MDImporter"},
                              {"LSItemContentTypes",
                               PropertyArray{u"Com.Example.TYPE", u"DYN.AH62D4RV4GE80G4DR", 5}}}}},
      {"UTExportedTypeDeclarations",
       PropertyArray{
           PropertyDictionary{
               {"UTTypeTagSpecification", PropertyDictionary{{"public.filename-extension",
                                                              PropertyArray{u"EXT", u"  ", u""}}}}},
           PropertyDictionary{{"UTTypeTagSpecification",
                               PropertyDictionary{{"public.filename-extension", u"single"}}}}}},
      {"CFPlugInFactories", PropertyDictionary{{"F", u"f"}}}};
  bundles.addBundleToMDImporters(info, "/b/One.mdimporter");
  EXPECT_EQ(bundles.contentTypesForMDImporter().at("/b/One.mdimporter"),
            (std::vector<std::string>{"com.example.type", "com.microsoft.chm-archive"}));
  EXPECT_EQ(bundles.extensionsForMDImporter().at("/b/One.mdimporter"),
            std::vector<std::string>{"ext"});
  // No factories are recorded before discovery has made the table.
  EXPECT_FALSE(bundles.factoriesForMDImporter());

  CapturedLog log;
  bundles.addBundleToMDImporters({{"CFBundleIdentifier", u"ca.indev.mailtags.mdimporter"}},
                                 "/b/Any.mdimporter");
  bundles.addBundleToMDImporters({}, "/c/_TagsMail.mdimporter");
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"Skipped: /b/Any.mdimporter",
                                                   "Skipped: /c/_TagsMail.mdimporter"}));
  bundles.addBundleToMDImporters({{"UTExportedTypeDeclarations", PropertyArray{}}},
                                 "/b/Empty.mdimporter");
  EXPECT_TRUE(bundles.extensionsForMDImporter().at("/b/Empty.mdimporter").empty());
}

// A user's copy of an installed importer (the same factory, earlier on the search path) is the
// one that runs; the installed one is skipped with a line in the log.
TEST(BundleRegistry, EarlierCopyOfABundleReplacesTheInstalledOne) {
  TemporaryFolder folder;
  const std::string factory = "00000000-0000-4000-8000-000000000201";
  writeTypedBundle(folder, "Installed", factory, u"com.example.copied", {});
  fs::create_directories(folder.path() / "User");
  fs::rename(folder.path() / "Importers/Installed.mdimporter",
             folder.path() / "User/Installed.mdimporter");
  writeTypedBundle(folder, "Installed", factory, u"com.example.copied", {});
  ImporterEnvironment environment(
      folder, (folder.path() / "User").string() + ":" + (folder.path() / "Importers").string());
  CapturedLog log;
  BundleRegistry registry(nullptr);
  registry.loadExtractorPlugins();
  const std::vector<std::string>& bundles = registry.bundlePaths();
  std::string user = (folder.path() / "User/Installed.mdimporter").string();
  std::string installed = (folder.path() / "Importers/Installed.mdimporter").string();
  EXPECT_EQ(std::count(bundles.begin(), bundles.end(), user), 1);
  EXPECT_EQ(std::count(bundles.begin(), bundles.end(), installed), 0);
  EXPECT_TRUE(log.contains("Skipped: " + installed + " (replaced by " + user + ")"));
}

// A folder the search path names twice, in any spelling (as the installed Python package names
// the installed folder, which is also the interpreter's), is searched once: its bundles are found
// once and none is logged as replaced by itself.
TEST(BundleRegistry, FolderNamedTwiceIsSearchedOnce) {
  TemporaryFolder folder;
  writeTypedBundle(folder, "Twice", "00000000-0000-4000-8000-000000000202", u"com.example.twice",
                   {});
  std::string importers = (folder.path() / "Importers").string();
  ImporterEnvironment environment(folder, importers + ":" + importers + "/:" + importers + "/./");
  std::vector<std::string> path = importerSearchPath();
  EXPECT_EQ(std::count_if(path.begin(), path.end(),
                          [&](const std::string& entry) { return entry.starts_with(importers); }),
            1);
  CapturedLog log;
  BundleRegistry registry(nullptr);
  registry.loadExtractorPlugins();
  const std::vector<std::string>& bundles = registry.bundlePaths();
  EXPECT_EQ(std::count(bundles.begin(), bundles.end(), importers + "/Twice.mdimporter"), 1);
  EXPECT_FALSE(log.contains("Skipped:"));
}

// Whatever in the search path cannot be examined is one log line naming it and is left out;
// discovery completes, and the good bundle beside it is found and used, again and again.
TEST(BundleRegistry, DiscoverySkipsWhatItCannotExamine) {
  TemporaryFolder folder;
  writeBundle(folder, "Importers", "Good",
              importerInfo("Good.so", testFactoryID(1), "GoodFactory", "good"));
  auto fifo = [](const fs::path& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0) << path; };
  struct Row {
    std::string entry;  // below the temporary folder
    std::function<void(const fs::path&)> make;
    std::string log;        // after the entry's path; empty: no line
    bool searched = false;  // a folder of the search path rather than an entry of Importers
  };
  const Row rows[] = {
      {"Importers/Loop.mdimporter",
       [](const fs::path& path) { fs::create_symlink(path.filename(), path); },
       " (Too many levels of symbolic links)"},
      {"Importers/Dangling.mdimporter",
       [](const fs::path& path) { fs::create_symlink("Nowhere.mdimporter", path); },
       " (No such file or directory)"},
      {"Importers/Pipe.mdimporter", fifo, " (not a folder)"},
      {"Importers/Plain.mdimporter",
       [&](const fs::path& path) {
         folder.write(path.lexically_relative(folder.path()).string(), "x");
       },
       " (not a folder)"},
      {"Importers/LoopedContents.mdimporter",
       [](const fs::path& path) {
         fs::create_directory(path);
         fs::create_symlink("Contents", path / "Contents");
       },
       " (Contents/Info.plist: Too many levels of symbolic links)"},
      {"Importers/PipedInfo.mdimporter",
       [&](const fs::path& path) {
         fs::create_directories(path / "Contents");
         fifo(path / "Contents/Info.plist");
       },
       " (Contents/Info.plist: Invalid argument)"},
      {"Importers/Empty.mdimporter", [](const fs::path& path) { fs::create_directory(path); },
       " (Contents/Info.plist: No such file or directory)"},
      {"Importers/Garbled.mdimporter",
       [&](const fs::path& path) {
         folder.write((path / "Contents/Info.plist").lexically_relative(folder.path()).string(),
                      "<plist>");
       },
       " (Contents/Info.plist holds no dictionary)"},
      {"Importers/NoCode.mdimporter",
       [&](const fs::path& path) {
         PropertyDictionary info = importerInfo("x.so", testFactoryID(2), "GoodFactory", "good");
         info.erase("CFBundleExecutable");
         folder.write((path / "Contents/Info.plist").lexically_relative(folder.path()).string(),
                      *xmlPropertyList(PropertyValue(std::move(info))));
       },
       " (no CFBundleExecutable)"},
      {"Importers/notes.txt",
       [&](const fs::path& path) { fs::create_symlink(path.filename(), path); }, ""},
      {"LoopFolder", [](const fs::path& path) { fs::create_symlink(path.filename(), path); },
       " (Too many levels of symbolic links)", true},
      {"FileFolder", [&](const fs::path& path) { folder.write(path.filename().string(), "x"); },
       " (Not a directory)", true},
      {"Missing", [](const fs::path&) {}, "", true},
  };
  std::string searchPath;
  std::vector<std::string> expected;
  for (const Row& row : rows) {
    fs::path path = folder.path() / row.entry;
    row.make(path);
    if (row.searched) searchPath += path.string() + ":";
    if (!row.log.empty())
      expected.push_back((row.searched ? "Importer folder skipped: " : "Skipped: ") +
                         path.string() + row.log);
  }
  ImporterEnvironment environment(folder, searchPath + (folder.path() / "Importers").string());
  CapturedLog log;
  MetaDataImporter importer;
  const std::string good = folder.write("a.good", "x");
  for (int time = 0; time < 2; ++time) {
    std::optional<PropertyDictionary> attributes = importer.metaDataOfFileAtPath(good);
    ASSERT_TRUE(attributes) << "import " << time;
    const PropertyValue* text = find(*attributes, "kMDItemTextContent");
    ASSERT_TRUE(text && text->string());
    EXPECT_EQ(toUtf8(*text->string()), good);
    EXPECT_TRUE(importer.supportsFileAtPath(good));
  }
  std::vector<std::string> lines = log.lines();
  std::sort(lines.begin(), lines.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(lines, expected);
  EXPECT_EQ(importer.bundles().bundlePaths(),
            std::vector<std::string>{(folder.path() / "Importers/Good.mdimporter").string()});
}

}  // namespace
}  // namespace ulvek
