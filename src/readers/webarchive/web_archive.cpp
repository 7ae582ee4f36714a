#include "readers/webarchive/web_archive.h"

#include <array>

#include "base/failure.h"
#include "base/log.h"
#include "base/property_list.h"
#include "metadata/file_types.h"
#include "readers/xml/feed_text.h"
#include "text/character_tables.h"
#include "text/encodings.h"
#include "text/html_to_text.h"
#include "text/text_decoding.h"

namespace ulvek {

namespace {

constexpr std::array<std::u16string_view, 5> kApplicationMarkupAnyCase = {u"htm", u"sgml", u"xml",
                                                                          u"rsd", u"atom"};
constexpr std::array<std::u16string_view, 2> kApplicationMarkupExact = {u"rdf", u"rss"};

// Reading one archive level: a field of the wrong kind is left out with one log line.
class ArchiveDecoder {
 public:
  explicit ArchiveDecoder(std::string_view name) : name_(name) {}

  std::optional<WebArchive> archive(const PropertyValue& list, std::size_t depth) {
    const PropertyDictionary* root = list.dictionary();
    if (!root) return invalid("is not a dictionary");
    const PropertyValue* main = find(*root, "WebMainResource");
    if (!main || !main->dictionary()) return invalid("has no main resource");
    WebArchive result;
    result.mainResource = resource(*main->dictionary());
    if (const PropertyValue* list = find(*root, "WebSubresources")) {
      for (const PropertyValue* item : items(*list, "WebSubresources")) {
        if (item->dictionary()) {
          result.subresources.push_back(resource(*item->dictionary()));
        } else {
          wrongType("WebSubresources");
        }
      }
    }
    if (const PropertyValue* list = find(*root, "WebSubframeArchives")) {
      std::vector<const PropertyValue*> frames = items(*list, "WebSubframeArchives");
      if (!frames.empty() && depth + 1 >= kMaxWebArchiveDepth) {
        logLine("Web archive frames nested too deep, the inner ones are skipped: " + name_);
        return result;
      }
      for (const PropertyValue* frame : frames) {
        if (auto sub = archive(*frame, depth + 1))
          result.subframeArchives.push_back(std::move(*sub));
      }
    }
    return result;
  }

 private:
  std::vector<const PropertyValue*> items(const PropertyValue& value, std::string_view key) {
    std::vector<const PropertyValue*> result;
    const PropertyArray* array = value.array();
    if (!array) {
      wrongType(key);
      return result;
    }
    for (const PropertyValue& item : *array) result.push_back(&item);
    return result;
  }

  WebResource resource(const PropertyDictionary& fields) {
    WebResource resource;
    if (const PropertyValue* data = find(fields, "WebResourceData")) {
      if (data->data()) {
        resource.data = *data->data();
      } else if (data->string()) {
        std::string utf8 = toUtf8(*data->string());
        resource.data.assign(utf8.begin(), utf8.end());
      } else {
        wrongType("WebResourceData");
      }
    }
    resource.MIMEType = text(fields, "WebResourceMIMEType").value_or(TextString());
    resource.textEncodingName = text(fields, "WebResourceTextEncodingName");
    resource.URL = text(fields, "WebResourceURL").value_or(TextString());
    return resource;
  }

  std::optional<TextString> text(const PropertyDictionary& fields, std::string_view key) {
    const PropertyValue* value = find(fields, key);
    if (!value) return std::nullopt;
    if (!value->string()) {
      wrongType(key);
      return std::nullopt;
    }
    return *value->string();
  }

  void wrongType(std::string_view key) {
    if (reported_) return;
    reported_ = true;
    logFailure(FailureKind::Damaged,
               "Web archive value of the wrong kind (" + std::string(key) + "): " + name_);
  }

  std::optional<WebArchive> invalid(std::string_view why) {
    logFailure(FailureKind::Damaged, "Web archive " + std::string(why) + ": " + name_);
    return std::nullopt;
  }

  std::string name_;
  bool reported_ = false;
};

}  // namespace

bool isMarkupMIMEType(TextView mimeType) {
  if (hasPrefixIgnoringAsciiCase(mimeType, u"text/")) return true;
  if (!hasPrefixIgnoringAsciiCase(mimeType, u"application/")) return false;
  for (TextView part : kApplicationMarkupAnyCase)
    if (containsIgnoringAsciiCase(mimeType, part)) return true;
  for (TextView part : kApplicationMarkupExact)
    if (mimeType.find(part) != TextView::npos) return true;
  return false;
}

bool isFeedMIMEType(TextView mimeType) {
  return containsIgnoringAsciiCase(mimeType, u"rss") ||
         containsIgnoringAsciiCase(mimeType, u"atom") ||
         containsIgnoringAsciiCase(mimeType, u"rdf") || containsIgnoringAsciiCase(mimeType, u"xml");
}

std::optional<TextString> WebResource::documentSource() const {
  if (!isMarkupMIMEType(MIMEType)) return std::nullopt;
  if (data.size() > kMaxWebResourceMarkup) {
    logLine("Skipped: " + toUtf8(URL) + " (" + std::to_string(data.size() / (1024 * 1024)) +
            " MB)");
    return std::nullopt;
  }
  return stringWithMarkupData(data, textEncodingName.value_or(TextString()),
                              kISOLatin1StringEncoding, URL);
}

std::optional<WebArchive> WebArchive::initWithData(Bytes bytes, std::string_view name) {
  if (bytes.empty()) return std::nullopt;
  std::optional<PropertyValue> list = propertyListFromBytes(bytes, name);
  if (!list) {
    logFailure(FailureKind::Damaged, "Not a web archive: " + std::string(name));
    return std::nullopt;
  }
  return fromPropertyList(*list, name);
}

std::optional<WebArchive> WebArchive::fromPropertyList(const PropertyValue& list,
                                                       std::string_view name) {
  return ArchiveDecoder(name).archive(list, 0);
}

std::optional<TextString> WebArchive::documentSource() const {
  return mainResource ? mainResource->documentSource() : std::nullopt;
}

std::optional<TextString> WebArchive::baseURL() const {
  if (!mainResource || mainResource->URL.empty()) return std::nullopt;
  return mainResource->URL;
}

TextString WebArchive::searchableText() const {
  TextString text;
  appendSearchableTextTo(text);
  return text;
}

// Frames are walked with an explicit stack, depth first in list order.
void WebArchive::appendSearchableTextTo(TextString& text) const {
  std::vector<const WebArchive*> pending{this};
  while (!pending.empty()) {
    const WebArchive* archive = pending.back();
    pending.pop_back();
    if (auto source = archive->documentSource()) {
      // A saved feed's items are XML elements and their bodies escaped HTML, which the page
      // conversion would run together or show as tags.
      std::optional<TextString> feed;
      if (isFeedMIMEType(archive->mainResource->MIMEType)) feed = feedText(*source);
      TextString page =
          feed ? std::move(*feed)
               : stringByConvertingHtml2PlainTextNonUmlauted(*source, false, true, true, false);
      if (!page.empty()) text += u"\n\n" + page;
    }
    for (auto frame = archive->subframeArchives.rbegin(); frame != archive->subframeArchives.rend();
         ++frame)
      pending.push_back(&*frame);
  }
}

TextString WebArchive::searchableTextAndSource(std::optional<TextString>* source) const {
  if (source) *source = documentSource();
  return searchableText();
}

const WebResource* WebArchive::subresourceForURL(TextView url) const {
  if (mainResource && mainResource->URL == url) return &*mainResource;
  for (const WebResource& resource : subresources)
    if (resource.URL == url) return &resource;
  for (const WebArchive& frame : subframeArchives)
    if (const WebResource* found = frame.subresourceForURL(url)) return found;
  return nullptr;
}

const WebArchive* WebArchive::subArchiveForURL(std::optional<TextView> url) const {
  if (!url) return nullptr;
  if (mainResource && mainResource->URL == *url) return this;
  for (const WebArchive& frame : subframeArchives)
    if (const WebArchive* found = frame.subArchiveForURL(url)) return found;
  return nullptr;
}

std::span<const TextView> webArchiveFileTypes() {
  static constexpr std::array<TextView, 2> kTypes = {u"webarchive", u"WEBARCHIVE"};
  return kTypes;
}

bool isWebArchiveFile(const std::string& path) {
  return isWebArchiveExtension(TextView(pathExtension(path)));
}

std::optional<TextString> searchableTextOfFile(const std::string& path,
                                               std::optional<TextString>* baseURL,
                                               std::optional<TextString>* source) {
  if (baseURL) baseURL->reset();
  if (source) source->reset();
  if (path.empty()) return std::nullopt;
  std::optional<FileBytes> bytes = FileBytes::read(path).take();
  if (!bytes || bytes->empty()) return std::nullopt;
  std::optional<WebArchive> archive = WebArchive::initWithData(bytes->bytes(), path);
  if (!archive) return std::nullopt;
  if (baseURL) *baseURL = archive->baseURL();
  return archive->searchableTextAndSource(source);
}

std::optional<TextString> documentSourceOfFile(const std::string& path,
                                               std::optional<TextString>* baseURL) {
  if (baseURL) baseURL->reset();
  if (path.empty()) return std::nullopt;
  std::optional<FileBytes> bytes = FileBytes::read(path).take();
  if (!bytes || bytes->empty()) return std::nullopt;
  std::optional<WebArchive> archive = WebArchive::initWithData(bytes->bytes(), path);
  if (!archive) return std::nullopt;
  if (baseURL) *baseURL = archive->baseURL();
  return archive->documentSource();
}

}  // namespace ulvek
