#pragma once

#include "readers/reader.h"

namespace ulvek {

// Text clippings: classic ones keep their text in the resource fork (a flattened 'RTFD' or
// 'rtfd', 'RTF ', 'utxt' in UTF-16 big-endian unless marked, 'TEXT' in Mac Roman; only the first
// of these the fork holds is read), newer ones in a property list in the data fork ("UTI-Data":
// RTF, UTF-16 or UTF-8 text), read when the fork holds no text. The answer is the text and its
// DocumentType ("NSRTFD", "NSRTF", "NSPlainText"), nothing else.
const Reader& textClippingReader();

}  // namespace ulvek
