// Feeds property lists to the web archive decoder and its text and lookups.
#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "readers/webarchive/web_archive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  using namespace ulvek;
  std::optional<WebArchive> archive = WebArchive::initWithData(Bytes(data, size), "fuzz");
  if (!archive) return 0;
  std::optional<TextString> source;
  TextString text = archive->searchableTextAndSource(&source);
  fuzzing::check(text.empty() || text.starts_with(u"\n\n"));
  if (auto base = archive->baseURL()) {
    fuzzing::check(archive->subArchiveForURL(TextView(*base)) == &*archive);
    fuzzing::check(archive->subresourceForURL(*base) != nullptr);
  }
  return 0;
}
