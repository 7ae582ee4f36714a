// `ulvekbot importers`: the importer plug-ins found on the search path, with the content types
// and extensions each reads, in the order they are asked. `--json` prints one object per bundle.

#include <ostream>
#include <string>
#include <vector>

#include "cli/command.h"
#include "importers/metadata_importer.h"
#include "service/json.h"

namespace ulvek::cli {
namespace {

constexpr std::string_view kCommand = "importers";

std::string joined(const std::vector<std::string>& items) {
  std::string text;
  for (const std::string& item : items) text += (text.empty() ? "" : " ") + item;
  return text;
}

int run(const std::vector<std::string>& arguments, CommandIO& io) {
  bool json = arguments.size() == 1 && arguments[0] == "--json";
  if (!arguments.empty() && !json) {
    printError(io, kCommand, "takes no arguments but --json");
    return kExitUsage;
  }
  MetaDataImporter& importer = MetaDataImporter::sharedImporter();
  importer.loadExtractorPlugins();
  if (!json) {
    io.out << "Search path:\n";
    for (const std::string& folder : importerSearchPath()) io.out << "  " << folder << "\n";
  }
  for (const std::string& bundle : importer.bundlePaths()) {
    auto find = [&](const auto& table) {
      auto found = table.find(bundle);
      return found == table.end() ? std::vector<std::string>() : found->second;
    };
    std::vector<std::string> types = find(importer.contentTypesForMDImporter());
    std::vector<std::string> extensions = find(importer.extensionsForMDImporter());
    if (json) {
      PropertyDictionary object{{"path", PropertyValue::fromUtf8(bundle)},
                                {"contentTypes", stringList(types)},
                                {"extensions", stringList(extensions)}};
      io.out << toJson(PropertyValue(std::move(object))) << "\n";
      continue;
    }
    io.out << bundle << "\n  content types: " << joined(types)
           << "\n  extensions: " << joined(extensions) << "\n";
  }
  return kExitSuccess;
}

const CommandRegistration registration{
    {kCommand, "[--json]", "Lists the importer plug-ins found, with what each reads", run}};

}  // namespace
}  // namespace ulvek::cli
