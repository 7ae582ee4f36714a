// Feeds bytes to both WordPerfect readings: the "{WP}" mark and the function codes.
#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "readers/wordperfect/wordperfect.h"
#include "readers/wordperfect/wordperfect_document.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  using namespace ulvek;
  Bytes bytes(data, size);
  if (auto marked = wordPerfectMarkedText(bytes)) ulvek::fuzzing::check(!marked->empty());
  if (auto text = wordPerfectDocumentText(bytes, "fuzz")) {
    // Every unit comes from at least one byte.
    ulvek::fuzzing::check(text->size() <= size);
  }
  return 0;
}
