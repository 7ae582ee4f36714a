#pragma once

#include <string_view>

#include "readers/reader.h"

namespace ulvek {

// OpenDocument text (ODT, OTT, and the older SXW and STW), packed or as one flat XML file
// (FODT): content.xml in order with notes after the body, meta.xml for the attributes.
// DocumentType "NSOpenDocument".
bool looksLikeOpenDocumentText(Bytes bytes, std::string_view extension);
std::optional<ReaderOutput> readOpenDocumentText(const ReaderSource& source);

}  // namespace ulvek
