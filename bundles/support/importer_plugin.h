#pragma once

// What every bundled importer shares: the COM-style instance and factory around one import
// function, and a writer that puts C++ values into the host's attributes. Header-only and
// compiled into each bundle, which links nothing of ulvekbot's but the SDK header.

#include <ulvekbot/importer.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ulvek::plugin {

// Thin C++ face of the host's attribute setters. Empty strings and lists are not written.
class Attributes {
 public:
  explicit Attributes(UlvekAttributes* attributes) : attributes_(attributes) {}

  void string(const char* key, const std::string& value) {
    if (!value.empty()) ulvek_attributes_set_string(attributes_, key, value.c_str());
  }
  void strings(const char* key, const std::vector<std::string>& values) {
    std::vector<const char*> items;
    for (const std::string& value : values)
      if (!value.empty()) items.push_back(value.c_str());
    if (!items.empty())
      ulvek_attributes_set_string_list(attributes_, key, items.data(), items.size());
  }
  void number(const char* key, double value) {
    ulvek_attributes_set_number(attributes_, key, value);
  }
  void integer(const char* key, std::int64_t value) {
    ulvek_attributes_set_integer(attributes_, key, value);
  }
  void date(const char* key, double secondsSince1970) {
    ulvek_attributes_set_date(attributes_, key, secondsSince1970);
  }
  // Time left before the host stops waiting; nothing when it sets no limit.
  std::optional<std::chrono::duration<double>> timeLeft() const {
    double seconds = ulvek_attributes_seconds_left(attributes_);
    if (seconds < 0) return std::nullopt;
    return std::chrono::duration<double>(seconds);
  }
  // The host's setting `key` for this import, or nothing.
  std::optional<std::string> setting(const char* key) const {
    const char* value = ulvek_attributes_setting(attributes_, key);
    if (!value) return std::nullopt;
    return std::string(value);
  }

 private:
  UlvekAttributes* attributes_;
};

// Seconds since 1970 of a calendar time given in UTC, with an offset east of UTC in seconds.
inline std::optional<double> secondsSince1970(int year, int month, int day, int hour, int minute,
                                              double second, int offsetSeconds = 0) {
  if (year < 1 || month < 1 || month > 12 || day < 1 || day > 31 || hour < 0 || hour > 24 ||
      minute < 0 || minute > 59 || second < 0 || second > 61)
    return std::nullopt;
  using namespace std::chrono;
  year_month_day date{std::chrono::year(year), std::chrono::month(unsigned(month)),
                      std::chrono::day(unsigned(day))};
  if (!date.ok()) return std::nullopt;
  auto days = sys_days(date).time_since_epoch().count();
  return double(days) * 86400.0 + hour * 3600.0 + minute * 60.0 + second - offsetSeconds;
}

// Where the text came from, when not from the document's own text: "ocr" where Tesseract read
// all of it, "mixed" where it read some of the pages.
inline constexpr const char* kTextSource = "ulvekbot:TextSource";

using ImportFunction = bool (*)(Attributes& attributes, const char* contentType, const char* path);

// One line in the host's log (the worker's standard error) for a file an importer cannot read;
// the host's line names the importer.
inline void logUnreadable(const char* path, const char* why = nullptr) {
  // Libraries often begin their messages with the path again.
  const std::string_view prefix = path;
  if (why && std::string_view(why).starts_with(prefix) &&
      std::string_view(why).substr(prefix.size()).starts_with(": "))
    why += prefix.size() + 2;
  if (why && *why)
    std::fprintf(stderr, "cannot read %s: %s\n", path, why);
  else
    std::fprintf(stderr, "cannot read %s\n", path);
}

// One importer instance: the path interface, reference counted, calling `Import`.
template <ImportFunction Import>
class PathImporter {
 public:
  static void* create(void*, UlvekUUID typeID) {
    if (!ulvek_uuid_equal(typeID, ULVEK_IMPORTER_TYPE_ID)) return nullptr;
    return &(new PathImporter())->interface_;
  }

 private:
  PathImporter() {
    table_._reserved = nullptr;
    table_.QueryInterface = &PathImporter::queryInterface;
    table_.AddRef = &PathImporter::addRef;
    table_.Release = &PathImporter::release;
    table_.ImporterImportData = &PathImporter::importData;
    interface_ = &table_;
  }
  static PathImporter* self(void* instance) {
    return reinterpret_cast<PathImporter*>(static_cast<char*>(instance) -
                                           offsetof(PathImporter, interface_));
  }
  static std::int32_t queryInterface(void* instance, UlvekUUID iid, void** out) {
    if (!ulvek_uuid_equal(iid, ULVEK_IMPORTER_INTERFACE_ID)) {
      *out = nullptr;
      return 1;
    }
    addRef(instance);
    *out = instance;
    return 0;
  }
  static std::uint32_t addRef(void* instance) { return ++self(instance)->references_; }
  static std::uint32_t release(void* instance) {
    PathImporter* importer = self(instance);
    std::uint32_t left = --importer->references_;
    if (left == 0) delete importer;
    return left;
  }
  static bool importData(void*, UlvekAttributes* attributes, const char* contentType,
                         const char* path) {
    // What was written stays; the host takes any answer as done, so the reason is told here.
    Attributes writer(attributes);
    try {
      if (Import(writer, contentType, path)) return true;
      logUnreadable(path);
    } catch (const std::exception& exception) {
      logUnreadable(path, exception.what());
    } catch (...) {
      logUnreadable(path, "unknown exception");
    }
    return false;
  }

  UlvekImporterInterfaceStruct table_{};
  UlvekImporterInterfaceStruct* interface_ = nullptr;
  std::atomic<std::uint32_t> references_{1};
};

}  // namespace ulvek::plugin

// Exports the factory under `name`, the C symbol Info.plist lists.
#define ULVEK_EXPORT_IMPORTER_FACTORY(name, function)                              \
  extern "C" __attribute__((visibility("default"))) void* name(void* allocator,    \
                                                               UlvekUUID typeID) { \
    return ulvek::plugin::PathImporter<function>::create(allocator, typeID);       \
  }
