#include "metadata/internet_location.h"

#include <array>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "base/property_list.h"
#include "base/property_value.h"
#include "platform/resource_fork.h"
#include "platform/type_codes.h"
#include "text/string_utilities.h"

namespace ulvek {

namespace {

// Which files are internet locations is the classification's rule (isInternetLocationExtension
// in import/file_types.h). This reader sits a layer below it and keeps the same ten extensions
// and ten type codes; a test in tests/import holds the two in step.
constexpr std::array<std::u16string_view, 10> kLocationExtensions = {
    u"webloc",  u"mailloc", u"ftploc", u"inetloc",    u"newsloc",
    u"fileloc", u"vncloc",  u"url",    u"webhistory", u"webbookmark"};
constexpr std::array<std::uint32_t, 10> kLocationTypeCodes = {
    fourCharCode("LINK"), fourCharCode("ilaf"), fourCharCode("ilat"), fourCharCode("ilfi"),
    fourCharCode("ilft"), fourCharCode("ilge"), fourCharCode("ilht"), fourCharCode("ilma"),
    fourCharCode("ilns"), fourCharCode("ilnw")};

constexpr std::u16string_view kShortcutExtension = u"url";
constexpr std::u16string_view kShortcutType = u"'LINK'";
constexpr std::u16string_view kURLKey = u"URL=";

// Nobody keeps one address in more than this; larger files are not read.
constexpr std::uintmax_t kMaxLocationFileSize = 16 * 1024 * 1024;

char16_t asciiLower(char16_t c) { return (c >= u'A' && c <= u'Z') ? c + (u'a' - u'A') : c; }

bool equalsIgnoringASCIICase(TextView a, TextView b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (asciiLower(a[i]) != asciiLower(b[i])) return false;
  }
  return true;
}

bool isLocation(const std::optional<TextString>& extension, const std::optional<TextString>& type) {
  if (type) {
    std::uint32_t code = HFSTypeCodeFromFileType(*type);
    for (std::uint32_t candidate : kLocationTypeCodes) {
      if (code != 0 && code == candidate) return true;
    }
  }
  if (!extension) return false;
  for (std::u16string_view candidate : kLocationExtensions) {
    if (equalsIgnoringASCIICase(*extension, candidate)) return true;
  }
  return false;
}

// The part of the last path component after its last dot; nothing when there is none, or when
// the dot starts or ends the name.
std::optional<TextString> extensionOf(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  std::size_t slash = path.rfind('/');
  std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return std::nullopt;
  return fromUtf8(name.substr(dot + 1));
}

std::optional<std::string> readSmallFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  in.seekg(0, std::ios::end);
  std::streamoff size = in.tellg();
  if (size < 0 || static_cast<std::uintmax_t>(size) > kMaxLocationFileSize) return std::nullopt;
  in.seekg(0);
  std::string bytes(static_cast<std::size_t>(size), '\0');
  if (!in.read(bytes.data(), size)) return std::nullopt;
  return bytes;
}

// A ".url" shortcut: the first "URL=" line; else, for a ".url" file of one line, that line.
std::optional<TextString> shortcutAddress(const std::string& path, bool hasShortcutExtension) {
  std::optional<std::string> bytes = readSmallFile(path);
  if (!bytes) return std::nullopt;
  std::string_view utf8 = *bytes;
  if (utf8.starts_with("\xEF\xBB\xBF")) utf8.remove_prefix(3);
  TextString text;
  if (!fromUtf8Strict(utf8, text)) return std::nullopt;
  std::vector<TextString> textLines = lines(text);
  for (const TextString& line : textLines) {
    TextView view = line;
    if (view.size() >= kURLKey.size() &&
        equalsIgnoringASCIICase(view.substr(0, kURLKey.size()), kURLKey)) {
      return stringByTrimmingWhiteSpaces(view.substr(kURLKey.size()));
    }
  }
  if (textLines.size() != 1 || !hasShortcutExtension) return std::nullopt;
  TextString address = stringByTrimmingWhiteSpaces(textLines.front());
  if (address.empty()) return std::nullopt;
  return address;
}

// A location property list: nothing when the file is none or has no "URL", so that the resource
// fork is asked; otherwise the answer (possibly nothing, for an address that is not text).
std::optional<std::optional<TextString>> propertyListAddress(const std::string& path,
                                                             std::optional<TextString>* name) {
  std::optional<std::string> bytes = readSmallFile(path);
  if (!bytes || bytes->empty()) return std::nullopt;
  auto data = std::span(reinterpret_cast<const std::uint8_t*>(bytes->data()), bytes->size());
  std::optional<PropertyValue> list = propertyListFromBytes(data);
  if (!list || !list->isDictionary()) return std::nullopt;
  const PropertyValue* url = find(*list->dictionary(), "URL");
  if (!url) return std::nullopt;
  if (name) {
    const PropertyValue* value = find(*list->dictionary(), "Name");
    if (value && value->string()) *name = *value->string();
  }
  if (!url->string()) return std::optional<TextString>();
  return std::optional<TextString>(*url->string());
}

// Old location files keep the address in a 'url ' resource, else in a 'TEXT' one.
std::optional<TextString> resourceForkAddress(const std::string& path) {
  char resolved[PATH_MAX];
  if (!::realpath(path.c_str(), resolved)) return std::nullopt;
  std::optional<Data> fork = resourceForkBytes(resolved);
  if (!fork) return std::nullopt;
  std::optional<ResourceMap> map = ResourceMap::parse(*fork);
  if (!map) return std::nullopt;
  std::optional<ByteView> resource = map->firstResource(fourCharCode("url "));
  if (!resource) resource = map->firstResource(fourCharCode("TEXT"));
  if (!resource) return std::nullopt;
  TextString address;
  std::string_view utf8(reinterpret_cast<const char*>(resource->data()), resource->size());
  if (!fromUtf8Strict(utf8, address)) return std::nullopt;
  return address;
}

}  // namespace

std::optional<TextString> resolveInternetLocation(const std::string& path,
                                                  std::optional<TextString>* name) {
  std::optional<TextString> extension = extensionOf(path);
  std::optional<TextString> type = HFSTypeOfFile(path);
  if (name) name->reset();
  if (!isLocation(extension, type)) return std::nullopt;

  bool hasShortcutExtension = extension && equalsIgnoringASCIICase(*extension, kShortcutExtension);
  if (hasShortcutExtension || type == kShortcutType) {
    return shortcutAddress(path, hasShortcutExtension);
  }
  if (auto address = propertyListAddress(path, name)) return *address;
  return resourceForkAddress(path);
}

}  // namespace ulvek
