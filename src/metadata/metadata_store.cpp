#include "metadata/metadata_store.h"

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <vector>

#include "base/log.h"
#include "base/property_list.h"
#include "metadata/item_attributes.h"
#include "platform/extended_attributes.h"
#include "platform/user_defaults.h"

namespace ulvek {
namespace {

std::atomic<bool> useOpenMetaFlag{true};

constexpr std::string_view kBinaryPropertyListMagic = "bplist";

Error metaDataError(MetaDataErrorCode code, std::string description) {
  Error error;
  error.domain = std::string(kMetaDataErrorDomain);
  error.code = code;
  error.localizedDescription = std::move(description);
  return error;
}

Error keyTooLongError(std::string_view key) {
  return metaDataError(kMetaDataKeyTooLongError,
                       "The metadata key `" + std::string(key) + "' is too long to be used.");
}

bool keyTooLong(std::string_view key) { return fromUtf8(key).size() >= kMetaDataKeyLengthLimit; }

// Errors of the system and error 200 carry no failure reason; their description says what went
// wrong, so it stands in for the reason in the joined text.
std::string reasonOf(const Error& error) {
  return error.failureReason().value_or(error.localizedDescription);
}

// Error 201 or 202: one error for many single failures, their reasons in order.
Error summaryError(MetaDataErrorCode code, std::string description, const std::string& path,
                   const std::vector<Error>& failures) {
  Error error = metaDataError(code, std::move(description));
  std::string reasons;
  for (const Error& failure : failures) {
    if (!reasons.empty()) reasons += ", ";
    reasons += reasonOf(failure);
  }
  error.userInfo.emplace(std::string(kFilePathErrorKey), path);
  error.userInfo.emplace(std::string(kLocalizedFailureReasonErrorKey), std::move(reasons));
  return error;
}

// Property lists are recognised by their magic alone: text property lists and anything that
// does not parse stay the bytes they are.
PropertyValue decodedValue(Data bytes) {
  if (bytes.size() >= kBinaryPropertyListMagic.size() &&
      std::equal(kBinaryPropertyListMagic.begin(), kBinaryPropertyListMagic.end(), bytes.begin())) {
    if (auto value = propertyListFromBytes(bytes)) return std::move(*value);
  }
  return PropertyValue(std::move(bytes));
}

}  // namespace

Result<std::optional<std::set<std::string>>> OVMetaDataStore::metaDataKeysAtPath(
    const std::string& path, bool traverseLink) {
  // A path with a NUL byte has no file-system form.
  if (path.find('\0') != std::string::npos) return std::optional<std::set<std::string>>();
  int errorNumber = 0;
  auto keys = listMetadataKeys(path, traverseLink, &errorNumber);
  if (!keys) return Error::posix(errorNumber, path);
  if (keys->empty()) return std::optional<std::set<std::string>>();
  std::set<std::string> names;
  TextString ignored;
  for (std::string& key : *keys)
    if (fromUtf8Strict(key, ignored)) names.insert(std::move(key));
  return std::optional(std::move(names));
}

Partial<std::optional<PropertyDictionary>> OVMetaDataStore::metaDataDictionaryAtPath(
    const std::string& path, bool traverseLink) {
  std::optional<std::set<std::string>> names =
      metaDataKeysAtPath(path, traverseLink).take().value_or(std::nullopt);
  if (!names) return {};
  PropertyDictionary dictionary;
  std::vector<Error> failures;
  for (const std::string& name : *names) {
    Result<std::optional<PropertyValue>> value = objectForKey(name, path, traverseLink);
    if (!value)
      failures.push_back(value.error());
    else if (*value)
      dictionary.emplace(name, std::move(**value));
  }
  Partial<std::optional<PropertyDictionary>> answer;
  if (!failures.empty())
    answer.status = summaryError(kMetaDataReadError,
                                 "Couldn't read some or all metadata attributes.", path, failures);
  if (!dictionary.empty()) answer.value = std::move(dictionary);
  return answer;
}

Status OVMetaDataStore::setMetaDataDictionary(const PropertyDictionary& dictionary,
                                              const std::string& path, bool traverseLink) {
  std::vector<Error> failures;
  for (const auto& [key, value] : dictionary) {
    if (Status written = setObject(value, key, path, traverseLink); !written)
      failures.push_back(written.error());
  }
  if (failures.empty()) return {};
  return summaryError(kMetaDataWriteError, "Couldn't write some or all metadata attributes.", path,
                      failures);
}

Result<std::optional<PropertyValue>> OVMetaDataStore::objectForKey(std::string_view key,
                                                                   const std::string& path,
                                                                   bool traverseLink) {
  int errorNumber = 0;
  auto bytes = readMetadataAttribute(path, key, traverseLink, &errorNumber);
  if (!bytes) return Error::posix(errorNumber, path);
  if (bytes->empty()) return std::optional<PropertyValue>();
  return std::optional(decodedValue(std::move(*bytes)));
}

Status OVMetaDataStore::setObject(const PropertyValue& value, std::string_view key,
                                  const std::string& path, bool traverseLink) {
  if (keyTooLong(key)) return keyTooLongError(key);
  std::optional<Data> serialized;
  const Data* bytes = value.data();
  if (!bytes) {
    std::string message;
    serialized = binaryPropertyList(value, &message);
    if (!serialized) {
      Error failure = metaDataError(kMetaDataSerializationError, std::move(message));
      failure.userInfo.emplace(std::string(kLocalizedFailureReasonErrorKey), std::string(key));
      return failure;
    }
    bytes = &*serialized;
  }
  int errorNumber = 0;
  if (!writeMetadataAttribute(path, key, *bytes, traverseLink, &errorNumber))
    return Error::posix(errorNumber, path);
  return {};
}

Status OVMetaDataStore::removeObjectForKey(std::string_view key, const std::string& path,
                                           bool traverseLink) {
  if (keyTooLong(key)) return keyTooLongError(key);
  int errorNumber = 0;
  if (!removeMetadataAttribute(path, key, traverseLink, &errorNumber))
    return Error::posix(errorNumber, path);
  return {};
}

bool OVMetaDataStore::useOpenMeta() { return useOpenMetaFlag.load(std::memory_order_relaxed); }

void OVMetaDataStore::setUseOpenMeta(bool use) {
  useOpenMetaFlag.store(use, std::memory_order_relaxed);
}

Partial<std::optional<PropertyArray>> OVMetaDataStore::getUserTags(const std::string& path) {
  Partial<std::optional<PropertyDictionary>> attributes = metaDataDictionaryAtPath(path, false);
  Partial<std::optional<PropertyArray>> tags{std::nullopt, attributes.status};
  if (attributes.value) tags.value = ulvek::getUserTags(*attributes.value);
  return tags;
}

Result<bool> OVMetaDataStore::setUserTags(const PropertyArray& tags, const std::string& path) {
  if (!kPlatformHasSystemTags || userDefaultIsTrue("DisableFinderTags")) return false;
  if (Status written = setObject(PropertyValue(tags), MetaDataKey::UserTags, path, false); !written)
    return written.error();
  return true;
}

std::optional<Date> OVMetaDataStore::getUserTagsDate(const std::string& path) {
  if (!useOpenMeta()) return std::nullopt;
  static constexpr std::array<std::string_view, 3> kDateKeys = {
      MetaDataKey::OMUserTagTime, MetaDataKey::OpenMetaUserTagTime,
      MetaDataKey::OpenMetaUserTagTimeShort};
  for (std::string_view key : kDateKeys) {
    std::optional<PropertyValue> value =
        objectForKey(key, path, false).take().value_or(std::nullopt);
    if (!value) continue;
    if (const Date* date = value->date()) return *date;
    logLine("Invalid date: " + std::string(value->className()));
  }
  return std::nullopt;
}

Status OVMetaDataStore::setIsEditableNote(bool isEditableNote, const std::string& path,
                                          bool traverseLink) {
  if (isEditableNote)
    return setObject(PropertyValue(u"yes"), MetaDataKey::IsEditableNote, path, traverseLink);
  return removeObjectForKey(MetaDataKey::IsEditableNote, path, traverseLink);
}

Status OVMetaDataStore::setWhereFrom(TextView whereFrom, const std::string& path,
                                     bool traverseLink) {
  if (!whereFrom.empty())
    return setObject(PropertyValue(whereFrom), MetaDataKey::WhereFroms, path, traverseLink);
  return removeObjectForKey(MetaDataKey::WhereFroms, path, traverseLink);
}

Result<std::optional<PropertyValue>> OVMetaDataStore::finderCommentAtPath(const std::string& path,
                                                                          bool traverseLink) {
  return objectForKey(MetaDataKey::FinderComment, path, traverseLink);
}

namespace {

struct KeywordName {
  std::u16string_view keyword;
  std::u16string_view displayName;
};

// English display names of the keywords this library publishes; anything else falls back to its
// last component.
constexpr std::array<KeywordName, 6> kKeywordNames = {{
    {u"com.ulvek-technologies.metadata.in-reply-to", u"In Reply To"},
    {u"com.ulvek-technologies.metadata.references", u"References"},
    {u"com.ulvek-technologies.metadata.reply-to-url", u"Reply-To URL"},
    {u"com.ulvek-technologies.metadata.flagged", u"Flagged"},
    {u"com.ulvek-technologies.metadata.important", u"Important"},
    {u"com.ulvek-technologies.metadata.annotations", u"Annotations"},
}};

}  // namespace

TextString OVMetaDataKeyword::localizedKeyword(TextView keyword) {
  for (const KeywordName& entry : kKeywordNames)
    if (entry.keyword == keyword) return TextString(entry.displayName);
  size_t dot = keyword.rfind(u'.');
  TextView last = dot == TextView::npos ? keyword : keyword.substr(dot + 1);
  icu::UnicodeString upper(false, last.data(), static_cast<int32_t>(last.size()));
  upper.toUpper(icu::Locale::getRoot());
  return TextString(upper.getBuffer(), static_cast<size_t>(upper.length()));
}

}  // namespace ulvek
