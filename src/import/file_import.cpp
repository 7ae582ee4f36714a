#include "base/error.h"
#include "import/mime_type_helper.h"

namespace ulvek {

ImportResult MIMETypeHelper::openFile(const std::string&) { throw NotSupportedError("openFile"); }

}  // namespace ulvek
