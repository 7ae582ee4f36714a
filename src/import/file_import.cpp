#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "base/failure.h"
#include "base/log.h"
#include "base/property_list.h"
#include "import/mime_type_helper.h"
#include "metadata/file_size.h"
#include "metadata/file_types.h"
#include "metadata/internet_location.h"
#include "metadata/item_attributes.h"
#include "metadata/metadata_store.h"
#include "platform/content_types.h"
#include "platform/file_bytes.h"
#include "platform/type_codes.h"
#include "protocol/import_result.h"
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

std::optional<PropertyDictionary> propertyListDictionaryOfFile(const std::string& path) {
  std::optional<FileBytes> bytes = FileBytes::read(path).take();
  if (!bytes) return std::nullopt;
  std::optional<PropertyValue> list = propertyListFromBytes(bytes->bytes(), path);
  if (!list || !list->isDictionary()) return std::nullopt;
  return std::move(*list->dictionary());
}

// One call of openFile: the values it gathers and the result it fills.
class FileImport {
 public:
  FileImport(const MIMETypeHelper& helper, const std::string& path)
      : helper_(helper), path_(path) {}

  ImportResult run(ImportDetails* details = nullptr) {
    FailureScope failures;
    LogContext item({}, path_);
    prepare();
    // One look at the item decides whether it is read at all.
    struct stat info {};
    if (::stat(path_.c_str(), &info) != 0) {
      reportUnreadable(errno);
    } else if (!hasContents(info)) {
      // Its attributes are still answered; there is nothing to read.
      logFailure(FailureKind::Unsupported, "Not a file or folder: " + path_);
    } else if (isReadable()) {
      if (plan_.size != 0) {
        std::optional<Route> route = chooseProtected();
        if (route) follow(*route);
      } else if (isEmptyDocument(info)) {
        logFailure(FailureKind::Damaged, "Empty file: " + path_);
      }
    }
    complete();
    // Text means the file was read, whatever a reader on the way complained of; unless it was
    // cut short for time: that text is only a part.
    const TextString* text = result_.string(ImportKey::Text);
    bool cut = failures.failure() && failures.failure()->kind == FailureKind::TimedOut;
    if (text && !text->empty() && !cut) failures.clear();
    if (details) {
      details->contentType = plan_.contentType;
      details->failure = failures.failure();
      if (textSource_ && result_.string(ImportKey::Text))
        details->textSource = toUtf8(*textSource_);
    }
    return std::move(result_);
  }

 private:
  void prepare() {
    plan_ = planImport(path_);
    attributes_ = OVMetaDataStore::metaDataDictionaryAtPath(path_, false).value;
    std::optional<TextString> title = getItemTitleForFile(storedAttributes(), path_);
    address_ = getWhereFrom(storedAttributes());
    if (!title) title = lastPathComponent(path_);
    result_.putOrRemove(ImportKey::Title, PropertyValue(stringByTrimmingWhiteSpaces(*title)));
  }

  // An empty text file is an empty text; an empty file of any other kind is a broken one.
  bool isEmptyDocument(const struct stat& info) const {
    if (!S_ISREG(info.st_mode)) return false;
    return plan_.contentType && !typeConformsTo(*plan_.contentType, kUTTypeText) &&
           contentTypeInfo(*plan_.contentType);
  }

  // A file that does not exist or cannot be read is a failure the caller hears of; its
  // metadata is still answered. Asked without opening it.
  bool isReadable() const {
    if (::faccessat(AT_FDCWD, path_.c_str(), R_OK, AT_EACCESS) == 0) return true;
    reportUnreadable(errno);
    return false;
  }

  void reportUnreadable(int error) const {
    if (error == ENOENT || error == ENOTDIR)
      logFailure(FailureKind::NotFound, "No such file: " + path_);
    else if (error == EACCES || error == EPERM)
      logFailure(FailureKind::Permission, "Permission denied: " + path_);
    else
      logFailure(FailureKind::Damaged, std::string(std::strerror(error)) + ": " + path_);
  }

  // Only regular files and folders (packages) are read: a FIFO, socket or device can have a
  // size (from a resource fork beside it) but opening one could block the service.
  static bool hasContents(const struct stat& info) {
    return S_ISREG(info.st_mode) || S_ISDIR(info.st_mode);
  }

  // The branches the classification chose, with the readers they call first: a reader that
  // throws is logged and the content type decides instead (or the attributed-string route, if
  // that reader had answered). Nothing when the branch stored everything itself.
  std::optional<Route> chooseProtected() {
    try {
      return choose(plan_.route);
    } catch (const std::exception& exception) {
      logException(kOperation, MIMETypeHelper::kClassName, exception);
      return attributed_ ? Route::AttributedDocument : Route::Undecided;
    }
  }

  std::optional<Route> choose(Route route) {
    switch (route) {
      case Route::InternetLocation:
        return readInternetLocation();
      case Route::WebArchive:
        return readWebArchive();
      case Route::TextBundle:
      case Route::WordPerfect:
        putText(read(route));
        return std::nullopt;
      case Route::AttributedDocument:
        return readAttributedDocument();
      case Route::TextClipping:
        attributed_ = readOutput(route);
        return Route::TextClipping;
      default:
        return route;
    }
  }

  std::optional<ReaderOutput> readOutput(Route route) {
    const Reader* reader =
        route == Route::Registered ? helper_.plannedReader(plan_) : helper_.readerFor(route, path_);
    if (!reader) {
      if (route == Route::Registered)
        logFailure(
            FailureKind::Unsupported,
            "No reader built for " + std::string(plan_.registeredReader) + " files: " + path_);
      return std::nullopt;
    }
    LogContext reading(readerLogPart(*reader));
    return reader->read(ReaderSource::file(path_));
  }

  // A reader's text, its attributes mapped into the result.
  std::optional<TextString> read(Route route) {
    std::optional<ReaderOutput> output = readOutput(route);
    if (!output) return std::nullopt;
    textSource_ = output->textSource;
    return MIMETypeHelper::copyReaderOutput(*output, result_);
  }

  // The file's address replaces the stored one, even when the file yields none.
  std::optional<Route> readInternetLocation() {
    std::optional<TextString> name;
    std::optional<TextString> address = resolveInternetLocation(path_, &name);
    // A desktop entry that is no link (an application launcher) is read as the text it is.
    if (!address && plan_.extension == u"desktop") return Route::Undecided;
    address_ = std::move(address);
    if (name && !name->empty()) result_.putOrRemove(ImportKey::Title, PropertyValue(*name));
    return std::nullopt;
  }

  std::optional<Route> readWebArchive() {
    std::optional<ReaderOutput> output = readOutput(Route::WebArchive);
    std::optional<TextString> text;
    if (output) {
      if (output->url) address_ = output->url;
      text = MIMETypeHelper::copyReaderOutput(*output, result_);
    }
    putText(std::move(text));
    return std::nullopt;
  }

  // A Word file that the reader could only read as plain text goes to the importers instead.
  std::optional<Route> readAttributedDocument() {
    attributed_ = readOutput(Route::AttributedDocument);
    if (attributed_ && attributed_->text) {
      bool readAsPlainText = attributed_->documentType == kPlainTextDocumentType;
      if (readAsPlainText && isWordExtension(plan_.extensionView(), plan_.typeView())) {
        attributed_.reset();
        return Route::Importer;
      }
    }
    return Route::AttributedDocument;
  }

  void follow(Route route) {
    switch (route) {
      case Route::Undecided:
        return follow(plan_.contentRoute);
      case Route::PDF:
        if (auto text = read(Route::PDF)) {
          result_.putIfPresent(ImportKey::Text, PropertyValue(fixedAndNormalizedString(*text)));
        }
        return;
      case Route::AttributedDocument:
      case Route::TextClipping:
        if (attributed_ && attributed_->text) return putText(copyAttributed());
        return follow(plan_.contentRoute);
      case Route::PlainText:
        return putText(readPlainText());
      case Route::HTML:
        return putText(readHTML());
      case Route::PropertyList:
        return putText(readPropertyList());
      case Route::XML:
        return putText(readXML());
      case Route::AddressCard:
      case Route::Registered:
        return putText(read(route));
      case Route::Importer:
      case Route::EPUB: {
        std::optional<TextString> text = read(route);
        return putText(text ? std::optional(fixedAndNormalizedString(*text)) : std::nullopt);
      }
      case Route::InternetLocation:
      case Route::WebArchive:
      case Route::TextBundle:
      case Route::WordPerfect:
        return;  // stored while choosing
    }
  }

  std::optional<TextString> copyAttributed() {
    return MIMETypeHelper::copyReaderOutput(*attributed_, result_);
  }

  std::optional<TextString> readPlainText() {
    if (plan_.size >= kPlainTextSizeLimit) {
      logFailure(
          FailureKind::TooLarge,
          "Skipped: " + path_ + " (" + std::to_string(plan_.size / kBytesPerMegabyte) + " MB)");
      return std::nullopt;
    }
    return stringWithContentsOfFile(path_, kEncodingNotFound);
  }

  std::optional<TextString> markupSource() {
    return stringWithMarkupContentsOfFile(path_, kISOLatin1StringEncoding);
  }

  // The HTML title wins over a meta-data title here: it is written after the meta attributes.
  std::optional<TextString> readHTML() {
    // Scanned, not held: a large page is decoded window by window for each pass.
    std::unique_ptr<MarkupSource> source = markupSourceOfFile(path_, kISOLatin1StringEncoding);
    if (!source) return std::nullopt;
    HtmlMetaAttributes meta = htmlMetaAttributesByConvertingEntitiesToCharacters(*source);
    MIMETypeHelper::copyHTMLMetaAttributes(&meta, result_);
    TextString title = normalizedHtmlTitle(*source);
    if (!title.empty()) result_.putOrRemove(ImportKey::Title, PropertyValue(std::move(title)));
    return stringByConvertingHtml2PlainText(*source, kImportHtmlOptions);
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
    result_.putOrRemove(ImportKey::FileSize, PropertyValue(plan_.size));
    if (!result_.contains(ImportKey::SpotlightComment)) {
      std::optional<TextString> comment =
          helper_.getFinderCommentAtPath(path_, attributes_ ? &*attributes_ : nullptr);
      std::optional<PropertyValue> value;
      if (comment) value = PropertyValue(std::move(*comment));
      result_.putOrRemove(ImportKey::SpotlightComment, std::move(value));
    }
    result_.limitSizes(path_);
  }

  const PropertyDictionary& storedAttributes() const {
    static const PropertyDictionary kNone;
    return attributes_ ? *attributes_ : kNone;
  }

  const MIMETypeHelper& helper_;
  const std::string& path_;
  ImportResult result_;
  ImportPlan plan_;
  std::optional<PropertyDictionary> attributes_;
  std::optional<TextString> address_;
  std::optional<ReaderOutput> attributed_;
  std::optional<TextString> textSource_;
};

}  // namespace

ImportResult MIMETypeHelper::openFile(const std::string& path) {
  return FileImport(*this, path).run();
}

ImportResult MIMETypeHelper::openFile(const std::string& path,
                                      std::optional<std::string>& contentType) {
  ImportDetails details;
  ImportResult result = FileImport(*this, path).run(&details);
  contentType = std::move(details.contentType);
  return result;
}

ImportResult MIMETypeHelper::openFile(const std::string& path, ImportDetails& details) {
  return FileImport(*this, path).run(&details);
}

const Reader* MIMETypeHelper::readerFor(Route route, const std::string& path) const {
  if (const Reader* reader = readers_.readerFor(route)) return reader;
  logFailure(FailureKind::Unsupported,
             "No reader built for " + std::string(routeInfo(route).name) + " files: " + path);
  return nullptr;
}

}  // namespace ulvek
