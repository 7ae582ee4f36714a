// WordPerfect text speed: the corpus documents read by ulvekbot's reader and by `wpd2text`
// (libwpd), the tool a user would otherwise run, side by side in one run. Each document is read
// the same number of times by both; times are CPU seconds, the thread's own for ulvekbot and the
// children's for wpd2text (one process per document and round, as a user runs it).
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "readers/wordperfect/wordperfect_reader.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using namespace ulvek;

constexpr int kRounds = 20;

double threadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + now.tv_nsec / 1e9;
}

double childSeconds() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void runQuietly(const std::string& path) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  std::string program = "wpd2text";
  std::string argument = path;
  char* argv[] = {program.data(), argument.data(), nullptr};
  pid_t pid = 0;
  if (posix_spawnp(&pid, "wpd2text", &actions, nullptr, argv, environ) == 0) {
    int status = 0;
    waitpid(pid, &status, 0);
  }
  posix_spawn_file_actions_destroy(&actions);
}

}  // namespace

int main() {
  fs::path folder = fs::path(ULVEK_CORPUS_DIR) / "docs/wpd";
  std::vector<std::string> files;
  std::uint64_t bytes = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    std::string name = entry.path().filename();
    if (name.ends_with(".json") || name.starts_with("damaged-")) continue;
    files.push_back(entry.path());
    bytes += entry.file_size();
  }
  double start = threadSeconds();
  std::size_t units = 0;
  for (int round = 0; round < kRounds; ++round) {
    for (const std::string& path : files) {
      auto output = wordPerfectReader().read(ReaderSource::file(path));
      if (output && output->text) units += output->text->size();
    }
  }
  double ours = threadSeconds() - start;

  double before = childSeconds();
  for (int round = 0; round < kRounds; ++round)
    for (const std::string& path : files) runQuietly(path);
  double peer = childSeconds() - before;

  double megabytes = kRounds * bytes / (1024.0 * 1024.0);
  std::printf("%zu WordPerfect documents x %d rounds, %.1f MB, %zu units of text\n", files.size(),
              kRounds, megabytes, units);
  std::printf("ulvekbot reader: %.3f s CPU\n", ours);
  std::printf("wpd2text:        %.3f s CPU\n", peer);
  std::printf("ratio (wpd2text / ulvekbot): %.1fx\n", peer / ours);
  return 0;
}
