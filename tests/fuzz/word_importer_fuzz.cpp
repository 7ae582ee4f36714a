// Word.mdimporter's own code. The first byte picks whether the rest is a whole file the importer
// opens (an OLE2 container for Word 6 and 95, or a Word 1 or 2 file), or a WordDocument stream
// read straight, which reaches the block, the pieces and the paragraph pages without a container
// around them.
#include "../../bundles/Word/old_word_document.cpp"
#include "../../bundles/Word/word_importer.cpp"
#include "fuzz_support.h"
#include "importer_fuzz_support.h"

// libgsf drops a property value when a summary information stream is malformed. Its frames
// show only with the slow unwinder, under which the leak is suppressed.
extern "C" const char* __asan_default_options() { return "fast_unwind_on_malloc=0"; }
extern "C" const char* __lsan_default_suppressions() {
  return "leak:gsf_doc_meta_data_read_from_msole\n";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  if (size == 0) return 0;
  bool whole = data[0] % 2 == 0;
  ++data, --size;
  if (whole) {
    ulvek::fuzzing::importScratch(importWord, ulvek::fuzzing::writeScratch("x.doc", data, size));
    return 0;
  }
  ulvek::Bytes stream(data, size);
  std::optional<oldword::FileInformation> information = oldword::readFileInformation(stream);
  if (!information) return 0;
  oldword::Text text = oldword::readText(*information, stream);
  // A character takes a byte of the stream; a footnote mark's number a few digits.
  ulvek::fuzzing::check(text.text.size() <= 12 * size + 32);
  oldword::readAssociatedStrings(*information, stream);
  return 0;
}
