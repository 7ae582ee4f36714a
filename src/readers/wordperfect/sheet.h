#pragma once

// Delimited text (CSV, TSV and relatives), BibTeX bibliographies and ID2XF files as rows of
// fields, and the writer of one double-quoted field.

#include <cstddef>
#include <cstdint>
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

// Rows of fields. A sheet of a hundred megabytes is millions of small fields, which as strings
// of their own would cost more than reading them: fields are slices of the sheet's own text, and
// only fields whose doubled quotes were undone are copied.
class Sheet {
 public:
  // Texts this long and longer are not read as sheets (offsets are 31 bits).
  static constexpr std::size_t kMaxUnits = std::size_t{1} << 31;

  Sheet() = default;
  explicit Sheet(TextString text) : text_(std::move(text)) {}

  std::size_t size() const { return rowEnds_.size(); }
  bool empty() const { return rowEnds_.empty(); }
  std::size_t fieldCount(std::size_t row) const { return rowEnds_[row] - rowStart(row); }
  TextView field(std::size_t row, std::size_t column) const;
  SheetRow row(std::size_t index) const;
  const TextString& text() const { return text_; }

  // Building: fields are added to the open row, which `endRow` closes or `dropOpenRow` drops.
  void reserveFields(std::size_t count) { fields_.reserve(count); }
  void addSlice(std::size_t start, std::size_t end);  // units of the sheet's text
  void addCopy(TextView units);
  // Adds the units with every doubled double quote made single.
  void addCopyUndoublingQuotes(TextView units);
  std::size_t openFieldCount() const { return fields_.size() - rowStart(size()); }
  void endRow() { rowEnds_.push_back(static_cast<std::uint32_t>(fields_.size())); }
  void dropOpenRow() { fields_.resize(rowStart(size())); }
  void appendRow(const SheetRow& row);

 private:
  static constexpr std::uint32_t kCopied = 0x80000000u;  // the slice is in copies_
  struct Slice {
    std::uint32_t start;
    std::uint32_t end;
  };
  std::size_t rowStart(std::size_t row) const { return row == 0 ? 0 : rowEnds_[row - 1]; }

  TextString text_;
  TextString copies_;
  std::vector<Slice> fields_;
  std::vector<std::uint32_t> rowEnds_;  // index in fields_ after each row
};

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
// The same on a text the sheet takes over, which spares a copy.
Sheet valuesSeparatedByTab(TextString&& text, bool tab, bool quoted, std::size_t maxRows,
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
