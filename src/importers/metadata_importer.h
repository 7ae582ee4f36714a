#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/property_value.h"
#include "importers/bundle_registry.h"
#include "importers/worker_pool.h"

namespace ulvek {

// What the importers of scans and pictures (PDF, Image) are told of OCR, as settings of each
// call. OCR has a time budget of its own, added to the call's time limit where it may run.
struct OCRSettings {
  bool enabled = true;
  std::string languages;  // "deu+eng"; empty: the importer's choice, the locale's and English
  int resolution = 300;   // dots per inch of a rendered page
  std::chrono::duration<double> timeLimit{60};

  // From the user defaults DisableOCR, OCRLanguages, OCRResolution and OCRTimeLimit (seconds).
  static OCRSettings fromUserDefaults();
  // As the importers get them: strings by their user defaults' names.
  PropertyDictionary asSettings() const;
  bool operator==(const OCRSettings&) const = default;
};

// While it lives, importer calls on this thread read scans by OCR or not, whatever the settings
// say: for hosts that choose per file (the Python module's ocr=). Nothing keeps the settings'.
class ScopedOCRChoice {
 public:
  explicit ScopedOCRChoice(std::optional<bool> enabled);
  ~ScopedOCRChoice();
  ScopedOCRChoice(const ScopedOCRChoice&) = delete;
  ScopedOCRChoice& operator=(const ScopedOCRChoice&) = delete;

 private:
  std::optional<bool> previous_;
};

// The threads one importer call may spread its pages over, held while the call lasts: every
// allowed core while the calls in flight hold no more than twice the cores in all, else one. A
// long scan that starts beside a short file keeps its cores once that file is done, for a little
// crowding meanwhile.
class ThreadGrant {
 public:
  ThreadGrant();
  ~ThreadGrant();
  ThreadGrant(const ThreadGrant&) = delete;
  ThreadGrant& operator=(const ThreadGrant&) = delete;
  std::size_t threads() const { return threads_; }

 private:
  std::size_t threads_ = 1;
};

// While it lives, importer calls on this thread are allowed `cores` cores (0: every usable
// one): `ulvekbot import -j 1` keeps to one. Nothing keeps the usable cores.
class ScopedCores {
 public:
  explicit ScopedCores(std::size_t cores);
  ~ScopedCores();
  ScopedCores(const ScopedCores&) = delete;
  ScopedCores& operator=(const ScopedCores&) = delete;

 private:
  std::size_t previous_;
};

// Whether files of `contentType` (lower case) may be read by OCR: PDF, PostScript and pictures.
bool mayHoldScans(std::string_view contentType);

// The importer host: it finds the bundle that reads a file, calls its importer in the worker
// process and corrects what a few importers answer. Which bundles there are and what each reads
// is the registry's (bundles()). Imports may run on several threads at once: each call has a
// worker process of its own, and the registry is asked under a lock.
class MetaDataImporter {
 public:
  static MetaDataImporter& sharedImporter();
  MetaDataImporter();
  ~MetaDataImporter();

  BundleRegistry& bundles() { return bundles_; }
  // Finds the bundles on the search path, once per process.
  void loadExtractorPlugins() { bundles_.loadExtractorPlugins(); }

  // YES when an importer for the file was found and an interface obtained; with `attributes`,
  // what the importer wrote.
  bool getMetaData(PropertyDictionary* attributes, const std::string& path);
  bool supportsFileAtPath(const std::string& path) { return getMetaData(nullptr, path); }
  // The importer's attributes with the host's corrections; nothing when no importer answered.
  std::optional<PropertyDictionary> metaDataOfFileAtPath(const std::string& path);
  std::optional<TextString> textContentOfFileAtPath(const std::string& path);
  // The bundle that would read a file (the last of the matches, whose answer is kept), for
  // `ulvekbot classify`.
  std::optional<std::string> importerForFile(const std::string& path);

  // Limits of one importer call; the defaults come from the user defaults "ImporterTimeLimit"
  // (seconds) and "ImporterMemoryLimit" (MiB).
  void setLimits(WorkerProcess::Limits limits) { workers_.setLimits(limits); }
  WorkerProcess::Limits limits() const { return workers_.limits(); }
  WorkerPool& workers() { return workers_; }
  // Apply to the calls that start from now on.
  void setOCR(OCRSettings settings);
  OCRSettings ocr() const;

 private:
  // The importers of a file by its content type (answered in `contentType`, lower case) and
  // extension; none when it cannot be typed.
  std::vector<ImporterMatch> matchesForFile(const std::string& path, std::string& contentType);
  std::optional<PropertyDictionary> call(const ImporterMatch& match, const std::string& contentType,
                                         const std::string& path, bool import, bool& found);
  bool preflight(const std::string& executable);
  void unregister(const std::string& bundle);

  WorkerPool workers_;
  mutable std::mutex ocrLock_;
  OCRSettings ocr_;
  // Guards bundles_ during imports; the preflight it runs calls workers_, which has a lock of its
  // own.
  std::mutex registryLock_;
  BundleRegistry bundles_;
};

}  // namespace ulvek
