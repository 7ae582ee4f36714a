#include <optional>

#include "import/mime_type_helper.h"
#include "metadata/item_attributes.h"
#include "metadata/metadata_store.h"
#include "text/string_utilities.h"

namespace ulvek {
namespace {

const PropertyDictionary kNoAttributes;

// The comment, where-from address and tags an item keeps in its extended attributes.
void putStoredAttributes(MIMETypeHelper& helper, ImportResult& result, const std::string& path,
                         const std::optional<PropertyDictionary>& stored) {
  const PropertyDictionary& attributes = stored ? *stored : kNoAttributes;
  result.putOrRemove(ImportKey::SpotlightComment,
                     helper.getFinderCommentAtPath(path, stored ? &*stored : nullptr));
  result.putOrRemove(ImportKey::URL, getWhereFrom(attributes));
  std::optional<TextString> tags;
  if (auto names = getUserTags(attributes)) tags = joinedStrings(PropertyValue(*names), u"\n");
  result.putOrRemove(ImportKey::Tags, tags);
}

}  // namespace

ImportResult MIMETypeHelper::openDirectory(const std::string& path) {
  ImportResult result;
  auto stored = OVMetaDataStore::metaDataDictionaryAtPath(path, false).value;
  // Unlike openFile, an empty stored title falls back to the folder's name.
  std::optional<TextString> title = getItemTitleForFile(stored ? *stored : kNoAttributes, path);
  if (!title || title->empty()) title = lastPathComponent(path);
  result.putOrRemove(ImportKey::Title, stringByTrimmingWhiteSpaces(*title));
  putStoredAttributes(*this, result, path, stored);
  result.limitSizes(path);
  return result;
}

ImportResult MIMETypeHelper::openAttributes(const std::string& path) {
  ImportResult result;
  auto stored = OVMetaDataStore::metaDataDictionaryAtPath(path, false).value;
  putStoredAttributes(*this, result, path, stored);
  result.limitSizes(path);
  return result;
}

std::optional<TextString> MIMETypeHelper::getFinderCommentAtPath(
    const std::string& path, const PropertyDictionary* xattributes) const {
  if (xattributes) {
    auto comment = getFinderComment(*xattributes);
    const TextString* text = comment ? comment->string() : nullptr;
    if (text && !text->empty()) return *text;
  }
  return finderComment(path, true);
}

}  // namespace ulvek
