// Importer calls from several threads at once: each has a worker process of its own, so a slow or
// crashing plug-in holds up only its own call.
#include "importers/worker_pool.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "importers/worker_protocol.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;

Result<PropertyDictionary> callFactory(WorkerPool& pool, const std::string& factory) {
  PropertyDictionary request{
      {std::string(worker::Field::Operation), PropertyValue(worker::Operation::Call)},
      {std::string(worker::Field::Executable),
       PropertyValue::fromUtf8(std::string(ULVEK_BINARY_DIR) + "/tests/test_importer_plugin.so")},
      {std::string(worker::Field::Factory), PropertyValue::fromUtf8(factory)},
      {std::string(worker::Field::FactoryID),
       PropertyValue(u"00000000-0000-0000-0000-000000000000")},
      {std::string(worker::Field::ContentType), PropertyValue(u"public.data")},
      {std::string(worker::Field::Path), PropertyValue(u"/nowhere")},
      {std::string(worker::Field::Import), PropertyValue(true)}};
  return pool.call(request);
}

class WorkerPoolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("ULVEKBOT_IMPORTER_WORKER",
             (std::string(ULVEK_BINARY_DIR) + "/src/ulvekbot-importer-worker").c_str(), 1);
  }
  bool privateCache_ = testing::usePrivateCacheFolder();
};

TEST_F(WorkerPoolTest, CallsAtOnceHaveWorkersOfTheirOwn) {
  struct Row {
    const char* name;
    std::vector<std::string> atOnce;  // factories called together, each on a thread
    int rounds;                       // times the group is called
    std::size_t workers;              // workers kept afterwards
    std::chrono::milliseconds within;
  };
  // A hanging plug-in holds its call for the whole 800 ms limit.
  const Row rows[] = {
      {"one thread keeps one worker", {"GoodFactory"}, 3, 1, 5s},
      {"hangs at once end together", {"HangFactory", "HangFactory", "HangFactory"}, 1, 3, 2000ms},
      {"a crash or a hang costs its own call",
       {"CrashFactory", "GoodFactory", "HangFactory"},
       2,
       3,
       3000ms},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    WorkerPool pool(WorkerProcess::Limits{800ms, 1024});
    auto started = std::chrono::steady_clock::now();
    for (int round = 0; round < row.rounds; ++round) {
      std::vector<std::optional<bool>> answered(row.atOnce.size());
      std::vector<std::string> errors(row.atOnce.size());
      std::vector<std::jthread> threads;
      for (std::size_t i = 0; i < row.atOnce.size(); ++i)
        threads.emplace_back([&, i] {
          Result<PropertyDictionary> answer = callFactory(pool, row.atOnce[i]);
          answered[i] = answer.ok();
          if (!answer) errors[i] = answer.error().localizedDescription;
        });
      threads.clear();
      for (std::size_t i = 0; i < row.atOnce.size(); ++i)
        EXPECT_EQ(answered[i], row.atOnce[i] == "GoodFactory")
            << row.atOnce[i] << ": " << errors[i];
    }
    EXPECT_LT(std::chrono::steady_clock::now() - started, row.within);
    EXPECT_EQ(pool.size(), row.workers);
    pool.stop();
    EXPECT_EQ(pool.size(), 0u);
  }
}

TEST_F(WorkerPoolTest, LimitsApplyToWorkersAlreadyStarted) {
  WorkerPool pool(WorkerProcess::Limits{5000ms, 1024});
  ASSERT_TRUE(callFactory(pool, "GoodFactory"));
  pool.setLimits(WorkerProcess::Limits{300ms, 1024});
  auto started = std::chrono::steady_clock::now();
  Result<PropertyDictionary> answer = callFactory(pool, "HangFactory");
  ASSERT_FALSE(answer);
  EXPECT_EQ(answer.error().localizedDescription, "timeout");
  EXPECT_LT(std::chrono::steady_clock::now() - started, 3000ms);
  EXPECT_EQ(pool.limits().time, 300ms);
}

}  // namespace
}  // namespace ulvek
