// Zip archives from raw bytes: opening, listing, and looking up and reading every member.
#include <cstdint>

#include "fuzz_support.h"
#include "readers/zip/zip_archive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  auto archive = ulvek::ZipArchive::initWithData(ulvek::Bytes(data, size), "fuzz.zip");
  if (!archive) return 0;
  for (const ulvek::ZipMember& member : archive->members()) {
    archive->dataForNamedFile(member.name, {1 << 20, 100, 1 << 16});
    ulvek::isSafeMemberName(member.name);
  }
  archive->testForNamedFile("META-INF/container.xml");
  return 0;
}
