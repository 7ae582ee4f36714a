// ClassicMac.mdimporter's own code: joining an AppleDouble companion and the data fork into one
// AppleSingle image. The first two bytes give the length of the companion; the rest is the file.
#include "../../bundles/ClassicMac/classic_mac_importer.cpp"
#include "fuzz_support.h"
#include "importer_fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  if (size < 2) return 0;
  std::size_t companion = std::min<std::size_t>((data[0] << 8) | data[1], size - 2);
  ulvek::fuzzing::writeScratch("._document", data + 2, companion);
  std::string path =
      ulvek::fuzzing::writeScratch("document", data + 2 + companion, size - 2 - companion);
  ulvek::fuzzing::importScratch(importClassicMac, path);
  return 0;
}
