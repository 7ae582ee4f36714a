// `ulvekbot classify PATH...`: why a file is read the way it is. For each path it prints the
// extension, the four-character type code, the content type and the first file test, in the
// import's own order, that answers YES (or, when none does, what the content type decides).

#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "cli/command.h"
#include "import/descriptions.h"
#include "import/route_table.h"
#include "service/json.h"

namespace ulvek::cli {
namespace {

constexpr std::string_view kCommand = "classify";
constexpr std::string_view kAbsent = "-";

using Facts = ImportPlan;

void printAligned(std::ostream& out, const std::vector<Facts>& all) {
  std::vector<std::vector<std::string>> rows = {
      {"PATH", "EXTENSION", "TYPE", "CONTENT TYPE", "FIRST YES"}};
  for (const Facts& facts : all) {
    rows.push_back({facts.path,
                    facts.extension.empty() ? std::string(kAbsent) : toUtf8(facts.extension),
                    facts.typeCode ? toUtf8(*facts.typeCode) : std::string(kAbsent),
                    facts.contentType.value_or(std::string(kAbsent)), planDecision(facts)});
  }
  printTable(out, rows);
}

struct Options {
  bool json = false;
  std::vector<std::string> paths;
};

int run(const Options& options, CommandIO& io) {
  const bool json = options.json;
  int status = kExitSuccess;
  std::vector<Facts> all;
  for (const std::string& path : options.paths) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) {
      printError(io, kCommand, path + ": " + std::strerror(errno));
      status = kExitFailure;
      continue;
    }
    Facts facts = planImport(path);
    if (json)
      io.out << toJson(planDescription(facts)) << '\n';
    else
      all.push_back(std::move(facts));
  }
  if (!json && !all.empty()) printAligned(io.out, all);
  return status;
}

CommandAction define(CLI::App& command) {
  auto options = std::make_shared<Options>();
  command.add_flag("--json", options->json, "One JSON object per file instead of a table");
  addPaths(command, options->paths, "Files to classify");
  command.footer(
      "\nExamples:\n  ulvekbot classify mystery.bin notes.txt\n"
      "  ulvekbot classify --json mystery.bin | jq -r .reader");
  return [options](CommandIO& io) { return run(*options, io); };
}

const CommandRegistration registration{
    {kCommand,
     "Prints each file's extension, type code, content type and the first file test that "
     "answers YES, and the reader that reads it",
     define}};

}  // namespace
}  // namespace ulvek::cli
