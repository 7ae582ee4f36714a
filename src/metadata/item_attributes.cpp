#include "metadata/item_attributes.h"

#include <algorithm>
#include <array>
#include <vector>

#include "base/log.h"
#include "metadata/metadata_store.h"
#include "text/character_tables.h"
#include "text/string_utilities.h"

namespace ulvek {
namespace {

constexpr std::string_view kSpotlightWhereFroms = "kMDItemWhereFroms";
constexpr std::string_view kSpotlightTitle = "kMDItemTitle";

constexpr std::array<std::string_view, 4> kOpenMetaTagKeys = {
    MetaDataKey::OMUserTags, MetaDataKey::OMUserTagsShort, MetaDataKey::OpenMetaUserTags,
    MetaDataKey::OpenMetaUserTagsShort};

void logInvalidArray(const PropertyValue& value) {
  logLine("Invalid array: " + std::string(value.className()));
}

std::optional<TextString> strictUtf8(const std::uint8_t* bytes, size_t length) {
  TextString text;
  if (!fromUtf8Strict(std::string_view(reinterpret_cast<const char*>(bytes), length), text))
    return std::nullopt;
  return text;
}

// A Linux attribute's text: plain UTF-8 bytes (a final 0 allowed), or a string.
std::optional<TextString> xdgText(const PropertyDictionary& attributes, std::string_view key) {
  const PropertyValue* value = find(attributes, key);
  if (!value) return std::nullopt;
  if (const TextString* text = value->string()) return *text;
  const Data* bytes = value->data();
  if (!bytes) return std::nullopt;
  std::size_t length = bytes->size();
  while (length > 0 && (*bytes)[length - 1] == 0) --length;
  return strictUtf8(bytes->data(), length);
}

std::optional<PropertyArray> macTags(const PropertyDictionary& attributes) {
  if (kPlatformHasSystemTags) {
    if (auto tags = getMavericksTags(attributes)) return tags;
    return getOpenMetaTags(attributes);
  }
  if (auto tags = getOpenMetaTags(attributes)) return tags;
  return getMavericksTags(attributes);
}

}  // namespace

std::optional<PropertyArray> getUserTags(const PropertyDictionary& attributes) {
  std::optional<PropertyArray> tags = macTags(attributes);
  std::vector<TextString> linux = getXdgTags(attributes);
  if (linux.empty()) return tags;
  if (!tags) tags.emplace();
  for (TextString& tag : linux) {
    PropertyValue value(std::move(tag));
    if (std::find(tags->begin(), tags->end(), value) == tags->end()) tags->push_back(value);
  }
  return tags;
}

std::vector<TextString> getXdgTags(const PropertyDictionary& attributes) {
  std::vector<TextString> tags;
  std::optional<TextString> list = xdgText(attributes, MetaDataKey::XdgTags);
  if (!list) return tags;
  std::size_t start = 0;
  while (start <= list->size()) {
    std::size_t comma = list->find(u',', start);
    if (comma == TextString::npos) comma = list->size();
    TextString tag = stringByTrimmingWhiteSpaces(TextView(*list).substr(start, comma - start));
    if (!tag.empty() && std::find(tags.begin(), tags.end(), tag) == tags.end())
      tags.push_back(std::move(tag));
    start = comma + 1;
  }
  return tags;
}

std::optional<PropertyArray> getMavericksTags(const PropertyDictionary& attributes) {
  const PropertyValue* value = find(attributes, MetaDataKey::UserTags);
  if (!value) return std::nullopt;
  const PropertyArray* elements = value->array();
  if (!elements) {
    logInvalidArray(*value);
    return std::nullopt;
  }
  // The system keeps the tag's colour after a line feed.
  PropertyArray names;
  names.reserve(elements->size());
  for (const PropertyValue& element : *elements) {
    const TextString* text = element.string();
    if (!text) continue;
    names.emplace_back(TextView(*text).substr(0, text->find(u'\n')));
  }
  return names;
}

std::optional<PropertyArray> getOpenMetaTags(const PropertyDictionary& attributes) {
  if (!OVMetaDataStore::useOpenMeta()) return std::nullopt;
  for (std::string_view key : kOpenMetaTagKeys) {
    const PropertyValue* value = find(attributes, key);
    if (!value) continue;
    const PropertyArray* tags = value->array();
    if (!tags) {
      logInvalidArray(*value);
      continue;
    }
    if (!tags->empty()) return *tags;
  }
  return std::nullopt;
}

std::optional<TextString> getWhereFrom(const PropertyDictionary& attributes) {
  const PropertyValue* value = find(attributes, kSpotlightWhereFroms);
  if (!value) value = find(attributes, MetaDataKey::WhereFroms);
  if (!value) return xdgText(attributes, MetaDataKey::XdgOriginURL);

  if (const PropertyArray* addresses = value->array()) {
    if (addresses->empty()) return std::nullopt;
    value = &addresses->front();
  } else if (const Data* bytes = value->data(); bytes && !bytes->empty()) {
    // Some downloaders store a C string, terminating 0 included.
    if (bytes->back() != 0) return strictUtf8(bytes->data(), bytes->size());
    size_t length = 0;
    while ((*bytes)[length] != 0) ++length;
    return strictUtf8(bytes->data(), length);
  }
  if (const TextString* text = value->string()) return *text;
  return std::nullopt;
}

std::optional<PropertyValue> getFinderComment(const PropertyDictionary& attributes) {
  const PropertyValue* value = find(attributes, MetaDataKey::FinderComment);
  if (value) return *value;
  if (auto comment = xdgText(attributes, MetaDataKey::XdgComment)) return PropertyValue(*comment);
  return std::nullopt;
}

bool isEditableNote(const PropertyDictionary& attributes) {
  return find(attributes, MetaDataKey::IsEditableNote) != nullptr;
}

std::optional<TextString> getItemTitleForFile(const PropertyDictionary& attributes,
                                              std::string_view path) {
  const PropertyValue* value = find(attributes, kSpotlightTitle);
  const TextString* title = value ? value->string() : nullptr;
  if (!title) return std::nullopt;
  // A title that only repeats the file's name or path says nothing.
  if (isCanonicallyEqualToStringNoCase(*title, lastPathComponent(path))) return std::nullopt;
  if (!path.empty() && isCanonicallyEqualToStringNoCase(*title, fromUtf8(path)))
    return std::nullopt;
  return *title;
}

std::optional<TextString> finderComment(const std::string& path, bool useAppleScript) {
  return std::nullopt;
}

TextString lastPathComponent(std::string_view path) {
  size_t end = path.find_last_not_of('/');
  if (end == std::string_view::npos) return path.empty() ? TextString() : TextString(u"/");
  std::string_view trimmed = path.substr(0, end + 1);
  size_t slash = trimmed.rfind('/');
  return fromUtf8(slash == std::string_view::npos ? trimmed : trimmed.substr(slash + 1));
}

}  // namespace ulvek
