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
// | reader                     | route                                  | attributes answered |
// |----------------------------|----------------------------------------|------------------------------|
// | importerHost()             | e-mail, images, chats, AppleScript and | Spotlight attributes;
// text   | |                            | files no reader knows                  | under
// "kMDItemTextContent"   | | pdfReader()                | PDF, PDF bundles, PostScript files     |
// Spotlight attributes, as the | |                            | | importer host answers them   | |
// webArchiveReader()         | web archives                           | kBaseURLAttribute, | | | |
// kHTMLSourceAttribute         | | textBundleReader()         | text bundles and text packs | none
// | | wordPerfectReader()        | WordPerfect documents                  | none | |
// attributedDocumentReader() | RTF, RTFD, Word, OpenDocument and the  | document attributes with |
// |                            | other attributed-string formats        | kDocumentTypeAttribute |
// | textClippingReader()       | text clippings                         | kDocumentTypeAttribute |
// | addressCardReader()        | address cards (vCard)                  | Spotlight attributes;
// text   | |                            |                                        | under
// "kMDItemTextContent"   |
const Reader& importerHost();
const Reader& pdfReader();
const Reader& webArchiveReader();
const Reader& textBundleReader();
const Reader& wordPerfectReader();
const Reader& attributedDocumentReader();
const Reader& textClippingReader();
const Reader& addressCardReader();

// Spotlight attribute that carries a document's text.
inline constexpr std::string_view kTextContentAttribute = "kMDItemTextContent";

// Web archives: the address the main resource was loaded from, and its HTML source.
inline constexpr std::string_view kBaseURLAttribute = "BaseURL";
inline constexpr std::string_view kHTMLSourceAttribute = "HTMLSource";

// Attributed documents: the format the reader recognised. A reader that fell back to reading the
// file as plain text reports kPlainTextDocumentType.
inline constexpr std::string_view kDocumentTypeAttribute = "DocumentType";
inline constexpr std::u16string_view kPlainTextDocumentType = u"NSPlainText";
inline constexpr std::u16string_view kRTFTextDocumentType = u"NSRTF";
inline constexpr std::u16string_view kRTFDTextDocumentType = u"NSRTFD";

}  // namespace ulvek
