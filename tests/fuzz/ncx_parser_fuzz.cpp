// Navigation documents: the first byte chooses NCX or EPUB 3 nav document, the rest is the
// document. The tree is walked whole, as a client showing it would.
#include <cstdint>

#include "fuzz_support.h"
#include "readers/epub/ncx_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  if (size == 0) return 0;
  auto format = data[0] % 2 ? ulvek::NavigationFormat::NavDocument : ulvek::NavigationFormat::NCX;
  ulvek::NCXParser parser(ulvek::Bytes(data + 1, size - 1), format);
  ulvek::countOfEntries(parser.children());
  return 0;
}
