// `ulvekbot importers`: the importer plug-ins found on the search path, with the content types
// and extensions each reads, in the order they are asked. `--json` prints one object per bundle.

#include <CLI/CLI.hpp>
#include <memory>
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

int run(bool json, CommandIO& io) {
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

CommandAction define(CLI::App& command) {
  auto json = std::make_shared<bool>(false);
  command.add_flag("--json", *json, "One JSON object per importer bundle");
  command.footer("Example:\n  ULVEKBOT_IMPORTER_PATH=~/Importers ulvekbot importers");
  return [json](CommandIO& io) { return run(*json, io); };
}

const CommandRegistration registration{
    {kCommand, "Lists the importer plug-ins found, with what each reads", define}};

}  // namespace
}  // namespace ulvek::cli
