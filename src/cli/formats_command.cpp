// `ulvekbot formats`: every row of the format registry with its extensions, MIME types, kind and
// the reader that reads it; for types an importer plug-in declares, the plug-in. `--json` prints
// one object per format, with its type codes, parents and content signatures too.

#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "cli/command.h"
#include "import/descriptions.h"
#include "platform/formats.h"
#include "service/json.h"

namespace ulvek::cli {
namespace {

constexpr std::string_view kCommand = "formats";

int run(bool json, CommandIO& io) {
  const std::map<std::string, std::string> importers = importersByType();
  std::vector<std::vector<std::string>> rows = {
      {"IDENTIFIER", "NAME", "EXTENSIONS", "MIME TYPES", "KIND", "READER"}};
  for (const Format& format : formats()) {
    std::string reader = formatReader(format, importers);
    if (json) {
      io.out << toJson(formatDescription(format, reader)) << '\n';
      continue;
    }
    rows.push_back({std::string(format.identifier), std::string(format.name),
                    format.extensions.empty() ? "-" : std::string(format.extensions),
                    format.mimeTypes.empty() ? "-" : std::string(format.mimeTypes),
                    formatKind(format), reader});
  }
  if (!json) printTable(io.out, rows);
  return kExitSuccess;
}

CommandAction define(CLI::App& command) {
  auto json = std::make_shared<bool>(false);
  command.add_flag("--json", *json,
                   "One JSON object per format, with its parent types and content signatures");
  command.footer(
      "\nExample:\n  ulvekbot formats --json | jq -r 'select(.reader == \"importer\") | .name'");
  return [json](CommandIO& io) { return run(*json, io); };
}

const CommandRegistration registration{
    {kCommand, "Lists every format known: extensions, MIME types, kind and the reader or importer",
     define}};

}  // namespace
}  // namespace ulvek::cli
