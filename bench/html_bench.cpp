// HTML to plain text over the saved pages of the corpus: ulvekbot's conversion against
// `html2text` and `w3m -dump`, side by side in one run, ending with the ratios.
//
// Times are CPU seconds (user + system), so other load on the machine does not skew the ratios:
// the thread's own CPU time for ulvekbot, the children's CPU time for the two programs. Each
// program gets every page in one process, which spares it all but one start-up.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "text/html_meta.h"
#include "text/html_to_text.h"
#include "text/text_decoding.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

const fs::path kCorpus = fs::path(ULVEK_CORPUS_DIR) / "html";

struct CorpusPage {
  std::string path;
  std::uint64_t bytes = 0;
  ulvek::TextString html;  // decoded once, for the conversion-only benchmark
};

const std::vector<CorpusPage>& corpus() {
  static const std::vector<CorpusPage> pages = [] {
    std::vector<CorpusPage> found;
    for (const auto& entry : fs::directory_iterator(kCorpus)) {
      if (!entry.is_regular_file() || entry.path().extension() != ".html") continue;
      CorpusPage page;
      page.path = entry.path().string();
      page.bytes = entry.file_size();
      page.html = ulvek::stringWithMarkupContentsOfFile(page.path, ulvek::kUTF8StringEncoding)
                      .value_or(ulvek::TextString());
      found.push_back(std::move(page));
    }
    std::sort(found.begin(), found.end(),
              [](const CorpusPage& a, const CorpusPage& b) { return a.path < b.path; });
    return found;
  }();
  return pages;
}

std::uint64_t corpusBytes() {
  std::uint64_t total = 0;
  for (const CorpusPage& page : corpus()) total += page.bytes;
  return total;
}

double seconds(const timespec& time) { return time.tv_sec + time.tv_nsec / 1e9; }

double threadCPUSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return seconds(now);
}

double wallSeconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return seconds(now);
}

double childrenCPUSeconds() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6 + usage.ru_stime.tv_sec +
         usage.ru_stime.tv_usec / 1e6;
}

// Runs a program with its output thrown away; false when it cannot start or fails.
bool runQuietly(const std::vector<std::string>& arguments) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t child = 0;
  const int spawned = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return false;
  int status = 0;
  if (waitpid(child, &status, 0) != child) return false;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void report(benchmark::State& state, double wall) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * corpusBytes()));
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * corpus().size()));
  state.counters["wall_ms"] =
      benchmark::Counter(wall * 1000 / static_cast<double>(state.iterations()));
}

// The import's work on an HTML file: decode with charset detection, read title and meta
// attributes, convert the body.
void BM_UlvekbotFileToText(benchmark::State& state) {
  double wall = 0;
  for (auto _ : state) {
    const double startWall = wallSeconds();
    const double start = threadCPUSeconds();
    for (const CorpusPage& page : corpus()) {
      auto html = ulvek::stringWithMarkupContentsOfFile(page.path, ulvek::kUTF8StringEncoding);
      if (!html) return state.SkipWithError("a page did not decode");
      benchmark::DoNotOptimize(ulvek::normalizedHtmlTitle(*html));
      benchmark::DoNotOptimize(ulvek::htmlMetaAttributesByConvertingEntitiesToCharacters(*html));
      benchmark::DoNotOptimize(
          ulvek::stringByConvertingHtml2PlainText(*html, ulvek::kImportHtmlOptions));
    }
    state.SetIterationTime(threadCPUSeconds() - start);
    wall += wallSeconds() - startWall;
  }
  report(state, wall);
}

// The conversion alone, on text decoded beforehand.
void BM_UlvekbotHtmlToText(benchmark::State& state) {
  double wall = 0;
  for (auto _ : state) {
    const double startWall = wallSeconds();
    const double start = threadCPUSeconds();
    for (const CorpusPage& page : corpus()) {
      benchmark::DoNotOptimize(
          ulvek::stringByConvertingHtml2PlainText(page.html, ulvek::kImportHtmlOptions));
    }
    state.SetIterationTime(threadCPUSeconds() - start);
    wall += wallSeconds() - startWall;
  }
  report(state, wall);
}

void runProgramOverCorpus(benchmark::State& state, std::vector<std::string> arguments) {
  for (const CorpusPage& page : corpus()) arguments.push_back(page.path);
  double wall = 0;
  for (auto _ : state) {
    const double startWall = wallSeconds();
    const double start = childrenCPUSeconds();
    if (!runQuietly(arguments)) return state.SkipWithError("the program failed or is missing");
    state.SetIterationTime(childrenCPUSeconds() - start);
    wall += wallSeconds() - startWall;
  }
  report(state, wall);
}

void BM_Html2Text(benchmark::State& state) { runProgramOverCorpus(state, {"html2text", "-utf8"}); }

void BM_W3mDump(benchmark::State& state) {
  runProgramOverCorpus(state, {"w3m", "-dump", "-T", "text/html"});
}

// One large page, whole processes: the corpus pages one after another until 51 MB, imported by
// `ulvekbot import` (start-up, decoding, conversion and JSON output) and converted by the others.
const std::string& largePage() {
  static const std::string path = [] {
    std::string folder = (fs::temp_directory_path() / "ulvek-html-bench-XXXXXX").string();
    if (!mkdtemp(folder.data())) return std::string();
    std::string file = folder + "/large.html";
    std::ofstream out(file, std::ios::binary);
    std::uint64_t written = 0;
    while (written < 51'000'000) {
      for (const CorpusPage& page : corpus()) {
        std::ifstream in(page.path, std::ios::binary);
        out << in.rdbuf();
        written += page.bytes;
      }
    }
    return file;
  }();
  return path;
}

void runProgramOnLargePage(benchmark::State& state, std::vector<std::string> arguments) {
  if (largePage().empty()) return state.SkipWithError("no temporary folder");
  arguments.push_back(largePage());
  const std::uint64_t bytes = fs::file_size(largePage());
  for (auto _ : state) {
    const double start = childrenCPUSeconds();
    if (!runQuietly(arguments)) return state.SkipWithError("the program failed or is missing");
    state.SetIterationTime(childrenCPUSeconds() - start);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

void BM_LargePageUlvekbotImport(benchmark::State& state) {
  runProgramOnLargePage(state, {std::string(ULVEK_BINARY_DIR) + "/src/ulvekbot", "import"});
}
void BM_LargePageHtml2Text(benchmark::State& state) {
  runProgramOnLargePage(state, {"html2text", "-utf8"});
}
void BM_LargePageW3mDump(benchmark::State& state) {
  runProgramOnLargePage(state, {"w3m", "-dump", "-T", "text/html"});
}

BENCHMARK(BM_UlvekbotFileToText)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_UlvekbotHtmlToText)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_Html2Text)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_W3mDump)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_LargePageUlvekbotImport)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK(BM_LargePageHtml2Text)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_LargePageW3mDump)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

// Console output as usual, and each benchmark's mean CPU time per corpus pass kept for the
// ratios.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
      seconds_[run.run_name.function_name] = run.GetAdjustedRealTime() / 1000.0;
    }
  }

  void printRatios() const {
    const auto find = [this](const char* name) {
      auto found = seconds_.find(name);
      return found == seconds_.end() ? 0.0 : found->second;
    };
    const double ulvekFile = find("BM_UlvekbotFileToText");
    const double ulvekConvert = find("BM_UlvekbotHtmlToText");
    const double html2text = find("BM_Html2Text");
    const double w3m = find("BM_W3mDump");
    std::printf("\nCPU seconds per pass over %zu pages (%.1f MB):\n", corpus().size(),
                corpusBytes() / 1e6);
    std::printf("  ulvekbot file to text (decode, title, meta, text)  %8.3f\n", ulvekFile);
    std::printf("  ulvekbot HTML to text (conversion only)             %8.3f\n", ulvekConvert);
    std::printf("  html2text -utf8                                     %8.3f\n", html2text);
    std::printf("  w3m -dump                                           %8.3f\n", w3m);
    if (ulvekFile > 0 && ulvekConvert > 0) {
      std::printf("Ratios (how many times faster ulvekbot is):\n");
      std::printf("  html2text / ulvekbot file to text   %6.1fx   (aim 10x)\n",
                  html2text / ulvekFile);
      std::printf("  w3m       / ulvekbot file to text   %6.1fx   (aim 3x)\n", w3m / ulvekFile);
      std::printf("  html2text / ulvekbot HTML to text   %6.1fx\n", html2text / ulvekConvert);
      std::printf("  w3m       / ulvekbot HTML to text   %6.1fx\n", w3m / ulvekConvert);
    }
    const double largeOurs = find("BM_LargePageUlvekbotImport");
    if (largeOurs <= 0) return;
    std::printf(
        "One %.0f MB page, whole processes (CPU seconds): ulvekbot import %.2f, "
        "html2text %.2f, w3m -dump %.2f\n",
        fs::file_size(largePage()) / 1e6, largeOurs, find("BM_LargePageHtml2Text"),
        find("BM_LargePageW3mDump"));
    std::printf("  html2text / ulvekbot import   %6.1fx   (aim 20x)\n",
                find("BM_LargePageHtml2Text") / largeOurs);
    std::printf("  w3m       / ulvekbot import   %6.1fx   (aim 20x)\n",
                find("BM_LargePageW3mDump") / largeOurs);
  }

 private:
  std::map<std::string, double> seconds_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  corpus();
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios();
  benchmark::Shutdown();
  if (!largePage().empty()) fs::remove_all(fs::path(largePage()).parent_path());
  return 0;
}
