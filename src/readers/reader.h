#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/property_value.h"
#include "base/text_string.h"
#include "platform/file_bytes.h"

namespace ulvek {

// Which vocabulary a reader's attributes use; the dispatcher maps each into the result its own
// way, so readers never touch the result.
enum class Vocabulary {
  Spotlight,           // "kMDItemTitle", "kMDItemAuthors", …; text also as "kMDItemTextContent"
  AttributedDocument,  // "Title", "Author", "CreationTime", …, and "DocumentType"
  PDFDocument,         // "Title", "Subject", "Author", "Keywords", "CreationDate", "ModDate"
  HTMLMeta,            // meta names to contents, plus kHTMLTitleAttribute and kBaseURLAttribute
};

// What a reader made of one document: its plain text and its attributes.
struct ReaderOutput {
  std::optional<TextString> text;
  PropertyDictionary attributes;
  Vocabulary vocabulary = Vocabulary::Spotlight;
};

// What a reader reads: a file or folder named by its path, or bytes in memory with the name
// they came by (an address's last component, an archive member's name), whose extension may
// help the reader choose a format.
class ReaderSource {
 public:
  static ReaderSource file(std::string path);
  static ReaderSource data(Bytes bytes, std::string name = {});

  bool isFile() const { return !path_.empty(); }
  // The file or folder; empty for data.
  const std::string& path() const { return path_; }
  // The last path component, or the name the data came by.
  std::string_view name() const;

  // The data, or the regular file's contents, loaded on first use and kept; nothing for
  // folders, FIFOs, devices and files that cannot be read or are larger than `limit`.
  std::optional<Bytes> bytes(std::uint64_t limit = FileBytes::kNoLimit) const;

 private:
  std::string path_;
  std::string name_;
  Bytes data_;
  mutable std::optional<FileBytes> loaded_;
  mutable bool triedLoading_ = false;
};

// The one shape of every reader the dispatcher routes to. Readers never report errors: a
// document they cannot read answers nothing (with a log line when the input was damaged), and
// readers that decode text detect the encoding themselves.
class Reader {
 public:
  virtual ~Reader() = default;
  // Short name for log lines and `ulvekbot classify`, e.g. "rtf".
  virtual std::string_view name() const = 0;
  virtual std::optional<ReaderOutput> read(const ReaderSource& source) const = 0;
  // Whether the reader knows the kind of file at `path`, without reading it. Only the importer
  // host is asked (the service's supportsFile question).
  virtual bool supportsFile(const std::string& path) const { return false; }
};

// Spotlight attribute that carries a document's text.
inline constexpr std::string_view kTextContentAttribute = "kMDItemTextContent";

// HTML pages read from containers (web archives): the address the page was loaded from and the
// page's own title (normalizedHtmlTitle of its source).
inline constexpr std::string_view kBaseURLAttribute = "BaseURL";
inline constexpr std::string_view kHTMLTitleAttribute = "HTMLTitle";

// Document attributes of attributed documents and text clippings. "DocumentType" names the format
// the reader recognised; a reader that fell back to reading the file as plain text reports
// kPlainTextDocumentType, because the dispatcher hands such Word files to the importers instead.
namespace DocumentAttribute {
inline constexpr std::string_view Title = "Title";
inline constexpr std::string_view Subject = "Subject";
inline constexpr std::string_view Author = "Author";
inline constexpr std::string_view Keywords = "Keywords";
inline constexpr std::string_view Comment = "Comment";
inline constexpr std::string_view Copyright = "Copyright";
inline constexpr std::string_view CreationTime = "CreationTime";
inline constexpr std::string_view ModificationTime = "ModificationTime";
inline constexpr std::string_view DocumentType = "DocumentType";
}  // namespace DocumentAttribute
inline constexpr std::u16string_view kPlainTextDocumentType = u"NSPlainText";
inline constexpr std::u16string_view kRTFTextDocumentType = u"NSRTF";
inline constexpr std::u16string_view kRTFDTextDocumentType = u"NSRTFD";
inline constexpr std::u16string_view kDocFormatTextDocumentType = u"NSDocFormat";
inline constexpr std::u16string_view kOfficeOpenXMLTextDocumentType = u"NSOfficeOpenXML";
inline constexpr std::u16string_view kOpenDocumentTextDocumentType = u"NSOpenDocument";
inline constexpr std::u16string_view kWordMLTextDocumentType = u"NSWordML";

// PDF document attributes.
namespace PDFDocumentAttribute {
inline constexpr std::string_view Title = "Title";
inline constexpr std::string_view Subject = "Subject";
inline constexpr std::string_view Author = "Author";
inline constexpr std::string_view Keywords = "Keywords";
inline constexpr std::string_view CreationDate = "CreationDate";
inline constexpr std::string_view ModDate = "ModDate";
}  // namespace PDFDocumentAttribute

}  // namespace ulvek
