// Feeds documents to the title and meta handlers. Bit 0 of the first byte turns the rest into raw
// little-endian UTF-16 units instead of UTF-8.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "fuzz_support.h"
#include "text/html_meta.h"

namespace {

using namespace ulvek;

using fuzzing::check;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  if (size < 1) return 0;
  const std::uint8_t mode = data[0];
  ++data;
  --size;
  TextString html = fuzzing::textFromBytes(data, size, mode & 1);

  // The raw title is a piece of the document.
  const TextString title = htmlTitle(html);
  check(title.empty() || html.find(title) != TextString::npos);
  check(normalizedHtmlTitle(html).size() <= title.size());

  const HtmlMetaAttributes raw = htmlMetaAttributes(html);
  const HtmlMetaAttributes cleaned = htmlMetaAttributesByConvertingEntitiesToCharacters(html);
  // Both read the same tags; only the values differ.
  check(raw.size() == cleaned.size());
  for (const auto& [key, value] : raw) {
    check(!key.empty() && !value.empty());
    check(cleaned.count(key) == 1);
  }
  std::size_t lessThan = 0;
  std::size_t greaterThan = 0;
  const bool balanced = countLT(html, &lessThan, &greaterThan);
  check(balanced == (lessThan == greaterThan && lessThan != 0));
  return 0;
}
