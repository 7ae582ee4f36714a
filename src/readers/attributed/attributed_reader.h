#pragma once

#include <string_view>

#include "readers/reader.h"

namespace ulvek {

// Word-processor documents: RTF, RTFD, Word, Office Open XML, OpenDocument text and Word 2003
// XML, and anything else as plain text. The format is chosen by the content first, the name's
// extension second; the attributes say which it was under "DocumentType" (kPlainTextDocumentType
// when the reader fell back to plain text).
const Reader& attributedDocumentReader();

// One format the reader knows: its document type, whether bytes (with the source's lower-case
// extension) look like it, how to read it, and what a document of it that could not be read
// becomes: plain text (Word files, which the dispatcher then hands to the importers) or nothing
// (containers, whose bytes would be garbage).
struct AttributedFormat {
  std::u16string_view documentType;
  bool (*looksLike)(Bytes bytes, std::string_view extension);
  std::optional<ReaderOutput> (*read)(const ReaderSource& source);
  bool plainTextWhenUnread;
};

}  // namespace ulvek
