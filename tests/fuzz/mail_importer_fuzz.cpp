// Mail.mdimporter's own code: the byte-count line of .emlx files, mailboxes (content that begins
// "From "), the walk over the parts and the decoding of encoded words. The first byte picks .eml
// or .emlx.
#include "../../bundles/Mail/mail_importer.cpp"
#include "fuzz_support.h"
#include "importer_fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  if (size == 0) return 0;
  const char* name = data[0] % 2 ? "message.emlx" : "message.eml";
  ulvek::fuzzing::importScratch(importMail, ulvek::fuzzing::writeScratch(name, data + 1, size - 1));
  return 0;
}
