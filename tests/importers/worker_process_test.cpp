// The host's side of the worker with a plug-in called directly by its factory: what the worker
// tells the plug-in of the host's time limit, and what it tells the host of the plug-in's answer.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

#include "importers/worker_process.h"
#include "importers/worker_protocol.h"
#include "platform/sandbox.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;

Result<PropertyDictionary> callFactory(WorkerProcess& worker, const char* factory,
                                       const char* path = "/nowhere") {
  PropertyDictionary request{
      {std::string(worker::Field::Operation), PropertyValue(worker::Operation::Call)},
      {std::string(worker::Field::Executable),
       PropertyValue::fromUtf8(std::string(ULVEK_BINARY_DIR) + "/tests/test_importer_plugin.so")},
      {std::string(worker::Field::Factory), PropertyValue::fromUtf8(factory)},
      {std::string(worker::Field::FactoryID),
       PropertyValue(u"00000000-0000-0000-0000-000000000000")},
      {std::string(worker::Field::ContentType), PropertyValue(u"public.data")},
      {std::string(worker::Field::Path), PropertyValue::fromUtf8(path)},
      {std::string(worker::Field::Import), PropertyValue(true)}};
  return worker.call(request);
}

std::int64_t integerOf(const PropertyDictionary& answer, std::string_view key) {
  const PropertyValue* attributes = find(answer, worker::Field::Attributes);
  if (!attributes || !attributes->dictionary()) return -1000;
  const PropertyValue* value = find(*attributes->dictionary(), key);
  return value && value->integer() ? *value->integer() : -1000;
}

// A field of /proc/PID/status, or "(gone)".
std::string statusField(pid_t pid, const std::string& name) {
  return sandbox::processStatusField(pid, name).value_or("(gone)");
}

// Whether a process still runs (a zombie waiting for its reaper does not).
bool alive(pid_t pid) {
  std::string state = statusField(pid, "State");
  return state != "(gone)" && !state.starts_with("Z");
}

bool landlockPresent() { return sandbox::kernelSupport().landlockAbi > 0; }

class WorkerProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("ULVEKBOT_IMPORTER_WORKER",
             (std::string(ULVEK_BINARY_DIR) + "/src/ulvekbot-importer-worker").c_str(), 1);
    // Not one of the settings a worker keeps.
    ::setenv("ULVEK_TEST_SECRET", "1", 1);
  }
  bool privateCache_ = testing::usePrivateCacheFolder();
};

TEST_F(WorkerProcessTest, PlugInsLearnHowLongTheHostWaits) {
  for (auto limit : {2000ms, 300ms}) {
    WorkerProcess worker(WorkerProcess::Limits{limit, 2048});
    Result<PropertyDictionary> answer = callFactory(worker, "TimedFactory");
    ASSERT_TRUE(answer) << answer.error().localizedDescription;
    const PropertyValue* attributes = find(*answer, worker::Field::Attributes);
    ASSERT_TRUE(attributes && attributes->dictionary());
    const PropertyValue* left = find(*attributes->dictionary(), "SecondsLeft");
    ASSERT_TRUE(left && left->real());
    EXPECT_GT(*left->real(), 0.0) << limit.count();
    EXPECT_LE(*left->real(), std::chrono::duration<double>(limit).count()) << limit.count();
  }
}

TEST_F(WorkerProcessTest, TheHostHearsWhetherThePlugInCouldRead) {
  struct Row {
    const char* factory;
    bool read;
  };
  WorkerProcess worker(WorkerProcess::Limits{5000ms, 2048});
  for (const Row& row : {Row{"GoodFactory", true}, Row{"RefuseFactory", false}}) {
    Result<PropertyDictionary> answer = callFactory(worker, row.factory);
    ASSERT_TRUE(answer) << row.factory;
    const PropertyValue* read = find(*answer, worker::Field::Read);
    ASSERT_TRUE(read && read->boolean()) << row.factory;
    EXPECT_EQ(*read->boolean(), row.read) << row.factory;
  }
}

TEST_F(WorkerProcessTest, AHostilePlugInIsRefusedAndStillAnswers) {
  WorkerProcess worker(WorkerProcess::Limits{5000ms, 2048});
  Result<PropertyDictionary> answer = callFactory(worker, "HostileFactory");
  ASSERT_TRUE(answer) << answer.error().localizedDescription;
  struct Row {
    const char* attempt;
    bool refused;
    bool needsLandlock = false;
  };
  const Row rows[] = {
      {"TcpErrno", true},          {"LocalConnectErrno", true}, {"ShellErrno", true},
      {"VarTmpErrno", true, true}, {"TemporaryErrno", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.attempt);
    std::int64_t error = integerOf(*answer, row.attempt);
    ASSERT_NE(error, -1000);
    if (row.needsLandlock && !landlockPresent()) {
      std::cout << "Not checked: " << row.attempt << ": no Landlock on this kernel\n";
      continue;
    }
    if (row.refused) {
      EXPECT_TRUE(error == EACCES || error == EPERM) << std::strerror(static_cast<int>(error));
    } else {
      EXPECT_EQ(error, 0) << std::strerror(static_cast<int>(error));
    }
  }
  // The import itself still answers.
  const PropertyValue* attributes = find(*answer, worker::Field::Attributes);
  ASSERT_TRUE(attributes && attributes->dictionary());
  EXPECT_TRUE(find(*attributes->dictionary(), "kMDItemTitle"));
}

TEST_F(WorkerProcessTest, TheWorkerRunsWithoutPrivilegesUnderAFilter) {
  WorkerProcess worker(WorkerProcess::Limits{5000ms, 2048});
  ASSERT_TRUE(callFactory(worker, "GoodFactory"));
  ASSERT_GT(worker.pid(), 0);
  EXPECT_EQ(statusField(worker.pid(), "NoNewPrivs"), "1");
  EXPECT_EQ(statusField(worker.pid(), "Seccomp"), "2");
  // Its environment is the host's few settings, with its own temporary folder.
  std::ifstream file("/proc/" + std::to_string(worker.pid()) + "/environ", std::ios::binary);
  std::string environment((std::istreambuf_iterator<char>(file)), {});
  EXPECT_NE(environment.find("TMPDIR="), std::string::npos);
  EXPECT_EQ(environment.find("ULVEK_TEST_SECRET="), std::string::npos);
}

TEST_F(WorkerProcessTest, DescendantsEndWithTheWorker) {
  struct Row {
    const char* name;
    bool crash;  // the worker dies on its own; else the host stops it
  };
  for (const Row& row : {Row{"stopped", false}, Row{"killed", true}}) {
    SCOPED_TRACE(row.name);
    WorkerProcess worker(WorkerProcess::Limits{5000ms, 2048});
    Result<PropertyDictionary> answer = callFactory(worker, "ForkFactory");
    ASSERT_TRUE(answer) << answer.error().localizedDescription;
    auto descendant = static_cast<pid_t>(integerOf(*answer, "Descendant"));
    ASSERT_GT(descendant, 0);
    // It could not leave the worker's process group.
    EXPECT_EQ(integerOf(*answer, "SetsidErrno"), EPERM);
    EXPECT_TRUE(alive(descendant));
    if (row.crash) {
      pid_t pid = worker.pid();
      ::kill(pid, SIGKILL);
      while (alive(pid)) std::this_thread::sleep_for(5ms);
      // The next call finds the worker dead and cleans up after it.
      EXPECT_TRUE(callFactory(worker, "GoodFactory"));
    } else {
      worker.stop();
    }
    auto deadline = std::chrono::steady_clock::now() + 2s;
    while (alive(descendant) && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(10ms);
    EXPECT_FALSE(alive(descendant));
  }
}

TEST_F(WorkerProcessTest, AWorkerKilledMidCallAnswersAtOnceAsACrash) {
  struct Row {
    const char* factory;  // ForkFactory leaves a descendant holding the answer pipe open
  };
  for (const Row& row : {Row{"HangFactory"}, Row{"ForkFactory"}}) {
    SCOPED_TRACE(row.factory);
    WorkerProcess worker(WorkerProcess::Limits{10000ms, 2048});
    if (std::string_view(row.factory) == "ForkFactory") {
      ASSERT_TRUE(callFactory(worker, "ForkFactory"));
    } else {
      ASSERT_TRUE(callFactory(worker, "GoodFactory"));
    }
    pid_t pid = worker.pid();
    std::chrono::steady_clock::time_point killed;
    std::thread killer([&] {
      std::this_thread::sleep_for(300ms);
      killed = std::chrono::steady_clock::now();
      ::kill(pid, SIGKILL);
    });
    Result<PropertyDictionary> answer = callFactory(worker, "HangFactory");
    auto answered = std::chrono::steady_clock::now();
    killer.join();
    ASSERT_FALSE(answer);
    EXPECT_LT(answered - killed, 1s);
    // Not a timeout: the host logs it as a crash.
    EXPECT_NE(answer.error().code, ETIMEDOUT);
    EXPECT_EQ(answer.error().localizedDescription, "signal 9");
  }
}

TEST_F(WorkerProcessTest, WhatPlugInsPrintIsLoggedAFewLinesPerFile) {
  struct Row {
    const char* factory;
    std::size_t lines;  // logged, the last one counting the rest
    const char* last;
  };
  const Row rows[] = {
      {"GoodFactory", 0, ""},
      {"PrintFactory", 1, "plug-ins should not print, but some do"},
      {"ChattyFactory", 11, "\u2026 15 more lines"},
  };
  WorkerProcess worker(WorkerProcess::Limits{5000ms, 2048});
  for (const Row& row : rows) {
    SCOPED_TRACE(row.factory);
    std::string path = std::string("/docs/") + row.factory + ".txt";
    testing::CapturedLog log;
    Result<PropertyDictionary> answer = callFactory(worker, row.factory, path.c_str());
    ASSERT_TRUE(answer) << answer.error().localizedDescription;
    // The answer is intact.
    EXPECT_TRUE(find(*answer, worker::Field::Attributes));
    ASSERT_EQ(log.lines().size(), row.lines);
    for (const std::string& line : log.lines()) EXPECT_TRUE(line.starts_with(path + ": ")) << line;
    if (row.lines > 0) EXPECT_TRUE(log.lines().back().ends_with(row.last)) << log.lines().back();
  }
}

}  // namespace
}  // namespace ulvek
