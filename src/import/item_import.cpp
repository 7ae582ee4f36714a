#include "import/item_import.h"

#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>

#include "base/deadline.h"
#include "import/reader_time_limit.h"
#include "importers/metadata_importer.h"
#include "metadata/file_size.h"
#include "platform/content_types.h"
#include "platform/resource_fork.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

// What the line says of the file's type beside the result's keys: the type identifier and, where
// the registry has one, its MIME type.
PropertyDictionary typeMembers(const std::optional<std::string>& contentType) {
  PropertyDictionary members;
  if (!contentType) return members;
  members["ContentType"] = PropertyValue::fromUtf8(*contentType);
  if (std::optional<std::string_view> mimeType = mimeTypeOfContentType(*contentType))
    members["MIMEType"] = PropertyValue::fromUtf8(*mimeType);
  return members;
}

// The text cut to at most `maxBytes` bytes of UTF-8, never inside a character.
std::string cutText(std::string text, std::size_t maxBytes) {
  if (text.size() <= maxBytes) return text;
  std::size_t end = maxBytes;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  text.resize(end);
  return text;
}

// Images, sound, video and archives have no text by nature; other files without text were read
// and found empty.
bool withoutTextByNature(const std::optional<std::string>& contentType) {
  if (!contentType) return false;
  for (std::string_view kind :
       {kUTTypeImage, std::string_view("public.audiovisual-content"),
        std::string_view("public.archive"), std::string_view("public.executable")})
    if (typeConformsTo(*contentType, kind)) return true;
  return false;
}

// A package, or a folder that its name makes one document (an unpacked book): one item, as the
// service reads it.
bool isOneItem(const std::string& path) {
  return getBoolValueForKey(ResourceKey::IsPackage, path) ||
         isDocumentFolderExtension(toUtf8(pathExtension(path)));
}

}  // namespace

PropertyValue errorMember(const Failure& failure) {
  return PropertyValue(
      PropertyDictionary{{"kind", PropertyValue::fromUtf8(failureKindName(failure.kind))},
                         {"message", PropertyValue::fromUtf8(failure.message)}});
}

bool isJoinedList(std::string_view key) {
  return std::find(ImportKey::JoinedLists.begin(), ImportKey::JoinedLists.end(), key) !=
         ImportKey::JoinedLists.end();
}

PropertyValue splitList(const PropertyValue& value) {
  const TextString* joined = value.string();
  if (!joined) return value;
  PropertyArray items;
  std::size_t start = 0;
  while (start <= joined->size()) {
    std::size_t end = std::min(joined->find(u'\n', start), joined->size());
    items.emplace_back(joined->substr(start, end - start));
    start = end + 1;
  }
  return PropertyValue(std::move(items));
}

ItemAnswer failedItem(const Failure& failure) {
  ItemAnswer answer;
  answer.failure = failure;
  answer.extra["Error"] = errorMember(failure);
  return answer;
}

ItemAnswer importItem(MIMETypeHelper& helper, const std::string& path, const ItemOptions& options) {
  ItemAnswer answer;
  try {
    std::error_code error;
    fs::path absolute = fs::absolute(path, error);
    ImportDetails details;
    ReadingDeadline deadline(readingLimitOfSeconds(options.timeLimit));
    ScopedOCRChoice ocr(options.ocr);
    ScopedCores cores(options.cores);
    ImportResult result = helper.openFile(error ? path : absolute.string(), details);
    if (const PropertyValue* size = result.get(ImportKey::FileSize)) {
      if (const std::uint64_t* value = size->unsignedInteger()) answer.bytes = *value;
    }
    const TextString* text = result.string(ImportKey::Text);
    answer.extra = typeMembers(details.contentType);
    if (details.textSource)
      answer.extra["TextSource"] = PropertyValue::fromUtf8(*details.textSource);
    if (details.failure) {
      answer.failure = details.failure;
      answer.logged = true;
      answer.extra["Error"] = errorMember(*details.failure);
    } else if (!text && withoutTextByNature(details.contentType)) {
      answer.byNature = true;
    }
    // A UTF-8 copy of the text only where it is cut.
    if (text && options.maxText != ItemOptions::kNoLimit)
      result.putOrRemove(ImportKey::Text,
                         PropertyValue::fromUtf8(cutText(toUtf8(*text), options.maxText)));
    answer.result = std::move(result);
  } catch (const std::exception& exception) {
    answer = failedItem(Failure{FailureKind::Damaged, exception.what()});
  }
  return answer;
}

void ItemWalk::failEarly(const std::string& path, int error) {
  FailureKind kind =
      error == EACCES || error == EPERM ? FailureKind::Permission : FailureKind::NotFound;
  found_.push_back({path, Failure{kind, std::strerror(error)}});
}

std::optional<WalkItem> ItemWalk::next() {
  for (;;) {
    if (!found_.empty()) {
      WalkItem item = std::move(found_.front());
      found_.pop_front();
      return item;
    }
    if (!folders_.empty()) {
      Folder& folder = folders_.back();
      if (folder.at == folder.entries.size()) {
        folders_.pop_back();
        continue;
      }
      // Visiting may open a folder below and move this one.
      const std::filesystem::directory_entry entry = std::move(folder.entries[folder.at++]);
      const std::string relative = folder.relative;
      visit(entry, relative, folder.depth);
      continue;
    }
    if (named_.empty()) return std::nullopt;
    std::string path = std::move(named_.front());
    named_.pop_front();
    start(path);
  }
}

std::vector<WalkItem> ItemWalk::takeItems() {
  std::vector<WalkItem> items;
  while (std::optional<WalkItem> item = next()) items.push_back(std::move(*item));
  return items;
}

void ItemWalk::start(const std::string& path) {
  // Listed with line feeds, a NUL-separated list is one name that no file has.
  if (path.find('\0') != std::string::npos) {
    found_.push_back(
        {path, Failure{FailureKind::NotFound,
                       "a path cannot hold a NUL byte (-0 reads NUL-separated lists)"}});
    return;
  }
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) {
    failEarly(path, errno);
    return;
  }
  // A folder named is walked, unless it is a package; a named link is taken as the user named it.
  struct stat target {};
  bool isFolder = ::stat(path.c_str(), &target) == 0 && S_ISDIR(target.st_mode);
  if (!isFolder || isOneItem(path)) {
    found_.push_back({path, {}});
    return;
  }
  firstVisit(path);
  open(path, "", 0);
}

bool ItemWalk::excluded(const std::string& name, const std::string& relative) const {
  return std::any_of(options_.excludes.begin(), options_.excludes.end(), [&](const auto& glob) {
    return ::fnmatch(glob.c_str(), name.c_str(), 0) == 0 ||
           ::fnmatch(glob.c_str(), relative.c_str(), 0) == 0;
  });
}

bool ItemWalk::firstVisit(const std::string& folder) {
  struct stat info {};
  if (::stat(folder.c_str(), &info) != 0) return true;
  return walked_.emplace(info.st_dev, info.st_ino).second;
}

void ItemWalk::open(const std::string& folder, std::string relative, std::size_t depth) {
  std::error_code error;
  Folder opened{.entries = {}, .at = 0, .relative = std::move(relative), .depth = depth};
  // A folder that cannot be read is a failure of its own, not an empty folder.
  for (fs::directory_iterator it(folder, error); !error && it != fs::directory_iterator();
       it.increment(error))
    opened.entries.push_back(*it);
  if (error) {
    failEarly(folder, error.value());
    return;
  }
  std::sort(opened.entries.begin(), opened.entries.end());
  folders_.push_back(std::move(opened));
}

void ItemWalk::visit(const fs::directory_entry& entry, const std::string& relative,
                     std::size_t depth) {
  std::string name = entry.path().filename().string();
  std::string path = entry.path().string();
  std::string entryRelative = relative.empty() ? name : relative + "/" + name;
  if (excluded(name, entryRelative)) return;
  std::error_code statusError;
  fs::file_status status = entry.symlink_status(statusError);
  if (statusError) return;
  if (fs::is_symlink(status)) {
    // A broken link is skipped even when links are followed.
    if (options_.followLinks) status = entry.status(statusError);
    if (!options_.followLinks || statusError || !fs::exists(status)) {
      ++skippedLinks_;
      return;
    }
  }
  const std::size_t maxDepth = options_.recursive ? options_.maxDepth : 0;
  if (fs::is_directory(status)) {
    if (isOneItem(path))
      found_.push_back({std::move(path), {}});
    else if (depth < maxDepth && firstVisit(path))
      open(path, std::move(entryRelative), depth + 1);
    return;
  }
  // "._NAME" beside NAME carries NAME's fork and Finder info: it is read with NAME.
  if (fs::is_regular_file(status) && !isAppleDoubleCompanion(path))
    found_.push_back({std::move(path), {}});
}

}  // namespace ulvek
