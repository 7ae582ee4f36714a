// Round trips to the daemon over D-Bus through the client library, against the same work
// in-process, the bus's own command-line clients (busctl, gdbus) for the same call, and what a user
// would otherwise run for an item's stored metadata (getfattr); and the time from launching the
// daemon to its first answered ping.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>

#include "../tests/service/service_fixture.h"
#include "client/helper_task.h"
#include "client/thread_connections.h"
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
    bool stored =
        ulvek::OVMetaDataStore::setObject(ulvek::PropertyArray{u"Red\n6", u"Blue", u"Work"},
                                          ulvek::MetaDataKey::UserTags, file, false)
            .ok() &&
        ulvek::OVMetaDataStore::setObject(ulvek::PropertyArray{u"https://example.com/page"},
                                          ulvek::MetaDataKey::WhereFroms, file, false)
            .ok() &&
        ulvek::OVMetaDataStore::setObject(ulvek::PropertyValue(u"A comment"),
                                          ulvek::MetaDataKey::FinderComment, file, false)
            .ok();
    if (!stored) throw std::runtime_error("cannot store extended attributes here");
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

// The same calls made by the bus's command-line clients, one process each, as a script would.
std::vector<std::string> busctlCall(const std::string& method,
                                    const std::vector<std::string>& args) {
  std::vector<std::string> command = {"/usr/bin/busctl",
                                      "--user",
                                      "call",
                                      "com.ulvek_technologies.ulvekbotd64",
                                      "/com/ulvek_technologies/ulvekbotd64",
                                      "com.ulvek_technologies.UlvekBotHelper",
                                      method};
  command.insert(command.end(), args.begin(), args.end());
  return command;
}

std::vector<std::string> gdbusCall(const std::string& method,
                                   const std::vector<std::string>& args) {
  std::vector<std::string> command = {"/usr/bin/gdbus",
                                      "call",
                                      "--session",
                                      "--dest",
                                      "com.ulvek_technologies.ulvekbotd64",
                                      "--object-path",
                                      "/com/ulvek_technologies/ulvekbotd64",
                                      "--method",
                                      "com.ulvek_technologies.UlvekBotHelper." + method};
  command.insert(command.end(), args.begin(), args.end());
  return command;
}

void runTool(benchmark::State& state, const std::vector<std::string>& command) {
  auto& env = environment();
  if (access(command[0].c_str(), X_OK) != 0) {
    state.SkipWithError((command[0] + " is not installed").c_str());
    return;
  }
  std::string out = (env.folder / "tool.out").string();
  for (auto _ : state) {
    auto child = ulvek::testing::ChildProcess::start(command, out, "/dev/null");
    if (child.waitForExit(10s) != 0) state.SkipWithError((command[0] + " failed").c_str());
  }
}

void BM_PingBusctl(benchmark::State& state) { runTool(state, busctlCall("Ping", {})); }
BENCHMARK(BM_PingBusctl)->UseRealTime();
void BM_PingGdbus(benchmark::State& state) { runTool(state, gdbusCall("Ping", {})); }
BENCHMARK(BM_PingGdbus)->UseRealTime();
void BM_OpenAttributesBusctl(benchmark::State& state) {
  runTool(state, busctlCall("OpenAttributes", {"s", environment().file}));
}
BENCHMARK(BM_OpenAttributesBusctl)->UseRealTime();
void BM_OpenAttributesGdbus(benchmark::State& state) {
  runTool(state, gdbusCall("OpenAttributes", {environment().file}));
}
BENCHMARK(BM_OpenAttributesGdbus)->UseRealTime();

// From starting the executable to its first answered ping, through HelperTask. Runs last: it
// stops the shared daemon so that each launch starts a fresh one.
void BM_LaunchToFirstPing(benchmark::State& state) {
  auto& env = environment();
  env.client->terminate(nullptr);
  env.daemon.waitForExit(10s);
  const std::string name = "ulvekbotd64";
  auto unregistered = [&] {
    for (int step = 0; step < 5000; ++step) {
      ulvek::thread_connections::invalidateConnectionsRegisteredWithName(name);
      if (!ulvek::thread_connections::rootProxyForConnectionWithRegisteredName(name, 15, {}))
        return true;
      std::this_thread::sleep_for(1ms);
    }
    return false;
  };
  for (auto _ : state) {
    state.PauseTiming();
    if (!unregistered()) state.SkipWithError("the previous daemon kept its name");
    auto task = ulvek::HelperTask::initWithPath(ulvek::testing::builtProgram("ulvekbotd64"), name,
                                                ulvek::dbus::kInterfaceName, 15,
                                                ulvek::kQualityOfServiceDefault);
    state.ResumeTiming();
    std::optional<ulvek::HelperProxy> proxy = task->launch();
    if (!proxy || !proxy->ping().ok()) state.SkipWithError("no answer from the launched daemon");
    state.PauseTiming();
    task->terminate();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_LaunchToFirstPing)->UseRealTime()->Unit(benchmark::kMillisecond);

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
    ratio("busctl call Ping / client library Ping", "BM_PingBusctl", "BM_PingOverDBus");
    ratio("gdbus call Ping / client library Ping", "BM_PingGdbus", "BM_PingOverDBus");
    ratio("busctl call OpenAttributes / client library", "BM_OpenAttributesBusctl",
          "BM_OpenAttributesOverDBus");
    ratio("gdbus call OpenAttributes / client library", "BM_OpenAttributesGdbus",
          "BM_OpenAttributesOverDBus");
    std::printf("Launch to first answered ping (milliseconds): %.1f\n",
                time("BM_LaunchToFirstPing"));  // reported in its own unit
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
