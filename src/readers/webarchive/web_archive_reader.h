#pragma once

#include "readers/reader.h"

namespace ulvek {

// Web archives: the searchable text of the page and its frames, the main page's title, meta
// attributes and base URL, by the conventions of an HTML page.
const Reader& webArchiveReader();

}  // namespace ulvek
