#pragma once

#include <string>

#include "base/status.h"

namespace ulvek {

// The service's own temporary folder, $XDG_CACHE_HOME/TemporaryItems/ulvekbot (default
// ~/.cache/...), created on demand. Unpacked archives live below it, and nowhere else.
Result<std::string> temporaryItemsFolder();

// A fresh folder below the temporary folder, removed with everything in it when the object goes
// away, also on failure paths.
class TemporaryDirectory {
 public:
  // `prefix` names the folder for people who look, e.g. "epub".
  static Result<TemporaryDirectory> create(std::string_view prefix);

  TemporaryDirectory(TemporaryDirectory&& other) noexcept : path_(std::move(other.path_)) {
    other.path_.clear();
  }
  TemporaryDirectory& operator=(TemporaryDirectory&& other) noexcept;
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() { remove(); }

  const std::string& path() const { return path_; }
  // Removes the folder now (links inside are removed, never followed).
  void remove();

 private:
  explicit TemporaryDirectory(std::string path) : path_(std::move(path)) {}
  std::string path_;
};

}  // namespace ulvek
