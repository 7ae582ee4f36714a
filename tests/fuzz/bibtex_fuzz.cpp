// Feeds text to the BibTeX scanner. Bit 0 of the first byte picks raw UTF-16 units, bit 1 a type
// filter.
#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "readers/wordperfect/sheet.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  using namespace ulvek;
  if (size < 1) return 0;
  const std::uint8_t mode = data[0];
  TextString text = fuzzing::textFromBytes(data + 1, size - 1, mode & 1);
  std::vector<TextString> keys;
  std::optional<TextView> type;
  if (mode & 2) type = u"article";
  std::vector<BibTeXEntry> entries = BibTeXEntriesNamed(text, type, &keys);
  for (const BibTeXEntry& entry : entries) {
    for (const auto& [name, value] : entry) {
      bool known = false;
      for (const TextString& key : keys) known = known || key == name;
      fuzzing::check(known);
    }
  }
  return 0;
}
