#include "import/concurrency.h"

#include "base/processors.h"
#include "platform/user_defaults.h"

namespace ulvek {

std::size_t concurrentRequests(std::optional<long long> requested) {
  if (!requested) {
    requested = 1;
    if (std::optional<PropertyValue> value = userDefault("MaxConcurrentImports")) {
      if (const std::int64_t* number = value->integer()) requested = *number;
    }
  }
  if (*requested <= 0) return usableCores();
  return static_cast<std::size_t>(*requested);
}

}  // namespace ulvek
