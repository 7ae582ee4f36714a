#pragma once

// What `ulvekbot classify --json` and `ulvekbot formats --json` say of a file and of a format, as
// property values, for the command line and the Python module alike.

#include <map>
#include <string>

#include "base/property_value.h"
#include "import/route_table.h"
#include "platform/formats.h"

namespace ulvek {

// Why a file is read the way it is: the first file test that answers YES, or what its content
// type decides, and the reader ("built in", "not built", "importer: PDF.mdimporter", …).
std::string planReaderName(const ImportPlan& plan);
std::string planDecision(const ImportPlan& plan);
// {"path", "extension", "typeCode", "contentType", "size", "step", "test", "class", …}
PropertyValue planDescription(const ImportPlan& plan);

// "abstract", "package", "folder" or "file".
std::string formatKind(const Format& format);
// The importer plug-in that reads each type, by its bundle's name (the last one asked wins, as
// when a file is imported).
std::map<std::string, std::string> importersByType();
// The reader of a format; for types a plug-in reads, "importer: BUNDLE".
std::string formatReader(const Format& format, const std::map<std::string, std::string>& importers);
// {"identifier", "name", "extensions", "mimeTypes", "typeCodes", "conformsTo", "signatures",
// "kind", "reader"}
PropertyValue formatDescription(const Format& format, const std::string& reader);

}  // namespace ulvek
