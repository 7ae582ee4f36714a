#pragma once

// Shared by the benchmarks that time whole processes: corpus files, shell quoting, best-of-three
// timing of a command, and like-with-like comparisons with a peer.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace ulvek::bench {

namespace fs = std::filesystem;

inline const fs::path kCorpus = fs::absolute(fs::path(ULVEK_CORPUS_DIR) / "docs");
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

// Where per-file commands run: some tools drop files into their working folder (unrtf's
// pictures), and the corpus is read-only.
inline const fs::path& scratchFolder() {
  struct Folder {
    fs::path path = fs::temp_directory_path() / ("ulvek-bench-" + std::to_string(::getpid()));
    Folder() { fs::create_directories(path); }
    ~Folder() {
      std::error_code ignored;
      fs::remove_all(path, ignored);
    }
  };
  static const Folder folder;
  return folder.path;
}

// One process per file, as these tools take one document each; `after` follows the file's name.
inline std::string eachFile(const std::vector<std::string>& paths, const std::string& tool,
                            const std::string& after = "") {
  std::string script = "cd " + shellQuoted(scratchFolder().string()) + " && for f in" +
                       joined(paths) + "; do " + tool + " \"$f\"" + after + "; done";
  return "sh -c " + shellQuoted(script);
}

// "ulvekbot is 2.5x faster" or "ulvekbot is 1.2x slower", from two times of the same work done
// the same way; "-" when either could not run.
inline std::string comparison(double ours, double theirs) {
  if (ours <= 0 || theirs <= 0) return "-";
  char text[64];
  if (theirs >= ours)
    std::snprintf(text, sizeof text, "ulvekbot is %.1fx faster", theirs / ours);
  else
    std::snprintf(text, sizeof text, "ulvekbot is %.1fx slower", ours / theirs);
  return text;
}

// A peer, timed the way it is used: one process per file, and one process for all files where
// it takes many (its batch mode; empty where it has none).
struct Peer {
  std::string name;
  std::string (*perFile)(const std::vector<std::string>&);
  std::string (*batch)(const std::vector<std::string>&) = nullptr;
};

// Like with like, side by side: ulvekbot one process per file against the peer one process per
// file, then one ulvekbot process for all files (with -j 1, and with every core) against the
// peer's batch mode. The one-process times of ulvekbot are never compared with a per-file time.
inline void printComparisonHeader() {
  std::printf("%-12s %5s %-13s | %-10s %10s %-26s | %-10s %-10s %10s %s\n", "kind", "files", "peer",
              "per file", "peer ms", "", "-j 1", "all cores", "peer ms", "");
}

// `options` go to ulvekbot import.
inline void printComparison(const std::string& kind, const std::vector<std::string>& paths,
                            const std::vector<Peer>& peers, const std::string& options = "") {
  const std::string import = kUlvekbot + " import" + (options.empty() ? "" : " " + options);
  double oursPerFile = milliseconds(eachFile(paths, import));
  double oursOneJob = milliseconds(import + " -j 1" + joined(paths));
  double oursOneProcess = milliseconds(import + joined(paths));
  for (const Peer& peer : peers) {
    double theirsPerFile = milliseconds(peer.perFile(paths));
    double theirsBatch = peer.batch ? milliseconds(peer.batch(paths)) : -1;
    char perFile[32], oneJob[32], batch[32];
    std::snprintf(perFile, sizeof perFile, "%.1f", oursPerFile);
    std::snprintf(oneJob, sizeof oneJob, "%.1f", oursOneJob);
    std::snprintf(batch, sizeof batch, "%.1f", oursOneProcess);
    char theirsBatchText[32] = "-";
    if (peer.batch) std::snprintf(theirsBatchText, sizeof theirsBatchText, "%.1f", theirsBatch);
    std::printf("%-12s %5zu %-13s | %-10s %10.1f %-26s | %-10s %-10s %10s %s\n", kind.c_str(),
                paths.size(), peer.name.c_str(), perFile, theirsPerFile,
                comparison(oursPerFile, theirsPerFile).c_str(), oneJob, batch, theirsBatchText,
                peer.batch ? comparison(oursOneProcess, theirsBatch).c_str() : "(no batch mode)");
  }
}

}  // namespace ulvek::bench
