#pragma once

#include <cstddef>
#include <optional>

namespace ulvek {

// How many requests the service serves at the same time: `requested` when given (its --jobs),
// else the user default MaxConcurrentImports, else 1. 0 stands for one a core.
std::size_t concurrentRequests(std::optional<long long> requested);

}  // namespace ulvek
