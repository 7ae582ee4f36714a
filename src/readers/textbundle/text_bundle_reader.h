#pragma once

#include "readers/reader.h"

namespace ulvek {

// Text bundles and text packs: the text of the bundle's text file, encoding detected.
const Reader& textBundleReader();

}  // namespace ulvek
