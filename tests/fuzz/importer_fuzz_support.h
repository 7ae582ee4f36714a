#pragma once

// Shared by the fuzz targets of the bundled importers: the bytes as a file the importer opens,
// and attributes that keep nothing (but touch every string, so bad pointers show).

#include <ulvekbot/importer.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace ulvek::fuzzing {

inline std::size_t touch(const char* text) { return text ? std::strlen(text) : 0; }

// OCR is left out: it takes seconds an input, and a picture's decoding is fuzzed without it.
inline const UlvekAttributesFunctions kDiscardingFunctions = {
    3,
    [](void*, const char* key, const char* utf8) { touch(key), touch(utf8); },
    [](void*, const char* key, const char* const* items, size_t count) {
      for (size_t i = 0; i < count; ++i) touch(items[i]);
      touch(key);
    },
    [](void*, const char* key, double) { touch(key); },
    [](void*, const char* key, std::int64_t) { touch(key); },
    [](void*, const char* key, bool) { touch(key); },
    [](void*, const char* key, double) { touch(key); },
    [](void*, const char* key, const void*, size_t) { touch(key); },
    [](void*) { return -1.0; },
    [](void*, const char* key) -> const char* {
      return std::strcmp(key, "DisableOCR") == 0 ? "1" : nullptr;
    },
};

// A scratch file named NAME in a folder of this process, rewritten with each input.
inline std::string writeScratch(const std::string& name, const std::uint8_t* data,
                                std::size_t size) {
  static const std::string folder = [] {
    std::string pattern = "/tmp/ulvek-importer-fuzz-XXXXXX";
    if (!::mkdtemp(pattern.data())) std::abort();
    return pattern;
  }();
  std::string path = folder + "/" + name;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  return path;
}

// Calls an importer's import function the way its instance does.
template <typename Import>
void importScratch(Import import, const std::string& path) {
  UlvekAttributes header{&kDiscardingFunctions};
  ulvek::plugin::Attributes attributes(&header);
  // The exported factory catches what the libraries throw on damaged files; so does this.
  try {
    import(attributes, "", path.c_str());
  } catch (...) {
  }
}

}  // namespace ulvek::fuzzing
