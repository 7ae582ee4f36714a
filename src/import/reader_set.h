#pragma once

#include <array>
#include <map>
#include <string>
#include <string_view>

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

  // Readers the format registry names in its reader column that serve no route of their own:
  // they take Route::Registered, found by name.
  ReaderSet& setNamed(std::string_view name, const Reader* reader) {
    named_[std::string(name)] = reader;
    return *this;
  }
  const Reader* named(std::string_view name) const {
    auto found = named_.find(name);
    return found == named_.end() ? nullptr : found->second;
  }
  const std::map<std::string, const Reader*, std::less<>>& namedReaders() const { return named_; }

 private:
  std::array<const Reader*, kRouteCount> readers_{};
  std::map<std::string, const Reader*, std::less<>> named_;
};

// What log lines written while `reader` reads are from: "reader rtf"; the importer host speaks
// for itself ("importer host", and each importer it runs by name).
inline std::string readerLogPart(const Reader& reader) {
  std::string_view name = reader.name();
  return name.starts_with("importer") ? std::string(name) : "reader " + std::string(name);
}

}  // namespace ulvek
