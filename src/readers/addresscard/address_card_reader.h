#pragma once

#include "readers/reader.h"

namespace ulvek {

// Address cards (vCard files): the first card's fields as text, its e-mail addresses, phone
// numbers and home page.
const Reader& addressCardReader();

}  // namespace ulvek
