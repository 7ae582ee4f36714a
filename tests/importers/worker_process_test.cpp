// The host's side of the worker with a plug-in called directly by its factory: what the worker
// tells the plug-in of the host's time limit, and what it tells the host of the plug-in's answer.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "importers/worker_process.h"
#include "importers/worker_protocol.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;

Result<PropertyDictionary> callFactory(WorkerProcess& worker, const char* factory) {
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
  return worker.call(request);
}

class WorkerProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("ULVEKBOT_IMPORTER_WORKER",
             (std::string(ULVEK_BINARY_DIR) + "/src/ulvekbot-importer-worker").c_str(), 1);
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

}  // namespace
}  // namespace ulvek
