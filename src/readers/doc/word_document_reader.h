#pragma once

#include <string_view>

#include "readers/reader.h"

namespace ulvek {

// Word 97–2003 documents (DOC, DOT): the text of the main document, then footnotes, endnotes and
// text boxes (see readWordDocumentText), and the summary information (title, subject, author,
// keywords, comment, creation and modification times) as document attributes. DocumentType
// "NSDocFormat". Word 6 and 95 documents, encrypted ones and containers without a readable
// "WordDocument" stream answer nothing.
bool looksLikeWordDocument(Bytes bytes, std::string_view extension);
std::optional<ReaderOutput> readWordDocument(const ReaderSource& source);

}  // namespace ulvek
