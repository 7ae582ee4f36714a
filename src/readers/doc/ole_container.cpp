#include "readers/doc/ole_container.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "readers/xml/document_text.h"

namespace ulvek {
namespace {

// lib/ulvekbot/ of the installation the running program belongs to (PREFIX/bin/PROGRAM; in the
// build tree, BUILD/src/ and BUILD/tests/), then of the prefix it was built for.
std::vector<std::string> moduleCandidates() {
  std::vector<std::string> candidates;
  // Named by a host that is not one of the programs, such as the Python module.
  if (const char* named = std::getenv("ULVEKBOT_OLE_MODULE"); named && *named)
    candidates.emplace_back(named);
  std::error_code error;
  std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  if (!error)
    candidates.push_back(
        (self.parent_path().parent_path() / "lib/ulvekbot" / kOleModuleName).string());
  candidates.push_back(std::string(ULVEK_INSTALL_PREFIX) + "/lib/ulvekbot/" + kOleModuleName);
  return candidates;
}

struct Module {
  OpenOleContainerFunction open = nullptr;
  std::string error;
};

const Module& module() {
  static const Module loaded = [] {
    Module found;
    for (const std::string& path : moduleCandidates()) {
      // Never unloaded: containers may outlive any one caller. Bound lazily: libgsf and the
      // GLib libraries below it have thousands of functions a document never calls.
      void* handle = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL);
      if (!handle) {
        const char* why = ::dlerror();
        if (found.error.empty() && std::filesystem::exists(path)) found.error = why ? why : path;
        continue;
      }
      found.open =
          reinterpret_cast<OpenOleContainerFunction>(::dlsym(handle, kOpenOleContainerSymbol));
      if (found.open) return found;
      found.error = path + " has no " + kOpenOleContainerSymbol;
    }
    if (found.error.empty()) found.error = std::string(kOleModuleName) + " not installed";
    return found;
  }();
  return loaded;
}

}  // namespace

std::unique_ptr<OleContainer> openOleContainer(const std::uint8_t* bytes, std::size_t size,
                                               std::string& error) {
  const Module& loaded = module();
  if (!loaded.open) {
    error = loaded.error;
    return nullptr;
  }
  std::unique_ptr<OleContainer> container(loaded.open(bytes, size, &error));
  return container;
}

OleSummary summaryOf(OleContainer& container) {
  // By libgsf's names for the properties.
  static constexpr std::pair<std::string_view, std::optional<std::string> OleSummary::*> kTexts[] =
      {{"dc:title", &OleSummary::title},
       {"dc:subject", &OleSummary::subject},
       {"dc:description", &OleSummary::description},
       {"dc:creator", &OleSummary::author},
       {"dc:keywords", &OleSummary::keywords}};
  static constexpr std::pair<std::string_view, std::optional<Date> OleSummary::*> kDates[] = {
      {"meta:creation-date", &OleSummary::creation}, {"dc:date", &OleSummary::modification}};
  OleSummary summary;
  for (const OleSummaryEntry& entry : container.summary()) {
    if (entry.isDate) {
      for (auto [name, field] : kDates)
        if (entry.name == name && !(summary.*field)) summary.*field = w3cDate(entry.value);
    } else {
      for (auto [name, field] : kTexts)
        if (entry.name == name && !(summary.*field)) summary.*field = entry.value;
    }
  }
  return summary;
}

}  // namespace ulvek
