#pragma once

// Importer bundles of the test plug-in (tests/importers/test_plugin.c), written into a temporary
// folder for the registry's and the host's tests.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "base/property_list.h"
#include "importers/bundle_registry.h"
#include "test_support.h"

namespace ulvek::testing {

inline const std::string kImporterTypeID(BundleRegistry::kImporterTypeID);

// An Info.plist of one importer factory whose exported `function` (a behaviour of the test
// plug-in: "GoodFactory", "CrashFactory", …) reads files with `extension`.
inline PropertyDictionary importerInfo(const std::string& executable, const std::string& factoryID,
                                       const std::string& function, const std::string& extension) {
  return PropertyDictionary{
      {"CFBundleIdentifier", PropertyValue::fromUtf8("test." + function)},
      {"CFBundleExecutable", PropertyValue::fromUtf8(executable)},
      {"CFBundleDocumentTypes", PropertyArray{PropertyDictionary{
                                    {"CFBundleTypeRole", u"MDImporter"},
                                    {"LSItemContentTypes", PropertyArray{u"com.example.none"}}}}},
      {"UTExportedTypeDeclarations",
       PropertyArray{PropertyDictionary{
           {"UTTypeTagSpecification",
            PropertyDictionary{{"public.filename-extension",
                                PropertyArray{PropertyValue::fromUtf8(extension)}}}}}}},
      {"CFPlugInFactories", PropertyDictionary{{factoryID, PropertyValue::fromUtf8(function)}}},
      {"CFPlugInTypes",
       PropertyDictionary{{kImporterTypeID, PropertyArray{PropertyValue::fromUtf8(factoryID)}}}},
  };
}

// The n-th factory identifier of the tests.
inline std::string testFactoryID(int n) {
  char id[40];
  std::snprintf(id, sizeof id, "00000000-0000-4000-8000-%012d", n);
  return id;
}

// Writes FOLDER/NAME.mdimporter (FOLDER relative to `folder`) with the test plug-in as its
// shared object and `info` as its Info.plist; answers the bundle's path.
inline std::string writeBundle(const TemporaryFolder& folder, const std::string& under,
                               const std::string& name, const PropertyDictionary& info) {
  std::filesystem::path bundle = folder.path() / under / (name + ".mdimporter");
  std::filesystem::create_directories(bundle / "Contents/Linux");
  std::filesystem::copy_file(std::string(ULVEK_BINARY_DIR) + "/tests/test_importer_plugin.so",
                             bundle / "Contents/Linux" / (name + ".so"));
  folder.write((bundle / "Contents/Info.plist").lexically_relative(folder.path()).string(),
               *xmlPropertyList(PropertyValue(info)));
  return bundle.string();
}

// A bundle in Importers/ reading `contentType`, and declaring `declared` when given.
inline std::string writeTypedBundle(const TemporaryFolder& folder, const std::string& name,
                                    const std::string& factoryID, const std::u16string& contentType,
                                    const PropertyArray& declared) {
  PropertyDictionary info = importerInfo(name + ".so", factoryID, "GoodFactory", "unused-" + name);
  info["CFBundleDocumentTypes"] = PropertyArray{PropertyDictionary{
      {"CFBundleTypeRole", u"MDImporter"}, {"LSItemContentTypes", PropertyArray{contentType}}}};
  info["UTExportedTypeDeclarations"] = declared;
  return writeBundle(folder, "Importers", name, info);
}

// Bundles are looked for on `searchPath` only (the user's data folder lies inside `folder`),
// and called through the worker of the build, for the life of the object.
class ImporterEnvironment {
 public:
  ImporterEnvironment(const TemporaryFolder& folder, const std::string& searchPath) {
    ::setenv("ULVEKBOT_IMPORTER_PATH", searchPath.c_str(), 1);
    ::setenv("ULVEKBOT_IMPORTER_WORKER",
             (std::string(ULVEK_BINARY_DIR) + "/src/ulvekbot-importer-worker").c_str(), 1);
    ::setenv("XDG_DATA_HOME", (folder.path() / "data").c_str(), 1);
  }
  ~ImporterEnvironment() {
    ::unsetenv("ULVEKBOT_IMPORTER_PATH");
    ::unsetenv("ULVEKBOT_IMPORTER_WORKER");
    ::unsetenv("XDG_DATA_HOME");
  }
  ImporterEnvironment(const ImporterEnvironment&) = delete;
  ImporterEnvironment& operator=(const ImporterEnvironment&) = delete;
};

}  // namespace ulvek::testing
