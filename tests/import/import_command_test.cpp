// `ulvekbot import` as a user runs it: the built program on files and folder trees.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "test_support.h"

namespace ulvek {
namespace {

using testing::TemporaryFolder;
namespace fs = std::filesystem;

struct Output {
  int status = -1;
  std::vector<std::string> lines;  // standard output
  std::string errors;
};

Output runImport(const std::vector<std::string>& paths, const fs::path& scratch) {
  std::string program = std::string(ULVEK_BINARY_DIR) + "/src/ulvekbot";
  std::string command = "'" + program + "' import";
  for (const std::string& path : paths) command += " '" + path + "'";
  command += " 2>'" + (scratch / "err").string() + "'";
  Output output;
  std::FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return output;
  std::string text;
  char buffer[4096];
  for (std::size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
    text.append(buffer, got);
  }
  int status = ::pclose(pipe);
  output.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) output.lines.push_back(line);
  output.errors = testing::readFile(scratch / "err");
  return output;
}

class ImportCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(std::string(ULVEK_BINARY_DIR) + "/src/ulvekbot")) {
      GTEST_SKIP() << "ulvekbot is not built";
    }
  }
  TemporaryFolder scratch;
};

TEST_F(ImportCommand, WalksFoldersWithoutFollowingLinks) {
  TemporaryFolder tree;
  tree.write("a.txt", "alpha");
  tree.write("sub/b.csv", "x,y\n");
  tree.write("sub/deeper/c.html", "<title>C</title><p>gamma</p>");
  tree.write("empty.txt", "");
  TemporaryFolder outside;
  outside.write("secret.txt", "must not be imported");
  fs::create_directory_symlink(outside.path(), tree.path() / "linked-folder");
  fs::create_symlink(outside.path() / "secret.txt", tree.path() / "linked-file.txt");

  Output output = runImport({tree.path().string()}, scratch.path());
  EXPECT_EQ(output.status, 0);
  ASSERT_EQ(output.lines.size(), 4u) << output.errors;
  for (const std::string& line : output.lines) {
    EXPECT_TRUE(line.starts_with("{") && line.ends_with("}")) << line;
    EXPECT_EQ(line.find("must not be imported"), std::string::npos);
  }
  EXPECT_NE(output.errors.find("4 files, 37 bytes"), std::string::npos) << output.errors;
  EXPECT_NE(output.errors.find("1 without text"), std::string::npos) << output.errors;
}

TEST_F(ImportCommand, FilesInArgumentOrderAndMissingPaths) {
  TemporaryFolder tree;
  std::string first = tree.write("first.txt", "one");
  std::string second = tree.write("second.url", "URL=https://example.org/\n");
  Output output = runImport({first, (tree.path() / "missing").string(), second}, scratch.path());
  EXPECT_EQ(output.status, 1);
  ASSERT_EQ(output.lines.size(), 2u);
  EXPECT_NE(output.lines[0].find("\"Text\":\"one\""), std::string::npos) << output.lines[0];
  EXPECT_NE(output.lines[1].find("\"URL\":\"https://example.org/\""), std::string::npos)
      << output.lines[1];
  EXPECT_NE(output.errors.find("missing"), std::string::npos);
}

TEST_F(ImportCommand, NoPathsIsAUsageError) { EXPECT_EQ(runImport({}, scratch.path()).status, 2); }

}  // namespace
}  // namespace ulvek
