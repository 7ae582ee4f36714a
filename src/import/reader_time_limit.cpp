#include "import/reader_time_limit.h"

#include "platform/user_defaults.h"

namespace ulvek {

std::optional<ReadingDeadline::Clock::duration> serviceReaderTimeLimit() {
  double seconds = 30;
  if (std::optional<PropertyValue> value = userDefault("ReaderTimeLimit")) {
    if (const std::int64_t* number = value->integer()) seconds = static_cast<double>(*number);
    if (const double* real = value->real()) seconds = *real;
  }
  return readingLimitOfSeconds(seconds);
}

}  // namespace ulvek
