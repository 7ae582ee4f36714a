#include "base/error.h"
#include "import/mime_type_helper.h"

namespace ulvek {

bool MIMETypeHelper::isPlainFile(const std::string&) { throw NotSupportedError("isPlainFile"); }

}  // namespace ulvek
