#pragma once

#include <cstddef>

namespace ulvek {

// The number of cores this process may run on (its affinity mask), at least 1.
std::size_t usableCores();

}  // namespace ulvek
