#pragma once

#include "readers/reader.h"

namespace ulvek {

// Text clippings: classic ones keep their text in the resource fork ('RTF ', then 'utxt' in
// UTF-16 big-endian, then 'TEXT' in Mac Roman; a flattened 'RTFD' first where its RTF can be
// found), newer ones in a property list in the data fork ("UTI-Data": RTF, UTF-16 or UTF-8 text).
// DocumentType "NSRTF" for RTF, "NSPlainText" for plain text.
const Reader& textClippingReader();

}  // namespace ulvek
