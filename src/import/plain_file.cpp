#include "import/mime_type_helper.h"
#include "import/route_table.h"
#include "platform/type_codes.h"

namespace ulvek {

// Can the file be read as text without a document reader? The classes of the file tests say.
bool MIMETypeHelper::isPlainFile(const std::string& path) {
  TextString extension = pathExtension(path);
  std::optional<TextString> typeCode = HFSTypeOfFile(path);
  return isPlainByName(TextView(extension), typeCode ? OptionalText(*typeCode) : std::nullopt);
}

}  // namespace ulvek
