#pragma once

#include "readers/reader.h"

namespace ulvek {

// EPUB books, packed or as folders, whatever their name (the dispatcher has typed them): the
// book's metadata (title, authors, description, keywords, copyright) and its text.
const Reader& epubReader();

}  // namespace ulvek
