#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "base/property_value.h"
#include "base/text_limits.h"

namespace ulvek {

// The dictionary every import operation answers. Keys are fixed; a key is either absent or holds
// a real value.
namespace ImportKey {
inline constexpr std::string_view Title = "Title";
inline constexpr std::string_view Text = "Text";
inline constexpr std::string_view URL = "URL";
inline constexpr std::string_view Tags = "Tags";
inline constexpr std::string_view FileSize = "FileSize";
inline constexpr std::string_view SpotlightComment = "SpotlightComment";
inline constexpr std::string_view Description = "Description";
inline constexpr std::string_view Keywords = "Keywords";
inline constexpr std::string_view Author = "Author";
inline constexpr std::string_view Creation = "Creation";
inline constexpr std::string_view Modification = "Modification";
inline constexpr std::string_view Comment = "Comment";
inline constexpr std::string_view Copyright = "Copyright";
inline constexpr std::string_view Album = "Album";
inline constexpr std::string_view Composer = "Composer";
inline constexpr std::string_view AuthorAddresses = "AuthorAddresses";
inline constexpr std::string_view Recipient = "Recipient";
inline constexpr std::string_view RecipientAddresses = "RecipientAddresses";
inline constexpr std::string_view Email = "Email";
inline constexpr std::string_view IM = "IM";
inline constexpr std::string_view Phone = "Phone";

inline constexpr std::array<std::string_view, 21> All = {Title,        Text,
                                                         URL,          Tags,
                                                         FileSize,     SpotlightComment,
                                                         Description,  Keywords,
                                                         Author,       Creation,
                                                         Modification, Comment,
                                                         Copyright,    Album,
                                                         Composer,     AuthorAddresses,
                                                         Recipient,    RecipientAddresses,
                                                         Email,        IM,
                                                         Phone};

// Keys whose value is a list kept as one string, its items joined by line feeds.
inline constexpr std::array<std::string_view, 8> JoinedLists = {
    Tags, Author, AuthorAddresses, Recipient, RecipientAddresses, Email, IM, Phone};
}  // namespace ImportKey

class ImportResult {
 public:
  // put-if-present: stores the value when there is one; otherwise any earlier value stays.
  void putIfPresent(std::string_view key, std::optional<PropertyValue> value);
  // put-if-present for strings that must also be non-empty.
  void putIfNonEmpty(std::string_view key, std::optional<TextString> value);
  // put-or-remove: stores the value when there is one; otherwise removes the key.
  void putOrRemove(std::string_view key, std::optional<PropertyValue> value);
  void remove(std::string_view key);

  const PropertyValue* get(std::string_view key) const { return find(values_, key); }
  const TextString* string(std::string_view key) const;
  bool contains(std::string_view key) const { return get(key) != nullptr; }
  bool empty() const { return values_.empty(); }
  std::size_t size() const { return values_.size(); }

  const PropertyDictionary& values() const { return values_; }
  static ImportResult fromValues(PropertyDictionary values);

  // Cuts what is too large to travel: Text to kMaxTextUtf8Bytes, every other string (also in a
  // list) to kMaxValueBytes, lists to kMaxListCount, and all but Text together to
  // kMaxMetadataBytes, logging "Truncated: ORIGIN (KEY)" for each value cut. Every import ends
  // with it, so the command line and the service answer alike and a reply fits a bus message.
  void limitSizes(std::string_view origin);

  // Whether limitSizes cut the text. Travels with the result only where an interface says so.
  bool textTruncated() const { return textTruncated_; }

  static constexpr std::size_t kMaxValueBytes = kMaxValueUtf8Bytes;
  static constexpr std::size_t kMaxListCount = 4096;
  static constexpr std::size_t kMaxMetadataBytes = 16 * 1024 * 1024;

  bool operator==(const ImportResult& other) const { return values_ == other.values_; }

 private:
  PropertyDictionary values_;
  bool textTruncated_ = false;
};

// While it lives, limitSizes on this thread cuts the text at `bytes` of UTF-8 instead of
// kMaxTextUtf8Bytes: for answers whose text travels beside the message rather than in it.
class ScopedTextLimit {
 public:
  explicit ScopedTextLimit(std::size_t bytes);
  ~ScopedTextLimit();
  ScopedTextLimit(const ScopedTextLimit&) = delete;
  ScopedTextLimit& operator=(const ScopedTextLimit&) = delete;

 private:
  std::size_t previous_;
};

// Joins strings with a separator; nothing when the value is not an array of strings (elements
// that are not strings make the whole list count as "something else").
std::optional<TextString> joinedStrings(const PropertyValue& list, TextView separator);

}  // namespace ulvek
