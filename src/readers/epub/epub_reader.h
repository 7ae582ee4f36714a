#pragma once

#include "readers/reader.h"

namespace ulvek {

// EPUB books, packed or as folders: the book's metadata (Spotlight attributes) and its text as
// "kMDItemTextContent". Anything that is no EPUB book answers nothing, so the importer host can
// ask it before any plug-in.
const Reader& epubReader();

}  // namespace ulvek
