#include <array>
#include <exception>
#include <fstream>
#include <optional>
#include <string>
#include <utility>

#include "base/log.h"
#include "base/property_list.h"
#include "import/file_types.h"
#include "import/import_result.h"
#include "import/mime_type_helper.h"
#include "metadata/file_size.h"
#include "metadata/internet_location.h"
#include "metadata/item_attributes.h"
#include "metadata/metadata_store.h"
#include "platform/content_types.h"
#include "platform/type_codes.h"
#include "readers/reader.h"
#include "text/encodings.h"
#include "text/entity_conversion.h"
#include "text/html_meta.h"
#include "text/html_to_text.h"
#include "text/markup_scanner.h"
#include "text/string_utilities.h"
#include "text/text_decoding.h"

namespace ulvek {

namespace {

// Plain text of this size and more is not read: such files are logs and dumps, not documents.
constexpr std::uint64_t kPlainTextSizeLimit = 4 * 1024 * 1024;
constexpr std::uint64_t kBytesPerMegabyte = 1024 * 1024;

constexpr std::string_view kOperation = "openFile:";
constexpr std::u16string_view kBundleNameKey = u"CFBundleName";

// How the text of a file is read once the classification (or the content type) has chosen.
enum class Route {
  Undecided,  // no test answered, or a reader gave up: the content type decides
  Done,       // a branch stored everything itself
  PDF,        // read outside the protected region
  Importer,
  HTML,
  PropertyList,
  XML,
  AddressCard,
  PlainText,
  AttributedString,
};

std::optional<PropertyDictionary> propertyListDictionaryOfFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  auto data = std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  std::optional<PropertyValue> list = propertyListFromBytes(data);
  if (!list || !list->isDictionary()) return std::nullopt;
  return std::move(*list->dictionary());
}

std::optional<TextString> stringAttribute(const PropertyDictionary& attributes,
                                          std::string_view key) {
  const PropertyValue* value = find(attributes, key);
  if (!value || !value->string()) return std::nullopt;
  return *value->string();
}

// One call of openFile: the values it gathers and the result it fills.
class FileImport {
 public:
  FileImport(MIMETypeHelper& helper, const std::string& path) : helper_(helper), path_(path) {}

  ImportResult run() {
    prepare();
    if (size_ != 0) {
      Route route = classifyProtected();
      if (route == Route::Undecided) route = routeForContent();
      follow(route);
    }
    complete();
    return std::move(result_);
  }

 private:
  void prepare() {
    extension_ = pathExtension(path_);
    type_ = HFSTypeOfFile(path_);
    size_ = fileSizeAtPath(path_);
    attributes_ = OVMetaDataStore::metaDataDictionaryAtPath(path_, false);
    std::optional<TextString> title = getItemTitleForFile(storedAttributes(), path_);
    address_ = getWhereFrom(storedAttributes());
    if (!title) title = lastPathComponent(path_);
    result_.putOrRemove(ImportKey::Title, PropertyValue(stringByTrimmingWhiteSpaces(*title)));
  }

  // Classification and the readers it calls first: a reader that throws is logged and the
  // content type decides instead (or the attributed-string route, if that reader had answered).
  Route classifyProtected() {
    try {
      return classify();
    } catch (const std::exception& exception) {
      logException(kOperation, MIMETypeHelper::kClassName, exception);
      return attributed_ ? Route::AttributedString : Route::Undecided;
    }
  }

  Route classify() {
    FileClassification found = classifyFile(
        extension(), type(), [this] { return getBoolValueForKey(ResourceKey::IsPackage, path_); });
    switch (found.fileClass) {
      case FileClass::InternetLocation:
        return readInternetLocation();
      case FileClass::PDF:
        return Route::PDF;
      case FileClass::WebArchive:
        return readWebArchive();
      case FileClass::TextBundle:
        return storeText(ReaderRoute::TextBundle);
      case FileClass::WordPerfect:
        return storeText(ReaderRoute::WordPerfect);
      case FileClass::AttributedDocument:
        return readAttributedDocument();
      case FileClass::TextClipping:
        return readTextClipping();
      case FileClass::Email:
      case FileClass::Image:
      case FileClass::Chat:
      case FileClass::AppleScript:
        return Route::Importer;
      case FileClass::HTML:
        return Route::HTML;
      case FileClass::PropertyList:
        return Route::PropertyList;
      case FileClass::XML:
        return Route::XML;
      case FileClass::Sheet:
      case FileClass::PlainText:
        return Route::PlainText;
      case FileClass::Form:
        return Route::AddressCard;
      case FileClass::None:
        return Route::Undecided;
    }
    return Route::Undecided;
  }

  // The file's address replaces the stored one, even when the file yields none.
  Route readInternetLocation() {
    std::optional<TextString> name;
    address_ = resolveInternetLocation(path_, &name);
    if (name && !name->empty()) result_.putOrRemove(ImportKey::Title, PropertyValue(*name));
    return Route::Done;
  }

  void readPDF() {
    std::optional<ReaderOutput> output = readerFor(ReaderRoute::PDF).read(path_);
    if (!output) return;
    MIMETypeHelper::copyMetaData(&output->attributes, result_);
    if (auto text = stringAttribute(output->attributes, kTextContentAttribute)) {
      result_.putIfPresent(ImportKey::Text, PropertyValue(fixedAndNormalizedString(*text)));
    }
  }

  Route readWebArchive() {
    std::optional<ReaderOutput> output = readerFor(ReaderRoute::WebArchive).read(path_);
    std::optional<TextString> text;
    if (output) {
      text = std::move(output->text);
      if (auto base = stringAttribute(output->attributes, kBaseURLAttribute)) address_ = base;
      if (auto source = stringAttribute(output->attributes, kHTMLSourceAttribute)) {
        TextString title = normalizedHtmlTitle(*source);
        if (!title.empty()) result_.putOrRemove(ImportKey::Title, PropertyValue(title));
        HtmlMetaAttributes meta = htmlMetaAttributesByConvertingEntitiesToCharacters(*source);
        MIMETypeHelper::copyHTMLMetaAttributes(&meta, result_);
      }
    }
    putText(std::move(text));
    return Route::Done;
  }

  Route storeText(ReaderRoute route) {
    std::optional<ReaderOutput> output = readerFor(route).read(path_);
    putText(output ? std::move(output->text) : std::nullopt);
    return Route::Done;
  }

  // A Word file that the reader could only read as plain text goes to the importers instead.
  Route readAttributedDocument() {
    attributed_ = readerFor(ReaderRoute::AttributedDocument).read(path_);
    if (attributed_ && attributed_->text) {
      const PropertyValue* documentType =
          find(attributed_->attributes, DocumentAttribute::DocumentType);
      bool readAsPlainText = documentType && documentType->string() &&
                             *documentType->string() == kPlainTextDocumentType;
      if (readAsPlainText && isWordExtension(extension(), type())) {
        attributed_.reset();
        return Route::Importer;
      }
    }
    return Route::AttributedString;
  }

  Route readTextClipping() {
    attributed_ = readerFor(ReaderRoute::TextClipping).read(path_);
    return Route::AttributedString;
  }

  Route routeForContent() {
    std::optional<std::string> contentType = typeOfFile(path_);
    switch (routeForContentType(contentType ? std::optional<std::string_view>(*contentType)
                                            : std::nullopt)) {
      case ContentTypeRoute::HTML:
        return Route::HTML;
      case ContentTypeRoute::PlainText:
        return Route::PlainText;
      case ContentTypeRoute::Importer:
        return Route::Importer;
    }
    return Route::Importer;
  }

  void follow(Route route) {
    switch (route) {
      case Route::Done:
        return;
      case Route::PDF:
        return readPDF();
      case Route::AttributedString:
        if (attributed_ && attributed_->text) {
          MIMETypeHelper::copyAttributedStringAttributes(&attributed_->attributes, result_);
          putText(std::move(attributed_->text));
          return;
        }
        return follow(routeForContent());
      case Route::Undecided:
        return follow(routeForContent());
      case Route::PlainText:
        return putText(readPlainText());
      case Route::HTML:
        return putText(readHTML());
      case Route::PropertyList:
        return putText(readPropertyList());
      case Route::XML:
        return putText(readXML());
      case Route::AddressCard:
        return putText(readAddressCard());
      case Route::Importer:
        return putText(readWithImporters());
    }
  }

  std::optional<TextString> readPlainText() {
    if (size_ >= kPlainTextSizeLimit) {
      logLine("Skipped: " + path_ + " (" + std::to_string(size_ / kBytesPerMegabyte) + " MB)");
      return std::nullopt;
    }
    return stringWithContentsOfFile(path_, kEncodingNotFound);
  }

  std::optional<TextString> markupSource() {
    return stringWithMarkupContentsOfFile(path_, kISOLatin1StringEncoding);
  }

  // The HTML title wins over a meta-data title here: it is written after the meta attributes.
  std::optional<TextString> readHTML() {
    std::optional<TextString> source = markupSource();
    if (!source) return std::nullopt;
    HtmlMetaAttributes meta = htmlMetaAttributesByConvertingEntitiesToCharacters(*source);
    MIMETypeHelper::copyHTMLMetaAttributes(&meta, result_);
    TextString title = normalizedHtmlTitle(*source);
    if (!title.empty()) result_.putOrRemove(ImportKey::Title, PropertyValue(std::move(title)));
    return stringByConvertingHtml2PlainTextNonUmlauted(*source, false, false, true, true);
  }

  std::optional<TextString> readPropertyList() {
    std::optional<TextString> source = markupSource();
    if (!source) return std::nullopt;
    TextString text = stringByConvertingStandardEntitiesToCharacters(stripTags(*source));
    if (!text.empty() && text.find(kBundleNameKey) != TextString::npos) {
      std::optional<PropertyValue> bundleName;
      if (auto list = propertyListDictionaryOfFile(path_)) {
        if (const PropertyValue* value = find(*list, "CFBundleName")) bundleName = *value;
      }
      result_.putOrRemove(ImportKey::Title, std::move(bundleName));
    }
    return text;
  }

  // XML keeps its markup; only references are converted.
  std::optional<TextString> readXML() {
    std::optional<TextString> source = markupSource();
    if (!source) return std::nullopt;
    return stringByConvertingEntitiesToCharacters(*source);
  }

  std::optional<TextString> readAddressCard() {
    std::optional<ReaderOutput> card = readerFor(ReaderRoute::AddressCard).read(path_);
    if (!card) return std::nullopt;
    MIMETypeHelper::copyMetaData(&card->attributes, result_);
    return stringAttribute(card->attributes, kTextContentAttribute);
  }

  std::optional<TextString> readWithImporters() {
    std::optional<ReaderOutput> found = readerFor(ReaderRoute::ImporterHost).read(path_);
    if (!found) return std::nullopt;
    MIMETypeHelper::copyMetaData(&found->attributes, result_);
    std::optional<TextString> text = stringAttribute(found->attributes, kTextContentAttribute);
    if (!text) return std::nullopt;
    return fixedAndNormalizedString(*text);
  }

  void putText(std::optional<TextString> text) {
    std::optional<PropertyValue> value;
    if (text) value = PropertyValue(std::move(*text));
    result_.putOrRemove(ImportKey::Text, std::move(value));
  }

  void complete() {
    if (address_ && !address_->empty()) {
      result_.putOrRemove(ImportKey::URL, PropertyValue(*address_));
    }
    std::optional<PropertyValue> tags;
    if (auto names = getUserTags(storedAttributes())) {
      if (auto joined = joinedStrings(PropertyValue(std::move(*names)), u"\n")) tags = *joined;
    }
    result_.putOrRemove(ImportKey::Tags, std::move(tags));
    result_.putOrRemove(ImportKey::FileSize, PropertyValue(size_));
    if (!result_.contains(ImportKey::SpotlightComment)) {
      std::optional<TextString> comment =
          helper_.getFinderCommentAtPath(path_, attributes_ ? &*attributes_ : nullptr);
      std::optional<PropertyValue> value;
      if (comment) value = PropertyValue(std::move(*comment));
      result_.putOrRemove(ImportKey::SpotlightComment, std::move(value));
    }
  }

  const PropertyDictionary& storedAttributes() const {
    static const PropertyDictionary kNone;
    return attributes_ ? *attributes_ : kNone;
  }
  OptionalText extension() const { return TextView(extension_); }
  OptionalText type() const { return type_ ? OptionalText(*type_) : std::nullopt; }

  MIMETypeHelper& helper_;
  const std::string& path_;
  ImportResult result_;
  TextString extension_;
  std::optional<TextString> type_;
  std::uint64_t size_ = 0;
  std::optional<PropertyDictionary> attributes_;
  std::optional<TextString> address_;
  std::optional<ReaderOutput> attributed_;
};

}  // namespace

ImportResult MIMETypeHelper::openFile(const std::string& path) {
  return FileImport(*this, path).run();
}

}  // namespace ulvek
