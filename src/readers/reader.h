#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/property_value.h"
#include "base/text_string.h"

namespace ulvek {

// What a reader made of one document: its plain text and its attributes, named in the reader's
// own vocabulary (Spotlight attribute names, document attribute names, the keys below). A reader
// knows nothing of results, D-Bus or JSON; the dispatcher maps what it answers.
struct ReaderOutput {
  std::optional<TextString> text;
  PropertyDictionary attributes;
};

// The one shape of every reader the dispatcher routes to. Readers never report errors: a file
// they cannot read answers nothing. Readers that decode text detect the encoding themselves.
class Reader {
 public:
  virtual ~Reader() = default;
  virtual std::optional<ReaderOutput> read(const std::string& path) const = 0;
};

// The reader of each route whose format family lands later. Until it does, each answers nothing,
// exactly like a reader that failed, so its route stores no "Text". A format family provides its
// reader by defining the function below in its own source file and deleting the placeholder from
// reader.cpp.
//
//   importerHost()              e-mail, images, chats, AppleScript and files no reader knows;
//                               answers Spotlight attributes, the text as kTextContentAttribute
//   pdfReader()                 PDF, PDF bundles and PostScript files; Spotlight attributes, as
//                               the importer host answers them
//   webArchiveReader()          web archives; the searchable text, kBaseURLAttribute and
//                               kHTMLSourceAttribute
//   textBundleReader()          text bundles and text packs; text only
//   wordPerfectReader()         WordPerfect documents; text only
//   attributedDocumentReader()  RTF, RTFD, Word, OpenDocument and the other attributed-string
//                               formats; text and DocumentAttribute values
//   textClippingReader()        text clippings; text and DocumentAttribute::DocumentType
//   addressCardReader()         address cards (vCard); Spotlight attributes, the text (one line
//                               per field) as kTextContentAttribute
const Reader& importerHost();
const Reader& pdfReader();
const Reader& webArchiveReader();
const Reader& textBundleReader();
const Reader& wordPerfectReader();
const Reader& attributedDocumentReader();
const Reader& textClippingReader();
const Reader& addressCardReader();

// The routes above, for the dispatcher's one lookup.
enum class ReaderRoute {
  ImporterHost,
  PDF,
  WebArchive,
  TextBundle,
  WordPerfect,
  AttributedDocument,
  TextClipping,
  AddressCard,
};

// The reader of a route: its function above, unless a stand-in is in place.
const Reader& readerFor(ReaderRoute route);

// Puts a stand-in reader in place of a route's reader while alive, so tests can reach the paths
// that only a reader which answers (or throws) opens. Not for concurrent use.
class ScopedReaderStandIn {
 public:
  ScopedReaderStandIn(ReaderRoute route, const Reader& standIn);
  ~ScopedReaderStandIn();
  ScopedReaderStandIn(const ScopedReaderStandIn&) = delete;
  ScopedReaderStandIn& operator=(const ScopedReaderStandIn&) = delete;

 private:
  ReaderRoute route_;
  const Reader* previous_;
};

// Spotlight attribute that carries a document's text.
inline constexpr std::string_view kTextContentAttribute = "kMDItemTextContent";

// Web archives: the address the main resource was loaded from, and its HTML source.
inline constexpr std::string_view kBaseURLAttribute = "BaseURL";
inline constexpr std::string_view kHTMLSourceAttribute = "HTMLSource";

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

}  // namespace ulvek
