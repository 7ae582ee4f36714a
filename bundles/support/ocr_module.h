#pragma once

// Tesseract, Leptonica and libheif, with the libraries below them, take a worker longer to load
// than poppler and a document of text take together, and most documents never need them. So the
// importers that read scans reach the engine through OCR.so, a module in their own bundle that
// is loaded when a page or picture first has to be read.

#include "ocr.h"

namespace ulvek::plugin::ocr {

// What OCR.so answers from kModuleEntry. Built with the importers that load it, never apart.
struct Module {
  std::vector<Engine*> (*several)(const std::string& languages, unsigned count);
  Reading (*readPixels)(Engine& engine, const unsigned char* pixels, int width, int height,
                        int stride, int dpi, std::optional<Clock::time_point> deadline);
  PictureText (*readPicture)(const std::string& path, const Settings& settings,
                             std::optional<Clock::time_point> deadline);
};

inline constexpr const char* kModuleFile = "OCR.so";
inline constexpr const char* kModuleEntry = "ulvek_ocr_module";

// OCR.so beside the importer that asks, loaded on the first call and kept; nothing, told once on
// standard error, where it cannot be loaded.
const Module* module();

}  // namespace ulvek::plugin::ocr
