// AppleDouble files lie beside files copied from anywhere: a bad entry table must never lead a
// read outside the file, and the fork inside must be as safe to read as any other.
#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "platform/resource_fork.h"
#include "platform/type_codes.h"

namespace {

void touch(ulvek::ByteView bytes) {
  volatile std::uint8_t sum = 0;
  for (std::uint8_t byte : bytes) sum = static_cast<std::uint8_t>(sum + byte);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  std::optional<ulvek::AppleDouble> entries = ulvek::parseAppleDouble(ulvek::ByteView(data, size));
  if (!entries) return 0;
  if (entries->finderInfo) touch(*entries->finderInfo);
  if (!entries->resourceFork) return 0;
  touch(*entries->resourceFork);
  if (auto map = ulvek::ResourceMap::parse(*entries->resourceFork)) {
    for (const ulvek::ResourceMap::Resource& resource : map->resources(64)) touch(resource.data);
    if (auto text = map->firstResource(ulvek::fourCharCode("TEXT"))) touch(*text);
  }
  return 0;
}
