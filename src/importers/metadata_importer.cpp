#include "importers/metadata_importer.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "base/ascii.h"
#include "base/log.h"
#include "base/property_list.h"
#include "importers/importer_corrections.h"
#include "importers/worker_protocol.h"
#include "metadata/file_types.h"
#include "platform/content_types.h"
#include "platform/file_bytes.h"
#include "platform/user_defaults.h"
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
constexpr std::string_view kTextContent = "kMDItemTextContent";

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

std::chrono::milliseconds defaultTimeLimit() {
  if (auto value = userDefault("ImporterTimeLimit")) {
    double seconds = value->real()      ? *value->real()
                     : value->integer() ? double(*value->integer())
                                        : 0;
    if (seconds > 0) return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
  }
  return std::chrono::milliseconds(10000);
}

unsigned long long defaultMemoryLimit() {
  if (auto value = userDefault("ImporterMemoryLimit")) {
    if (value->integer() && *value->integer() > 0)
      return static_cast<unsigned long long>(*value->integer());
  }
  return 2048;
}

}  // namespace

// ---- Discovery ----

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
  return folders;
}

std::optional<PropertyDictionary> bundleInfo(const std::string& bundlePath) {
  std::optional<FileBytes> bytes =
      FileBytes::read(bundlePath + "/Contents/Info.plist", 16 << 20).take();
  if (!bytes) return std::nullopt;
  std::optional<PropertyValue> info = propertyListFromBytes(bytes->bytes());
  if (!info || !info->dictionary()) return std::nullopt;
  return std::move(*info->dictionary());
}

MetaDataImporter& MetaDataImporter::sharedImporter() {
  // Never destroyed (imports may run while statics go away), but its worker is stopped at exit
  // so neither the worker's programs nor its temporary folder outlive the process.
  static MetaDataImporter* shared = [] {
    auto* importer = new MetaDataImporter();
    std::atexit([] { sharedImporter().worker().stop(); });
    return importer;
  }();
  return *shared;
}

MetaDataImporter::MetaDataImporter() : worker_({defaultTimeLimit(), defaultMemoryLimit()}) {}
MetaDataImporter::~MetaDataImporter() = default;

namespace {

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
  }
  return type;
}

}  // namespace

void MetaDataImporter::addBundleToMDImporters(const PropertyDictionary& info,
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

void MetaDataImporter::loadExtractorPlugins() {
  std::call_once(loaded_, [this] {
    contentTypes_.clear();
    extensions_.clear();
    factories_.emplace();
    std::vector<std::string> found;
    for (const std::string& folder : importerSearchPath()) {
      std::error_code error;
      std::vector<std::string> here;
      for (const auto& entry : fs::directory_iterator(folder, error)) {
        if (asciiLowercase(entry.path().extension().string()) == ".mdimporter" &&
            entry.is_directory())
          here.push_back(entry.path().string());
      }
      std::sort(here.begin(), here.end());
      found.insert(found.end(), here.begin(), here.end());
    }
    // A bundle's load preflight waits until a file could go to it (or the tables are read):
    // loading every plug-in's libraries up front costs each process more than most imports.
    std::map<std::string, std::string> bundleOfFactory;  // the first bundle with each importer
    for (const std::string& bundle : found) {
      std::optional<PropertyDictionary> info = bundleInfo(bundle);
      std::optional<std::string> executable =
          info ? utf8Value(*info, "CFBundleExecutable") : std::nullopt;
      if (!executable) continue;
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

void MetaDataImporter::collectFactories() {
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

void MetaDataImporter::verify(const std::vector<std::string>& bundles) {
  bool removed = false;
  for (const std::string& bundle : bundles) {
    if (!unverified_.erase(bundle)) continue;
    PropertyDictionary preflight{
        {std::string(worker::Field::Operation), PropertyValue(worker::Operation::Preflight)},
        {std::string(worker::Field::Executable), PropertyValue::fromUtf8(executables_[bundle])}};
    Result<PropertyDictionary> answer = worker_.call(preflight);
    if (answer && worker::stringField(*answer, worker::Field::Outcome) == worker::Outcome::Loadable)
      continue;
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

void MetaDataImporter::verifyAll() {
  if (!unverified_.empty()) verify(std::vector<std::string>(discovered_));
}

// The bundles whose preflight can change a match for these candidates: the candidates, and every
// bundle naming one of their factories, since the first bundle to name a factory sets its place.
std::vector<std::string> MetaDataImporter::bundlesDecidingFor(
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

// ---- Invocation ----

bool MetaDataImporter::registeredFor(const std::string& bundle, const std::string& contentType,
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

std::vector<MetaDataImporter::Match> MetaDataImporter::matches(const std::string& contentType,
                                                               const std::string& extension) {
  std::vector<Match> found;
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

void MetaDataImporter::unregister(const std::string& bundle) {
  contentTypes_.erase(bundle);
  extensions_.erase(bundle);
}

std::optional<PropertyDictionary> MetaDataImporter::call(const Match& match,
                                                         const std::string& contentType,
                                                         const std::string& path, bool import,
                                                         bool& found) {
  found = false;
  const PropertyDictionary& info = infos_[match.bundle];
  std::optional<std::string> executable = utf8Value(info, "CFBundleExecutable");
  const PropertyDictionary* factories = dictionaryValue(info, "CFPlugInFactories");
  std::optional<std::string> function =
      factories ? utf8Value(*factories, match.factoryID) : std::nullopt;
  if (!executable || !function) {
    logLine(match.bundle + ": No kMDImporter(URL)Interface " + match.factoryID);
    unregister(match.bundle);
    return std::nullopt;
  }
  PropertyDictionary request{
      {std::string(worker::Field::Operation), PropertyValue(worker::Operation::Call)},
      {std::string(worker::Field::Executable),
       PropertyValue::fromUtf8(match.bundle + "/Contents/Linux/" + *executable)},
      {std::string(worker::Field::Factory), PropertyValue::fromUtf8(*function)},
      {std::string(worker::Field::FactoryID), PropertyValue::fromUtf8(match.factoryID)},
      {std::string(worker::Field::ContentType), PropertyValue::fromUtf8(contentType)},
      {std::string(worker::Field::Path), PropertyValue::fromUtf8(path)},
      {std::string(worker::Field::Import), PropertyValue(import)}};
  Result<PropertyDictionary> answer = worker_.call(request);
  if (!answer) {
    // A crash, hang or garbage costs this request only: as if the importer said nothing.
    logLine("Importer failed: " + match.bundle + " (" + answer.error().localizedDescription +
            "): " + path);
    return std::nullopt;
  }
  std::optional<TextString> outcome = worker::stringField(*answer, worker::Field::Outcome);
  if (outcome != worker::Outcome::Imported) {
    logLine(match.bundle + ": No kMDImporter(URL)Interface " + match.factoryID);
    unregister(match.bundle);
    return std::nullopt;
  }
  found = true;
  const PropertyDictionary* attributes = dictionaryValue(*answer, worker::Field::Attributes);
  return attributes ? *attributes : PropertyDictionary();
}

bool MetaDataImporter::getMetaData(PropertyDictionary* attributes, const std::string& path) {
  if (path.empty()) return false;
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return false;
  std::optional<std::string> contentType = typeOfFile(path);
  if (!contentType) return false;
  std::string type = asciiLowercase(*contentType);
  std::string extension = asciiLowercase(toUtf8(pathExtension(path)));
  loadExtractorPlugins();
  if (!allFactories_) return false;
  bool succeeded = false;
  for (const Match& match : matches(type, extension)) {
    bool found = false;
    std::optional<PropertyDictionary> answer =
        call(match, type, path, attributes != nullptr, found);
    if (!found) continue;
    succeeded = true;
    if (attributes) *attributes = answer ? std::move(*answer) : PropertyDictionary();
  }
  return succeeded;
}

std::optional<std::string> MetaDataImporter::importerForFile(const std::string& path) {
  std::optional<std::string> contentType = typeOfFile(path);
  if (!contentType) return std::nullopt;
  loadExtractorPlugins();
  std::vector<Match> found =
      matches(asciiLowercase(*contentType), asciiLowercase(toUtf8(pathExtension(path))));
  if (found.empty()) return std::nullopt;
  return found.back().bundle;
}

std::optional<PropertyDictionary> MetaDataImporter::metaDataOfFileAtPath(const std::string& path) {
  PropertyDictionary attributes;
  if (!getMetaData(&attributes, path)) return std::nullopt;
  if (!attributes.empty()) correctImporterAnswer(attributes, path);
  return attributes;
}

std::optional<TextString> MetaDataImporter::textContentOfFileAtPath(const std::string& path) {
  std::optional<PropertyDictionary> attributes = metaDataOfFileAtPath(path);
  if (!attributes) return std::nullopt;
  const PropertyValue* text = find(*attributes, kTextContent);
  if (!text || !text->string()) return std::nullopt;
  return *text->string();
}

}  // namespace ulvek
