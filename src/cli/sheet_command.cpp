// `ulvekbot sheet [--max-rows N] PATH...`: a sheet's rows as read for clients that want rows and
// columns (CSV, TSV, TAB, TDF, ID2XF and BibTeX files).

#include <charconv>
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

int run(const std::vector<std::string>& arguments, CommandIO& io) {
  std::size_t maxRows = kNoRowLimit;
  std::vector<std::string> paths;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] != "--max-rows") {
      paths.push_back(arguments[i]);
      continue;
    }
    const std::string& number = i + 1 < arguments.size() ? arguments[++i] : std::string();
    auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), maxRows);
    if (number.empty() || error != std::errc() || end != number.data() + number.size()) {
      printError(io, kCommand, "--max-rows needs a number");
      return kExitUsage;
    }
  }
  if (paths.empty()) {
    printError(io, kCommand, "no paths given");
    return kExitUsage;
  }
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

const CommandRegistration registration{
    {kCommand, "[--max-rows N] PATH...",
     "Prints the rows of sheets (CSV, TSV, ID2XF, BibTeX) as JSON", run}};

}  // namespace
}  // namespace ulvek::cli
