#include "ocr_module.h"

#include <dlfcn.h>

#include <cstdio>
#include <filesystem>

namespace ulvek::plugin::ocr {

const Module* module() {
  static const Module* const loaded = []() -> const Module* {
    // This function is linked into the importer, so it names the importer's own file.
    Dl_info importer{};
    if (::dladdr(reinterpret_cast<void*>(&module), &importer) == 0 || !importer.dli_fname) {
      std::fprintf(stderr, "OCR: cannot tell which importer to load %s beside\n", kModuleFile);
      return nullptr;
    }
    const std::string path =
        (std::filesystem::path(importer.dli_fname).parent_path() / kModuleFile).string();
    // Never unloaded: the engines it loads are kept for every later file. Bound lazily:
    // Tesseract and the libraries below it have thousands of functions a page never calls.
    void* handle = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL);
    if (!handle) {
      const char* why = ::dlerror();
      std::fprintf(stderr, "OCR: cannot load %s: %s\n", path.c_str(), why ? why : "");
      return nullptr;
    }
    using Entry = const Module* (*)();
    auto entry = reinterpret_cast<Entry>(::dlsym(handle, kModuleEntry));
    if (!entry) {
      std::fprintf(stderr, "OCR: %s has no %s\n", path.c_str(), kModuleEntry);
      return nullptr;
    }
    return entry();
  }();
  return loaded;
}

}  // namespace ulvek::plugin::ocr
