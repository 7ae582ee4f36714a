// What one import costs: the HTML corpus through `ulvekbot import` (one process, in-process
// imports) against the same files sent one by one to the daemon over D-Bus, and the per-file
// overhead of a small file both ways. Ends with the ratios side by side.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "../tests/service/service_fixture.h"
#include "import/mime_type_helper.h"

namespace {

namespace fs = std::filesystem;
using ulvek::ImportResult;
using ulvek::MIMETypeHelper;
using ulvek::testing::ServiceClient;

const fs::path kCorpus = fs::path(ULVEK_CORPUS_DIR) / "html";

const std::vector<std::string>& corpusFiles() {
  static const std::vector<std::string> files = [] {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(kCorpus)) {
      if (entry.is_regular_file()) found.push_back(entry.path().string());
    }
    std::sort(found.begin(), found.end());
    return found;
  }();
  return files;
}

std::uint64_t corpusBytes() {
  std::uint64_t total = 0;
  for (const std::string& file : corpusFiles()) total += fs::file_size(file);
  return total;
}

// Small files whose import is almost all overhead: attributes, size, classification, completion.
struct SmallFiles {
  SmallFiles() {
    std::string pattern = (fs::temp_directory_path() / "ulvek-import-bench-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) std::abort();
    folder = pattern;
    std::FILE* text = std::fopen((folder / "note.txt").c_str(), "w");
    std::fputs("A short note of a few words.\n", text);
    std::fclose(text);
    std::FILE* html = std::fopen((folder / "page.html").c_str(), "w");
    std::fputs("<html><head><title>Small</title></head><body><p>Hello</p></body></html>\n", html);
    std::fclose(html);
  }
  ~SmallFiles() {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
  }
  std::string text() const { return (folder / "note.txt").string(); }
  std::string html() const { return (folder / "page.html").string(); }
  fs::path folder;
};

const SmallFiles& smallFiles() {
  static const SmallFiles files;
  return files;
}

// A private bus with the built daemon on it, started once for every D-Bus benchmark.
struct Service {
  Service()
      : log(fs::temp_directory_path() / "ulvek-import-bench-daemon.log"),
        daemon(ulvek::testing::startDaemon(log.string())) {
    client = ServiceClient::connect(nullptr);
    if (!client || !client->waitForService(std::chrono::seconds(10))) client.reset();
  }
  ~Service() {
    if (client) client->terminate(nullptr);
  }
  ulvek::testing::PrivateBus bus;
  fs::path log;
  ulvek::testing::ChildProcess daemon;
  std::unique_ptr<ServiceClient> client;
};

ServiceClient* serviceClient() {
  static Service service;
  return service.client.get();
}

void reportFiles(benchmark::State& state, std::size_t filesPerIteration, std::uint64_t bytes) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * filesPerIteration));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
  state.counters["us_per_file"] = benchmark::Counter(
      static_cast<double>(state.iterations() * filesPerIteration),
      benchmark::Counter::kIsRate | benchmark::Counter::kInvert, benchmark::Counter::kIs1000);
}

void BM_CorpusWithUlvekbotImport(benchmark::State& state) {
  fs::path scratch = smallFiles().folder;
  for (auto _ : state) {
    auto output = ulvek::testing::runProgram(
        {ulvek::testing::builtProgram("ulvekbot"), "import", kCorpus.string()}, scratch);
    if (output.status != 0) state.SkipWithError("ulvekbot import failed");
  }
  reportFiles(state, corpusFiles().size(), corpusBytes());
}

void BM_CorpusInProcess(benchmark::State& state) {
  MIMETypeHelper helper;
  for (auto _ : state) {
    for (const std::string& file : corpusFiles()) benchmark::DoNotOptimize(helper.openFile(file));
  }
  reportFiles(state, corpusFiles().size(), corpusBytes());
}

void BM_CorpusOverDBus(benchmark::State& state) {
  ServiceClient* client = serviceClient();
  if (!client) return state.SkipWithError("the daemon did not start");
  for (auto _ : state) {
    for (const std::string& file : corpusFiles()) {
      if (!client->openFile(file, nullptr)) return state.SkipWithError("openFile failed");
    }
  }
  reportFiles(state, corpusFiles().size(), corpusBytes());
}

void BM_SmallTextInProcess(benchmark::State& state) {
  MIMETypeHelper helper;
  std::string path = smallFiles().text();
  for (auto _ : state) benchmark::DoNotOptimize(helper.openFile(path));
  reportFiles(state, 1, fs::file_size(path));
}

void BM_SmallHTMLInProcess(benchmark::State& state) {
  MIMETypeHelper helper;
  std::string path = smallFiles().html();
  for (auto _ : state) benchmark::DoNotOptimize(helper.openFile(path));
  reportFiles(state, 1, fs::file_size(path));
}

void BM_SmallTextOverDBus(benchmark::State& state) {
  ServiceClient* client = serviceClient();
  if (!client) return state.SkipWithError("the daemon did not start");
  std::string path = smallFiles().text();
  for (auto _ : state) benchmark::DoNotOptimize(client->openFile(path, nullptr));
  reportFiles(state, 1, fs::file_size(path));
}

void BM_SmallHTMLOverDBus(benchmark::State& state) {
  ServiceClient* client = serviceClient();
  if (!client) return state.SkipWithError("the daemon did not start");
  std::string path = smallFiles().html();
  for (auto _ : state) benchmark::DoNotOptimize(client->openFile(path, nullptr));
  reportFiles(state, 1, fs::file_size(path));
}

BENCHMARK(BM_CorpusWithUlvekbotImport)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CorpusInProcess)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CorpusOverDBus)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SmallTextInProcess)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_SmallHTMLInProcess)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_SmallTextOverDBus)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_SmallHTMLOverDBus)->Unit(benchmark::kMicrosecond)->UseRealTime();

// Rates are of wall-clock time: the work of the daemon and of the command runs in other processes.

// Keeps the files-per-second figure of each run for the closing comparison.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      auto found = run.counters.find("items_per_second");
      if (found != run.counters.end() && !run.error_occurred) {
        filesPerSecond[run.run_name.function_name] = found->second.value;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> filesPerSecond;
};

void printRatio(const RatioReporter& reporter, const std::string& label, const std::string& fast,
                const std::string& slow) {
  auto a = reporter.filesPerSecond.find(fast);
  auto b = reporter.filesPerSecond.find(slow);
  if (a == reporter.filesPerSecond.end() || b == reporter.filesPerSecond.end()) return;
  std::printf("%-44s %10.0f vs %10.0f files/s  (%.2fx)\n", label.c_str(), a->second, b->second,
              a->second / b->second);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\n");
  printRatio(reporter, "corpus: ulvekbot import vs D-Bus one by one", "BM_CorpusWithUlvekbotImport",
             "BM_CorpusOverDBus");
  printRatio(reporter, "corpus: in-process vs D-Bus one by one", "BM_CorpusInProcess",
             "BM_CorpusOverDBus");
  printRatio(reporter, "small text: in-process vs D-Bus", "BM_SmallTextInProcess",
             "BM_SmallTextOverDBus");
  printRatio(reporter, "small HTML: in-process vs D-Bus", "BM_SmallHTMLInProcess",
             "BM_SmallHTMLOverDBus");
  benchmark::Shutdown();
  return 0;
}
