// The bundle registry: registration from Info.plist, and a user's copy on the search path
// replacing an installed bundle.

#include "importers/bundle_registry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "test_bundles.h"
#include "test_support.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;
using testing::CapturedLog;
using testing::ImporterEnvironment;
using testing::TemporaryFolder;
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

}  // namespace
}  // namespace ulvek
