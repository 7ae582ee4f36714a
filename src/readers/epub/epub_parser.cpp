#include "readers/epub/epub_parser.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>

#include "base/ascii.h"
#include "base/failure.h"
#include "base/file_url.h"
#include "base/log.h"
#include "base/text_limits.h"
#include "platform/file_bytes.h"
#include "platform/open_beneath.h"
#include "readers/epub/epub_paths.h"
#include "readers/xml/xml_events.h"
#include "text/encodings.h"
#include "text/html_to_text.h"
#include "text/string_utilities.h"
#include "text/text_decoding.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

// A chapter larger than this is no chapter; books of 50 MiB chapters are hostile.
constexpr std::size_t kMaxMemberSize = 64u << 20;

// A value is true when, after white space, a sign and zeros, it starts with Y, T or 1-9.
bool isTrue(std::string_view value) {
  std::size_t i = 0;
  while (i < value.size() && std::isspace(static_cast<unsigned char>(value[i]))) ++i;
  if (i < value.size() && (value[i] == '+' || value[i] == '-')) ++i;
  while (i < value.size() && value[i] == '0') ++i;
  if (i == value.size()) return false;
  char c = value[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

enum class Holds { One, List };

struct MetaKey {
  std::string_view key;
  Holds holds;
};

// The rights file's scheme, from the events of its XML.
std::string rightsScheme(std::string_view xml) {
  std::string scheme;
  bool operatorURL = false;
  XmlEvents events{[&](std::string_view name, const char**) {
                     // Rights files name their elements with a prefix ("adept:operatorURL").
                     std::string_view local = name.substr(name.find(':') + 1);
                     operatorURL = local == "operatorURL";
                     if (name == "fairplay:sinf" || local == "sinf")
                       scheme = "Apple";
                     else if (local == "kdrm")
                       scheme = "Kobo";
                   },
                   nullptr,
                   [&](std::string_view text) {
                     if (!operatorURL) return;
                     scheme = asciiLowercase(std::string(text)).find("barnesandnoble") !=
                                      std::string::npos
                                  ? "Barnes & Noble"
                                  : "Adobe";
                   }};
  parseXml(xml, events);
  return scheme;
}

}  // namespace

std::string joinedPath(const std::string& folder, const std::string& name) {
  std::string joined = folder.empty() ? name : folder + "/" + name;
  std::string clean;
  for (char c : joined) {
    if (c == '/' && !clean.empty() && clean.back() == '/') continue;
    clean += c;
  }
  while (clean.size() > 1 && clean.back() == '/') clean.pop_back();
  return clean;
}

EPUBParser::EPUBParser(const std::string& path) : epubPath_(path) {
  std::error_code error;
  folder_ = fs::is_directory(path, error);
  if (!folder_) archive_ = ZipArchive::initWithZipFile(path);
  if (std::optional<Data> mimetype = dataForNamedFile("mimetype"))
    mimetype_.assign(mimetype->begin(), mimetype->end());
  // A container that breaks off names no package to trust, whatever it named before the break.
  if (parse("META-INF/container.xml") && !opfFile_.empty()) parse(opfFile_);
}

std::string EPUBParser::opfFolder() const {
  std::size_t slash = opfFile_.rfind('/');
  return slash == std::string::npos ? std::string() : opfFile_.substr(0, slash);
}

bool EPUBParser::testForNamedFile(const std::string& name) {
  if (archive_) return archive_->testForNamedFile(name);
  if (!folder_) return false;
  return isSafeMemberName(name) && isRegularFileBeneath(epubPath_, name);
}

std::optional<Data> EPUBParser::dataForNamedFile(const std::string& name) {
  // The archive logs a member it cannot find (a manifest naming one the book lacks).
  if (archive_) return archive_->dataForNamedFile(name, {kMaxMemberSize, 1000, 1 << 20});
  if (!folder_) return std::nullopt;
  // Members of a book folder never lead out of it, by name or by link.
  if (!isSafeMemberName(name)) return std::nullopt;
  std::optional<FileBytes> bytes = readFileBeneath(epubPath_, name, kMaxMemberSize).take();
  if (!bytes) return std::nullopt;
  return Data(bytes->bytes().begin(), bytes->bytes().end());
}

bool EPUBParser::parse(const std::string& member) {
  std::optional<Data> xml = dataForNamedFile(member);
  if (!xml) {
    logFailure(FailureKind::Damaged, "Damaged book: " + epubPath_ + " (no " + member + ")");
    return false;
  }
  std::string opfFolderPath = opfFolder();
  // The value whose text is being collected, and how it is held.
  std::optional<std::pair<std::string, Holds>> collecting;
  TextString collected;
  auto finish = [&] {
    if (!collecting) return;
    PropertyValue value(collected);
    if (collecting->second == Holds::One) {
      metaData_[collecting->first] = value;
    } else {
      PropertyValue& list = metaData_[collecting->first];
      if (!list.array()) list = PropertyValue(PropertyArray());
      // The value was appended when collection began; it is now filled in.
      if (!list.array()->empty()) list.array()->back() = value;
    }
    collecting.reset();
  };
  auto begin = [&](std::string_view key, Holds holds, const char** attributes) {
    finish();
    const char* fileAs = xmlAttribute(attributes, "opf:file-as");
    PropertyValue empty(TextString{});
    if (holds == Holds::List) {
      PropertyValue& list = metaData_[std::string(key)];
      if (!list.array()) list = PropertyValue(PropertyArray());
      list.array()->push_back(empty);
    } else {
      metaData_[std::string(key)] = empty;
    }
    collected.clear();
    collecting = std::pair{std::string(key), holds};
    if (fileAs && *fileAs) {
      collected = fromUtf8(fileAs);
      finish();
    }
  };
  auto attribute = [](const char** attributes, const char* name) {
    const char* value = xmlAttribute(attributes, name);
    return std::string(value ? value : "");
  };
  XmlEvents events;
  events.start = [&](std::string_view name, const char** attributes) {
    if (name == "rootfile") {
      opfFile_ = attribute(attributes, "full-path");
    } else if (name == "item") {
      std::string id = attribute(attributes, "id");
      std::optional<std::string> href = percentDecoded(attribute(attributes, "href"));
      std::string type = attribute(attributes, "media-type");
      std::string properties = attribute(attributes, "properties");
      if (!href || href->empty()) return;
      if (!type.empty())
        if (std::optional<std::string> member =
                normalizedMemberPath(joinedPath(opfFolderPath, *href)))
          mediaTypes_[*member] = type;
      if (type == "application/xhtml+xml") {
        if (id.empty()) return;
        if (equalsIgnoringASCIICase(id, "toc") || equalsIgnoringASCIICase(properties, "nav"))
          tocFile_ = joinedPath(opfFolderPath, *href);
        items_[id] = *href;
      } else if (type == "application/x-dtbncx+xml") {
        ncxFile_ = joinedPath(opfFolderPath, *href);
      } else {
        if (coverPath_.empty() && (properties == "cover-image" ||
                                   (!coverID_.empty() && equalsIgnoringASCIICase(id, coverID_))))
          coverPath_ = *href;
        auxiliaryFiles_.push_back(*href);
      }
    } else if (name == "reference") {
      // The guide's cover page, for books whose manifest marks no cover image.
      if (equalsIgnoringASCIICase(attribute(attributes, "type"), "cover"))
        if (std::optional<std::string> href = percentDecoded(attribute(attributes, "href")))
          guideCover_ = withoutFragment(*href);
    } else if (name == "itemref") {
      const char* linear = xmlAttribute(attributes, "linear");
      std::string idref = attribute(attributes, "idref");
      if ((!linear || isTrue(linear)) && !idref.empty()) spines_.push_back(idref);
    } else if (name == "meta") {
      std::string property = attribute(attributes, "property");
      if (property == "dcterms:title")
        begin("kMDItemTitle", Holds::One, attributes);
      else if (property == "dcterms:creator")
        begin(attribute(attributes, "id") == "auth" ? "kMDItemAuthors" : "kMDItemContributors",
              Holds::List, attributes);
      else if (property == "dcterms:publisher")
        begin("kMDItemPublishers", Holds::List, attributes);
      else if (property == "dcterms:contributor")
        begin("kMDItemContributors", Holds::List, attributes);
      else if (coverPath_.empty() && attribute(attributes, "name") == "cover")
        coverID_ = attribute(attributes, "content");
    } else if (name == "dc:title") {
      begin("kMDItemTitle", Holds::One, attributes);
    } else if (name == "dc:description") {
      begin("kMDItemDescription", Holds::One, attributes);
    } else if (name == "dc:rights") {
      begin("kMDItemCopyright", Holds::One, attributes);
    } else if (name == "dc:subject") {
      begin("kMDItemKeywords", Holds::List, attributes);
    } else if (name == "dc:publisher") {
      begin("kMDItemPublishers", Holds::List, attributes);
    } else if (name == "dc:creator") {
      begin(attribute(attributes, "opf:role") == "aut" ? "kMDItemAuthors" : "kMDItemContributors",
            Holds::List, attributes);
    } else if (name == "dc:contributor") {
      begin(attribute(attributes, "opf:role") == "edt" ? "kMDItemEditors" : "kMDItemContributors",
            Holds::List, attributes);
    }
  };
  events.end = [&](std::string_view) { finish(); };
  events.text = [&](std::string_view text) {
    if (!collecting) return;
    TextString piece =
        stringByTrimmingWhiteSpaces(stringByRemovingMultipleWhiteSpaces(fromUtf8(text)));
    if (piece.empty()) return;
    if (!collected.empty()) collected += u' ';
    collected += piece;
    // Keep the value current: collection ends with the next element's end.
    PropertyValue value(collected);
    if (collecting->second == Holds::One)
      metaData_[collecting->first] = value;
    else
      metaData_[collecting->first].array()->back() = value;
  };
  bool parsed =
      parseXml(std::string_view(reinterpret_cast<const char*>(xml->data()), xml->size()), events);
  if (!parsed) logFailure(FailureKind::Damaged, "Damaged book: " + epubPath_ + " (" + member + ")");
  collecting.reset();
  return parsed;
}

const std::string& EPUBParser::DRM() {
  if (drm_) return *drm_;
  drm_.emplace();
  for (const char* member : {"META-INF/rights.xml", "META-INF/sinf.xml", "rights.xml"}) {
    if (!testForNamedFile(member)) continue;
    if (std::optional<Data> xml = dataForNamedFile(member))
      *drm_ =
          rightsScheme(std::string_view(reinterpret_cast<const char*>(xml->data()), xml->size()));
    break;
  }
  return *drm_;
}

std::optional<TextString> EPUBParser::textContents() {
  if (hasDRM()) return std::nullopt;
  TextString text;
  std::string folder = opfFolder();
  // A chapter the spine lists again is shown again by a reading system, but its text adds
  // nothing to the book's for search; converted once, it cannot be made to multiply the text.
  std::set<std::string> read;
  std::size_t size = 0;
  for (const std::string& idref : spines_) {
    auto item = items_.find(idref);
    if (item == items_.end()) continue;
    std::string member = joinedPath(folder, item->second);
    if (!read.insert(normalizedMemberPath(member).value_or(member)).second) continue;
    std::optional<TextString> source;
    if (std::optional<Data> page = dataForNamedFile(member))
      source = stringWithMarkupData(*page, kUTF8StringEncoding);
    if (!source) continue;
    TextString chapter = stringByConvertingHtml2PlainText(*source, kImportHtmlOptions);
    source.reset();
    if (chapter.empty()) continue;
    size += utf8Size(chapter) + 1;
    // The first chapter is taken over, not copied: books of one large chapter peak lower.
    if (text.empty())
      text = std::move(chapter);
    else
      text += chapter;
    text += u'\n';
    if (size > kMaxTextUtf8Bytes) {
      text = TextString(utf8Prefix(text, kMaxTextUtf8Bytes));
      logLine("Truncated: " + epubPath_ + " (Text)");
      break;
    }
  }
  return text;
}

}  // namespace ulvek
