#pragma once

// Strings each kept once, in the order first met: the people and categories an importer gathers
// from many messages or entries.

#include <cstddef>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace ulvek::plugin {

class UniqueStrings {
 public:
  // At most `most` strings; later ones are dropped.
  explicit UniqueStrings(std::size_t most = std::numeric_limits<std::size_t>::max())
      : most_(most) {}

  // `value` unless one with the same `key` came before (an address in lower case, say).
  void add(const std::string& value, const std::string& key) {
    if (!value.empty() && keys_.size() < most_ && keys_.insert(key).second)
      values_.push_back(value);
  }
  void add(const std::string& value) { add(value, value); }

  bool contains(const std::string& key) const { return keys_.contains(key); }
  const std::vector<std::string>& values() const { return values_; }

 private:
  std::size_t most_;
  std::set<std::string> keys_;
  std::vector<std::string> values_;
};

}  // namespace ulvek::plugin
