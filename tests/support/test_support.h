#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/deadline.h"
#include "base/log.h"
#include "base/property_value.h"
#include "base/text_string.h"

namespace ulvek::testing {

// A fresh folder under the system's temporary folder, removed with everything in it at the end.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  // Writes a file below the folder (creating parent folders) and answers its path.
  std::string write(std::string_view relativePath, std::string_view bytes) const;

 private:
  std::filesystem::path path_;
};

// Collects log lines while alive instead of writing them to stderr.
// The deadlines a reader's cut-off test runs under: with none, or one far off, the input is read
// whole; one already passed stops the reader early.
struct DeadlineCase {
  const char* name;
  std::optional<ReadingDeadline::Clock::duration> limit;
  bool whole;
};
inline const DeadlineCase kDeadlineCases[] = {{"no deadline", std::nullopt, true},
                                              {"time to spare", std::chrono::hours(1), true},
                                              {"time passed", std::chrono::seconds(0), false}};

class CapturedLog {
 public:
  CapturedLog();
  ~CapturedLog();
  const std::vector<std::string>& lines() const { return lines_; }
  bool contains(std::string_view fragment) const;

 private:
  std::vector<std::string> lines_;
};

// An attribute as a failure message shows it: a quoted string, a date, a list, or its kind;
// "(none)" when absent.
std::string describe(const PropertyValue* value);

// Reads a whole file; empty when it cannot be read.
std::string readFile(const std::filesystem::path& path);

// The shared conformance corpus (charsets/, html/, docs/): ULVEK_CORPUS_DIR from the environment,
// else the folder the build was configured with. It is optional: tests that read it have
// "Corpus" in their name (which gives them the CTest label `corpus`) and start with
// ULVEK_REQUIRE_CORPUS().
std::filesystem::path corpusPath();
bool corpusPresent();

// The project's own fixtures, tests/data/.
std::filesystem::path dataPath();

// Points XDG_CACHE_HOME at a folder of this test program's own for the whole run (removed at
// its end), so that counting temporary items is not upset by test programs running beside it.
// Call it from a namespace-scope initializer.
bool usePrivateCacheFolder();

}  // namespace ulvek::testing

// Skips the calling test, naming the folder, when the shared corpus is absent.
#define ULVEK_REQUIRE_CORPUS()                                                             \
  if (!::ulvek::testing::corpusPresent())                                                  \
  GTEST_SKIP() << "shared corpus not found at " << ::ulvek::testing::corpusPath().string() \
               << "; corpus tests skipped"

namespace ulvek::testing {}  // namespace ulvek::testing
