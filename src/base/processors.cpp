#include "base/processors.h"

#include <sched.h>

#include <algorithm>

namespace ulvek {

std::size_t usableCores() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (::sched_getaffinity(0, sizeof set, &set) != 0) return 1;
  return static_cast<std::size_t>(std::max(1, CPU_COUNT(&set)));
}

}  // namespace ulvek
