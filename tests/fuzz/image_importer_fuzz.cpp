// Image.mdimporter's own code: choosing among XMP, IPTC and EXIF, the IPTC digest in Photoshop
// resources, dates with their offsets, GPS coordinates and altitude, PNG text chunks. The first
// byte picks the file's kind.
#include "../../bundles/Image/image_importer.cpp"
#include "../../bundles/Image/iptc_digest.cpp"
#include "../../bundles/Image/png_text.cpp"
#include "../../bundles/support/ocr_module.cpp"
#include "../../bundles/support/ocr_settings.cpp"
#include "fuzz_support.h"
#include "importer_fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  if (size == 0) return 0;
  static const char* const kNames[] = {"image.jpg",  "image.png",  "image.tif",
                                       "image.webp", "image.heic", "image.dng"};
  const char* name = kNames[data[0] % std::size(kNames)];
  ulvek::fuzzing::importScratch(importImage,
                                ulvek::fuzzing::writeScratch(name, data + 1, size - 1));
  return 0;
}
