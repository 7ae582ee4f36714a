#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "base/property_value.h"
#include "base/status.h"
#include "base/text_string.h"

namespace ulvek {

inline constexpr std::string_view kMetaDataErrorDomain =
    "com.ulvek-technologies.errordomain.MetaData";
inline constexpr std::string_view kMetaDataReadException = "OVMetaDataReadException";
inline constexpr std::string_view kMetaDataWriteException = "OVMetaDataWriteException";

// Error codes of kMetaDataErrorDomain.
enum MetaDataErrorCode : std::int64_t {
  kMetaDataKeyTooLongError = 200,
  kMetaDataReadError = 201,
  kMetaDataWriteError = 202,
  kMetaDataSerializationError = 203,
};

// Attribute names the store and its users share.
namespace MetaDataKey {
inline constexpr std::string_view InReplyTo = "com.ulvek-technologies.metadata.in-reply-to";
inline constexpr std::string_view References = "com.ulvek-technologies.metadata.references";
inline constexpr std::string_view ReplyToURL = "com.ulvek-technologies.metadata.reply-to-url";
inline constexpr std::string_view Flagged = "com.ulvek-technologies.metadata.flagged";
inline constexpr std::string_view Important = "com.ulvek-technologies.metadata.important";
inline constexpr std::string_view Annotations = "com.ulvek-technologies.metadata.annotations";
inline constexpr std::string_view TSVHeader = "com.ulvek-technologies.tsv-header";
inline constexpr std::string_view IsEditableNote = "com.ulvek-technologies.metadata:isEditableNote";
inline constexpr std::string_view WhereFroms = "com.apple.metadata:kMDItemWhereFroms";
inline constexpr std::string_view FinderComment = "com.apple.metadata:kMDItemFinderComment";
inline constexpr std::string_view UserTags = "com.apple.metadata:_kMDItemUserTags";
inline constexpr std::string_view OMUserTags = "com.apple.metadata:kMDItemOMUserTags";
inline constexpr std::string_view OMUserTagsShort = "com.apple.metadata:kOMUserTags";
inline constexpr std::string_view OpenMetaUserTags = "org.openmetainfo:kMDItemOMUserTags";
inline constexpr std::string_view OpenMetaUserTagsShort = "org.openmetainfo:kOMUserTags";
inline constexpr std::string_view OMUserTagTime = "com.apple.metadata:kMDItemOMUserTagTime";
inline constexpr std::string_view OpenMetaUserTagTime = "org.openmetainfo.time:kMDItemOMUserTags";
inline constexpr std::string_view OpenMetaUserTagTimeShort = "org.openmetainfo.time:kOMUserTags";
// What Linux programs write: browsers, wget and curl the origin, KDE the comment and tags.
inline constexpr std::string_view XdgOriginURL = "xdg.origin.url";
inline constexpr std::string_view XdgComment = "xdg.comment";
inline constexpr std::string_view XdgTags = "xdg.tags";
}  // namespace MetaDataKey

// Keys of this many UTF-16 units or more are refused by set and remove.
inline constexpr std::size_t kMetaDataKeyLengthLimit = 128;

// Whether the platform keeps system tags ("com.apple.metadata:_kMDItemUserTags"). This platform
// has no older tagging scheme of its own, so system tags are written and win over the open
// convention's.
inline constexpr bool kPlatformHasSystemTags = true;

// Typed access to the metadata a file keeps in its extended attributes. Keys and names are UTF-8;
// paths are file-system paths. `traverseLink` false acts on a symbolic link itself. Failures the
// caller must see come back as values: POSIX errors, or the store's codes 200 to 203.
class OVMetaDataStore {
 public:
  static constexpr std::string_view kClassName = "OVMetaDataStore";

  // The item's attribute names; nothing for an item without attributes; a POSIX error when
  // listing fails.
  static Result<std::optional<std::set<std::string>>> metaDataKeysAtPath(const std::string& path,
                                                                         bool traverseLink);
  // Every readable attribute, decoded; nothing when that would be empty. Values that failed to
  // read give error 201 beside the rest; a failure to list is not reported.
  static Partial<std::optional<PropertyDictionary>> metaDataDictionaryAtPath(
      const std::string& path, bool traverseLink);
  // Writes every entry, continuing after failures (error 202).
  static Status setMetaDataDictionary(const PropertyDictionary& dictionary, const std::string& path,
                                      bool traverseLink);

  // One value: property lists decoded, other bytes as Data; an empty attribute is nothing.
  static Result<std::optional<PropertyValue>> objectForKey(std::string_view key,
                                                           const std::string& path,
                                                           bool traverseLink);
  // Data is stored byte for byte, everything else as a binary property list.
  static Status setObject(const PropertyValue& value, std::string_view key, const std::string& path,
                          bool traverseLink);
  static Status removeObjectForKey(std::string_view key, const std::string& path,
                                   bool traverseLink);

  // Whether the open tagging convention's attributes are consulted (tags and tag dates).
  static bool useOpenMeta();
  static void setUseOpenMeta(bool use);

  // Tag names of the item itself (links not followed); see getUserTags in item_attributes.h.
  static Partial<std::optional<PropertyArray>> getUserTags(const std::string& path);
  // Writes the system tag attribute unless the user default "DisableFinderTags" is true: YES
  // when written, NO when the default kept it from being written.
  static Result<bool> setUserTags(const PropertyArray& tags, const std::string& path);
  // The date of the last tag change in the open convention; logs "Invalid date: %@".
  static std::optional<Date> getUserTagsDate(const std::string& path);
  // true writes "yes", false removes the flag.
  static Status setIsEditableNote(bool isEditableNote, const std::string& path, bool traverseLink);
  // A non-empty address is written as one string; an empty one removes the attribute.
  static Status setWhereFrom(TextView whereFrom, const std::string& path, bool traverseLink);
  // The stored comment value, of whatever kind it is.
  static Result<std::optional<PropertyValue>> finderCommentAtPath(const std::string& path,
                                                                  bool traverseLink);
};

// Display names for metadata keywords.
class OVMetaDataKeyword {
 public:
  // A known keyword's display name; otherwise its last dot-separated component in upper case.
  static TextString localizedKeyword(TextView keyword);
};

}  // namespace ulvek
