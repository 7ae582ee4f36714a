// Feeds bytes to the reStructuredText reader: decoding, then the header rules.
#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "readers/rst/rst_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  using namespace ulvek;
  std::optional<ReaderOutput> output =
      reStructuredTextReader().read(ReaderSource::data(Bytes(data, size), "fuzz.rst"));
  fuzzing::check(!output || output->text.has_value());
  return 0;
}
