#pragma once

// Shared by the benchmarks that time whole processes: corpus files, shell quoting, best-of-three
// timing of a command.
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace ulvek::bench {

namespace fs = std::filesystem;

inline const fs::path kCorpus = fs::path(ULVEK_CORPUS_DIR) / "docs";
inline const std::string kUlvekbot = std::string(ULVEK_BINARY_DIR) + "/src/ulvekbot";

inline std::string shellQuoted(const std::string& text) {
  std::string result = "'";
  for (char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return result + "'";
}

inline std::vector<std::string> files(const std::vector<std::string>& folders) {
  std::vector<std::string> found;
  for (const std::string& folder : folders) {
    if (!fs::exists(kCorpus / folder)) continue;
    for (const auto& entry : fs::directory_iterator(kCorpus / folder)) {
      std::string name = entry.path().filename().string();
      if (name.ends_with(".json") || name.starts_with("._") || name.starts_with("damaged-") ||
          name.ends_with(".hqx"))
        continue;
      found.push_back(entry.path().string());
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

// Best of three runs of a shell command, in milliseconds; negative when it could not run.
inline double milliseconds(const std::string& command) {
  double best = -1;
  for (int run = 0; run < 3; ++run) {
    auto start = std::chrono::steady_clock::now();
    int status = std::system((command + " >/dev/null 2>&1").c_str());
    double elapsed =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) == 127) return -1;
    best = best < 0 ? elapsed : std::min(best, elapsed);
  }
  return best;
}

inline std::string joined(const std::vector<std::string>& paths) {
  std::string list;
  for (const std::string& path : paths) list += " " + shellQuoted(path);
  return list;
}

// One process per file, as these tools take one document each.
inline std::string eachFile(const std::vector<std::string>& paths, const std::string& tool) {
  std::string script = "for f in" + joined(paths) + "; do " + tool + " \"$f\"; done";
  return "sh -c " + shellQuoted(script);
}

}  // namespace ulvek::bench
