#pragma once

#include "readers/reader.h"

namespace ulvek {

// WordPerfect documents: the text after a "{WP}" mark, else the text of the 4.2, 5.x or 6.x
// document's function codes.
const Reader& wordPerfectReader();

}  // namespace ulvek
