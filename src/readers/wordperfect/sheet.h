#pragma once

// Delimited text (CSV, TSV and relatives), BibTeX bibliographies and ID2XF files as rows of
// fields, and the writer of one double-quoted field.

#include <cstddef>
#include <limits>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/text_string.h"
#include "metadata/file_types.h"
#include "text/encodings.h"

namespace ulvek {

enum class SheetFormat : unsigned {
  None = 0,
  CommaSeparated = 1,
  TabSeparated = 2,
  ID2XF = 3,
  BibTeX = 4
};

using SheetRow = std::vector<TextString>;
using Sheet = std::vector<SheetRow>;

inline constexpr std::size_t kNoRowLimit = std::numeric_limits<std::size_t>::max();

bool isTabSeparatedSheetExtension(OptionalText extension);
bool isCommaSeparatedSheetExtension(OptionalText extension);
bool isSheetFile(const std::string& path);
bool isTabSeparatedSheetFile(const std::string& path);
bool isCommaSeparatedSheetFile(const std::string& path);
bool isFormFile(const std::string& path);
SheetFormat sheetFormatOfFile(const std::string& path);
std::span<const TextView> sheetFileTypes();
std::span<const TextView> tabSeparatedSheetFileTypes();
std::span<const TextView> commaSeparatedSheetFileTypes();
std::span<const TextView> formFileTypes();

// Rows of delimited text. The separator is detected (tab, comma or semicolon, whichever is
// counted most); `tab` is not looked at. With `quoted`, a double quote opening a field quotes
// separators and line ends, and a doubled one stands for one. Rows of empty fields are dropped
// but count for `numberOfColumns`; `definition` is YES when no row has a non-empty first field.
Sheet valuesSeparatedByTab(TextView text, bool tab, bool quoted, std::size_t maxRows,
                           std::size_t* numberOfColumns = nullptr, bool* definition = nullptr);

// The file as rows: BibTeX entries under a first row of their keys, ID2XF and delimited text as
// above. Nothing for files of no sheet format or that cannot be read in `encoding`.
std::optional<Sheet> sheetWithContentsOfFile(const std::string& path, StringEncoding encoding,
                                             std::size_t maxRows, bool* definition = nullptr,
                                             std::size_t* columns = nullptr);

// A BibTeX entry: field name (as written) → cleaned value; the citation key under "@".
using BibTeXEntry = std::map<TextString, TextString, std::less<>>;

// Entries in text order, of one type (ignoring case) or of every type; the field names in the
// order first seen through `keys`. "@string" entries define macros for later values.
std::vector<BibTeXEntry> BibTeXEntriesNamed(TextView text, std::optional<TextView> type,
                                            std::vector<TextString>* keys = nullptr);

// Appends "\"field\";" (separator) or "\"field\"\n", double quotes doubled; a missing or empty
// field appends "\"\";" or "\"\"\n".
void appendDoubleQuotedField(TextString& text, std::optional<TextView> field, bool separator);

}  // namespace ulvek
