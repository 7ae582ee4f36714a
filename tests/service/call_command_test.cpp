// `ulvekbot call` where no daemon runs: the bus starts the installed service, else the command
// starts the daemon beside itself for the call; and missing paths are errors as in-process.
#include <gtest/gtest.h>

#include <cstdlib>

#include "pdf_test_files.h"
#include "service_fixture.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;

struct Row {
  const char* name;
  std::vector<std::string> arguments;
  const char* helper;  // $ULVEKBOT_HELPER; null: unset
  int status;
  const char* errorPart;  // fragment of standard error; null: must be empty
  bool runsAfter;         // a daemon owns the name after the command
};

class CallCommandTest : public ::testing::Test {
 protected:
  void SetUp() override { ::setenv("XDG_CACHE_HOME", cache_.path().c_str(), 1); }
  void TearDown() override {
    ::unsetenv("XDG_CACHE_HOME");
    ::unsetenv("ULVEKBOT_HELPER");
  }

  void check(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
      SCOPED_TRACE(row.name);
      if (row.helper)
        ::setenv("ULVEKBOT_HELPER", row.helper, 1);
      else
        ::unsetenv("ULVEKBOT_HELPER");
      std::vector<std::string> arguments{testing::builtProgram("ulvekbot"), "call"};
      arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
      testing::ProgramOutput output = testing::runProgram(arguments, folder_.path());
      EXPECT_EQ(output.status, row.status) << output.err;
      if (row.errorPart) {
        EXPECT_NE(output.err.find(row.errorPart), std::string::npos) << output.err;
      } else {
        EXPECT_EQ(output.err, "");
      }
      EXPECT_EQ(serviceRuns(), row.runsAfter);
    }
  }

  // Whether a daemon owns the name, once one stopped by the command has had time to go.
  static bool serviceRuns() {
    for (int tries = 0; tries < 100; ++tries) {
      if (!thread_connections::rootProxyForConnectionWithRegisteredName("ulvekbotd64"))
        return false;
      std::this_thread::sleep_for(20ms);
    }
    return true;
  }

  testing::TemporaryFolder cache_;
  testing::TemporaryFolder folder_;
};

TEST_F(CallCommandTest, TheBusStartsTheInstalledService) {
  testing::PrivateBus bus(
      {{"com.ulvek_technologies.ulvekbotd64", testing::builtProgram("ulvekbotd64")}});
  folder_.write("note.txt", "words");
  check({
      {"activated", {"ping"}, "/nonexistent/ulvekbotd64", 0, nullptr, true},
      {"still running", {"import", "note.txt"}, nullptr, 0, nullptr, true},
      {"stopped", {"terminate"}, nullptr, 0, nullptr, false},
      {"nothing started to be stopped",
       {"terminate"},
       nullptr,
       1,
       "the service is not running",
       false},
  });
}

TEST_F(CallCommandTest, WithoutAServiceFileTheDaemonIsStartedForTheCall) {
  testing::PrivateBus bus;
  folder_.write("note.txt", "words");
  check({
      {"started beside the command", {"ping"}, nullptr, 0, nullptr, false},
      {"started by name", {"import", "note.txt"}, nullptr, 0, nullptr, false},
      {"cannot be started",
       {"ping"},
       "/nonexistent/ulvekbotd64",
       1,
       "the service is not running (no process owns com.ulvek_technologies.ulvekbotd64 on the "
       "session bus, and it could not be started)",
       false},
      {"missing file",
       {"import", "/nonexistent"},
       nullptr,
       1,
       "ulvekbot: call: import /nonexistent: No such file or directory",
       false},
      {"missing and present",
       {"attributes", "missing.txt", "note.txt"},
       nullptr,
       1,
       "attributes missing.txt: No such file or directory",
       false},
  });
}

// Data over 32 MiB and names that are not UTF-8 reach the daemon through the client library's
// Transfer calls, with nothing asked of the user.
TEST_F(CallCommandTest, LargeDataAndLatin1NamesAreImported) {
  testing::PrivateBus bus;
  folder_.write("large.pdf", testing::paddedPdf("Two hundred megabytes", 200'000'000));
  folder_.write("caf\xE9.txt", "Bonjour");
  struct OutputRow {
    const char* name;
    std::vector<std::string> arguments;
    const char* outputPart;
  };
  const std::vector<OutputRow> rows = {
      {"data", {"data", "large.pdf", "", "application/pdf"}, "Two hundred megabytes"},
      {"import", {"import", "caf\xE9.txt"}, "\"Text\":\"Bonjour\""},
      {"supports", {"supports", "caf\xE9.txt"}, "false\n"},
      {"plain", {"plain", "caf\xE9.txt"}, "true\n"},
  };
  for (const OutputRow& row : rows) {
    std::vector<std::string> arguments{testing::builtProgram("ulvekbot"), "call"};
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    testing::ProgramOutput output = testing::runProgram(arguments, folder_.path());
    EXPECT_EQ(output.status, 0) << row.name << ": " << output.err;
    EXPECT_EQ(output.err, "") << row.name;
    EXPECT_NE(output.out.find(row.outputPart), std::string::npos) << row.name << ": " << output.out;
  }
}

}  // namespace
}  // namespace ulvek
