#include "import/route_table.h"

#include "importers/metadata_importer.h"
#include "metadata/file_size.h"
#include "platform/content_types.h"
#include "platform/type_codes.h"

namespace ulvek {

FileClassification classifyFile(OptionalText extension, OptionalText type,
                                const std::function<bool()>& isPackage) {
  FileClassification result;
  for (const ClassificationStep& step : kClassificationOrder) {
    if (!step.answers(extension, type)) continue;
    // A package with a text extension is a folder, not a text file: the later tests decide.
    if (step.fileClass == FileClass::PlainText && isPackage && isPackage()) {
      result.packageSkipped = true;
      continue;
    }
    result.fileClass = step.fileClass;
    result.step = step.number;
    result.test = step.test;
    return result;
  }
  return result;
}

bool isPlainByName(OptionalText extension, OptionalText type) {
  auto anyAnswers = [&](auto&& chosen) {
    for (const ClassificationStep& step : kClassificationOrder)
      if (chosen(step.fileClass) && step.answers(extension, type)) return true;
    return false;
  };
  auto plain = [](Plain wanted) {
    return [wanted](FileClass fileClass) { return fileClassInfo(fileClass).plain == wanted; };
  };
  if (anyAnswers(plain(Plain::Always))) return true;
  if (!anyAnswers(plain(Plain::UnlessImage))) return false;
  return !anyAnswers([](FileClass fileClass) { return fileClass == FileClass::Image; });
}

std::optional<Route> routeForData(OptionalText mimeType, OptionalText extension) {
  for (const DataRoute& row : kDataRoutes) {
    for (auto test : row.mimeTests)
      if (test && test(mimeType)) return row.route;
    for (auto test : row.extensionTests)
      if (test && test(extension)) return row.route;
  }
  return std::nullopt;
}

Route routeForContentType(std::optional<std::string_view> contentType) {
  if (!contentType) return Route::Importer;
  if (typeConformsTo(*contentType, kUTTypeHTML)) return Route::HTML;
  if (typeConformsTo(*contentType, kUTTypePlainText)) return Route::PlainText;
  return Route::Importer;
}

namespace {

// Content before a missing, unknown or lying name: where no name test answered, or the name's
// own type and the content's disagree (typeOfFile lets content overrule only text names), the
// registry's reader for the content type reads the file, and the importers read types that no
// reader of ours declares.
void letTypeDecide(ImportPlan& plan) {
  const ContentTypeInfo* info = plan.contentType ? contentTypeInfo(*plan.contentType) : nullptr;
  if (!info) return;
  // A type only an importer declares is that importer's, even where it says it is text.
  if (info->declaredByImporter) {
    plan.route = Route::Importer;
    plan.typeDecided = true;
    return;
  }
  if (plan.classification.step != 0) {
    std::optional<std::string_view> named = contentTypeForExtension(toUtf8(plan.extension));
    if (!named || *named == *plan.contentType) return;
  }
  // The registry's reader column names a route, or a reader a family registered.
  std::optional<std::string_view> reader = readerForContentType(*plan.contentType);
  plan.route = reader ? routeNamed(*reader).value_or(Route::Registered) : Route::Importer;
  if (plan.route == Route::Registered) plan.registeredReader = *reader;
  plan.typeDecided = true;
}

}  // namespace

ImportPlan planImport(const std::string& path) {
  ImportPlan plan;
  plan.path = path;
  plan.extension = pathExtension(path);
  // An extension the registry does not know may be one an importer plug-in declares: their
  // tables are read before the file is typed.
  if (!plan.extension.empty() && !contentTypeForExtension(toUtf8(plan.extension)))
    MetaDataImporter::sharedImporter().loadExtractorPlugins();
  plan.typeCode = HFSTypeOfFile(path);
  plan.contentType = typeOfFile(path);
  plan.size = fileSizeAtPath(path);
  plan.contentRoute = routeForContentType(
      plan.contentType ? std::optional<std::string_view>(*plan.contentType) : std::nullopt);
  // An empty file is not classified: it has nothing to read.
  if (plan.size == 0) return plan;
  plan.classification = classifyFile(plan.extensionView(), plan.typeView(), [&] {
    return getBoolValueForKey(ResourceKey::IsPackage, path);
  });
  plan.route = fileClassInfo(plan.classification.fileClass).route;
  letTypeDecide(plan);
  return plan;
}

}  // namespace ulvek
