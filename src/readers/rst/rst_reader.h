#pragma once

#include "readers/reader.h"

namespace ulvek {

// reStructuredText: the text as written, with the title, authors, date and keywords of its
// header. Registered under the name "rst" for the format registry's reader column.
const Reader& reStructuredTextReader();

}  // namespace ulvek
