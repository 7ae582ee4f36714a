// Feeds bytes to the property-list reader (binary and XML) and writes back what it read.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/property_list.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  auto value = ulvek::propertyListFromBytes(std::span(data, size));
  if (!value) return 0;
  // A value that was read must serialise, and read back the same.
  auto bytes = ulvek::binaryPropertyList(*value);
  if (!bytes) return 0;  // e.g. a string that is not valid Unicode
  auto again = ulvek::propertyListFromBytes(*bytes);
  if (!again) std::abort();
  return 0;
}
