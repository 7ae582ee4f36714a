#include "metadata/internet_location.h"

#include <array>
#include <climits>
#include <cstdlib>
#include <iterator>

#include "base/property_list.h"
#include "base/property_value.h"
#include "metadata/file_types.h"
#include "platform/file_bytes.h"
#include "platform/resource_fork.h"
#include "platform/type_codes.h"
#include "text/character_tables.h"
#include "text/string_utilities.h"

namespace ulvek {

namespace {

constexpr std::u16string_view kShortcutExtension = u"url";
constexpr std::u16string_view kShortcutType = u"'LINK'";
constexpr std::u16string_view kDesktopExtension = u"desktop";
constexpr std::u16string_view kURLKey = u"URL=";

// Nobody keeps one address in more than this; larger files are not read.
constexpr std::uintmax_t kMaxLocationFileSize = 16 * 1024 * 1024;

std::optional<std::string> readSmallFile(const std::string& path) {
  std::optional<FileBytes> bytes = FileBytes::read(path, kMaxLocationFileSize).take();
  if (!bytes) return std::nullopt;
  return std::string(bytes->chars());
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
        isAsciiEqualToStringNoCase(view.substr(0, kURLKey.size()), kURLKey)) {
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
  std::optional<PropertyValue> list = propertyListFromBytes(data, path);
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

// A desktop entry of Type=Link, as Linux desktops save links: "URL" and "Name" of its
// [Desktop Entry] group (translated names and other groups are not read).
std::optional<TextString> desktopLinkAddress(const std::string& path,
                                             std::optional<TextString>* name) {
  std::optional<std::string> bytes = readSmallFile(path);
  if (!bytes) return std::nullopt;
  TextString text;
  if (!fromUtf8Strict(*bytes, text)) return std::nullopt;
  bool inEntry = false;
  bool isLink = false;
  std::optional<TextString> url, title;
  for (const TextString& line : lines(text)) {
    TextString trimmed = stringByTrimmingWhiteSpaces(line);
    if (trimmed.empty() || trimmed.front() == u'#') continue;
    if (trimmed.front() == u'[') {
      inEntry = trimmed == u"[Desktop Entry]";
      continue;
    }
    std::size_t equals = trimmed.find(u'=');
    if (!inEntry || equals == TextString::npos) continue;
    TextString key = stringByTrimmingWhiteSpaces(TextView(trimmed).substr(0, equals));
    TextString value = stringByTrimmingWhiteSpaces(TextView(trimmed).substr(equals + 1));
    if (key == u"Type") isLink = value == u"Link";
    if (key == u"URL" && !url)
      url = std::move(value);
    else if (key == u"Name" && !title)
      title = std::move(value);
  }
  if (!isLink || !url || url->empty()) return std::nullopt;
  if (name) *name = std::move(title);
  return url;
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
  TextString extension = pathExtension(path);
  std::optional<TextString> type = HFSTypeOfFile(path);
  if (name) name->reset();
  if (!isInternetLocationExtension(TextView(extension), type ? OptionalText(*type) : std::nullopt))
    return std::nullopt;

  if (isAsciiEqualToStringNoCase(extension, kDesktopExtension))
    return desktopLinkAddress(path, name);
  bool hasShortcutExtension = isAsciiEqualToStringNoCase(extension, kShortcutExtension);
  if (hasShortcutExtension || type == kShortcutType) {
    return shortcutAddress(path, hasShortcutExtension);
  }
  if (auto address = propertyListAddress(path, name)) return *address;
  return resourceForkAddress(path);
}

}  // namespace ulvek
