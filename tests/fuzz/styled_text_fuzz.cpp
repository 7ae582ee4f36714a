// HTML into styled runs and the runs into RTF, as a book's merged HTML is shown.
#include <cstdint>
#include <string_view>

#include "fuzz_support.h"
#include "readers/epub/styled_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  ulvek::TextString html =
      ulvek::fromUtf8(std::string_view(reinterpret_cast<const char*>(data), size));
  ulvek::rtfString(ulvek::styledTextFromHtml(html));
  return 0;
}
