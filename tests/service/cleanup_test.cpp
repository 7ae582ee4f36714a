// What the programs leave in the temporary folder when they are stopped, killed or cut off: the
// daemon on SIGTERM and SIGINT in the middle of an import, after SIGKILL (until the next start),
// its importer worker killed, and the command line ended by SIGPIPE. Also the daemon's options.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>
#include <thread>

#include "platform/sandbox.h"
#include "platform/temporary_items.h"
#include "service_fixture.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using testing::ChildProcess;
using testing::readWholeFile;

const std::string kPostScript = (testing::dataPath() / "pdf/ferry.ps").string();
const std::string kPdf = (testing::dataPath() / "pdf/logbook.pdf").string();

// Every entry below the temporary items' root, relative to it, sorted.
std::vector<std::string> temporaryEntries() {
  std::vector<std::string> entries;
  std::error_code error;
  fs::path root = temporaryItemsRoot();
  for (fs::recursive_directory_iterator it(root, error), end; !error && it != end;
       it.increment(error))
    entries.push_back(it->path().lexically_relative(root).string());
  std::sort(entries.begin(), entries.end());
  return entries;
}

std::string joined(const std::vector<std::string>& entries) {
  std::string text;
  for (const std::string& entry : entries) text += entry + "\n";
  return text.empty() ? "(nothing)" : text;
}

// The processes whose parent is `parent`.
std::vector<pid_t> childrenOf(pid_t parent) {
  std::vector<pid_t> children;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    std::string stat = readWholeFile(entry.path() / "stat");
    std::size_t end = stat.rfind(')');
    if (end == std::string::npos) continue;
    std::istringstream fields(stat.substr(end + 2));
    std::string state;
    pid_t ppid = 0;
    if (fields >> state >> ppid && ppid == parent && state != "Z")
      children.push_back(std::stoi(name));
  }
  return children;
}

// Whether a process still runs (a zombie nobody reaps does not).
bool running(pid_t pid) {
  std::optional<std::string> state = sandbox::processStatusField(pid, "State");
  return state && !state->starts_with("Z");
}

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(10ms);
  }
  return true;
}

// Each test gets a cache folder of its own, so that whatever is found there is its programs'.
class CleanupTest : public ::testing::Test {
 protected:
  void SetUp() override { ::setenv("XDG_CACHE_HOME", cache_.path().c_str(), 1); }
  void TearDown() override { ::unsetenv("XDG_CACHE_HOME"); }

  ChildProcess startDaemon(std::string_view log = "daemon.log") {
    ChildProcess daemon = testing::startDaemon((folder_.path() / log).string());
    client_ = testing::ServiceClient::connect();
    EXPECT_TRUE(client_->waitForService(10s)) << readWholeFile(folder_.path() / log);
    return daemon;
  }

  testing::TemporaryFolder cache_;
  testing::TemporaryFolder folder_;
  std::unique_ptr<testing::ServiceClient> client_;
  std::optional<Error> error_;
};

TEST_F(CleanupTest, TheDaemonEndsInOrderOnSIGTERMAndSIGINTInTheMiddleOfAnImport) {
  for (int number : {SIGTERM, SIGINT}) {
    SCOPED_TRACE(sigabbrev_np(number));
    testing::PrivateBus bus;
    ChildProcess daemon = startDaemon();
    // The first PostScript file starts the worker, which keeps a folder of its own.
    ASSERT_TRUE(client_->openFile(kPostScript, &error_)) << error_->localizedDescription;
    std::string own = processFolderName(daemon.pid(), processStartTime(daemon.pid()).value());
    std::vector<std::string> entries = temporaryEntries();
    ASSERT_EQ(entries.size(), 2u) << joined(entries);
    EXPECT_EQ(entries[0], own);
    EXPECT_TRUE(entries[1].starts_with(own + "/worker.")) << entries[1];
    std::vector<pid_t> workers = childrenOf(daemon.pid());
    ASSERT_EQ(workers.size(), 1u);

    // Ghostscript converts into the worker's folder while the signal comes.
    std::optional<Result<ImportResult>> answer;
    std::thread importing([&] {
      auto proxy = thread_connections::rootProxyForConnectionWithRegisteredName(
          "ulvekbotd64", 15, dbus::kInterfaceName);
      if (proxy) answer = proxy->openFile(kPostScript);
    });
    // Signalled once Ghostscript's folder is there, so the import is surely under way.
    EXPECT_TRUE(waitUntil(
        [] {
          for (const std::string& entry : temporaryEntries())
            if (entry.find("/ps.") != std::string::npos) return true;
          return false;
        },
        10s));
    ::kill(daemon.pid(), number);
    importing.join();
    EXPECT_EQ(daemon.waitForExit(20s), 0);
    // The import under way was finished and answered before the end.
    ASSERT_TRUE(answer && *answer) << (answer ? answer->error().domain : "no call");
    EXPECT_TRUE(waitUntil([&] { return ::kill(workers[0], 0) != 0; }, 5s));
    EXPECT_EQ(temporaryEntries(), std::vector<std::string>()) << joined(temporaryEntries());
    EXPECT_EQ(readWholeFile(folder_.path() / "daemon.log"), "");
  }
}

TEST_F(CleanupTest, AKilledDaemonsFolderGoesWithTheNextStart) {
  testing::PrivateBus bus;
  ChildProcess first = startDaemon();
  ASSERT_TRUE(client_->openFile(kPdf, &error_));
  std::string firstFolder = processFolderName(first.pid(), processStartTime(first.pid()).value());
  ::kill(first.pid(), SIGKILL);
  EXPECT_EQ(first.waitForExit(5s), 128 + SIGKILL);
  // Nothing could remove it: the folder and its worker's stay until a process starts.
  EXPECT_TRUE(fs::exists(fs::path(temporaryItemsRoot()) / firstFolder));

  ChildProcess second = startDaemon("second.log");
  std::vector<std::string> entries = temporaryEntries();
  ASSERT_EQ(entries.size(), 1u) << joined(entries);
  EXPECT_EQ(entries[0], processFolderName(second.pid(), processStartTime(second.pid()).value()));
  EXPECT_TRUE(client_->terminate(&error_));
  EXPECT_EQ(second.waitForExit(10s), 0);
  EXPECT_EQ(temporaryEntries(), std::vector<std::string>());
}

TEST_F(CleanupTest, AKilledDaemonTakesItsWorkerAndGhostscriptAlong) {
  testing::PrivateBus bus;
  ChildProcess daemon = startDaemon();
  folder_.write("loop.ps", "%!PS\n{ } loop\n");
  const std::string loop = (folder_.path() / "loop.ps").string();
  std::thread importing([&] {
    auto proxy = thread_connections::rootProxyForConnectionWithRegisteredName("ulvekbotd64", 15,
                                                                              dbus::kInterfaceName);
    if (proxy) (void)proxy->openFile(loop);
  });
  std::vector<pid_t> workers;
  std::vector<pid_t> converters;
  EXPECT_TRUE(waitUntil(
      [&] {
        workers = childrenOf(daemon.pid());
        converters = workers.size() == 1 ? childrenOf(workers[0]) : std::vector<pid_t>();
        return !converters.empty();
      },
      10s));
  ::kill(daemon.pid(), SIGKILL);
  EXPECT_EQ(daemon.waitForExit(5s), 128 + SIGKILL);
  importing.join();
  for (pid_t pid : workers) EXPECT_TRUE(waitUntil([&] { return !running(pid); }, 2s));
  for (pid_t pid : converters) EXPECT_TRUE(waitUntil([&] { return !running(pid); }, 2s));
}

TEST_F(CleanupTest, AKilledWorkersFolderGoesWhenTheNextWorkerStarts) {
  testing::PrivateBus bus;
  ChildProcess daemon = startDaemon();
  ASSERT_TRUE(client_->openFile(kPdf, &error_));
  std::vector<std::string> before = temporaryEntries();
  ASSERT_EQ(before.size(), 2u) << joined(before);
  std::vector<pid_t> workers = childrenOf(daemon.pid());
  ASSERT_EQ(workers.size(), 1u);
  ::kill(workers[0], SIGKILL);
  ASSERT_TRUE(waitUntil([&] { return childrenOf(daemon.pid()).empty(); }, 5s));

  std::optional<ImportResult> result = client_->openFile(kPdf, &error_);
  ASSERT_TRUE(result);
  EXPECT_TRUE(result->string(ImportKey::Title));
  std::vector<std::string> after = temporaryEntries();
  ASSERT_EQ(after.size(), 2u) << joined(after);
  EXPECT_EQ(after[0], before[0]);
  EXPECT_NE(after[1], before[1]);
  EXPECT_TRUE(client_->terminate(&error_));
  EXPECT_EQ(daemon.waitForExit(10s), 0);
  EXPECT_EQ(temporaryEntries(), std::vector<std::string>()) << joined(temporaryEntries());
}

TEST_F(CleanupTest, TheCommandLineCutOffBySIGPIPELeavesNothing) {
  // A PostScript file first, so the worker and its folder exist, then text enough to fill the
  // pipe long after `head` has gone.
  fs::create_directories(folder_.path() / "tree");
  fs::copy_file(kPostScript, folder_.path() / "tree/0.ps");
  for (int i = 1; i <= 300; ++i)
    folder_.write("tree/" + std::to_string(i) + ".txt", std::string(2000, 'a' + i % 26));
  std::string script = "'" + testing::builtProgram("ulvekbot") + "' import tree | head -c1 " +
                       ">/dev/null; echo \"${PIPESTATUS[0]}\"";
  testing::ProgramOutput output = testing::runProgram({"/bin/bash", "-c", script}, folder_.path());
  EXPECT_EQ(output.out, std::to_string(128 + SIGPIPE) + "\n") << output.err;
  // The worker goes with the command line.
  EXPECT_TRUE(waitUntil([] { return temporaryEntries().empty(); }, 2s))
      << joined(temporaryEntries());
}

TEST(DaemonCommandLine, HelpVersionAndBadOptions) {
  testing::TemporaryFolder folder;
  struct Row {
    std::vector<std::string> arguments;
    int status;
    const char* outPattern;
    const char* errPattern;
  };
  const Row rows[] = {
      {{"--help"},
       0,
       "^Usage: ulvekbotd64 \\[--help\\] \\[--version\\] \\[--jobs N\\]\n[^]*SIGTERM",
       "^$"},
      {{"-h"}, 0, "^Usage: ulvekbotd64", "^$"},
      {{"--version"}, 0, "^ulvekbotd64 [0-9]+\\.[0-9]+(\\.[0-9]+)*\n$", "^$"},
      {{"-V"}, 0, "^ulvekbotd64 [0-9]", "^$"},
      {{"--bogus"}, 2, "^$", "unrecognized option '--bogus'\nUsage: ulvekbotd64"},
      {{"-x"}, 2, "^$", "invalid option -- 'x'\nUsage: ulvekbotd64"},
      {{"extra"}, 2, "^$", "unexpected argument 'extra'\nUsage: ulvekbotd64"},
      {{"--jobs", "many"}, 2, "^$", "--jobs takes a number of 0 or more, not 'many'\nUsage"},
      {{"-j-1"}, 2, "^$", "--jobs takes a number of 0 or more, not '-1'\nUsage"},
      {{"--jobs"}, 2, "^$", "'--jobs' requires an argument\nUsage"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.arguments[0]);
    std::vector<std::string> arguments{testing::builtProgram("ulvekbotd64")};
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    testing::ProgramOutput output = testing::runProgram(arguments, folder.path());
    EXPECT_EQ(output.status, row.status) << output.err;
    EXPECT_TRUE(std::regex_search(output.out, std::regex(row.outPattern))) << output.out;
    EXPECT_TRUE(std::regex_search(output.err, std::regex(row.errPattern))) << output.err;
  }
}

}  // namespace
}  // namespace ulvek
