#pragma once

#include <array>

#include "import/route_table.h"
#include "readers/reader.h"

namespace ulvek {

// The readers the dispatcher routes to, one per route that a reader serves. The service and
// the command line use builtin(); a test assembles a set of its own.
class ReaderSet {
 public:
  // The built-in readers: an explicit list of the reader families that are built.
  static const ReaderSet& builtin();

  ReaderSet& set(Route route, const Reader* reader) {
    readers_[static_cast<std::size_t>(route)] = reader;
    return *this;
  }
  // Nothing for a route without a reader, or one the dispatcher serves itself.
  const Reader* readerFor(Route route) const { return readers_[static_cast<std::size_t>(route)]; }

 private:
  std::array<const Reader*, kRouteCount> readers_{};
};

}  // namespace ulvek
