// The HEIF and AVIF decoder that OCR reads pictures through (the Image importer's fuzz target
// leaves OCR out): the declared size, libheif's boxes and codecs, the grey copy and its scaling.
#include "../../bundles/support/ocr.cpp"
#include "../../bundles/support/ocr_settings.cpp"
#include "fuzz_support.h"
#include "importer_fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ulvek::plugin::ocr::OwnedPix pix =
      ulvek::plugin::ocr::decodeHeif(ulvek::fuzzing::writeScratch("picture.heic", data, size));
  if (pix) ulvek::fuzzing::check(pixGetDepth(pix.get()) == 8);
  return 0;
}
