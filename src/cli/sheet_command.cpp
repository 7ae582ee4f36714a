// `ulvekbot sheet [--max-rows N] PATH...`: a sheet's rows as read for clients that want rows and
// columns (CSV, TSV, TAB, TDF, ID2XF and BibTeX files).

#include <CLI/CLI.hpp>
#include <memory>
#include <ostream>

#include "cli/command.h"
#include "readers/wordperfect/sheet.h"
#include "service/json.h"

namespace ulvek::cli {
namespace {

constexpr std::string_view kCommand = "sheet";

PropertyValue rowsValue(const Sheet& sheet) {
  PropertyArray rows;
  rows.reserve(sheet.size());
  for (std::size_t row = 0; row < sheet.size(); ++row) {
    PropertyArray fields;
    fields.reserve(sheet.fieldCount(row));
    for (std::size_t column = 0; column < sheet.fieldCount(row); ++column)
      fields.emplace_back(sheet.field(row, column));
    rows.emplace_back(std::move(fields));
  }
  return PropertyValue(std::move(rows));
}

struct Options {
  std::size_t maxRows = kNoRowLimit;
  std::vector<std::string> paths;
};

int run(const Options& options, CommandIO& io) {
  const std::size_t maxRows = options.maxRows;
  const std::vector<std::string>& paths = options.paths;
  int status = kExitSuccess;
  for (const std::string& path : paths) {
    bool definition = false;
    std::size_t columns = 0;
    std::optional<Sheet> sheet =
        sheetWithContentsOfFile(path, kDetectEncoding, maxRows, &definition, &columns);
    if (!sheet) {
      printError(io, kCommand, "not a readable sheet: " + path);
      status = kExitFailure;
      continue;
    }
    io.out << "{\"path\":" << toJson(PropertyValue::fromUtf8(path))
           << ",\"format\":" << static_cast<unsigned>(sheetFormatOfFile(path))
           << ",\"columns\":" << columns << ",\"definition\":" << (definition ? "true" : "false")
           << ",\"rows\":" << toJson(rowsValue(*sheet)) << "}\n";
  }
  return status;
}

CommandAction define(CLI::App& command) {
  auto options = std::make_shared<Options>();
  command.add_option("--max-rows", options->maxRows, "Read at most N rows of each sheet")
      ->type_name("N");
  addPaths(command, options->paths, "CSV, TSV, ID2XF or BibTeX files");
  command.footer("Example:\n  ulvekbot sheet --max-rows 10 survey.csv | jq -c '.rows[]'");
  return [options](CommandIO& io) { return run(*options, io); };
}

const CommandRegistration registration{
    {kCommand, "Prints the rows of sheets (CSV, TSV, ID2XF, BibTeX) as JSON", define}};

}  // namespace
}  // namespace ulvek::cli
