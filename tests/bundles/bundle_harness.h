#pragma once

// Loads a built importer bundle's shared object and calls it through the SDK exactly as a host
// does, collecting what it writes. Independent of the host, so a bundle's own tests fail only for
// the bundle's faults.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <ulvekbot/importer.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <variant>
#include <vector>

#include "fixture_files.h"
#include "test_support.h"

namespace ulvek::testing {

using BundleValue = std::variant<std::string, std::vector<std::string>, double, std::int64_t, bool>;
using BundleAttributes = std::map<std::string, BundleValue>;

struct CollectingAttributes {
  UlvekAttributes header;
  BundleAttributes values;
  double secondsLeft = -1;  // what the host says of its time limit; negative: none
  std::map<std::string, std::string> settings;
};

inline CollectingAttributes& collector(void* attributes) {
  return *static_cast<CollectingAttributes*>(attributes);
}

inline const UlvekAttributesFunctions kCollectingFunctions = {
    3,
    [](void* a, const char* key, const char* utf8) {
      collector(a).values[key] = std::string(utf8);
    },
    [](void* a, const char* key, const char* const* items, size_t count) {
      collector(a).values[key] = std::vector<std::string>(items, items + count);
    },
    [](void* a, const char* key, double value) { collector(a).values[key] = value; },
    [](void* a, const char* key, std::int64_t value) { collector(a).values[key] = value; },
    [](void* a, const char* key, bool value) { collector(a).values[key] = value; },
    [](void* a, const char* key, double seconds) { collector(a).values[key] = seconds; },
    [](void* a, const char* key, const void*, size_t length) {
      collector(a).values[key] = std::int64_t(length);
    },
    [](void* a) { return collector(a).secondsLeft; },
    [](void* a, const char* key) -> const char* {
      auto found = collector(a).settings.find(key);
      return found == collector(a).settings.end() ? nullptr : found->second.c_str();
    },
};

class Bundle {
 public:
  // The bundle NAME.mdimporter of the build tree, with its factory function.
  Bundle(const std::string& name, const std::string& factory) {
    std::string object = std::string(ULVEK_BINARY_DIR) + "/src/Importers/" + name +
                         ".mdimporter/Contents/Linux/" + name + ".so";
    // Never unloaded, as in a host: libraries keep process-wide state that a leak check would
    // otherwise count.
    handle_ = dlopen(object.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    EXPECT_TRUE(handle_) << dlerror();
    if (handle_) factory_ = reinterpret_cast<UlvekImporterFactory>(dlsym(handle_, factory.c_str()));
    EXPECT_TRUE(factory_) << factory;
  }
  ~Bundle() {
    if (handle_) dlclose(handle_);
  }

  // The time the host says it waits for each import; negative (the default): no limit.
  void setSecondsLeft(double seconds) { secondsLeft_ = seconds; }
  // A setting the host gives every import ("DisableOCR", "OCRLanguages", ...).
  void setSetting(const std::string& key, const std::string& value) { settings_[key] = value; }

  // With `log`, what the importer writes to standard error during the call (the host's log).
  BundleAttributes import(const std::string& path, const std::string& contentType = "",
                          std::string* log = nullptr) {
    if (!log) return importQuietly(path, contentType);
    std::fflush(stderr);
    FILE* captured = std::tmpfile();
    const int saved = dup(2);
    dup2(fileno(captured), 2);
    BundleAttributes values = importQuietly(path, contentType);
    std::fflush(stderr);
    dup2(saved, 2);
    close(saved);
    std::rewind(captured);
    log->clear();
    for (int c; (c = std::fgetc(captured)) != EOF;) log->push_back(static_cast<char>(c));
    std::fclose(captured);
    return values;
  }

 private:
  BundleAttributes importQuietly(const std::string& path, const std::string& contentType) {
    CollectingAttributes attributes{{&kCollectingFunctions}, {}, secondsLeft_, settings_};
    if (!factory_) return {};
    void* instance = factory_(nullptr, ULVEK_IMPORTER_TYPE_ID);
    if (!instance) return {};
    auto* unknown = *static_cast<UlvekImporterInterfaceStruct**>(instance);
    void* interface = nullptr;
    if (unknown->QueryInterface(instance, ULVEK_IMPORTER_INTERFACE_ID, &interface) == 0) {
      auto* importer = *static_cast<UlvekImporterInterfaceStruct**>(interface);
      importer->ImporterImportData(interface, &attributes.header, contentType.c_str(),
                                   path.c_str());
      importer->Release(interface);
    }
    unknown->Release(instance);
    return attributes.values;
  }

  void* handle_ = nullptr;
  UlvekImporterFactory factory_ = nullptr;
  double secondsLeft_ = -1;
  std::map<std::string, std::string> settings_;
};

// A flat field of an expected answer's JSON text, as text ("" when absent or null): the corpus
// answers hold the tools' own tag lists beside them, cut off before these are looked into.
inline std::string expectedField(const std::string& json, const std::string& key) {
  std::string needle = "\"" + key + "\": ";
  std::size_t at = json.find(needle);
  if (at == std::string::npos) return "";
  at += needle.size();
  if (json[at] == '"') return json.substr(at + 1, json.find('"', at + 1) - at - 1);
  std::string bare = json.substr(at, json.find_first_of(",\n}", at) - at);
  return bare == "null" ? "" : bare;
}

inline std::string stringOf(const BundleAttributes& values, const std::string& key) {
  auto found = values.find(key);
  if (found == values.end()) return "(none)";
  if (auto text = std::get_if<std::string>(&found->second)) return *text;
  if (auto list = std::get_if<std::vector<std::string>>(&found->second)) {
    std::string joined;
    for (const std::string& item : *list) joined += (joined.empty() ? "" : "|") + item;
    return joined;
  }
  if (auto number = std::get_if<double>(&found->second)) return std::to_string(*number);
  if (auto integer = std::get_if<std::int64_t>(&found->second)) return std::to_string(*integer);
  return "(other)";
}

inline double numberOf(const BundleAttributes& values, const std::string& key) {
  auto found = values.find(key);
  if (found == values.end()) return -1e300;
  if (auto number = std::get_if<double>(&found->second)) return *number;
  if (auto integer = std::get_if<std::int64_t>(&found->second)) return double(*integer);
  return -1e300;
}

// A text for comparing word by word: white space runs count as one blank.
inline std::string words(const std::string& text) {
  std::string squeezed;
  for (char c : text) {
    bool space = c == ' ' || c == '\n' || c == '\r' || c == '\t';
    if (space && (squeezed.empty() || squeezed.back() == ' ')) continue;
    squeezed += space ? ' ' : c;
  }
  while (!squeezed.empty() && squeezed.back() == ' ') squeezed.pop_back();
  return squeezed;
}

// What an importer wrote against its expected answer (NAME.expect.json): lists and strings
// exactly (the text through `normalizedText` where given, e.g. to compare it word by word),
// numbers within `tolerance`, null for an attribute that must be absent.
inline void expectAttributes(const BundleAttributes& values, const nlohmann::json& expected,
                             double tolerance,
                             std::string (*normalizedText)(const std::string&) = nullptr) {
  for (const auto& [key, value] : expected.items()) {
    SCOPED_TRACE(key);
    auto found = values.find(key);
    if (value.is_null()) {
      EXPECT_EQ(found, values.end());
      continue;
    }
    if (found == values.end()) {
      ADD_FAILURE() << "missing";
      continue;
    }
    if (value.is_array()) {
      auto list = std::get_if<std::vector<std::string>>(&found->second);
      EXPECT_EQ(list ? *list : std::vector<std::string>{"(not a list)"},
                value.get<std::vector<std::string>>());
    } else if (value.is_number()) {
      EXPECT_NEAR(numberOf(values, key), value.get<double>(), tolerance);
    } else {
      auto text = std::get_if<std::string>(&found->second);
      std::string wrote = text ? *text : "(not a string)";
      std::string wanted = value.get<std::string>();
      if (normalizedText && text && key == "kMDItemTextContent") {
        wrote = normalizedText(wrote);
        wanted = normalizedText(wanted);
      }
      EXPECT_EQ(wrote, wanted);
    }
  }
}

// Each fixture in tests/data/`folder` named with one of `extensions`, at least `fewest` of them,
// imported by `bundle` and held against the answer beside it (NAME.expect.json).
inline void expectFixtures(Bundle& bundle, const std::string& folder,
                           std::initializer_list<std::string_view> extensions, std::size_t fewest,
                           double tolerance,
                           std::string (*normalizedText)(const std::string&) = nullptr) {
  const std::vector<std::filesystem::path> files = filesOf(dataPath() / folder, extensions);
  ASSERT_GE(files.size(), fewest);
  for (const std::filesystem::path& file : files) {
    SCOPED_TRACE(file.filename().string());
    expectAttributes(bundle.import(file.string()),
                     nlohmann::json::parse(readFile(file.string() + ".expect.json")), tolerance,
                     normalizedText);
  }
}

}  // namespace ulvek::testing
