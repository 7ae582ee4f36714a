#pragma once

#include "base/property_value.h"
#include "readers/reader.h"

namespace ulvek {

// Spotlight attributes ("kMDItemTitle", "kMDItemAuthors", …, the text as "kMDItemTextContent"),
// as importer plug-ins answer them and a book's metadata holds them, as typed properties. A value
// of another kind than the attribute's is left out, as is a list holding anything but strings.
ReaderOutput spotlightOutput(const PropertyDictionary& attributes);

// The same answer for PDF or PostScript data read in memory: only what a PDF's document
// information holds (title, subject from the description, the first author, keywords, dates).
ReaderOutput pdfDocumentOutput(const PropertyDictionary& attributes);

}  // namespace ulvek
