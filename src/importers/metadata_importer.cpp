#include "importers/metadata_importer.h"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "base/ascii.h"
#include "base/failure.h"
#include "base/log.h"
#include "base/processors.h"
#include "importers/importer_corrections.h"
#include "importers/worker_protocol.h"
#include "metadata/file_types.h"
#include "platform/content_types.h"
#include "platform/user_defaults.h"

namespace ulvek {
namespace {

constexpr std::string_view kTextContent = "kMDItemTextContent";

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

std::optional<double> secondsOf(const PropertyValue& value) {
  if (value.real()) return *value.real();
  if (value.integer()) return double(*value.integer());
  return std::nullopt;
}

}  // namespace

OCRSettings OCRSettings::fromUserDefaults() {
  OCRSettings settings;
  settings.enabled = !userDefaultIsTrue("DisableOCR");
  if (auto languages = userDefault("OCRLanguages"); languages && languages->string())
    settings.languages = toUtf8(*languages->string());
  if (auto dpi = userDefault("OCRResolution")) {
    if (auto value = secondsOf(*dpi); value && *value >= 50 && *value <= 1200)
      settings.resolution = static_cast<int>(*value);
  }
  if (auto limit = userDefault("OCRTimeLimit")) {
    if (auto seconds = secondsOf(*limit); seconds && *seconds > 0)
      settings.timeLimit = std::chrono::duration<double>(*seconds);
  }
  return settings;
}

PropertyDictionary OCRSettings::asSettings() const {
  PropertyDictionary settings{
      {"DisableOCR", PropertyValue::fromUtf8(enabled ? "0" : "1")},
      {"OCRResolution", PropertyValue::fromUtf8(std::to_string(resolution))},
      {"OCRTimeLimit", PropertyValue::fromUtf8(std::to_string(timeLimit.count()))}};
  if (!languages.empty()) settings["OCRLanguages"] = PropertyValue::fromUtf8(languages);
  return settings;
}

bool mayHoldScans(std::string_view contentType) {
  return typeConformsTo(contentType, kUTTypePDF) || typeConformsTo(contentType, kUTTypeImage) ||
         typeConformsTo(contentType, "com.adobe.postscript");
}

MetaDataImporter& MetaDataImporter::sharedImporter() {
  // Never destroyed (imports may run while statics go away), but its worker is stopped at exit
  // so neither the worker's programs nor its temporary folder outlive the process.
  static MetaDataImporter* shared = [] {
    auto* importer = new MetaDataImporter();
    std::atexit([] { sharedImporter().workers().stop(); });
    return importer;
  }();
  return *shared;
}

MetaDataImporter::MetaDataImporter()
    : workers_({defaultTimeLimit(), defaultMemoryLimit()}),
      ocr_(OCRSettings::fromUserDefaults()),
      bundles_([this](const std::string& executable) { return preflight(executable); }) {}
MetaDataImporter::~MetaDataImporter() = default;

namespace {
thread_local std::optional<bool> ocrChoice;
thread_local std::size_t coresAllowed = 0;
std::atomic<std::size_t> threadsGranted = 0;
}  // namespace

ThreadGrant::ThreadGrant() {
  const std::size_t cores = coresAllowed > 0 ? coresAllowed : usableCores();
  std::size_t granted = threadsGranted.load();
  do {
    threads_ = granted + cores <= 2 * cores ? cores : 1;
  } while (!threadsGranted.compare_exchange_weak(granted, granted + threads_));
}

ThreadGrant::~ThreadGrant() { threadsGranted -= threads_; }

ScopedCores::ScopedCores(std::size_t cores) : previous_(coresAllowed) {
  if (cores > 0) coresAllowed = cores;
}

ScopedCores::~ScopedCores() { coresAllowed = previous_; }

ScopedOCRChoice::ScopedOCRChoice(std::optional<bool> enabled) : previous_(ocrChoice) {
  if (enabled) ocrChoice = enabled;
}

ScopedOCRChoice::~ScopedOCRChoice() { ocrChoice = previous_; }

void MetaDataImporter::setOCR(OCRSettings settings) {
  std::lock_guard guard(ocrLock_);
  ocr_ = std::move(settings);
}

OCRSettings MetaDataImporter::ocr() const {
  std::lock_guard guard(ocrLock_);
  return ocr_;
}

bool MetaDataImporter::preflight(const std::string& executable) {
  PropertyDictionary request{
      {std::string(worker::Field::Operation), PropertyValue(worker::Operation::Preflight)},
      {std::string(worker::Field::Executable), PropertyValue::fromUtf8(executable)}};
  Result<PropertyDictionary> answer = workers_.call(request);
  return answer &&
         worker::stringField(*answer, worker::Field::Outcome) == worker::Outcome::Loadable;
}

std::vector<ImporterMatch> MetaDataImporter::matchesForFile(const std::string& path,
                                                            std::string& contentType) {
  std::optional<std::string> type = typeOfFile(path);
  if (!type) return {};
  contentType = asciiLowercase(*type);
  bundles_.loadExtractorPlugins();
  std::lock_guard guard(registryLock_);
  return bundles_.matches(contentType, asciiLowercase(toUtf8(pathExtension(path))));
}

void MetaDataImporter::unregister(const std::string& bundle) {
  std::lock_guard guard(registryLock_);
  bundles_.unregister(bundle);
}

std::optional<PropertyDictionary> MetaDataImporter::call(const ImporterMatch& match,
                                                         const std::string& contentType,
                                                         const std::string& path, bool import,
                                                         bool& found) {
  found = false;
  LogContext importer("importer " + std::filesystem::path(match.bundle).stem().string(), path);
  std::optional<ImporterEntryPoint> entry;
  {
    std::lock_guard guard(registryLock_);
    entry = bundles_.entryPoint(match);
  }
  if (!entry) {
    logLine(match.bundle + ": No kMDImporter(URL)Interface " + match.factoryID);
    unregister(match.bundle);
    return std::nullopt;
  }
  PropertyDictionary request{
      {std::string(worker::Field::Operation), PropertyValue(worker::Operation::Call)},
      {std::string(worker::Field::Executable), PropertyValue::fromUtf8(entry->executable)},
      {std::string(worker::Field::Factory), PropertyValue::fromUtf8(entry->function)},
      {std::string(worker::Field::FactoryID), PropertyValue::fromUtf8(match.factoryID)},
      {std::string(worker::Field::ContentType), PropertyValue::fromUtf8(contentType)},
      {std::string(worker::Field::Path), PropertyValue::fromUtf8(path)},
      {std::string(worker::Field::Import), PropertyValue(import)}};
  OCRSettings ocr = this->ocr();
  if (ocrChoice) ocr.enabled = *ocrChoice;
  ThreadGrant grant;
  PropertyDictionary settings = ocr.asSettings();
  settings["ImporterThreads"] = PropertyValue::fromUtf8(std::to_string(grant.threads()));
  request[std::string(worker::Field::Settings)] = PropertyValue(std::move(settings));
  if (import && ocr.enabled && mayHoldScans(contentType))
    request[std::string(worker::Field::ExtraTime)] = PropertyValue(ocr.timeLimit.count());
  Result<PropertyDictionary> answer = workers_.call(request);
  if (!answer) {
    // A crash, hang or garbage costs this request only: as if the importer said nothing.
    std::string line = "Importer failed: " + match.bundle + " (" +
                       answer.error().localizedDescription + "): " + path;
    logFailure(answer.error().code == ETIMEDOUT ? FailureKind::ImporterTimeout
                                                : FailureKind::ImporterCrashed,
               std::move(line));
    return std::nullopt;
  }
  std::optional<TextString> outcome = worker::stringField(*answer, worker::Field::Outcome);
  if (outcome != worker::Outcome::Imported) {
    logLine(match.bundle + ": No kMDImporter(URL)Interface " + match.factoryID);
    unregister(match.bundle);
    return std::nullopt;
  }
  found = true;
  // The importer said it could not read the file (and why, in its own log line).
  if (const PropertyValue* read = find(*answer, worker::Field::Read);
      read && read->boolean() && !*read->boolean())
    reportFailure(FailureKind::Damaged, std::filesystem::path(match.bundle).stem().string() +
                                            " importer could not read " + path);
  const PropertyValue* attributes = find(*answer, worker::Field::Attributes);
  if (attributes && attributes->dictionary()) return *attributes->dictionary();
  return PropertyDictionary();
}

bool MetaDataImporter::getMetaData(PropertyDictionary* attributes, const std::string& path) {
  if (path.empty()) return false;
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return false;
  std::string type;
  bool succeeded = false;
  std::vector<ImporterMatch> matches = matchesForFile(path, type);
  // After a reader that found the file damaged or too large, that is the reason to give.
  if (matches.empty() && attributes && !failureReported())
    logFailure(FailureKind::Unsupported,
               "No importer for " + (type.empty() ? std::string("this kind") : type) + ": " + path);
  for (const ImporterMatch& match : matches) {
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
  std::string type;
  std::vector<ImporterMatch> found = matchesForFile(path, type);
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
