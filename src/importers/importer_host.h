#pragma once

#include "readers/reader.h"

namespace ulvek {

// The importer plug-ins as one reader. A file answers what its importer wrote, by the importers'
// conventions. PDF or PostScript data answers what a PDF's document information holds (title,
// subject, author, keywords, dates) and its text, read by the same importer from a temporary
// copy.
const Reader& importerHost();

}  // namespace ulvek
