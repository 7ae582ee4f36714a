// `ulvekbot classify PATH...`: why a file is read the way it is. For each path it prints the
// extension, the four-character type code, the content type and the first file test, in the
// import's own order, that answers YES (or, when none does, what the content type decides).

#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "cli/command.h"
#include "import/mime_type_helper.h"
#include "import/reader_set.h"
#include "import/route_table.h"
#include "importers/metadata_importer.h"
#include "metadata/file_types.h"
#include "service/json.h"

namespace ulvek::cli {
namespace {

constexpr std::string_view kCommand = "classify";
constexpr std::string_view kAbsent = "-";

using Facts = ImportPlan;

// Which reader serves the file's route, or that none is built.
std::string readerName(const Facts& facts) {
  Route route = facts.readingRoute();
  if (!routeInfo(route).hasReader) return "built in";
  const Reader* reader = MIMETypeHelper().plannedReader(facts);
  if (!reader) return "not built";
  // The importer host names the plug-in that would read the file.
  if (route == Route::Importer || route == Route::PDF) {
    auto bundle = MetaDataImporter::sharedImporter().importerForFile(facts.path);
    return std::string(reader->name()) + ": " + bundle.value_or("no importer");
  }
  return std::string(reader->name());
}

std::string decision(const Facts& facts) {
  if (facts.size == 0) return "empty: not classified";
  std::string text;
  if (facts.typeDecided) {
    text = "content type " + facts.contentType.value_or("") + " → " +
           std::string(routeInfo(facts.route).name);
    if (facts.classification.step > 0)
      text += " (not " + std::string(fileClassName(facts.classification.fileClass)) +
              ", as the name says)";
  } else if (facts.classification.step > 0) {
    text = std::to_string(facts.classification.step) + " " +
           std::string(facts.classification.test) + " → " +
           std::string(fileClassName(facts.classification.fileClass));
  } else {
    text = "none → content type: " + std::string(routeInfo(facts.contentRoute).name);
  }
  if (facts.classification.packageSkipped) text += " (a package, so not read as plain text)";
  return text + " [reader: " + readerName(facts) + "]";
}

PropertyValue jsonOf(const Facts& facts) {
  PropertyDictionary object;
  object["path"] = PropertyValue::fromUtf8(facts.path);
  object["extension"] = PropertyValue(facts.extension);
  object["typeCode"] = facts.typeCode ? PropertyValue(*facts.typeCode) : PropertyValue(u"");
  object["contentType"] = PropertyValue::fromUtf8(facts.contentType.value_or(""));
  object["size"] = PropertyValue(facts.size);
  object["step"] = PropertyValue(facts.classification.step);
  object["test"] = PropertyValue::fromUtf8(facts.classification.test);
  object["class"] = PropertyValue::fromUtf8(fileClassName(facts.classification.fileClass));
  object["packageSkipped"] = PropertyValue(facts.classification.packageSkipped);
  object["typeDecided"] = PropertyValue(facts.typeDecided);
  if (facts.classification.step == 0)
    object["contentTypeRoute"] = PropertyValue::fromUtf8(routeInfo(facts.contentRoute).name);
  object["reader"] = PropertyValue::fromUtf8(readerName(facts));
  object["decision"] = PropertyValue::fromUtf8(decision(facts));
  return PropertyValue(std::move(object));
}

void printAligned(std::ostream& out, const std::vector<Facts>& all) {
  std::vector<std::vector<std::string>> rows = {
      {"PATH", "EXTENSION", "TYPE", "CONTENT TYPE", "FIRST YES"}};
  for (const Facts& facts : all) {
    rows.push_back({facts.path,
                    facts.extension.empty() ? std::string(kAbsent) : toUtf8(facts.extension),
                    facts.typeCode ? toUtf8(*facts.typeCode) : std::string(kAbsent),
                    facts.contentType.value_or(std::string(kAbsent)), decision(facts)});
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
      io.out << toJson(jsonOf(facts)) << '\n';
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
