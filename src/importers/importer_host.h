#pragma once

#include "readers/reader.h"

namespace ulvek {

// The importer plug-ins as one reader. A file answers what its importer wrote (Spotlight
// attributes, the text as "kMDItemTextContent"). PDF or PostScript data answers the document
// attributes of a PDF (Title, Subject, Author, Keywords, CreationDate, ModDate) and its text,
// read by the same importer from a temporary copy.
const Reader& importerHost();

}  // namespace ulvek
