// The mixed folder of real documents (every format of the corpus, damaged files left out) as an
// archive a user imports, side by side in one run: one `ulvekbot import` process with one job
// and with every core, one process per file (reading scans, and without OCR as tracker-extract
// reads), the daemon answering one and two clients at once, and GNOME's tracker-extract one
// process per file. Files and megabytes per second, and the peak memory of the process that did
// the reading (for the daemon, the daemon's own).
#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "../tests/service/service_fixture.h"
#include "base/processors.h"
#include "bench_support.h"
#include "platform/sandbox.h"

namespace {

using namespace ulvek::bench;
using Clock = std::chrono::steady_clock;

struct Run {
  double seconds = -1;
  double peakMegabytes = -1;
};

// Best of three runs of a shell command, with the peak memory of its largest process.
Run timedCommand(const std::string& command) {
  const std::string peak = fs::temp_directory_path() / "ulvek-corpus-bench.peak";
  Run best;
  for (int run = 0; run < 3; ++run) {
    const auto started = Clock::now();
    const int status = std::system(("/usr/bin/time -f %M -o " + peak + " " + command).c_str());
    const double seconds = std::chrono::duration<double>(Clock::now() - started).count();
    if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) == 127) return {};
    // The peak is the last line: time writes "Command exited with non-zero status N" before it
    // when some file could not be read.
    std::ifstream lines(peak);
    double peakKilobytes = -1;
    for (std::string line; std::getline(lines, line);)
      if (!line.empty() && std::isdigit(static_cast<unsigned char>(line[0])))
        peakKilobytes = std::stod(line);
    if (best.seconds < 0 || seconds < best.seconds) best = {seconds, peakKilobytes / 1024};
  }
  fs::remove(peak);
  return best;
}

// Every path imported by `clients` connections at once, each importing the whole list; or, with
// `inTurn`, the same requests one client after the other.
double daemonSeconds(const std::vector<std::string>& paths, int clients, bool inTurn) {
  auto importAll = [&] {
    auto client = ulvek::testing::ServiceClient::connect(nullptr);
    if (!client || !client->waitForService(std::chrono::seconds(10))) return false;
    for (const std::string& path : paths) (void)client->openFile(path, nullptr);
    return true;
  };
  const auto started = Clock::now();
  if (inTurn) {
    for (int i = 0; i < clients; ++i) importAll();
  } else {
    std::vector<std::jthread> threads;
    for (int i = 0; i < clients; ++i) threads.emplace_back(importAll);
  }
  return std::chrono::duration<double>(Clock::now() - started).count();
}

void printRow(const char* way, std::size_t files, double megabytes, const Run& run) {
  if (run.seconds <= 0) {
    std::printf("%-48s %10s\n", way, "(could not run)");
    return;
  }
  std::printf("%-48s %8.2f s %9.1f %8.1f %10.1f\n", way, run.seconds, files / run.seconds,
              megabytes / run.seconds, run.peakMegabytes);
}

void runCommandLines(const std::vector<std::string>& paths, double megabytes, std::size_t cores,
                     const std::string& list);
void runDaemon(const std::vector<std::string>& paths, double megabytes, std::size_t cores);

}  // namespace

// With "cli" or "daemon", only those rows.
int main(int argc, char** argv) {
  const std::string only = argc > 1 ? argv[1] : "";
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  std::vector<std::string> paths;
  for (const auto& entry : fs::directory_iterator(kCorpus)) {
    if (!entry.is_directory()) continue;
    for (const std::string& path : files({entry.path().filename().string()}))
      if (path.find("10000-pages") == std::string::npos) paths.push_back(path);
  }
  if (paths.empty()) {
    std::printf("no corpus at %s\n", kCorpus.c_str());
    return 0;
  }
  double megabytes = 0;
  for (const std::string& path : paths) {
    std::error_code error;
    megabytes += fs::is_regular_file(path, error) ? fs::file_size(path, error) / 1e6 : 0;
  }
  const std::size_t cores = ulvek::usableCores();
  const std::string list = fs::temp_directory_path() / "ulvek-corpus-bench.list";
  {
    std::ofstream out(list);
    for (const std::string& path : paths) out << path << '\n';
  }
  std::printf("%zu documents, %.1f MB, %zu cores\n\n", paths.size(), megabytes, cores);
  std::printf("%-48s %10s %9s %8s %10s\n", "", "time", "files/s", "MB/s", "peak MB");

  if (only != "daemon") runCommandLines(paths, megabytes, cores, list);
  if (only != "cli") runDaemon(paths, megabytes, cores);
  fs::remove(list);
  return 0;
}

namespace {

void runCommandLines(const std::vector<std::string>& paths, double megabytes, std::size_t cores,
                     const std::string& list) {
  const std::string import = kUlvekbot + " import --files-from " + shellQuoted(list);
  const Run one = timedCommand(import + " -j 1 >/dev/null 2>&1");
  const Run all = timedCommand(import + " -j " + std::to_string(cores) + " >/dev/null 2>&1");
  const Run perFile = timedCommand(eachFile(paths, kUlvekbot + " import") + " >/dev/null 2>&1");
  // tracker-extract reads no scans: like with like, ulvekbot without OCR too.
  const Run perFileNoOCR =
      timedCommand(eachFile(paths, kUlvekbot + " import --no-ocr") + " >/dev/null 2>&1");
  const Run tracker = timedCommand("dbus-run-session -- " +
                                   eachFile(paths, "/usr/libexec/tracker-extract-3 -o turtle -f") +
                                   " >/dev/null 2>&1");
  printRow("ulvekbot import -j 1, one process", paths.size(), megabytes, one);
  printRow(("ulvekbot import -j " + std::to_string(cores) + ", one process").c_str(), paths.size(),
           megabytes, all);
  printRow("ulvekbot import, one process per file", paths.size(), megabytes, perFile);
  printRow("ulvekbot import --no-ocr, one process per file", paths.size(), megabytes, perFileNoOCR);
  printRow("tracker-extract, one process per file", paths.size(), megabytes, tracker);
  std::printf("\n-j %zu against -j 1, one process each: %s\n", cores,
              comparison(all.seconds, one.seconds).c_str());
  std::printf(
      "one process per file, no OCR on either side, ulvekbot against tracker-extract: %s\n\n",
      comparison(perFileNoOCR.seconds, tracker.seconds).c_str());
}

struct DaemonRuns {
  Run one, inTurn, together;
};

// The daemon with a request per core, on a private bus; each client imports every file.
DaemonRuns daemonRuns(const std::vector<std::string>& paths, std::size_t cores) {
  DaemonRuns runs;
  ulvek::testing::PrivateBus bus;
  const std::string log = fs::temp_directory_path() / "ulvek-corpus-bench.log";
  ulvek::testing::ChildProcess daemon = ulvek::testing::ChildProcess::start(
      {ulvek::testing::builtProgram("ulvekbotd64"), "--jobs", std::to_string(cores)}, "", log);
  auto client = ulvek::testing::ServiceClient::connect(nullptr);
  if (client && client->waitForService(std::chrono::seconds(10))) {
    daemonSeconds(paths, 1, true);  // the worker and the caches warm
    runs.one.seconds = daemonSeconds(paths, 1, true);
    runs.inTurn.seconds = daemonSeconds(paths, 2, true);
    runs.together.seconds = daemonSeconds(paths, 2, false);
    const double peak =
        std::stod(ulvek::sandbox::processStatusField(daemon.pid(), "VmHWM").value_or("-1024"));
    runs.one.peakMegabytes = runs.inTurn.peakMegabytes = runs.together.peakMegabytes = peak / 1024;
  }
  daemon.stop();
  fs::remove(log);
  return runs;
}

void printDaemonRuns(const char* way, std::size_t files, double megabytes, std::size_t cores,
                     const DaemonRuns& runs) {
  std::printf("\n%s:\n", way);
  printRow(("daemon --jobs " + std::to_string(cores) + ", one client").c_str(), files, megabytes,
           runs.one);
  printRow("daemon, two clients in turn (both imports)", 2 * files, 2 * megabytes, runs.inTurn);
  printRow("daemon, two clients at once (both imports)", 2 * files, 2 * megabytes, runs.together);
  if (runs.together.seconds > 0)
    std::printf("two clients at once against the same requests in turn: %.2fx sooner\n",
                runs.inTurn.seconds / runs.together.seconds);
}

void runDaemon(const std::vector<std::string>& paths, double megabytes, std::size_t cores) {
  // A request alone spreads a document's pages and scans over every core, so requests in turn
  // already use more than one: the second round keeps each request to one core, which shows what
  // serving requests at once adds by itself.
  printDaemonRuns("each request on every core it is granted (the default)", paths.size(), megabytes,
                  cores, daemonRuns(paths, cores));
  ::setenv("ULVEKBOT_PDF_THREADS", "1", 1);
  printDaemonRuns("each request on one core (ULVEKBOT_PDF_THREADS=1)", paths.size(), megabytes,
                  cores, daemonRuns(paths, cores));
  ::unsetenv("ULVEKBOT_PDF_THREADS");
}

}  // namespace
