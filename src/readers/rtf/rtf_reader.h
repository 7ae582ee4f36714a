#pragma once

#include <string_view>

#include "readers/reader.h"

namespace ulvek {

// Rich Text Format: the text a reader sees (fields by their results, tables as tab- and
// line-separated cells, no pictures, objects or tables of fonts and styles) and the \info group
// as document attributes. DocumentType "NSRTF".
bool looksLikeRTF(Bytes bytes, std::string_view extension);
std::optional<ReaderOutput> readRTF(const ReaderSource& source);

// RTFD: a folder holding TXT.rtf and its attachments, of which only the text is read.
// DocumentType "NSRTFD".
bool looksLikeRTFD(Bytes bytes, std::string_view extension);
std::optional<ReaderOutput> readRTFD(const ReaderSource& source);

// The RTF reading on bytes, for readers of formats that embed RTF.
std::optional<ReaderOutput> readRTFBytes(Bytes bytes);

}  // namespace ulvek
