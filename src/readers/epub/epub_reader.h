#pragma once

#include "readers/reader.h"

namespace ulvek {

// EPUB books, packed or as folders, whatever their name (the dispatcher has typed them): the
// book's metadata (Spotlight attributes) and its text as "kMDItemTextContent".
const Reader& epubReader();

}  // namespace ulvek
