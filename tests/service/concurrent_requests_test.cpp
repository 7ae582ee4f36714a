// Requests of two clients through a real bus: one at a time by default, side by side when the
// daemon is asked to serve more at once; Terminate answers what was asked before it either way.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "../importers/test_bundles.h"
#include "base/property_list.h"
#include "service_fixture.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;
using testing::ChildProcess;
using testing::readWholeFile;
using Clock = std::chrono::steady_clock;

// Each slow request is a plug-in that hangs until the importer time limit ends it.
constexpr auto kSlow = 1000ms;

class ConcurrentRequestsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // A kind of file of the plug-in's own, so that the service hands it to the plug-in.
    PropertyDictionary info =
        testing::importerInfo("Hang.so", testing::testFactoryID(1), "HangFactory", "slow");
    info["CFBundleDocumentTypes"] = PropertyArray{
        PropertyDictionary{{"CFBundleTypeRole", u"MDImporter"},
                           {"LSItemContentTypes", PropertyArray{u"com.example.slow"}}}};
    info["UTExportedTypeDeclarations"] = PropertyArray{PropertyDictionary{
        {"UTTypeIdentifier", u"com.example.slow"},
        {"UTTypeConformsTo", PropertyArray{u"public.data"}},
        {"UTTypeTagSpecification",
         PropertyDictionary{{"public.filename-extension", PropertyArray{u"slow"}}}}}};
    testing::writeBundle(folder_, "Importers", "Hang", info);
    slowFile_ = folder_.write("document.slow", "contents");
    ::setenv("XDG_CONFIG_HOME", (folder_.path() / "config").c_str(), 1);
  }
  void TearDown() override { ::unsetenv("XDG_CONFIG_HOME"); }

  // The user defaults the daemon reads: the time limit, and MaxConcurrentImports when given.
  void writeDefaults(std::optional<int> maxConcurrentImports) {
    PropertyDictionary defaults{
        {"ImporterTimeLimit", PropertyValue(std::chrono::duration<double>(kSlow).count())}};
    if (maxConcurrentImports)
      defaults["MaxConcurrentImports"] = PropertyValue(std::int64_t{*maxConcurrentImports});
    folder_.write("config/ulvekbot/defaults.plist", *xmlPropertyList(PropertyValue(defaults)));
  }

  ChildProcess startDaemon(const std::vector<std::string>& options) {
    std::vector<std::string> arguments{testing::builtProgram("ulvekbotd64")};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return ChildProcess::start(arguments, "", logPath());
  }

  std::string logPath() const { return (folder_.path() / "daemon.log").string(); }

  // A client of its own (a connection of its own) on a thread of its own.
  std::jthread client(std::function<void(testing::ServiceClient&)> calls) {
    return std::jthread([this, calls = std::move(calls)] {
      auto client = testing::ServiceClient::connect();
      ASSERT_TRUE(client->waitForService(10s)) << readWholeFile(logPath());
      calls(*client);
    });
  }

  testing::PrivateBus bus_;
  testing::TemporaryFolder folder_;
  testing::ImporterEnvironment importers_{folder_, (folder_.path() / "Importers").string()};
  std::string slowFile_;
};

TEST_F(ConcurrentRequestsTest, TwoClientsOverlapOnlyWhenAsked) {
  struct Row {
    const char* name;
    std::vector<std::string> options;
    std::optional<int> maxConcurrentImports;
    bool overlap;
  };
  const Row rows[] = {
      {"one at a time by default", {}, std::nullopt, false},
      {"--jobs 2", {"--jobs", "2"}, std::nullopt, true},
      {"--jobs 0: one a core", {"-j", "0"}, std::nullopt, std::thread::hardware_concurrency() > 1},
      {"MaxConcurrentImports", {}, 2, true},
      {"--jobs 1 over MaxConcurrentImports", {"--jobs=1"}, 4, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    writeDefaults(row.maxConcurrentImports);
    ChildProcess daemon = startDaemon(row.options);
    // Both clients connect first, so that only the slow requests are timed.
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    Clock::time_point ends[2];
    auto started = Clock::now();
    {
      std::vector<std::jthread> clients;
      for (int i = 0; i < 2; ++i) {
        clients.push_back(client([&, i](testing::ServiceClient& client) {
          ++ready;
          while (!go) std::this_thread::sleep_for(1ms);
          std::optional<Error> error;
          std::optional<ImportResult> result = client.openFile(slowFile_, &error);
          EXPECT_TRUE(result) << error->localizedDescription;
          ends[i] = Clock::now();
        }));
      }
      while (ready < 2) std::this_thread::sleep_for(1ms);
      started = Clock::now();
      go = true;
    }
    auto last = std::max(ends[0], ends[1]);
    if (row.overlap) {
      EXPECT_LT(last - started, kSlow * 17 / 10);
    } else {
      EXPECT_GE(last - started, kSlow * 2);
      EXPECT_GE(std::max(ends[0], ends[1]) - std::min(ends[0], ends[1]), kSlow * 9 / 10);
    }
    EXPECT_NE(readWholeFile(logPath()).find("Importer failed: "), std::string::npos);
    daemon.stop();
  }
}

// A slow in-process reader stops at the request's reading time and answers the text read so far,
// so the clients behind it wait no longer.
TEST_F(ConcurrentRequestsTest, ReaderTimeLimitCutsASlowPage) {
  std::string page = "<html><body>";
  for (int i = 0; i < 400000; ++i) page += "<div><p>w" + std::to_string(i) + "</p></div>\n";
  page += "<p>END</p></body></html>";
  std::string path = folder_.write("slow.html", page);
  struct Row {
    const char* name;
    double seconds;
    bool cut;
  };
  const Row rows[] = {{"a moment", 0.001, true}, {"0: no limit", 0, false}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    PropertyDictionary defaults{{"ReaderTimeLimit", PropertyValue(row.seconds)}};
    folder_.write("config/ulvekbot/defaults.plist", *xmlPropertyList(PropertyValue(defaults)));
    std::filesystem::remove(logPath());
    ChildProcess daemon = startDaemon({});
    client([&](testing::ServiceClient& client) {
      std::optional<Error> error;
      std::optional<ImportResult> result = client.openFile(path, &error);
      ASSERT_TRUE(result) << error->localizedDescription;
      const TextString* text = result->string(ImportKey::Text);
      ASSERT_TRUE(text);
      EXPECT_EQ(text->find(u"END") == TextString::npos, row.cut);
    }).join();
    daemon.stop();
    std::string log = readWholeFile(logPath());
    EXPECT_EQ(
        log.find("Time limit reached, answered the text read so far: " + path) != std::string::npos,
        row.cut)
        << log;
  }
}

TEST_F(ConcurrentRequestsTest, TerminateAnswersTheRequestsInFlight) {
  struct Row {
    const char* name;
    std::vector<std::string> options;
  };
  const Row rows[] = {{"one at a time", {}}, {"two at a time", {"--jobs", "2"}}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    writeDefaults(std::nullopt);
    ChildProcess daemon = startDaemon(row.options);
    std::atomic<bool> asked{false};
    Clock::time_point answered;
    Clock::time_point terminated;
    {
      std::jthread slow = client([&](testing::ServiceClient& client) {
        asked = true;
        std::optional<Error> error;
        EXPECT_TRUE(client.openFile(slowFile_, &error))
            << row.name << ": " << error->localizedDescription;
        answered = Clock::now();
      });
      std::jthread stopping = client([&](testing::ServiceClient& client) {
        while (!asked) std::this_thread::sleep_for(1ms);
        // The slow request reaches the daemon first.
        std::this_thread::sleep_for(200ms);
        client.terminate(nullptr);
      });
    }
    EXPECT_EQ(daemon.waitForExit(10s), 0) << readWholeFile(logPath());
    terminated = Clock::now();
    EXPECT_LE(answered, terminated);
  }
}

}  // namespace
}  // namespace ulvek
