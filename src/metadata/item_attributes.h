#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/property_value.h"
#include "base/text_string.h"

namespace ulvek {

// Accessors over an item's attribute dictionary (extended-attribute names as the metadata store
// reads them) or its Spotlight attribute dictionary. They only read; values of the wrong kind
// give nothing.

// Tagging.
// System tags first, the open convention's when there are none; an empty list is an answer.
// Tags Linux programs keep ("user.xdg.tags") are added after them, without repeats.
std::optional<PropertyArray> getUserTags(const PropertyDictionary& attributes);
// The comma-separated "user.xdg.tags" as KDE writes it, trimmed, without empties or repeats.
std::vector<TextString> getXdgTags(const PropertyDictionary& attributes);
// System tag names: each element up to its first line feed; elements that are not strings are
// skipped. Logs "Invalid array: %@" for a value that is not an array.
std::optional<PropertyArray> getMavericksTags(const PropertyDictionary& attributes);
// The first non-empty array of the open convention's four attributes, as stored; nothing when
// the store's useOpenMeta is off. Logs "Invalid array: %@" for each value that is not an array.
std::optional<PropertyArray> getOpenMetaTags(const PropertyDictionary& attributes);

// Attributes.
// Where the item came from: an array's first element, UTF-8 bytes (up to a terminating 0), or a
// string; nothing for anything else. Without a Mac address, "user.xdg.origin.url".
std::optional<TextString> getWhereFrom(const PropertyDictionary& attributes);
// The stored comment, of whatever kind it is; without one, "user.xdg.comment" as a string.
std::optional<PropertyValue> getFinderComment(const PropertyDictionary& attributes);
bool isEditableNote(const PropertyDictionary& attributes);
// The stored "kMDItemTitle", unless it only repeats (ignoring case) the file's name or path.
// An empty path counts as no path.
std::optional<TextString> getItemTitleForFile(const PropertyDictionary& attributes,
                                              std::string_view path);

// The comment of the item in the system's metadata index. There is no such index here, so the
// answer is always nothing; the comment comes from the extended attribute alone.
std::optional<TextString> finderComment(const std::string& path, bool useAppleScript);

// The last component of a file-system path as text, trailing slashes ignored ("/" stays "/");
// bytes that are not UTF-8 become U+FFFD.
TextString lastPathComponent(std::string_view path);

}  // namespace ulvek
