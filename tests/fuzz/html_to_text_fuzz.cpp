// Feeds documents to the HTML-to-text conversion. The first byte holds the eight settings
// (entities, markup references, folding, re-flowing, body only, junk removal, Google comments,
// image texts); bit 0 of the second byte turns the rest into raw little-endian UTF-16 units
// instead of UTF-8, bit 1 runs the simplified conversion as well.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "fuzz_support.h"
#include "text/html_to_text.h"

namespace {

using namespace ulvek;

using fuzzing::check;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  if (size < 2) return 0;
  const std::uint8_t settings = data[0];
  const std::uint8_t mode = data[1];
  data += 2;
  size -= 2;
  TextString html = fuzzing::textFromBytes(data, size, mode & 1);

  bool removedJunk = false;
  const TextString text = stringByConvertingHtml2PlainTextEntities(
      html, settings & 1, settings & 2, settings & 4, settings & 8, settings & 16, settings & 32,
      &removedJunk, settings & 64, settings & 128);
  // Breaks and separating spaces never outgrow eight units per unit of markup.
  check(text.size() <= html.size() * 8);

  if (mode & 2) {
    const TextString simplified = stringByConvertingHtml2SimplifiedPlainText(html);
    check(simplified.size() <= html.size() * 2);
  }
  return 0;
}
