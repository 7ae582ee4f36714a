#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/property_value.h"

namespace ulvek {

// One importer of one bundle that would read a file.
struct ImporterMatch {
  std::string bundle;
  std::string factoryID;  // upper case, as the platform writes it
};

// What the worker needs to call an importer: the bundle's shared object and the exported
// function of the factory.
struct ImporterEntryPoint {
  std::string executable;
  std::string function;
};

// The importer plug-in bundles on this machine and what each reads. Bundles are folders
// NAME.mdimporter with Contents/Info.plist and Contents/Linux/<CFBundleExecutable>, found on the
// search path (importerSearchPath()). The types they declare join the format registry; a copy
// earlier on the path replaces a later one with the same importers. Whether a bundle's code
// loads is asked (the preflight) only when a file could go to it or the tables are read.
class BundleRegistry {
 public:
  // The published importer plug-in type.
  static constexpr std::string_view kImporterTypeID = "8B08C4BF-415B-11D8-B3F9-0003936726FC";

  // Whether a bundle's shared object loads; bundles whose preflight fails leave the tables.
  // Without one, every bundle found counts as loadable.
  using Preflight = std::function<bool(const std::string& executable)>;
  explicit BundleRegistry(Preflight preflight) : preflight_(std::move(preflight)) {}

  // Registers one bundle from its information dictionary under `path`.
  void addBundleToMDImporters(const PropertyDictionary& info, const std::string& path);
  // Finds the bundles on the search path, once per process. An entry that cannot be examined
  // costs one log line and is left out; discovery itself never fails.
  void loadExtractorPlugins();

  // The tables, for `ulvekbot importers` and tests: bundle paths in discovery order. Reading
  // them first runs the load preflight of every bundle not yet tried.
  const std::vector<std::string>& bundlePaths() { return verifyAll(), bundlePaths_; }
  const std::map<std::string, std::vector<std::string>>& contentTypesForMDImporter() {
    return verifyAll(), contentTypes_;
  }
  const std::map<std::string, std::vector<std::string>>& extensionsForMDImporter() {
    return verifyAll(), extensions_;
  }
  const std::optional<std::map<std::string, std::vector<std::string>>>& factoriesForMDImporter() {
    return verifyAll(), factories_;
  }
  const std::optional<std::vector<std::string>>& allFactories() {
    return verifyAll(), allFactories_;
  }
  // Bundles found but not yet through the load preflight.
  std::size_t bundlesAwaitingPreflight() const { return unverified_.size(); }

  // The importers for a file of `contentType` (lower case) and `extension` (lower case, may be
  // empty): every bundle registered for either under the first factory, in discovery order, that
  // any of them names. Runs the preflight of the bundles that could change the answer.
  std::vector<ImporterMatch> matches(const std::string& contentType, const std::string& extension);
  std::optional<ImporterEntryPoint> entryPoint(const ImporterMatch& match) const;
  // A bundle whose importer gave no interface reads nothing more in this process.
  void unregister(const std::string& bundle);

 private:
  bool registeredFor(const std::string& bundle, const std::string& contentType,
                     const std::string& extension) const;
  void verify(const std::vector<std::string>& bundles);
  void verifyAll();
  std::vector<std::string> bundlesDecidingFor(const std::vector<std::string>& candidates) const;
  void collectFactories();

  Preflight preflight_;
  std::vector<std::string> bundlePaths_;
  std::map<std::string, std::vector<std::string>> contentTypes_;
  std::map<std::string, std::vector<std::string>> extensions_;
  std::optional<std::map<std::string, std::vector<std::string>>> factories_;
  std::optional<std::vector<std::string>> allFactories_;
  std::map<std::string, PropertyDictionary> infos_;  // bundle → its information dictionary
  std::map<std::string, std::string> executables_;   // bundle → its shared object
  std::map<std::string, std::vector<std::string>>
      typeFactories_;                    // bundle → its importer factories
  std::vector<std::string> discovered_;  // every bundle with an executable, in discovery order
  std::set<std::string> unverified_;     // found, but not yet through the load preflight
  std::once_flag loaded_;
};

// The folders searched for bundles, in order: each folder of $ULVEKBOT_IMPORTER_PATH, then
// $XDG_DATA_HOME/ulvekbot/Importers, the installed lib/ulvekbot/Importers, and Importers beside
// the running program; each folder once.
std::vector<std::string> importerSearchPath();

// A bundle's information dictionary (Contents/Info.plist), or nothing, with the reason in `why`.
std::optional<PropertyDictionary> bundleInfo(const std::string& bundlePath,
                                             std::string* why = nullptr);

}  // namespace ulvek
