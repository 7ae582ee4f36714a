// Feeds text to the delimited-text reader, quoted and unquoted. Bit 0 of the first byte picks raw
// UTF-16 units, bit 1 quoting, the next byte the row limit.
#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "readers/wordperfect/sheet.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  using namespace ulvek;
  if (size < 2) return 0;
  const std::uint8_t mode = data[0];
  const std::size_t limit = data[1] == 0xFF ? kNoRowLimit : data[1];
  TextString text = fuzzing::textFromBytes(data + 2, size - 2, mode & 1);
  std::size_t columns = 0;
  bool definition = false;
  Sheet rows = valuesSeparatedByTab(text, false, mode & 2, limit, &columns, &definition);
  fuzzing::check(rows.size() <= (limit == 0 ? 1 : limit));
  std::size_t units = 0;
  for (std::size_t row = 0; row < rows.size(); ++row) {
    fuzzing::check(rows.fieldCount(row) > 0 && rows.fieldCount(row) <= columns);
    for (std::size_t column = 0; column < rows.fieldCount(row); ++column)
      units += rows.field(row, column).size();
  }
  fuzzing::check(units <= text.size());
  if (text.empty()) fuzzing::check(rows.empty() && definition);
  return 0;
}
