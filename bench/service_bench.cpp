// Round trips to the daemon over D-Bus, against the same work in-process and against what a
// user would otherwise run for an item's stored metadata (getfattr in a new process).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>

#include "../tests/service/service_fixture.h"
#include "import/mime_type_helper.h"
#include "metadata/metadata_store.h"

namespace {

using namespace std::chrono_literals;

// One private bus, one daemon and one tagged file for the whole run.
struct Environment {
  Environment() {
    std::string pattern = (std::filesystem::temp_directory_path() / "ulvekbench-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    folder = pattern;
    file = (folder / "tagged.txt").string();
    std::ofstream(file) << "text";
    ulvek::OVMetaDataStore::setObject(ulvek::PropertyArray{u"Red\n6", u"Blue", u"Work"},
                                      ulvek::MetaDataKey::UserTags, file, false);
    ulvek::OVMetaDataStore::setObject(ulvek::PropertyArray{u"https://example.com/page"},
                                      ulvek::MetaDataKey::WhereFroms, file, false);
    ulvek::OVMetaDataStore::setObject(ulvek::PropertyValue(u"A comment"),
                                      ulvek::MetaDataKey::FinderComment, file, false);
    daemon = ulvek::testing::startDaemon((folder / "daemon.log").string());
    client = ulvek::testing::ServiceClient::connect(nullptr);
    if (!client || !client->waitForService(10s)) throw std::runtime_error("no daemon");
  }
  ~Environment() {
    client.reset();
    daemon.stop();
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }

  ulvek::testing::PrivateBus bus;
  std::filesystem::path folder;
  std::string file;
  ulvek::testing::ChildProcess daemon;
  std::unique_ptr<ulvek::testing::ServiceClient> client;
};

Environment& environment() {
  static Environment instance;
  return instance;
}

void BM_PingOverDBus(benchmark::State& state) {
  auto& client = *environment().client;
  for (auto _ : state) {
    if (!client.ping(nullptr)) state.SkipWithError("ping failed");
  }
}
BENCHMARK(BM_PingOverDBus)->UseRealTime();

void BM_OpenAttributesOverDBus(benchmark::State& state) {
  auto& env = environment();
  for (auto _ : state) {
    auto result = env.client->openAttributes(env.file, nullptr);
    if (!result || result->size() != 3) state.SkipWithError("unexpected result");
    benchmark::DoNotOptimize(result);
  }
}
BENCHMARK(BM_OpenAttributesOverDBus)->UseRealTime();

void BM_OpenAttributesInProcess(benchmark::State& state) {
  auto& env = environment();
  ulvek::MIMETypeHelper helper;
  for (auto _ : state) {
    auto result = helper.openAttributes(env.file);
    benchmark::DoNotOptimize(result);
  }
}
BENCHMARK(BM_OpenAttributesInProcess)->UseRealTime();

void BM_GetfattrProcess(benchmark::State& state) {
  auto& env = environment();
  std::string out = (env.folder / "getfattr.out").string();
  for (auto _ : state) {
    auto child = ulvek::testing::ChildProcess::start(
        {"/usr/bin/getfattr", "--absolute-names", "-d", env.file}, out, "/dev/null");
    if (child.waitForExit(10s) != 0) state.SkipWithError("getfattr failed");
  }
}
BENCHMARK(BM_GetfattrProcess)->UseRealTime();

// Prints the usual table, then the ratios side by side.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  RatioReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (!run.error_occurred) nanoseconds_[run.run_name.function_name] = run.GetAdjustedRealTime();
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    auto time = [&](const char* name) { return nanoseconds_.count(name) ? nanoseconds_[name] : 0; };
    auto ratio = [&](const char* label, const char* numerator, const char* denominator) {
      double a = time(numerator), b = time(denominator);
      if (a > 0 && b > 0) std::printf("%-58s %8.2fx\n", label, a / b);
    };
    std::printf("\nRound trips (microseconds): Ping %.1f, OpenAttributes %.1f\n",
                time("BM_PingOverDBus") / 1000, time("BM_OpenAttributesOverDBus") / 1000);
    ratio("OpenAttributes over D-Bus / in-process", "BM_OpenAttributesOverDBus",
          "BM_OpenAttributesInProcess");
    ratio("getfattr -d in a new process / OpenAttributes over D-Bus", "BM_GetfattrProcess",
          "BM_OpenAttributesOverDBus");
  }

 private:
  std::map<std::string, double> nanoseconds_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
