#include "base/error.h"
#include "import/mime_type_helper.h"

namespace ulvek {

// Data import and the importer question need readers and the importer host that come later.
ImportResult MIMETypeHelper::openData(const std::optional<Data>&, const std::optional<TextString>&,
                                      const std::optional<TextString>&) {
  throw NotSupportedError("openData");
}

bool MIMETypeHelper::supportsFile(const std::string&) { throw NotSupportedError("supportsFile"); }

}  // namespace ulvek
