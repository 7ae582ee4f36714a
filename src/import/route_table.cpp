#include "import/route_table.h"

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

Route routeForContentType(std::optional<std::string_view> contentType) {
  if (!contentType) return Route::Importer;
  if (typeConformsTo(*contentType, kUTTypeHTML)) return Route::HTML;
  if (typeConformsTo(*contentType, kUTTypePlainText)) return Route::PlainText;
  return Route::Importer;
}

ImportPlan planImport(const std::string& path) {
  ImportPlan plan;
  plan.path = path;
  plan.extension = pathExtension(path);
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
  return plan;
}

}  // namespace ulvek
