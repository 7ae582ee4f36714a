// Resource forks come from files anyone can hand us: every offset in them is hostile.
#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "platform/resource_fork.h"
#include "platform/type_codes.h"

namespace {

// Reads every byte of a view so that AddressSanitizer sees a view that leaves its buffer.
void touch(ulvek::ByteView bytes) {
  volatile std::uint8_t sum = 0;
  for (std::uint8_t byte : bytes) sum = static_cast<std::uint8_t>(sum + byte);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  using ulvek::fourCharCode;
  std::optional<ulvek::ResourceMap> map = ulvek::ResourceMap::parse(ulvek::ByteView(data, size));
  if (!map) return 0;
  for (std::uint32_t type : {fourCharCode("TEXT"), fourCharCode("utxt"), fourCharCode("RTF "),
                             fourCharCode("RTFD"), fourCharCode("url ")}) {
    if (auto resource = map->firstResource(type)) touch(*resource);
  }
  for (const ulvek::ResourceMap::Resource& resource : map->resources(64)) {
    touch(resource.data);
    if (resource.name) touch(*resource.name);
    if (auto again = map->resource(resource.type, resource.id)) touch(*again);
  }
  return 0;
}
