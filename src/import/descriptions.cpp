#include "import/descriptions.h"

#include <filesystem>
#include <vector>

#include "base/ascii.h"
#include "import/mime_type_helper.h"
#include "import/reader_set.h"
#include "importers/metadata_importer.h"
#include "platform/content_types.h"

namespace ulvek {
namespace {

std::vector<std::string> words(std::string_view list, char separator) {
  std::vector<std::string> items;
  for (std::string_view item : nonEmptyParts(list, separator)) items.emplace_back(item);
  return items;
}

PropertyValue stringList(const std::vector<std::string>& items) {
  PropertyArray list;
  for (const std::string& item : items) list.push_back(PropertyValue::fromUtf8(item));
  return PropertyValue(std::move(list));
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

}  // namespace

std::string planReaderName(const ImportPlan& plan) {
  Route route = plan.readingRoute();
  if (!routeInfo(route).hasReader) return "built in";
  const Reader* reader = MIMETypeHelper().plannedReader(plan);
  if (!reader) return "not built";
  // The importer host names the plug-in that would read the file.
  if (route == Route::Importer || route == Route::PDF) {
    auto bundle = MetaDataImporter::sharedImporter().importerForFile(plan.path);
    return std::string(reader->name()) + ": " + bundle.value_or("no importer");
  }
  return std::string(reader->name());
}

std::string planDecision(const ImportPlan& plan) {
  if (plan.size == 0) return "empty: not classified";
  std::string text;
  if (plan.typeDecided) {
    text = "content type " + plan.contentType.value_or("") + " → " +
           std::string(routeInfo(plan.route).name);
    if (plan.classification.step > 0)
      text += " (not " + std::string(fileClassName(plan.classification.fileClass)) +
              ", as the name says)";
  } else if (plan.classification.step > 0) {
    text = std::to_string(plan.classification.step) + " " + std::string(plan.classification.test) +
           " → " + std::string(fileClassName(plan.classification.fileClass));
  } else {
    text = "none → content type: " + std::string(routeInfo(plan.contentRoute).name);
  }
  if (plan.classification.packageSkipped) text += " (a package, so not read as plain text)";
  return text + " [reader: " + planReaderName(plan) + "]";
}

PropertyValue planDescription(const ImportPlan& plan) {
  PropertyDictionary object;
  object["path"] = PropertyValue::fromUtf8(plan.path);
  object["extension"] = PropertyValue(plan.extension);
  object["typeCode"] = plan.typeCode ? PropertyValue(*plan.typeCode) : PropertyValue(u"");
  object["contentType"] = PropertyValue::fromUtf8(plan.contentType.value_or(""));
  object["size"] = PropertyValue(plan.size);
  object["step"] = PropertyValue(plan.classification.step);
  object["test"] = PropertyValue::fromUtf8(plan.classification.test);
  object["class"] = PropertyValue::fromUtf8(fileClassName(plan.classification.fileClass));
  object["packageSkipped"] = PropertyValue(plan.classification.packageSkipped);
  object["typeDecided"] = PropertyValue(plan.typeDecided);
  if (plan.classification.step == 0)
    object["contentTypeRoute"] = PropertyValue::fromUtf8(routeInfo(plan.contentRoute).name);
  object["reader"] = PropertyValue::fromUtf8(planReaderName(plan));
  object["decision"] = PropertyValue::fromUtf8(planDecision(plan));
  return PropertyValue(std::move(object));
}

std::string formatKind(const Format& format) {
  std::string_view identifier = format.identifier;
  // Types no file is tagged with, only conformed to.
  if (format.extensions.empty() && format.mimeTypes.empty() && format.signatures.empty())
    return "abstract";
  if (typeConformsTo(identifier, kUTTypePackage)) return "package";
  if (typeConformsTo(identifier, "public.directory")) return "folder";
  return "file";
}

std::map<std::string, std::string> importersByType() {
  BundleRegistry& bundles = MetaDataImporter::sharedImporter().bundles();
  bundles.loadExtractorPlugins();
  std::map<std::string, std::string> byType;
  for (const auto& [bundle, types] : bundles.contentTypesForMDImporter())
    for (const std::string& type : types)
      byType[type] = std::filesystem::path(bundle).filename().string();
  return byType;
}

std::string formatReader(const Format& format,
                         const std::map<std::string, std::string>& importers) {
  std::string reader(readerForContentType(format.identifier).value_or("-"));
  if (reader != "importer") return reader;
  auto found = importers.find(std::string(format.identifier));
  return found == importers.end() ? reader : reader + ": " + found->second;
}

PropertyValue formatDescription(const Format& format, const std::string& reader) {
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
      {"kind", PropertyValue::fromUtf8(formatKind(format))},
      {"reader", PropertyValue::fromUtf8(reader)},
  };
  return PropertyValue(std::move(object));
}

}  // namespace ulvek
