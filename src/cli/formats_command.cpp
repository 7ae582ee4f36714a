// `ulvekbot formats`: every row of the format registry with its extensions, MIME types, kind and
// the reader that reads it; for types an importer plug-in declares, the plug-in. `--json` prints
// one object per format, with its type codes, parents and content signatures too.

#include <CLI/CLI.hpp>
#include <filesystem>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "base/ascii.h"
#include "cli/command.h"
#include "importers/metadata_importer.h"
#include "platform/content_types.h"
#include "platform/formats.h"
#include "service/json.h"

namespace ulvek::cli {
namespace {

constexpr std::string_view kCommand = "formats";

std::vector<std::string> words(std::string_view list, char separator) {
  std::vector<std::string> items;
  for (std::string_view item : nonEmptyParts(list, separator)) items.emplace_back(item);
  return items;
}

// Signatures as text a terminal shows: bytes outside printable ASCII as \xNN, as they are
// written in the registry.
std::string printable(std::string_view bytes) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string text;
  for (unsigned char c : bytes) {
    if (c >= 0x20 && c < 0x7F) {
      text += static_cast<char>(c);
      continue;
    }
    text += "\\x";
    text += kHex[c >> 4];
    text += kHex[c & 15];
  }
  return text;
}

std::string kindOf(const Format& format) {
  std::string_view identifier = format.identifier;
  // Types no file is tagged with, only conformed to.
  if (format.extensions.empty() && format.mimeTypes.empty() && format.signatures.empty())
    return "abstract";
  if (typeConformsTo(identifier, kUTTypePackage)) return "package";
  if (typeConformsTo(identifier, "public.directory")) return "folder";
  return "file";
}

// The importer plug-in that reads each type, by its bundle's name (the last one asked wins, as
// when a file is imported).
std::map<std::string, std::string> importersByType() {
  MetaDataImporter& importer = MetaDataImporter::sharedImporter();
  importer.loadExtractorPlugins();
  std::map<std::string, std::string> byType;
  for (const auto& [bundle, types] : importer.contentTypesForMDImporter())
    for (const std::string& type : types)
      byType[type] = std::filesystem::path(bundle).filename().string();
  return byType;
}

std::string readerOf(const Format& format, const std::map<std::string, std::string>& importers) {
  std::string reader(readerForContentType(format.identifier).value_or("-"));
  if (reader != "importer") return reader;
  auto found = importers.find(std::string(format.identifier));
  return found == importers.end() ? reader : reader + ": " + found->second;
}

PropertyValue jsonOf(const Format& format, const std::string& reader) {
  std::vector<std::string> signatures;
  for (const std::string& signature : words(format.signatures, '|'))
    signatures.push_back(printable(signature));
  std::vector<std::string> typeCodes;
  if (const ContentTypeInfo* info = contentTypeInfo(format.identifier))
    for (std::string_view code : info->typeCodes) typeCodes.emplace_back(code);
  PropertyDictionary object{
      {"identifier", PropertyValue::fromUtf8(format.identifier)},
      {"name", PropertyValue::fromUtf8(format.name)},
      {"extensions", stringList(words(format.extensions, ' '))},
      {"mimeTypes", stringList(words(format.mimeTypes, ' '))},
      {"typeCodes", stringList(typeCodes)},
      {"conformsTo", stringList(words(format.parents, ' '))},
      {"signatures", stringList(signatures)},
      {"kind", PropertyValue::fromUtf8(kindOf(format))},
      {"reader", PropertyValue::fromUtf8(reader)},
  };
  return PropertyValue(std::move(object));
}

int run(bool json, CommandIO& io) {
  const std::map<std::string, std::string> importers = importersByType();
  std::vector<std::vector<std::string>> rows = {
      {"IDENTIFIER", "NAME", "EXTENSIONS", "MIME TYPES", "KIND", "READER"}};
  for (const Format& format : formats()) {
    std::string reader = readerOf(format, importers);
    if (json) {
      io.out << toJson(jsonOf(format, reader)) << '\n';
      continue;
    }
    rows.push_back({std::string(format.identifier), std::string(format.name),
                    format.extensions.empty() ? "-" : std::string(format.extensions),
                    format.mimeTypes.empty() ? "-" : std::string(format.mimeTypes), kindOf(format),
                    reader});
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
