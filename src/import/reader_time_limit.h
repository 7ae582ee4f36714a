#pragma once

#include <optional>

#include "base/deadline.h"

namespace ulvek {

// How long the service lets in-process readers work on one request: the user default
// ReaderTimeLimit in seconds (a number; 0 or less: no limit), else 30 seconds.
std::optional<ReadingDeadline::Clock::duration> serviceReaderTimeLimit();

}  // namespace ulvek
