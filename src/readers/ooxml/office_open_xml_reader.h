#pragma once

#include <string_view>

#include "readers/reader.h"

namespace ulvek {

// Word documents in Office Open XML (DOCX, DOTX, DOCM, DOTM): the body in document order, then
// footnotes and endnotes; headers and footers are left out. The attributes come from
// docProps/core.xml. DocumentType "NSOfficeOpenXML".
bool looksLikeOfficeOpenXML(Bytes bytes, std::string_view extension);
std::optional<ReaderOutput> readOfficeOpenXML(const ReaderSource& source);

// Word 2003 XML ("WordprocessingML" in one file). DocumentType "NSWordML".
bool looksLikeWordML(Bytes bytes, std::string_view extension);
std::optional<ReaderOutput> readWordML(const ReaderSource& source);

}  // namespace ulvek
