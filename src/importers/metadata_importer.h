#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/property_value.h"
#include "importers/worker_process.h"

namespace ulvek {

// The importer plug-ins found on this machine and how to call them. Bundles are folders
// NAME.mdimporter with Contents/Info.plist and Contents/Linux/<CFBundleExecutable>, found on the
// search path (importerSearchPath()); their code runs in the worker process only.
class MetaDataImporter {
 public:
  // The published importer plug-in type.
  static constexpr std::string_view kImporterTypeID = "8B08C4BF-415B-11D8-B3F9-0003936726FC";

  static MetaDataImporter& sharedImporter();
  MetaDataImporter();
  ~MetaDataImporter();

  // Registers one bundle from its information dictionary under `path`.
  void addBundleToMDImporters(const PropertyDictionary& info, const std::string& path);
  // Finds the bundles on the search path, once per process.
  void loadExtractorPlugins();

  // YES when an importer for the file was found and an interface obtained; with `attributes`,
  // what the importer wrote.
  bool getMetaData(PropertyDictionary* attributes, const std::string& path);
  bool supportsFileAtPath(const std::string& path) { return getMetaData(nullptr, path); }
  // The importer's attributes with the host's corrections; nothing when no importer answered.
  std::optional<PropertyDictionary> metaDataOfFileAtPath(const std::string& path);
  std::optional<TextString> textContentOfFileAtPath(const std::string& path);

  // Limits of one importer call; the defaults come from the user defaults "ImporterTimeLimit"
  // (seconds) and "ImporterMemoryLimit" (MiB).
  void setLimits(WorkerProcess::Limits limits) { worker_.setLimits(limits); }
  WorkerProcess& worker() { return worker_; }

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
  // The bundle that would read a file (the first match), for `ulvekbot classify`.
  std::optional<std::string> importerForFile(const std::string& path);

 private:
  struct Match {
    std::string bundle;
    std::string factoryID;
  };
  std::vector<Match> matches(const std::string& contentType, const std::string& extension);
  bool registeredFor(const std::string& bundle, const std::string& contentType,
                     const std::string& extension) const;
  // The load preflight of bundles not yet tried; those that fail leave the tables.
  void verify(const std::vector<std::string>& bundles);
  void verifyAll();
  std::vector<std::string> bundlesDecidingFor(const std::vector<std::string>& candidates) const;
  void collectFactories();
  std::optional<PropertyDictionary> call(const Match& match, const std::string& contentType,
                                         const std::string& path, bool import, bool& found);
  void unregister(const std::string& bundle);

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
  WorkerProcess worker_;
};

// The folders searched for bundles, in order: each folder of $ULVEKBOT_IMPORTER_PATH, then
// $XDG_DATA_HOME/ulvekbot/Importers, the installed lib/ulvekbot/Importers, and Importers beside
// the running program.
std::vector<std::string> importerSearchPath();

// A bundle's information dictionary (Contents/Info.plist), or nothing.
std::optional<PropertyDictionary> bundleInfo(const std::string& bundlePath);

}  // namespace ulvek
