// HelperTask and the per-thread connections against real processes on a private bus: the
// ulvekbotd64 daemon, and a test helper that registers late, hangs or says it is busy.

#include "client/helper_task.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "../service/service_fixture.h"
#include "client/connection_errors.h"
#include "client/thread_connections.h"
#include "protocol/dbus_interface.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;
using testing::CapturedLog;

const std::string kTestHelper = std::string(ULVEK_BINARY_DIR) + "/tests/client_test_helper";
constexpr const char* kHelperName = "client_test_helper";

bool processExists(pid_t pid) {
  // A zombie has ended too.
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string pidText, command, state;
  return stat >> pidText >> command >> state && state != "Z";
}

bool waitUntilGone(pid_t pid, std::chrono::milliseconds timeout) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  while (processExists(pid)) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(10ms);
  }
  return true;
}

class HelperTaskTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("ULVEK_TEST_HELPER_NAME", kHelperName, 1);
    for (const char* variable : {"ULVEK_TEST_HELPER_DELAY", "ULVEK_TEST_HELPER_HANG",
                                 "ULVEK_TEST_HELPER_BUSY", "ULVEK_TEST_HELPER_EXIT"})
      ::unsetenv(variable);
  }

  static std::unique_ptr<HelperTask> testHelper(double timeout = 15) {
    return HelperTask::initWithPath(kTestHelper, kHelperName, dbus::kInterfaceName, timeout,
                                    kQualityOfServiceDefault);
  }

  testing::PrivateBus bus_;
};

TEST_F(HelperTaskTest, CreationNeedsAPathAndAName) {
  struct Case {
    std::string path, name;
    bool made;
  };
  const Case cases[] = {
      {"", "ulvekbotd64", false}, {kTestHelper, "", false}, {kTestHelper, "x", true}};
  for (const Case& c : cases) {
    CapturedLog log;
    auto task = HelperTask::initWithPath(c.path, c.name, "", 1, kQualityOfServiceDefault);
    EXPECT_EQ(task != nullptr, c.made) << c.path << " " << c.name;
    EXPECT_EQ(log.contains("Helper missing: " + c.name), !c.made) << c.path;
  }
}

TEST_F(HelperTaskTest, LaunchesTheDaemonImportsAndTerminatesIt) {
  testing::TemporaryFolder folder;
  std::string file = folder.write("note.html", "<title>Hello</title><p>World</p>");
  auto task = HelperTask::initWithPath(testing::builtProgram("ulvekbotd64"), "ulvekbotd64",
                                       dbus::kInterfaceName, 15, kQualityOfServiceUtility);
  ASSERT_TRUE(task);
  std::optional<HelperProxy> proxy = task->proxy();
  ASSERT_TRUE(proxy);
  std::optional<pid_t> pid = task->processIdentifier();
  ASSERT_TRUE(pid);
  EXPECT_TRUE(proxy->ping());
  Result<ImportResult> result = proxy->openFile(file);
  ASSERT_TRUE(result) << result.error().localizedDescription;
  EXPECT_EQ(toUtf8(*result->string(ImportKey::Title)), "Hello");
  EXPECT_EQ(*proxy->isPlainFile(file), true);
  // The service has no StillBusy: never busy, and waiting returns at once.
  EXPECT_FALSE(task->stillBusy());
  auto before = std::chrono::steady_clock::now();
  task->waitUntilDone(5);
  EXPECT_LT(std::chrono::steady_clock::now() - before, 1s);

  // A second client object finds the running helper without starting another.
  auto other = HelperTask::initWithPath(testing::builtProgram("ulvekbotd64"), "ulvekbotd64",
                                        dbus::kInterfaceName, 15, kQualityOfServiceDefault);
  ASSERT_TRUE(other->proxy());
  EXPECT_FALSE(other->processIdentifier());

  task->terminate();
  EXPECT_FALSE(task->processIdentifier());
  EXPECT_TRUE(waitUntilGone(*pid, 10s));
  EXPECT_FALSE(other->launchedProxy());
}

TEST_F(HelperTaskTest, AHelperHasFiveSecondsToRegister) {
  struct Case {
    const char* delay;
    bool found;
  };
  for (Case c : {Case{"3", true}, Case{"6", false}}) {
    SCOPED_TRACE(c.delay);
    ::setenv("ULVEK_TEST_HELPER_DELAY", c.delay, 1);
    CapturedLog log;
    auto task = testHelper();
    EXPECT_EQ(task->launch().has_value(), c.found);
    EXPECT_EQ(log.contains("Connection to client_test_helper failed."), !c.found);
    EXPECT_EQ(task->failedAttempts(), c.found ? 0u : 1u);
  }
}

TEST_F(HelperTaskTest, GivesUpAfterTwoFailedLaunches) {
  struct Case {
    std::string path;
    std::string first, second;
  };
  const Case cases[] = {
      {"/nonexistent/helper", "Couldn't launch /nonexistent/helper.",
       "Couldn't launch /nonexistent/helper. Giving up."},
      // Not a program: executing it fails.
      {std::string(ULVEK_BINARY_DIR) + "/CMakeCache.txt", "Couldn't launch ", ". Giving up."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    CapturedLog log;
    auto task = HelperTask::initWithPath(c.path, kHelperName, "", 15, kQualityOfServiceDefault);
    EXPECT_FALSE(task->launch());
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_NE(log.lines()[0].find(c.first), std::string::npos) << log.lines()[0];
    EXPECT_FALSE(task->proxy());
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_NE(log.lines()[1].find(c.second), std::string::npos) << log.lines()[1];
    // Given up: nothing is tried, nothing logged.
    auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(task->launch());
    EXPECT_LT(std::chrono::steady_clock::now() - before, 100ms);
    EXPECT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(task->failedAttempts(), 2u);
  }
}

TEST_F(HelperTaskTest, AHelperThatEndsAtOnceFailsToConnect) {
  ::setenv("ULVEK_TEST_HELPER_EXIT", "0", 1);
  CapturedLog log;
  auto task = testHelper();
  EXPECT_FALSE(task->launch());
  EXPECT_TRUE(log.contains("client_test_helper failed.") || log.contains("Couldn't launch"));
  EXPECT_EQ(task->failedAttempts(), 1u);
}

TEST_F(HelperTaskTest, AKilledHelperIsDroppedAndACallIsMadeAgainOnAFreshLaunch) {
  auto task = testHelper();
  std::optional<HelperProxy> proxy = task->proxy();
  ASSERT_TRUE(proxy);
  pid_t first = *task->processIdentifier();
  ASSERT_TRUE(thread_connections::connectionRegisteredWithName(kHelperName));
  // The same helper found by name alone: no task stands behind it to start another.
  std::optional<HelperProxy> found = thread_connections::rootProxyForConnectionWithRegisteredName(
      kHelperName, 15, dbus::kInterfaceName);
  ASSERT_TRUE(found);
  ::kill(first, SIGKILL);
  ASSERT_TRUE(waitUntilGone(first, 5s) || true);
  for (int tries = 0; tries < 100 && proxy->connectionForProxy()->nameOwner(); ++tries)
    std::this_thread::sleep_for(10ms);

  Status call = found->ping();
  ASSERT_FALSE(call);
  EXPECT_TRUE(isPortException(call.error())) << call.error().domain;
  EXPECT_FALSE(isPortTimeoutException(call.error()));
  // The cached connection is no longer valid: dropped, and a fresh lookup finds nothing.
  EXPECT_FALSE(thread_connections::connectionRegisteredWithName(kHelperName));
  EXPECT_FALSE(task->launchedProxy());
  // The task's proxy starts the helper again and makes the call there, and stays with it.
  EXPECT_TRUE(proxy->ping());
  ASSERT_TRUE(task->processIdentifier());
  EXPECT_NE(*task->processIdentifier(), first);
  EXPECT_TRUE(proxy->ping());
  EXPECT_EQ(task->failedAttempts(), 0u);
}

TEST_F(HelperTaskTest, AHelperThatDiesDuringACallIsToldApartFromASlowOne) {
  struct Row {
    const char* name;
    double timeout;
    bool killed;
    const char* domain;
    bool timedOut;
  };
  const Row rows[] = {
      {"killed while it works", 10, true, SD_BUS_ERROR_NO_REPLY, false},
      {"slower than the time-out", 0.5, false, SD_BUS_ERROR_TIMEOUT, true},
  };
  ::setenv("ULVEK_TEST_HELPER_HANG", "3", 1);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    auto task = testHelper(row.timeout);
    ASSERT_TRUE(task->proxy());
    pid_t pid = *task->processIdentifier();
    // Found by name, so that nothing is made again after the failure.
    std::optional<HelperProxy> proxy = thread_connections::rootProxyForConnectionWithRegisteredName(
        kHelperName, row.timeout, dbus::kInterfaceName);
    ASSERT_TRUE(proxy);
    std::thread killer;
    if (row.killed) {
      killer = std::thread([pid] {
        std::this_thread::sleep_for(300ms);
        ::kill(pid, SIGKILL);
      });
    }
    auto before = std::chrono::steady_clock::now();
    Status call = proxy->ping();
    auto took = std::chrono::steady_clock::now() - before;
    if (killer.joinable()) killer.join();
    ASSERT_FALSE(call);
    EXPECT_EQ(call.error().domain, row.domain) << call.error().localizedDescription;
    EXPECT_EQ(isPortTimeoutException(call.error()), row.timedOut);
    EXPECT_TRUE(isPortException(call.error()));
    // A dead helper is known as soon as the bus notices, long before any deadline.
    EXPECT_LT(took, row.killed ? 2s : 2500ms);
    task->invalidate();
    ::kill(pid, SIGKILL);
    waitUntilGone(pid, 5s);
  }
}

TEST_F(HelperTaskTest, BackToBackClientsOfTheDaemonNeverMeetOneOnItsWayOut) {
  testing::TemporaryFolder folder;
  std::string file = folder.write("note.html", "<title>Hello</title>");
  ::setenv("XDG_CACHE_HOME", folder.path().c_str(), 1);
  // As an application runs: start, import, stop; the next run comes while the last helper ends.
  std::vector<pid_t> launched;
  for (int run = 0; run < 20; ++run) {
    SCOPED_TRACE(run);
    CapturedLog log;
    auto task = HelperTask::initWithPath(testing::builtProgram("ulvekbotd64"), "ulvekbotd64",
                                         dbus::kInterfaceName, 15, kQualityOfServiceDefault);
    std::optional<HelperProxy> proxy = task->proxy();
    ASSERT_TRUE(proxy);
    Result<ImportResult> result = proxy->openFile(file);
    ASSERT_TRUE(result) << result.error().domain << ": " << result.error().localizedDescription;
    EXPECT_EQ(toUtf8(*result->string(ImportKey::Title)), "Hello");
    if (task->processIdentifier()) launched.push_back(*task->processIdentifier());
    task->terminate();
    EXPECT_EQ(log.lines(), std::vector<std::string>());
  }
  EXPECT_GE(launched.size(), 10u);
  for (pid_t pid : launched) EXPECT_TRUE(waitUntilGone(pid, 10s)) << pid;
  ::unsetenv("XDG_CACHE_HOME");
}

TEST_F(HelperTaskTest, AHangingCallTimesOut) {
  ::setenv("ULVEK_TEST_HELPER_HANG", "3", 1);
  auto task = testHelper(0.5);
  std::optional<HelperProxy> proxy = task->proxy();
  ASSERT_TRUE(proxy);
  EXPECT_DOUBLE_EQ(proxy->connectionForProxy()->requestTimeout(), 0.5);
  Status call = proxy->ping();
  ASSERT_FALSE(call);
  EXPECT_TRUE(isPortTimeoutException(call.error())) << call.error().domain;
  EXPECT_TRUE(isPortException(call.error()));
}

TEST_F(HelperTaskTest, WaitsWhileTheHelperIsBusy) {
  ::setenv("ULVEK_TEST_HELPER_BUSY", "1.5", 1);
  auto task = testHelper();
  ASSERT_TRUE(task->proxy());
  EXPECT_TRUE(task->stillBusy());
  // A short wait ends with the time; a long one when the helper is done.
  auto before = std::chrono::steady_clock::now();
  task->waitUntilDone(0.2);
  EXPECT_LT(std::chrono::steady_clock::now() - before, 1s);
  task->waitUntilDone(10);
  EXPECT_FALSE(task->stillBusy());
  EXPECT_LT(std::chrono::steady_clock::now() - before, 5s);
}

TEST_F(HelperTaskTest, EachThreadHasItsOwnConnection) {
  auto task = testHelper();
  std::optional<HelperProxy> main = task->proxy();
  ASSERT_TRUE(main);
  std::shared_ptr<Connection> fromThread;
  bool threadPinged = false, sawMainEntry = true, clearedMain = false;
  std::thread([&] {
    sawMainEntry = thread_connections::connectionRegisteredWithName(kHelperName) != nullptr;
    auto proxy = thread_connections::rootProxyForConnectionWithRegisteredName(kHelperName, 5,
                                                                              dbus::kInterfaceName);
    if (!proxy) return;
    fromThread = proxy->connectionForProxy();
    threadPinged = proxy->ping().ok();
    // Clearing from another thread reaches the main thread's entry and this thread's own.
    thread_connections::invalidateConnectionsRegisteredWithName(kHelperName);
    clearedMain = thread_connections::connectionRegisteredWithName(kHelperName) == nullptr;
  }).join();
  EXPECT_FALSE(sawMainEntry);
  ASSERT_TRUE(fromThread);
  EXPECT_NE(fromThread, main->connectionForProxy());
  EXPECT_TRUE(threadPinged);
  EXPECT_TRUE(clearedMain);
  EXPECT_FALSE(thread_connections::connectionRegisteredWithName(kHelperName));
  // The proxy itself still works: only the cache forgot it.
  EXPECT_TRUE(main->ping());
}

TEST_F(HelperTaskTest, LookupsWithoutIntervalOrTimeout) {
  // No interval: nothing, without looking.
  auto before = std::chrono::steady_clock::now();
  EXPECT_FALSE(thread_connections::waitForTimeInterval(0, kHelperName));
  EXPECT_FALSE(thread_connections::waitForTimeInterval(-1, kHelperName));
  EXPECT_LT(std::chrono::steady_clock::now() - before, 50ms);
  EXPECT_FALSE(thread_connections::rootProxyForConnectionWithRegisteredName(""));

  auto task = testHelper(7);
  ASSERT_TRUE(task->proxy());
  // A time-out of 0 leaves the connection's as it was.
  auto proxy = thread_connections::rootProxyForConnectionWithRegisteredName(kHelperName, 0);
  ASSERT_TRUE(proxy);
  EXPECT_DOUBLE_EQ(proxy->connectionForProxy()->requestTimeout(), 7);
  proxy = thread_connections::rootProxyForConnectionWithRegisteredName(kHelperName, 3);
  EXPECT_DOUBLE_EQ(proxy->connectionForProxy()->requestTimeout(), 3);
}

TEST(HelperTaskActivationTest, TheBusStartsTheHelperFromItsServiceFileBeforeALaunch) {
  struct Row {
    const char* name;
    bool serviceFile;
    bool usesActivation;
    std::string path;
    bool reached;
    bool launched;
  };
  const std::string daemon = testing::builtProgram("ulvekbotd64");
  const Row rows[] = {
      {"activated", true, true, "/nonexistent/ulvekbotd64", true, false},
      {"no service file: launched", false, true, daemon, true, true},
      {"activation not asked for", true, false, "/nonexistent/ulvekbotd64", false, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<std::pair<std::string, std::string>> services;
    if (row.serviceFile) services.emplace_back("com.ulvek_technologies.ulvekbotd64", daemon);
    testing::PrivateBus bus(services);
    CapturedLog log;
    auto task = HelperTask::initWithPath(row.path, "ulvekbotd64", dbus::kInterfaceName, 15,
                                         kQualityOfServiceDefault);
    task->setUsesActivation(row.usesActivation);
    std::optional<HelperProxy> proxy = task->proxy();
    ASSERT_EQ(proxy.has_value(), row.reached);
    EXPECT_EQ(task->processIdentifier().has_value(), row.launched);
    if (!row.reached) {
      EXPECT_TRUE(log.contains("Couldn't launch /nonexistent/ulvekbotd64."));
      continue;
    }
    EXPECT_EQ(log.lines(), std::vector<std::string>());
    EXPECT_TRUE(proxy->ping());
    // What the bus started is the bus's: the task leaves it running.
    task->terminate();
    if (!row.launched) {
      EXPECT_TRUE(proxy->ping());
      EXPECT_TRUE(proxy->terminate());
    }
  }
}

TEST(ChildProcessTest, RunAndWait) {
  struct Case {
    std::string path;
    std::vector<std::string> arguments;
    bool succeeds;
  };
  const Case cases[] = {
      {"/bin/true", {}, true},
      {"/bin/false", {}, false},
      {"/bin/sh", {"-c", "exit 3"}, false},
      {"/bin/sh", {"-c", "exit 0"}, true},
      {"/nonexistent/program", {}, false},
  };
  for (const Case& c : cases)
    EXPECT_EQ(launchTaskAndWaitUntilExitWithLaunchPath(c.path, c.arguments), c.succeeds) << c.path;

  ChildProcess killed;
  killed.setLaunchPath("/bin/sleep");
  killed.setArguments({"10"});
  ASSERT_TRUE(killed.launch());
  EXPECT_TRUE(killed.isRunning());
  EXPECT_FALSE(killed.launch());  // once only
  killed.terminate();
  killed.waitUntilExit();
  EXPECT_EQ(killed.terminationStatus(), 128 + SIGTERM);
  EXPECT_FALSE(killed.isRunning());
}

TEST(ChildProcessTest, BackgroundQualityOfServiceRunsIdle) {
  ChildProcess process;
  process.setLaunchPath("/bin/sleep");
  process.setArguments({"5"});
  process.setQualityOfService(kQualityOfServiceBackground);
  ASSERT_TRUE(process.launch());
  pid_t pid = *process.processIdentifier();
  EXPECT_EQ(sched_getscheduler(pid), SCHED_IDLE);
  EXPECT_EQ(getpriority(PRIO_PROCESS, pid), 19);
  process.terminate();
  process.waitUntilExit();
}

}  // namespace
}  // namespace ulvek
