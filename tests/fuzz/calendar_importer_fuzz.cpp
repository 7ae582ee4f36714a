// Calendar.mdimporter's own code: the cutting of long properties, and the walk over what libical
// makes of the calendar (entries, people, categories, dates).
#include "../../bundles/Calendar/calendar_importer.cpp"
#include "fuzz_support.h"
#include "importer_fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  ulvek::fuzzing::importScratch(importCalendar,
                                ulvek::fuzzing::writeScratch("calendar.ics", data, size));
  return 0;
}
