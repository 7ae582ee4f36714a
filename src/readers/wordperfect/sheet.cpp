#include "readers/wordperfect/sheet.h"

#include <array>

#include "metadata/metadata_store.h"
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

char16_t lower(char16_t c) { return (c >= u'A' && c <= u'Z') ? c - u'A' + u'a' : c; }

bool equalsIgnoringCase(TextView a, TextView b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (lower(a[i]) != lower(b[i])) return false;
  return true;
}

bool isOneOf(OptionalText extension, std::initializer_list<TextView> names) {
  if (!extension) return false;
  for (TextView name : names)
    if (equalsIgnoringCase(*extension, name)) return true;
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

char16_t detectSeparator(TextView text, bool quoted) {
  std::size_t tabs = 0, commas = 0, semicolons = 0;
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
    if (c == u'\t') ++tabs;
    if (c == u',') ++commas;
    if (c == u';') ++semicolons;
  }
  if (tabs > commas && tabs > semicolons) return u'\t';
  if (commas > semicolons) return u',';
  return u';';
}

// Fields are slices of the text; a field's quotes and doubled quotes are undone when it ends.
class SheetScanner {
 public:
  SheetScanner(TextView text, bool quoted, std::size_t maxRows)
      : text_(text),
        quoted_(quoted),
        maxRows_(maxRows),
        separator_(detectSeparator(text, quoted)) {}

  Sheet scan() {
    const char16_t* units = text_.data();
    const std::size_t size = text_.size();
    std::size_t i = 0;
    while (i < size) {
      char16_t c = units[i];
      if (quoted_ && c == u'"' && i == fieldStart_) {
        i = quotedPart(i + 1);
        continue;
      }
      if (c == separator_) {
        endField(i);
        fieldStart_ = i + 1;
      } else if (isTerminator(c)) {
        if (i > fieldStart_) endField(i);
        fieldStart_ = i + 1;
        if (endRow()) return std::move(rows_);
      }
      ++i;
    }
    if (size > fieldStart_) endField(size);
    endRow();
    return std::move(rows_);
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
    TextString field;
    if (escaped_) {
      field.reserve(raw.size());
      for (std::size_t i = 0; i < raw.size(); ++i) {
        field.push_back(raw[i]);
        if (raw[i] == u'"' && i + 1 < raw.size() && raw[i + 1] == u'"') ++i;
      }
    } else {
      field.assign(raw);
    }
    escaped_ = false;
    row_.push_back(std::move(field));
  }

  // Answers YES when the row limit is reached.
  bool endRow() {
    if (row_.empty()) return false;
    columns_ = std::max(columns_, row_.size());
    if (!row_.front().empty()) sawFirstField_ = true;
    bool kept = false;
    for (const TextString& field : row_) kept = kept || !field.empty();
    if (kept) rows_.push_back(std::move(row_));
    row_.clear();
    return rows_.size() >= maxRows_;
  }

  TextView text_;
  bool quoted_;
  std::size_t maxRows_;
  char16_t separator_;
  std::size_t fieldStart_ = 0;
  bool escaped_ = false;
  SheetRow row_;
  Sheet rows_;
  std::size_t columns_ = 0;
  bool sawFirstField_ = false;
};

}  // namespace

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
  SheetScanner scanner(text, quoted, maxRows);
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
  std::optional<TextString> text = stringWithContentsOfFile(path, encoding);
  if (!text) return std::nullopt;
  switch (format) {
    case SheetFormat::BibTeX: {
      std::vector<TextString> keys;
      std::vector<BibTeXEntry> entries = BibTeXEntriesNamed(*text, std::nullopt, &keys);
      Sheet rows{SheetRow(keys.begin(), keys.end())};
      for (const BibTeXEntry& entry : entries) {
        SheetRow row;
        for (const TextString& key : keys) {
          auto found = entry.find(key);
          row.push_back(found == entry.end() ? TextString() : found->second);
        }
        rows.push_back(std::move(row));
      }
      if (columns) *columns = keys.size();
      if (definition) *definition = true;
      return rows;
    }
    case SheetFormat::ID2XF: {
      Sheet rows = valuesSeparatedByTab(*text, true, false, maxRows, columns);
      if (definition) *definition = true;
      return rows;
    }
    default: {
      Sheet rows = valuesSeparatedByTab(*text, format == SheetFormat::TabSeparated, true, maxRows,
                                        columns, definition);
      if (definition && !*definition) {
        std::optional<std::set<std::string>> names =
            OVMetaDataStore::metaDataKeysAtPath(path, true);
        if (names && names->count(std::string(kHeaderAttribute))) *definition = true;
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
