// `ulvekbot bibtex PATH...`: the entries of BibTeX files, with their keys in order first seen.

#include <CLI/CLI.hpp>
#include <memory>
#include <ostream>

#include "cli/command.h"
#include "readers/wordperfect/sheet.h"
#include "service/json.h"
#include "text/text_decoding.h"

namespace ulvek::cli {
namespace {

constexpr std::string_view kCommand = "bibtex";

int run(const std::vector<std::string>& paths, CommandIO& io) {
  int status = kExitSuccess;
  for (const std::string& path : paths) {
    std::optional<TextString> text = stringWithContentsOfFile(path, kDetectEncoding);
    if (!text) {
      printError(io, kCommand, "cannot read: " + path);
      status = kExitFailure;
      continue;
    }
    std::vector<TextString> keys;
    PropertyArray entries;
    for (const BibTeXEntry& entry : BibTeXEntriesNamed(*text, std::nullopt, &keys)) {
      PropertyDictionary fields;
      for (const auto& [name, value] : entry) fields.emplace(toUtf8(name), PropertyValue(value));
      entries.emplace_back(std::move(fields));
    }
    PropertyArray keyList(keys.begin(), keys.end());
    io.out << "{\"path\":" << toJson(PropertyValue::fromUtf8(path))
           << ",\"keys\":" << toJson(PropertyValue(std::move(keyList)))
           << ",\"entries\":" << toJson(PropertyValue(std::move(entries))) << "}\n";
  }
  return status;
}

CommandAction define(CLI::App& command) {
  auto paths = std::make_shared<std::vector<std::string>>();
  addPaths(command, *paths, "BibTeX files");
  command.footer("Example:\n  ulvekbot bibtex references.bib | jq '.keys'");
  return [paths](CommandIO& io) { return run(*paths, io); };
}

const CommandRegistration registration{
    {kCommand, "Prints the entries of BibTeX files as JSON", define}};

}  // namespace
}  // namespace ulvek::cli
