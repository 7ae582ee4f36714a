#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/property_value.h"
#include "base/text_string.h"
#include "platform/file_bytes.h"
#include "text/html_meta.h"

namespace ulvek {

// Whose conventions a reader's properties follow. The mapping into the result differs only
// where the conventions do: placeholders and subject-as-title for importers, subject-else-comment
// and template dates for word processors, meta-name preferences for web pages.
enum class Convention {
  Spotlight,           // importers and the readers that answer as one
  AttributedDocument,  // word-processor documents and text clippings
  PDFDocument,         // a PDF's document information
  HTMLPage,            // a saved web page: its title, meta tags and base address
};

using TextList = std::vector<TextString>;

// What a reader made of one document: its plain text and its typed properties. A property
// that is absent was not in the document; an empty one was, and reaches the result as such.
struct ReaderOutput {
  Convention convention = Convention::Spotlight;
  std::optional<TextString> text;  // in reading order
  // Where the text came from when not from the document's own text: "ocr" (recognised in
  // pictures of its pages), "mixed" (some pages recognised).
  std::optional<TextString> textSource;

  std::optional<TextString> title;
  std::optional<TextString> subject;
  std::optional<TextString> headline;
  std::optional<TextString> description;
  std::optional<TextString> comment;        // the document's own comment field
  std::optional<TextString> finderComment;  // the comment a file browser shows
  std::optional<TextString> copyright;
  std::optional<TextString> album;
  std::optional<TextString> composer;
  // The address the document names; a web page's is its base address, the item's own.
  std::optional<TextString> url;
  std::optional<TextList> authors;
  std::optional<TextList> keywords;
  std::optional<TextList> authorAddresses;
  std::optional<TextList> recipients;
  std::optional<TextList> recipientAddresses;
  std::optional<TextList> emailAddresses;
  std::optional<TextList> instantMessageAddresses;
  std::optional<TextList> phoneNumbers;
  std::optional<Date> creation;
  std::optional<Date> modification;
  // A web page's meta tags, lower-cased name to content.
  HtmlMetaAttributes htmlMeta;
  // The format a word-processor reader recognised, one of the constants below;
  // kPlainTextDocumentType when it fell back to plain text, because the dispatcher hands such
  // Word files to the importers instead.
  std::u16string_view documentType;

  bool operator==(const ReaderOutput&) const = default;
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

inline constexpr std::u16string_view kPlainTextDocumentType = u"NSPlainText";
inline constexpr std::u16string_view kRTFTextDocumentType = u"NSRTF";
inline constexpr std::u16string_view kRTFDTextDocumentType = u"NSRTFD";
inline constexpr std::u16string_view kDocFormatTextDocumentType = u"NSDocFormat";
inline constexpr std::u16string_view kOfficeOpenXMLTextDocumentType = u"NSOfficeOpenXML";
inline constexpr std::u16string_view kOpenDocumentTextDocumentType = u"NSOpenDocument";
inline constexpr std::u16string_view kWordMLTextDocumentType = u"NSWordML";

}  // namespace ulvek
