// Media.mdimporter's own code: tags and properties taken from what TagLib makes of the file. The
// first byte picks the file's kind.
#include "../../bundles/Media/media_importer.cpp"
#include "fuzz_support.h"
#include "importer_fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  if (size == 0) return 0;
  static const char* const kNames[] = {"audio.mp3", "audio.flac", "audio.ogg",  "audio.m4a",
                                       "audio.wav", "audio.aiff", "audio.opus", "audio.wma"};
  const char* name = kNames[data[0] % std::size(kNames)];
  ulvek::fuzzing::importScratch(importMedia,
                                ulvek::fuzzing::writeScratch(name, data + 1, size - 1));
  return 0;
}
