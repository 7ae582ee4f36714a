#include "import/mime_type_helper.h"
#include "metadata/file_types.h"
#include "platform/type_codes.h"

namespace ulvek {

// Can the file be read as text without a document reader? Markup and sheets always can; a text
// file only when it is not also an image (a plain-text extension that an image type shares).
bool MIMETypeHelper::isPlainFile(const std::string& path) {
  TextString extension = pathExtension(path);
  std::optional<TextString> typeCode = HFSTypeOfFile(path);
  OptionalText ext = TextView(extension);
  OptionalText type = typeCode ? OptionalText(*typeCode) : std::nullopt;
  if (isHTMLExtension(ext) || isXMLExtension(ext) || isSheetExtension(ext) ||
      isPropertyListExtension(ext)) {
    return true;
  }
  if (isTextExtension(ext, type) || isTextBundleExtension(ext, type)) {
    return !isImageExtension(ext, type);
  }
  return false;
}

}  // namespace ulvek
