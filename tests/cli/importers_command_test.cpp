// `ulvekbot importers --sandbox`, run as a real program: what it says of this kernel and of a
// worker it starts, and how it fails when there is no worker to start.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/sandbox.h"
#include "service_fixture.h"
#include "test_support.h"

namespace ulvek {
namespace {

TEST(ImportersCommandTest, SandboxTellsWhatConfinesTheWorker) {
  testing::TemporaryFolder folder;
  sandbox::Support support = sandbox::kernelSupport();
  std::string kernel;
  for (const std::string& line : sandbox::describe(support)) kernel += line + "\n";
  struct Row {
    const char* name;
    const char* worker;  // ULVEKBOT_IMPORTER_WORKER
    int status;
    std::string out;
    const char* errorPart;
  };
  const std::string built = testing::builtProgram("ulvekbot-importer-worker");
  const Row rows[] = {
      {"the built worker", built.c_str(), 0,
       kernel + "Importer worker: no new privileges yes, seccomp filter active, Landlock " +
           (support.landlockAbi > 0 ? "active (read-only but its temporary folder)" : "inactive") +
           "\n",
       nullptr},
      {"no worker", "/nonexistent/worker", 1, kernel,
       "cannot start the importer worker (/nonexistent/worker)"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    ::setenv("ULVEKBOT_IMPORTER_WORKER", row.worker, 1);
    testing::ProgramOutput output = testing::runProgram(
        {testing::builtProgram("ulvekbot"), "importers", "--sandbox"}, folder.path());
    ::unsetenv("ULVEKBOT_IMPORTER_WORKER");
    EXPECT_EQ(output.status, row.status) << output.err;
    EXPECT_EQ(output.out, row.out);
    if (row.errorPart)
      EXPECT_NE(output.err.find(row.errorPart), std::string::npos) << output.err;
    else
      EXPECT_EQ(output.err, "");
  }
}

}  // namespace
}  // namespace ulvek
