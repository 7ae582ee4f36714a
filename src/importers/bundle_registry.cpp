#include "importers/bundle_registry.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "base/ascii.h"
#include "base/log.h"
#include "base/property_list.h"
#include "platform/content_types.h"
#include "platform/file_bytes.h"
#include "text/character_tables.h"
#include "text/string_utilities.h"

#ifndef ULVEK_INSTALL_PREFIX
#define ULVEK_INSTALL_PREFIX "/usr/local"
#endif

namespace ulvek {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kChmArchiveDynamic = "dyn.ah62d4rv4ge80g4dr";
constexpr std::string_view kChmArchive = "com.microsoft.chm-archive";

const PropertyArray* arrayValue(const PropertyDictionary& dictionary, std::string_view key) {
  const PropertyValue* value = find(dictionary, key);
  return value ? value->array() : nullptr;
}

const PropertyDictionary* dictionaryValue(const PropertyDictionary& dictionary,
                                          std::string_view key) {
  const PropertyValue* value = find(dictionary, key);
  return value ? value->dictionary() : nullptr;
}

std::optional<std::string> utf8Value(const PropertyDictionary& dictionary, std::string_view key) {
  const PropertyValue* value = find(dictionary, key);
  if (!value || !value->string()) return std::nullopt;
  return toUtf8(*value->string());
}

// A declaration's value that may be one string or a list of them.
std::vector<std::string> stringsOf(const PropertyValue* value) {
  std::vector<std::string> strings;
  if (!value) return strings;
  if (value->string()) {
    if (!isWhiteString(*value->string())) strings.push_back(toUtf8(*value->string()));
    return strings;
  }
  if (const PropertyArray* list = value->array()) {
    for (const PropertyValue& item : *list)
      if (item.string() && !isWhiteString(*item.string()))
        strings.push_back(toUtf8(*item.string()));
  }
  return strings;
}

// What an exported type declaration tells the format registry.
DeclaredContentType declaredType(const PropertyDictionary& declaration,
                                 const PropertyDictionary* tags) {
  DeclaredContentType type;
  std::vector<std::string> identifier = stringsOf(find(declaration, "UTTypeIdentifier"));
  if (!identifier.empty()) type.identifier = identifier.front();
  type.conformsTo = stringsOf(find(declaration, "UTTypeConformsTo"));
  if (tags) {
    type.extensions = stringsOf(find(*tags, "public.filename-extension"));
    type.mimeTypes = stringsOf(find(*tags, "public.mime-type"));
    type.typeCodes = stringsOf(find(*tags, "com.apple.ostype"));
  }
  return type;
}

// The bundles in one folder of the search path, sorted. Whatever cannot be examined (a link
// loop, a dangling link, a stale mount) is one log line and left out; a folder that is not
// there is no error, most of the search path is usually missing.
std::vector<std::string> bundlesInFolder(const std::string& folder) {
  std::vector<std::string> found;
  std::error_code error;
  fs::directory_iterator entries(folder, error);
  if (error) {
    if (error != std::errc::no_such_file_or_directory)
      logLine("Importer folder skipped: " + folder + " (" + error.message() + ")");
    return found;
  }
  for (; entries != fs::directory_iterator(); entries.increment(error)) {
    const fs::path& path = entries->path();
    if (asciiLowercase(path.extension().string()) != ".mdimporter") continue;
    // Links are followed: a bundle may be installed as a link to a build.
    std::error_code statusError;
    fs::file_status status = fs::status(path, statusError);
    if (statusError) {
      logLine("Skipped: " + path.string() + " (" + statusError.message() + ")");
    } else if (!fs::is_directory(status)) {
      logLine("Skipped: " + path.string() + " (not a folder)");
    } else {
      found.push_back(path.string());
    }
  }
  // A failed step ends the listing; what was found before it stays.
  if (error) logLine("Importer folder read in part: " + folder + " (" + error.message() + ")");
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace

std::vector<std::string> importerSearchPath() {
  std::vector<std::string> folders;
  if (const char* paths = std::getenv("ULVEKBOT_IMPORTER_PATH")) {
    for (std::string_view folder : nonEmptyParts(paths, ':')) folders.emplace_back(folder);
  }
  if (const char* data = std::getenv("XDG_DATA_HOME"); data && *data == '/') {
    folders.push_back(std::string(data) + "/ulvekbot/Importers");
  } else if (const char* home = std::getenv("HOME"); home && *home) {
    folders.push_back(std::string(home) + "/.local/share/ulvekbot/Importers");
  }
  // The installation the running program belongs to (PREFIX/bin/ulvekbot), wherever it was
  // installed, then the prefix it was built for.
  std::error_code error;
  fs::path self = fs::read_symlink("/proc/self/exe", error);
  std::string installed = std::string(ULVEK_INSTALL_PREFIX) + "/lib/ulvekbot/Importers";
  if (!error) {
    std::string beside = (self.parent_path().parent_path() / "lib/ulvekbot/Importers").string();
    if (beside != installed) folders.push_back(beside);
  }
  folders.push_back(installed);
  if (!error) folders.push_back((self.parent_path() / "Importers").string());
  // A folder named twice is searched once: the installed Python package names the installed
  // folder, which is also the one of the interpreter's prefix, /usr; every bundle in it would
  // otherwise be found again and logged as replaced by itself.
  std::vector<std::string> unique;
  std::vector<fs::path> seen;
  for (std::string& folder : folders) {
    fs::path normal = fs::path(folder).lexically_normal();
    if (!normal.has_filename()) normal = normal.parent_path();
    if (std::find(seen.begin(), seen.end(), normal) != seen.end()) continue;
    seen.push_back(std::move(normal));
    unique.push_back(std::move(folder));
  }
  return unique;
}

std::optional<PropertyDictionary> bundleInfo(const std::string& bundlePath, std::string* why) {
  Result<FileBytes> bytes =
      FileBytes::read(bundlePath + "/Contents/Info.plist", 16 << 20, FileBytes::Caching::cached);
  if (!bytes) {
    if (why) *why = "Contents/Info.plist: " + bytes.error().localizedDescription;
    return std::nullopt;
  }
  std::optional<PropertyValue> info = propertyListFromBytes(bytes->bytes());
  if (!info || !info->dictionary()) {
    if (why) *why = "Contents/Info.plist holds no dictionary";
    return std::nullopt;
  }
  return std::move(*info->dictionary());
}

void BundleRegistry::addBundleToMDImporters(const PropertyDictionary& info,
                                            const std::string& path) {
  std::string name = fs::path(path).filename().string();
  if (utf8Value(info, "CFBundleIdentifier") == "ca.indev.mailtags.mdimporter" ||
      name == "TagsMail.mdimporter" || name == "_TagsMail.mdimporter") {
    logLine("Skipped: " + path);
    return;
  }
  if (std::find(bundlePaths_.begin(), bundlePaths_.end(), path) == bundlePaths_.end())
    bundlePaths_.push_back(path);
  infos_[path] = info;

  if (const PropertyArray* documentTypes = arrayValue(info, "CFBundleDocumentTypes")) {
    for (const PropertyValue& element : *documentTypes) {
      const PropertyDictionary* type = element.dictionary();
      if (!type || utf8Value(*type, "CFBundleTypeRole") != "MDImporter") continue;
      const PropertyArray* contentTypes = arrayValue(*type, "LSItemContentTypes");
      if (!contentTypes) continue;
      std::vector<std::string>& registered = contentTypes_[path];
      for (const PropertyValue& contentType : *contentTypes) {
        if (!contentType.string()) continue;
        std::string lowered = asciiLowercase(toUtf8(*contentType.string()));
        registered.push_back(lowered == kChmArchiveDynamic ? std::string(kChmArchive) : lowered);
      }
    }
  }
  if (const PropertyArray* exported = arrayValue(info, "UTExportedTypeDeclarations")) {
    std::vector<std::string>& registered = extensions_[path];
    for (const PropertyValue& element : *exported) {
      const PropertyDictionary* declaration = element.dictionary();
      const PropertyDictionary* tags =
          declaration ? dictionaryValue(*declaration, "UTTypeTagSpecification") : nullptr;
      if (declaration) declareContentType(declaredType(*declaration, tags));
      const PropertyArray* extensions =
          tags ? arrayValue(*tags, "public.filename-extension") : nullptr;
      if (!extensions) continue;
      for (const PropertyValue& extension : *extensions) {
        if (!extension.string() || isWhiteString(*extension.string())) continue;
        registered.push_back(asciiLowercase(toUtf8(*extension.string())));
      }
    }
  }
  if (factories_) {
    if (const PropertyDictionary* factories = dictionaryValue(info, "CFPlugInFactories")) {
      std::vector<std::string>& registered = (*factories_)[path];
      for (const auto& [factoryID, function] : *factories) registered.push_back(factoryID);
    }
  }
}

void BundleRegistry::loadExtractorPlugins() {
  std::call_once(loaded_, [this] {
    contentTypes_.clear();
    extensions_.clear();
    factories_.emplace();
    std::vector<std::string> found;
    for (const std::string& folder : importerSearchPath()) {
      std::vector<std::string> here = bundlesInFolder(folder);
      found.insert(found.end(), here.begin(), here.end());
    }
    // A bundle's load preflight waits until a file could go to it (or the tables are read):
    // loading every plug-in's libraries up front costs each process more than most imports.
    std::map<std::string, std::string> bundleOfFactory;  // the first bundle with each importer
    for (const std::string& bundle : found) {
      std::string why;
      std::optional<PropertyDictionary> info = bundleInfo(bundle, &why);
      std::optional<std::string> executable =
          info ? utf8Value(*info, "CFBundleExecutable") : std::nullopt;
      if (!executable) {
        logLine("Skipped: " + bundle + " (" + (info ? "no CFBundleExecutable" : why) + ")");
        continue;
      }
      std::vector<std::string> ofImporters;
      const PropertyDictionary* types = dictionaryValue(*info, "CFPlugInTypes");
      const PropertyArray* listed = types ? arrayValue(*types, kImporterTypeID) : nullptr;
      for (const PropertyValue& factory : listed ? *listed : PropertyArray())
        if (factory.string()) ofImporters.push_back(toUtf8(*factory.string()));
      // A copy earlier on the search path (a user's own build of an installed importer)
      // replaces this one rather than both running.
      bool replaced = !ofImporters.empty() &&
                      std::all_of(ofImporters.begin(), ofImporters.end(),
                                  [&](const auto& id) { return bundleOfFactory.contains(id); });
      if (replaced) {
        logLine("Skipped: " + bundle + " (replaced by " + bundleOfFactory[ofImporters[0]] + ")");
        continue;
      }
      for (const std::string& factory : ofImporters) bundleOfFactory.emplace(factory, bundle);
      addBundleToMDImporters(*info, bundle);
      executables_[bundle] = bundle + "/Contents/Linux/" + *executable;
      typeFactories_[bundle] = std::move(ofImporters);
      discovered_.push_back(bundle);
      unverified_.insert(bundle);
    }
    collectFactories();
  });
}

void BundleRegistry::collectFactories() {
  std::vector<std::string> factories;
  for (const std::string& bundle : discovered_) {
    auto listed = typeFactories_.find(bundle);
    if (listed == typeFactories_.end()) continue;
    for (const std::string& id : listed->second)
      if (std::find(factories.begin(), factories.end(), id) == factories.end())
        factories.push_back(id);
  }
  allFactories_ = std::move(factories);
}

void BundleRegistry::verify(const std::vector<std::string>& bundles) {
  bool removed = false;
  for (const std::string& bundle : bundles) {
    if (!unverified_.erase(bundle)) continue;
    if (!preflight_ || preflight_(executables_[bundle])) continue;
    // As if never found: no message, and its factories no longer count.
    std::erase(discovered_, bundle);
    std::erase(bundlePaths_, bundle);
    contentTypes_.erase(bundle);
    extensions_.erase(bundle);
    if (factories_) factories_->erase(bundle);
    typeFactories_.erase(bundle);
    infos_.erase(bundle);
    removed = true;
  }
  if (removed) collectFactories();
}

void BundleRegistry::verifyAll() {
  if (!unverified_.empty()) verify(std::vector<std::string>(discovered_));
}

// The bundles whose preflight can change a match for these candidates: the candidates, and every
// bundle naming one of their factories, since the first bundle to name a factory sets its place.
std::vector<std::string> BundleRegistry::bundlesDecidingFor(
    const std::vector<std::string>& candidates) const {
  std::vector<std::string> ids;
  for (const std::string& candidate : candidates) {
    for (const auto* table : {&typeFactories_, factories_ ? &*factories_ : nullptr}) {
      if (!table) continue;
      if (auto listed = table->find(candidate); listed != table->end())
        for (const std::string& id : listed->second) ids.push_back(asciiUppercase(id));
    }
  }
  std::vector<std::string> deciding;
  for (const std::string& bundle : discovered_) {
    bool names = std::find(candidates.begin(), candidates.end(), bundle) != candidates.end();
    for (const auto* table : {&typeFactories_, factories_ ? &*factories_ : nullptr}) {
      if (names || !table) continue;
      if (auto listed = table->find(bundle); listed != table->end())
        for (const std::string& id : listed->second)
          names = names || std::find(ids.begin(), ids.end(), asciiUppercase(id)) != ids.end();
    }
    if (names) deciding.push_back(bundle);
  }
  return deciding;
}

bool BundleRegistry::registeredFor(const std::string& bundle, const std::string& contentType,
                                   const std::string& extension) const {
  auto types = contentTypes_.find(bundle);
  auto extensions = extensions_.find(bundle);
  bool byType =
      types != contentTypes_.end() &&
      std::find(types->second.begin(), types->second.end(), contentType) != types->second.end();
  bool byExtension = !extension.empty() && extensions != extensions_.end() &&
                     std::find(extensions->second.begin(), extensions->second.end(), extension) !=
                         extensions->second.end();
  return byType || byExtension;
}

std::vector<ImporterMatch> BundleRegistry::matches(const std::string& contentType,
                                                   const std::string& extension) {
  std::vector<ImporterMatch> found;
  if (!allFactories_ || !factories_) return found;
  if (!unverified_.empty()) {
    std::vector<std::string> candidates;
    for (const std::string& bundle : bundlePaths_)
      if (registeredFor(bundle, contentType, extension)) candidates.push_back(bundle);
    verify(bundlesDecidingFor(candidates));
  }
  for (const std::string& factory : *allFactories_) {
    // Factories are compared as the upper-case text the platform writes.
    std::string upper = asciiUppercase(factory);
    for (const std::string& bundle : bundlePaths_) {
      auto listed = factories_->find(bundle);
      if (listed == factories_->end() ||
          std::find(listed->second.begin(), listed->second.end(), upper) == listed->second.end())
        continue;
      if (registeredFor(bundle, contentType, extension)) found.push_back({bundle, upper});
    }
    if (!found.empty()) break;  // one factory is handled, with every bundle that matched under it
  }
  return found;
}

std::optional<ImporterEntryPoint> BundleRegistry::entryPoint(const ImporterMatch& match) const {
  auto info = infos_.find(match.bundle);
  if (info == infos_.end()) return std::nullopt;
  std::optional<std::string> executable = utf8Value(info->second, "CFBundleExecutable");
  const PropertyDictionary* factories = dictionaryValue(info->second, "CFPlugInFactories");
  std::optional<std::string> function =
      factories ? utf8Value(*factories, match.factoryID) : std::nullopt;
  if (!executable || !function) return std::nullopt;
  return ImporterEntryPoint{match.bundle + "/Contents/Linux/" + *executable, *function};
}

void BundleRegistry::unregister(const std::string& bundle) {
  contentTypes_.erase(bundle);
  extensions_.erase(bundle);
}

}  // namespace ulvek
