// The entry of OCR.so: the engine and the reading of pictures, for the importers that load it.
#include "ocr_module.h"

namespace {

using namespace ulvek::plugin::ocr;

Reading readPixels(Engine& engine, const unsigned char* pixels, int width, int height, int stride,
                   int dpi, std::optional<Clock::time_point> deadline) {
  return engine.read(pixels, width, height, stride, dpi, deadline);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) const Module* ulvek_ocr_module() {
  static const Module functions{&Engine::several, &readPixels, &readPicture};
  return &functions;
}
