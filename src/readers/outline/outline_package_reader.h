#pragma once

#include "readers/reader.h"

namespace ulvek {

// OmniOutliner 3 packages: the text of the outline in contents.xml (plain or compressed), its
// styles, editor settings and print settings left out.
const Reader& outlinePackageReader();

}  // namespace ulvek
