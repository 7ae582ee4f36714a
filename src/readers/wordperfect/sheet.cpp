#include "readers/wordperfect/sheet.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/deadline.h"
#include "base/log.h"
#include "metadata/metadata_store.h"
#include "platform/file_bytes.h"
#include "text/character_tables.h"
#include "text/text_decoding.h"

namespace ulvek {

namespace {

constexpr std::array<TextView, 12> kSheetFileTypes = {u"CSV", u"csv", u"TSV",   u"tsv",
                                                      u"TDF", u"tdf", u"TAB",   u"tab",
                                                      u"bib", u"BIB", u"id2xf", u"ID2XF"};
constexpr std::array<TextView, 6> kTabSeparatedFileTypes = {u"TSV", u"tsv", u"TDF",
                                                            u"tdf", u"TAB", u"tab"};
constexpr std::array<TextView, 2> kCommaSeparatedFileTypes = {u"CSV", u"csv"};
constexpr std::array<TextView, 2> kFormFileTypes = {u"vcf", u"VCF"};
constexpr std::string_view kHeaderAttribute = "com.ulvek-technologies.tsv-header";

bool isOneOf(OptionalText extension, std::initializer_list<TextView> names) {
  if (!extension) return false;
  for (TextView name : names)
    if (isEqualToStringIgnoringAsciiCase(*extension, name)) return true;
  return false;
}

bool isTerminator(char16_t c) {
  switch (c) {
    case 0x0003:
    case 0x000A:
    case 0x000C:
    case 0x000D:
    case 0x2028:
    case 0x2029:
    case 0xFEFF:
    case 0xFFFC:
      return true;
    default:
      return false;
  }
}

struct SeparatorCount {
  char16_t separator;
  std::size_t fields;  // at most this many fields: separators and line ends, plus one
};

SeparatorCount detectSeparator(TextView text, bool quoted) {
  std::size_t tabs = 0, commas = 0, semicolons = 0, lines = 0;
  bool inside = false;
  const char16_t* units = text.data();
  const std::size_t size = text.size();
  for (std::size_t i = 0; i < size; ++i) {
    char16_t c = units[i];
    if (quoted && c == u'"') {
      if (inside && i + 1 < size && units[i + 1] == u'"') {
        ++i;
      } else {
        inside = !inside;
      }
      continue;
    }
    if (inside) continue;
    if (c == u'\n') ++lines;
    if (c == u'\t') ++tabs;
    if (c == u',') ++commas;
    if (c == u';') ++semicolons;
  }
  if (tabs > commas && tabs > semicolons) return {u'\t', tabs + lines + 1};
  if (commas > semicolons) return {u',', commas + lines + 1};
  return {u';', semicolons + lines + 1};
}

bool isWideTerminator(char16_t c) {
  return c == 0x2028 || c == 0x2029 || c == 0xFEFF || c == 0xFFFC;
}

// One pass over the units; fields are copied into the sheet's buffer when they end, with their
// quotes and doubled quotes undone.
class SheetScanner {
 public:
  SheetScanner(TextString&& text, bool quoted, std::size_t maxRows)
      : sheet_(std::move(text)), text_(sheet_.text()), quoted_(quoted), maxRows_(maxRows) {
    SeparatorCount count = detectSeparator(text_, quoted);
    separator_ = count.separator;
    sheet_.reserveFields(std::min(count.fields, text_.size() + 1));
    for (char16_t c : {char16_t(0x03), char16_t(0x0A), char16_t(0x0C), char16_t(0x0D), separator_})
      special_[c] = true;
    if (quoted_) special_[u'"'] = true;
  }

  Sheet scan() {
    const char16_t* units = text_.data();
    const std::size_t size = text_.size();
    for (std::size_t i = 0; i < size; ++i) {
      char16_t c = units[i];
      if (c < 128 ? !special_[c] : !isWideTerminator(c)) continue;
      // Out of time: the rows read so far, without the one half read.
      if (readingTimeIsUp()) {
        sheet_.dropOpenRow();
        return std::move(sheet_);
      }
      if (c == u'"') {
        if (quoted_ && i == fieldStart_) i = quotedPart(i + 1) - 1;
      } else if (c == separator_) {
        endField(i);
        fieldStart_ = i + 1;
      } else if (isTerminator(c)) {
        if (i > fieldStart_) endField(i);
        fieldStart_ = i + 1;
        if (endRow()) return std::move(sheet_);
      }
    }
    if (size > fieldStart_) endField(size);
    endRow();
    return std::move(sheet_);
  }

  std::size_t columns() const { return columns_; }
  bool definition() const { return !sawFirstField_; }

 private:
  // Inside quotes from `i`; answers where the unquoted scan goes on.
  std::size_t quotedPart(std::size_t i) {
    const char16_t* units = text_.data();
    const std::size_t size = text_.size();
    for (; i < size; ++i) {
      if (units[i] != u'"') continue;
      bool pair = i + 1 < size && units[i + 1] == u'"';
      bool lastTwo = i + 2 == size;
      bool beforeSeparator = i + 2 < size && units[i + 2] == separator_;
      if (pair && !lastTwo && !beforeSeparator) {
        escaped_ = true;
        ++i;
        continue;
      }
      return i + 1;
    }
    return size;
  }

  void endField(std::size_t end) {
    TextView raw = text_.substr(fieldStart_, end - fieldStart_);
    if (quoted_ && raw.size() >= 2 && raw.front() == u'"' && raw.back() == u'"')
      raw = raw.substr(1, raw.size() - 2);
    if (escaped_) {
      sheet_.addCopyUndoublingQuotes(raw);
    } else {
      std::size_t start = static_cast<std::size_t>(raw.data() - text_.data());
      sheet_.addSlice(start, start + raw.size());
    }
    if (sheet_.openFieldCount() == 1) firstFieldEmpty_ = raw.empty();
    rowHasText_ = rowHasText_ || !raw.empty();
    escaped_ = false;
  }

  // Answers YES when the row limit is reached.
  bool endRow() {
    std::size_t fields = sheet_.openFieldCount();
    if (fields == 0) return false;
    columns_ = std::max(columns_, fields);
    if (!firstFieldEmpty_) sawFirstField_ = true;
    bool kept = std::exchange(rowHasText_, false);
    if (!kept) {
      sheet_.dropOpenRow();
      return false;
    }
    sheet_.endRow();
    return sheet_.size() >= maxRows_;
  }

  Sheet sheet_;
  TextView text_;
  bool quoted_;
  std::size_t maxRows_;
  char16_t separator_ = u';';
  std::array<bool, 128> special_{};
  std::size_t fieldStart_ = 0;
  bool escaped_ = false;
  bool rowHasText_ = false;
  bool firstFieldEmpty_ = false;
  std::size_t columns_ = 0;
  bool sawFirstField_ = false;
};

// Sheets are large and mostly UTF-8: bytes that are valid UTF-8 are converted in one call when
// UTF-8 is asked for or the encoding is to be detected; anything else takes the general decoding.
std::optional<TextString> sheetText(const std::string& path, StringEncoding encoding) {
  bool detect = encoding == kDetectEncoding || encoding == 0;
  if (detect || encoding == kUTF8StringEncoding) {
    std::optional<FileBytes> bytes = FileBytes::read(path).take();
    if (!bytes) return std::nullopt;
    TextString text;
    std::string_view chars = bytes->chars();
    if (chars.size() >= 3 && chars.substr(0, 3) == "\xEF\xBB\xBF") chars.remove_prefix(3);
    if (chars.size() < (1u << 31) && fromUtf8Strict(chars, text)) return text;
    if (!detect) return std::nullopt;
  }
  return stringWithContentsOfFile(path, encoding);
}

}  // namespace

TextView Sheet::field(std::size_t row, std::size_t column) const {
  Slice slice = fields_[rowStart(row) + column];
  const TextString& units = (slice.start & kCopied) ? copies_ : text_;
  std::size_t start = slice.start & ~kCopied;
  return TextView(units).substr(start, slice.end - start);
}

SheetRow Sheet::row(std::size_t index) const {
  SheetRow fields;
  fields.reserve(fieldCount(index));
  for (std::size_t column = 0; column < fieldCount(index); ++column)
    fields.emplace_back(field(index, column));
  return fields;
}

void Sheet::addSlice(std::size_t start, std::size_t end) {
  fields_.push_back({static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(end)});
}

void Sheet::addCopy(TextView units) {
  std::size_t start = copies_.size();
  copies_.append(units);
  fields_.push_back(
      {static_cast<std::uint32_t>(start) | kCopied, static_cast<std::uint32_t>(copies_.size())});
}

void Sheet::addCopyUndoublingQuotes(TextView units) {
  std::size_t start = copies_.size();
  for (std::size_t i = 0; i < units.size(); ++i) {
    copies_.push_back(units[i]);
    if (units[i] == u'"' && i + 1 < units.size() && units[i + 1] == u'"') ++i;
  }
  fields_.push_back(
      {static_cast<std::uint32_t>(start) | kCopied, static_cast<std::uint32_t>(copies_.size())});
}

void Sheet::appendRow(const SheetRow& row) {
  for (const TextString& field : row) addCopy(field);
  endRow();
}

bool isTabSeparatedSheetExtension(OptionalText extension) {
  return isOneOf(extension, {u"TAB", u"TSV", u"TDF"});
}

bool isCommaSeparatedSheetExtension(OptionalText extension) { return isOneOf(extension, {u"CSV"}); }

static bool testPath(const std::string& path, bool (*test)(OptionalText)) {
  TextString extension = pathExtension(path);
  return test(TextView(extension));
}

bool isSheetFile(const std::string& path) { return testPath(path, isSheetExtension); }
bool isTabSeparatedSheetFile(const std::string& path) {
  return testPath(path, isTabSeparatedSheetExtension);
}
bool isCommaSeparatedSheetFile(const std::string& path) {
  return testPath(path, isCommaSeparatedSheetExtension);
}
bool isFormFile(const std::string& path) { return testPath(path, isFormExtension); }

SheetFormat sheetFormatOfFile(const std::string& path) {
  TextString extension = pathExtension(path);
  OptionalText view = TextView(extension);
  if (isCommaSeparatedSheetExtension(view)) return SheetFormat::CommaSeparated;
  if (isTabSeparatedSheetExtension(view)) return SheetFormat::TabSeparated;
  if (isOneOf(view, {u"ID2XF"})) return SheetFormat::ID2XF;
  if (isOneOf(view, {u"BIB"})) return SheetFormat::BibTeX;
  return SheetFormat::None;
}

std::span<const TextView> sheetFileTypes() { return kSheetFileTypes; }
std::span<const TextView> tabSeparatedSheetFileTypes() { return kTabSeparatedFileTypes; }
std::span<const TextView> commaSeparatedSheetFileTypes() { return kCommaSeparatedFileTypes; }
std::span<const TextView> formFileTypes() { return kFormFileTypes; }

Sheet valuesSeparatedByTab(TextView text, bool tab, bool quoted, std::size_t maxRows,
                           std::size_t* numberOfColumns, bool* definition) {
  return valuesSeparatedByTab(TextString(text), tab, quoted, maxRows, numberOfColumns, definition);
}

Sheet valuesSeparatedByTab(TextString&& text, bool tab, bool quoted, std::size_t maxRows,
                           std::size_t* numberOfColumns, bool* definition) {
  if (text.size() >= Sheet::kMaxUnits) {
    logLine("Sheet too large to read: " + std::to_string(text.size()) + " units");
    if (numberOfColumns) *numberOfColumns = 0;
    if (definition) *definition = true;
    return Sheet();
  }
  SheetScanner scanner(std::move(text), quoted, maxRows);
  Sheet rows = scanner.scan();
  if (numberOfColumns) *numberOfColumns = scanner.columns();
  if (definition) *definition = scanner.definition();
  return rows;
}

std::optional<Sheet> sheetWithContentsOfFile(const std::string& path, StringEncoding encoding,
                                             std::size_t maxRows, bool* definition,
                                             std::size_t* columns) {
  if (definition) *definition = false;
  if (columns) *columns = 0;
  SheetFormat format = sheetFormatOfFile(path);
  if (format == SheetFormat::None) return std::nullopt;
  std::optional<TextString> text = sheetText(path, encoding);
  if (!text) return std::nullopt;
  switch (format) {
    case SheetFormat::BibTeX: {
      std::vector<TextString> keys;
      std::vector<BibTeXEntry> entries = BibTeXEntriesNamed(*text, std::nullopt, &keys);
      Sheet rows;
      rows.appendRow(SheetRow(keys.begin(), keys.end()));
      for (const BibTeXEntry& entry : entries) {
        SheetRow row;
        for (const TextString& key : keys) {
          auto found = entry.find(key);
          row.push_back(found == entry.end() ? TextString() : found->second);
        }
        rows.appendRow(row);
      }
      if (columns) *columns = keys.size();
      if (definition) *definition = true;
      return rows;
    }
    case SheetFormat::ID2XF: {
      Sheet rows = valuesSeparatedByTab(std::move(*text), true, false, maxRows, columns);
      if (definition) *definition = true;
      return rows;
    }
    default: {
      Sheet rows = valuesSeparatedByTab(std::move(*text), format == SheetFormat::TabSeparated, true,
                                        maxRows, columns, definition);
      if (definition && !*definition) {
        auto names = OVMetaDataStore::metaDataKeysAtPath(path, true).take();
        if (names && *names && (*names)->count(std::string(kHeaderAttribute))) *definition = true;
      }
      return rows;
    }
  }
}

void appendDoubleQuotedField(TextString& text, std::optional<TextView> field, bool separator) {
  text.push_back(u'"');
  if (field) {
    for (char16_t c : *field) {
      text.push_back(c);
      if (c == u'"') text.push_back(u'"');
    }
  }
  text.push_back(u'"');
  text.push_back(separator ? u';' : u'\n');
}

}  // namespace ulvek
