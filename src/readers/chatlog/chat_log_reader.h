#pragma once

#include "readers/reader.h"

namespace ulvek {

// Chat log packages: the text of the one XML transcript they hold.
const Reader& chatLogReader();

}  // namespace ulvek
