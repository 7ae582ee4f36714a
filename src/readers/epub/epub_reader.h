#pragma once

#include "readers/reader.h"

namespace ulvek {

// EPUB books, packed or as folders: the book's metadata (Spotlight attributes) and its text as
// "kMDItemTextContent". Anything that is no EPUB book answers nothing, so the importer host can
// ask it before any plug-in.
const Reader& epubReader();
// The same for files the dispatcher has typed as books by their content, whatever their name.
const Reader& typedEPUBReader();

}  // namespace ulvek
