#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <utility>

#include "base/status.h"

namespace ulvek {

// The folder every ulvekbot process keeps its temporary items in:
// $XDG_CACHE_HOME/TemporaryItems/ulvekbot (default ~/.cache/..., then $XDG_RUNTIME_DIR/..., and
// without any of them /tmp/ulvekbot-UID/..., a folder that must be the user's and private).
// Not created here.
std::string temporaryItemsRoot();

// This process's own folder below the root, named by its pid and start time (PID-STARTTIME),
// created on demand; unpacked archives live below it, and nowhere else. When a process first
// makes it, folders of processes that have ended are swept, and the folder is removed at exit
// and when SIGTERM, SIGINT, SIGHUP or SIGPIPE would end the process.
Result<std::string> temporaryItemsFolder();

// A process's start in clock ticks after boot (field 22 of /proc/PID/stat); nothing when the
// process is gone or hidden.
std::optional<unsigned long long> processStartTime(pid_t pid);
// "PID-STARTTIME", the name of a process's folder below the root.
std::string processFolderName(pid_t pid, unsigned long long startTime);

// Removes the folders below the root whose process has ended (or whose pid a later process
// took), never a live process's; answers how many went.
std::size_t sweepAbandonedTemporaryItems();

// Removes this process's folder and what it adopted, now (an orderly end).
void removeProcessTemporaryItems();

// Takes a folder this process was handed (the importer worker's TMPDIR) as its own, to be
// removed on the signals above and at exit. Only folders below the root are taken.
bool adoptTemporaryFolder(const std::string& path);

// A fresh folder below the process's folder, removed with everything in it when the object goes
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

// A file or folder that is removed, with what it holds, when the object goes away; where that
// fails, the line "Couldn't remove path PATH" is logged.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string path) : path_(std::move(path)) {}
  TemporaryFile(TemporaryFile&& other) noexcept : path_(std::exchange(other.path_, {})) {}
  TemporaryFile& operator=(TemporaryFile&& other) noexcept;
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() { remove(); }

  const std::string& path() const { return path_; }

 private:
  void remove() noexcept;
  std::string path_;
};

}  // namespace ulvek
