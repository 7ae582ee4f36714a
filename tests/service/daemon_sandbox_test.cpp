// The daemon serves from inside its sandbox: started on a private bus, it runs without new
// privileges under a system-call filter, and imports still work through it, PostScript too (its
// worker runs Ghostscript).
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/sandbox.h"
#include "service_fixture.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;
using testing::readWholeFile;

// A field of /proc/PID/status, or "(gone)".
std::string statusField(pid_t pid, const std::string& name) {
  return sandbox::processStatusField(pid, name).value_or("(gone)");
}

class DaemonSandboxTest : public ::testing::Test {
 protected:
  void SetUp() override {
    daemon_ = testing::startDaemon(logPath());
    client_ = testing::ServiceClient::connect();
    ASSERT_TRUE(client_->waitForService(10s)) << readWholeFile(logPath());
  }
  std::filesystem::path logPath() const { return folder_.path() / "daemon.log"; }

  testing::PrivateBus bus_;
  testing::TemporaryFolder folder_;
  testing::ChildProcess daemon_;
  std::unique_ptr<testing::ServiceClient> client_;
  std::optional<Error> error_;
};

TEST_F(DaemonSandboxTest, ImportsWorkFromInsideTheSandbox) {
  struct Row {
    std::string path;
    std::string fragment;  // of the text the daemon answers
  };
  const Row rows[] = {
      {folder_.write("note.txt", "Harbour notes"), "Harbour notes"},
      {(testing::dataPath() / "pdf/ferry.ps").string(), "ferry"},
      {(testing::dataPath() / "pdf/logbook.pdf").string(), "ogbook"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    std::optional<ImportResult> result = client_->openFile(row.path, &error_);
    ASSERT_TRUE(result) << (error_ ? error_->localizedDescription : "");
    const std::u16string* text = result->string(ImportKey::Text);
    ASSERT_TRUE(text) << readWholeFile(logPath());
    EXPECT_NE(toUtf8(*text).find(row.fragment), std::string::npos) << toUtf8(*text);
  }
  EXPECT_EQ(statusField(daemon_.pid(), "NoNewPrivs"), "1");
  EXPECT_EQ(statusField(daemon_.pid(), "Seccomp"), "2");
  // The log says nothing of the sandbox where the kernel has all it needs.
  if (sandbox::kernelSupport().landlockAbi > 0)
    EXPECT_EQ(readWholeFile(logPath()).find("Sandbox"), std::string::npos)
        << readWholeFile(logPath());
}

}  // namespace
}  // namespace ulvek
