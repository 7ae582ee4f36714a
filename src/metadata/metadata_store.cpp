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

std::optional<std::set<std::string>> OVMetaDataStore::metaDataKeysAtPath(const std::string& path,
                                                                         bool traverseLink,
                                                                         ErrorOut error) {
  clearError(error);
  // A path with a NUL byte has no file-system form.
  if (path.find('\0') != std::string::npos) return std::nullopt;
  int errorNumber = 0;
  auto keys = listMetadataKeys(path, traverseLink, &errorNumber);
  if (!keys) {
    setError(error, Error::posix(errorNumber, path));
    return std::nullopt;
  }
  if (keys->empty()) return std::nullopt;
  std::set<std::string> names;
  TextString ignored;
  for (std::string& key : *keys)
    if (fromUtf8Strict(key, ignored)) names.insert(std::move(key));
  return names;
}

std::optional<PropertyDictionary> OVMetaDataStore::metaDataDictionaryAtPath(const std::string& path,
                                                                            bool traverseLink,
                                                                            ErrorOut error) {
  auto names = metaDataKeysAtPath(path, traverseLink, error);
  clearError(error);
  if (!names) return std::nullopt;

  PropertyDictionary dictionary;
  std::vector<Error> failures;
  for (const std::string& name : *names) {
    std::optional<Error> failure;
    if (auto value = objectForKey(name, path, traverseLink, &failure))
      dictionary.emplace(name, std::move(*value));
    else if (failure)
      failures.push_back(std::move(*failure));
  }
  if (!failures.empty())
    setError(error, summaryError(kMetaDataReadError,
                                 "Couldn't read some or all metadata attributes.", path, failures));
  if (dictionary.empty()) return std::nullopt;
  return dictionary;
}

bool OVMetaDataStore::setMetaDataDictionary(const PropertyDictionary& dictionary,
                                            const std::string& path, bool traverseLink,
                                            ErrorOut error) {
  clearError(error);
  std::vector<Error> failures;
  for (const auto& [key, value] : dictionary) {
    std::optional<Error> failure;
    if (!setObject(value, key, path, traverseLink, &failure) && failure)
      failures.push_back(std::move(*failure));
  }
  if (failures.empty()) return true;
  setError(error, summaryError(kMetaDataWriteError,
                               "Couldn't write some or all metadata attributes.", path, failures));
  return false;
}

std::optional<PropertyValue> OVMetaDataStore::objectForKey(std::string_view key,
                                                           const std::string& path,
                                                           bool traverseLink, ErrorOut error) {
  clearError(error);
  int errorNumber = 0;
  auto bytes = readMetadataAttribute(path, key, traverseLink, &errorNumber);
  if (!bytes) {
    setError(error, Error::posix(errorNumber, path));
    return std::nullopt;
  }
  if (bytes->empty()) return std::nullopt;
  return decodedValue(std::move(*bytes));
}

bool OVMetaDataStore::setObject(const PropertyValue& value, std::string_view key,
                                const std::string& path, bool traverseLink, ErrorOut error) {
  clearError(error);
  if (keyTooLong(key)) {
    setError(error, keyTooLongError(key));
    return false;
  }
  std::optional<Data> serialized;
  const Data* bytes = value.data();
  if (!bytes) {
    std::string message;
    serialized = binaryPropertyList(value, &message);
    if (!serialized) {
      Error failure = metaDataError(kMetaDataSerializationError, std::move(message));
      failure.userInfo.emplace(std::string(kLocalizedFailureReasonErrorKey), std::string(key));
      setError(error, std::move(failure));
      return false;
    }
    bytes = &*serialized;
  }
  int errorNumber = 0;
  if (!writeMetadataAttribute(path, key, *bytes, traverseLink, &errorNumber)) {
    setError(error, Error::posix(errorNumber, path));
    return false;
  }
  return true;
}

bool OVMetaDataStore::removeObjectForKey(std::string_view key, const std::string& path,
                                         bool traverseLink, ErrorOut error) {
  clearError(error);
  if (keyTooLong(key)) {
    setError(error, keyTooLongError(key));
    return false;
  }
  int errorNumber = 0;
  if (!removeMetadataAttribute(path, key, traverseLink, &errorNumber)) {
    setError(error, Error::posix(errorNumber, path));
    return false;
  }
  return true;
}

bool OVMetaDataStore::useOpenMeta() { return useOpenMetaFlag.load(std::memory_order_relaxed); }

void OVMetaDataStore::setUseOpenMeta(bool use) {
  useOpenMetaFlag.store(use, std::memory_order_relaxed);
}

std::optional<PropertyArray> OVMetaDataStore::getUserTags(const std::string& path, ErrorOut error) {
  auto attributes = metaDataDictionaryAtPath(path, false, error);
  if (!attributes) return std::nullopt;
  return ulvek::getUserTags(*attributes);
}

bool OVMetaDataStore::setUserTags(const PropertyArray& tags, const std::string& path,
                                  ErrorOut error) {
  clearError(error);
  if (!kPlatformHasSystemTags || userDefaultIsTrue("DisableFinderTags")) return false;
  return setObject(PropertyValue(tags), MetaDataKey::UserTags, path, false, error);
}

std::optional<Date> OVMetaDataStore::getUserTagsDate(const std::string& path) {
  if (!useOpenMeta()) return std::nullopt;
  static constexpr std::array<std::string_view, 3> kDateKeys = {
      MetaDataKey::OMUserTagTime, MetaDataKey::OpenMetaUserTagTime,
      MetaDataKey::OpenMetaUserTagTimeShort};
  for (std::string_view key : kDateKeys) {
    auto value = objectForKey(key, path, false);
    if (!value) continue;
    if (const Date* date = value->date()) return *date;
    logLine("Invalid date: " + std::string(value->className()));
  }
  return std::nullopt;
}

bool OVMetaDataStore::setIsEditableNote(bool isEditableNote, const std::string& path,
                                        bool traverseLink, ErrorOut error) {
  if (isEditableNote)
    return setObject(PropertyValue(u"yes"), MetaDataKey::IsEditableNote, path, traverseLink, error);
  return removeObjectForKey(MetaDataKey::IsEditableNote, path, traverseLink, error);
}

bool OVMetaDataStore::setWhereFrom(TextView whereFrom, const std::string& path, bool traverseLink,
                                   ErrorOut error) {
  if (!whereFrom.empty())
    return setObject(PropertyValue(whereFrom), MetaDataKey::WhereFroms, path, traverseLink, error);
  return removeObjectForKey(MetaDataKey::WhereFroms, path, traverseLink, error);
}

std::optional<PropertyValue> OVMetaDataStore::finderCommentAtPath(const std::string& path,
                                                                  bool traverseLink,
                                                                  ErrorOut error) {
  return objectForKey(MetaDataKey::FinderComment, path, traverseLink, error);
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
