#include "platform/content_types.h"

#include <dlfcn.h>
#include <magic.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <filesystem>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/ascii.h"
#include "base/log.h"
#include "platform/content_signatures.h"
#include "platform/formats.h"
#include "platform/resource_fork.h"
#include "platform/type_codes.h"

namespace ulvek {
namespace {

// Splits a blank-separated list.
std::vector<std::string_view> words(std::string_view list) {
  std::vector<std::string_view> result;
  while (!list.empty()) {
    std::size_t blank = list.find(' ');
    std::string_view word = list.substr(0, blank);
    if (!word.empty()) result.push_back(word);
    if (blank == std::string_view::npos) break;
    list.remove_prefix(blank + 1);
  }
  return result;
}

// Splits a list of quoted four-character codes ("'PDF ' 'BMPf'") into the codes.
std::vector<std::string_view> quotedCodes(std::string_view list) {
  std::vector<std::string_view> result;
  std::size_t quote = list.find('\'');
  while (quote != std::string_view::npos && quote + 5 < list.size() && list[quote + 5] == '\'') {
    result.push_back(list.substr(quote + 1, 4));
    quote = list.find('\'', quote + 6);
  }
  return result;
}

// The registry in the form lookups want, built on first use and kept for the process, with the
// types importer plug-ins declare added as they are registered.
struct TypeIndex {
  struct Row {
    std::vector<std::string_view> extensions, mimeTypes, typeCodes, parents;
    ContentTypeInfo info;
  };
  // Deques: rows and the strings of declared ones never move once added.
  std::deque<Row> rows;
  std::deque<std::string> declaredStrings;
  std::deque<Format> declaredFormats;
  std::unordered_map<std::string_view, const Row*> byIdentifier;
  std::unordered_map<std::string_view, const Row*> byExtension;
  std::unordered_map<std::string_view, const Row*> byMIMEType;
  std::unordered_map<std::string_view, const Row*> byTypeCode;
  // Shared by lookups, taken alone by declarations.
  mutable std::shared_mutex lock;

  TypeIndex() {
    for (const Format& source : formats()) {
      Row& row = rows.emplace_back();
      row.extensions = words(source.extensions);
      row.mimeTypes = words(source.mimeTypes);
      row.typeCodes = quotedCodes(source.typeCodes);
      row.parents = words(source.parents);
      row.info = {source.identifier, row.extensions, row.mimeTypes,
                  row.typeCodes,     row.parents,    &source};
      index(row);
    }
  }

  // The first row to claim an identifier, extension or MIME type keeps it.
  void index(const Row& row) {
    byIdentifier.emplace(row.info.identifier, &row);
    for (std::string_view extension : row.extensions) byExtension.emplace(extension, &row);
    for (std::string_view mimeType : row.mimeTypes) byMIMEType.emplace(mimeType, &row);
    for (std::string_view typeCode : row.typeCodes) byTypeCode.emplace(typeCode, &row);
  }

  std::string_view keep(std::string_view text) { return declaredStrings.emplace_back(text); }

  void declare(const DeclaredContentType& type) {
    std::unique_lock guard(lock);
    std::string identifier = asciiLowercase(type.identifier);
    if (identifier.empty() || byIdentifier.contains(identifier)) return;
    Row& row = rows.emplace_back();
    for (const std::string& extension : type.extensions)
      row.extensions.push_back(keep(asciiLowercase(extension)));
    for (const std::string& mimeType : type.mimeTypes)
      row.mimeTypes.push_back(keep(asciiLowercase(mimeType)));
    for (const std::string& typeCode : type.typeCodes)
      if (typeCode.size() == 4) row.typeCodes.push_back(keep(typeCode));
    for (const std::string& parent : type.conformsTo) row.parents.push_back(keep(parent));
    std::string_view kept = keep(identifier);
    const Format& format = declaredFormats.emplace_back(Format{kept, kept, {}, {}, {}, {}, {}, {}});
    row.info = {kept, row.extensions, row.mimeTypes, row.typeCodes, row.parents, &format, true};
    index(row);
  }
};

TypeIndex& typeIndex() {
  static TypeIndex* index = new TypeIndex();
  return *index;
}

// A dynamic identifier names what is known without claiming a type: the tag class and its value
// ("dyn.mime-type.application.octet-stream"), the value hex-encoded when it holds characters an
// identifier may not.
std::string dynamicIdentifier(std::string_view tagClass, std::string_view value) {
  std::string readable = asciiLowercase(value);
  std::replace(readable.begin(), readable.end(), '/', '.');
  bool plain = !readable.empty() && std::all_of(readable.begin(), readable.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.';
  });
  std::string result = "dyn." + std::string(tagClass) + ".";
  if (plain) return result + readable;
  static constexpr char kHex[] = "0123456789abcdef";
  result += 'x';
  for (unsigned char c : value) {
    result += kHex[c >> 4];
    result += kHex[c & 15];
  }
  return result;
}

// libmagic keeps one cookie for the process; its calls are not re-entrant on one cookie. Most
// files are known by their names, so the library (with the compression libraries it pulls in)
// and its database are loaded only when a file's content must be looked at.
struct Magic {
  std::mutex lock;
  magic_t cookie = nullptr;
  decltype(&magic_file) file = nullptr;
  decltype(&magic_buffer) buffer = nullptr;

  Magic() {
    void* library = dlopen("libmagic.so.1", RTLD_NOW | RTLD_LOCAL);
    if (!library) {
      logLine(std::string("Couldn't load libmagic: ") + dlerror());
      return;
    }
    auto open = reinterpret_cast<decltype(&magic_open)>(dlsym(library, "magic_open"));
    auto load = reinterpret_cast<decltype(&magic_load)>(dlsym(library, "magic_load"));
    auto error = reinterpret_cast<decltype(&magic_error)>(dlsym(library, "magic_error"));
    auto close = reinterpret_cast<decltype(&magic_close)>(dlsym(library, "magic_close"));
    file = reinterpret_cast<decltype(&magic_file)>(dlsym(library, "magic_file"));
    buffer = reinterpret_cast<decltype(&magic_buffer)>(dlsym(library, "magic_buffer"));
    if (!open || !load || !error || !close || !file || !buffer) return;
    cookie = open(MAGIC_MIME_TYPE | MAGIC_SYMLINK | MAGIC_ERROR);
    if (cookie && load(cookie, nullptr) != 0) {
      logLine(std::string("Couldn't load the magic database: ") + error(cookie));
      close(cookie);
      cookie = nullptr;
    }
  }
};

Magic& sharedMagic() {
  static Magic* magic = new Magic();
  return *magic;
}

std::optional<std::string> magicAnswer(const char* answer) {
  if (!answer || !*answer) return std::nullopt;
  return asciiLowercase(answer);
}

std::string lastPathComponent(const std::string& path) {
  std::string_view name = path;
  while (name.size() > 1 && name.back() == '/') name.remove_suffix(1);
  std::size_t slash = name.rfind('/');
  if (slash != std::string_view::npos) name.remove_prefix(slash + 1);
  return std::string(name);
}

// The extension of a path as bytes: after the last dot of the last component, not when the dot
// starts or ends the name.
std::string extensionOfPath(const std::string& path) {
  std::string name = lastPathComponent(path);
  std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0 || dot + 1 == name.size()) return {};
  return name.substr(dot + 1);
}

// The file's type code as four ASCII characters; nothing when it has none or another kind.
std::optional<std::string> typeCodeOfFile(const std::string& path) {
  std::optional<TextString> quoted = HFSTypeOfFile(path);
  if (!quoted || quoted->size() != 6) return std::nullopt;
  std::string code;
  for (char16_t unit : quoted->substr(1, 4)) {
    if (unit < 0x20 || unit > 0x7e) return std::nullopt;
    code += static_cast<char>(unit);
  }
  return code;
}

bool hasBundleBit(const std::string& path) {
  // Folder Finder info keeps its flags at bytes 8 and 9; 0x2000 is "has bundle".
  std::optional<Data> info = finderInfoBytes(path);
  return info && info->size() >= 10 && ((*info)[8] & 0x20) != 0;
}

// The first row claiming the extension that is a package: a folder named as a zipped book is the
// book's folder, not the zip archive the extension names first.
std::optional<std::string_view> packageTypeForExtension(const std::string& extension) {
  if (extension.empty()) return std::nullopt;
  std::vector<std::string_view> claiming;
  {
    const TypeIndex& index = typeIndex();
    std::string key = asciiLowercase(extension);
    std::shared_lock guard(index.lock);
    for (const TypeIndex::Row& row : index.rows)
      if (std::find(row.extensions.begin(), row.extensions.end(), key) != row.extensions.end())
        claiming.push_back(row.info.identifier);
  }
  // Conformance takes the lock again, so it is asked after the scan.
  for (std::string_view type : claiming)
    if (typeConformsTo(type, kUTTypePackage)) return type;
  return std::nullopt;
}

}  // namespace

const ContentTypeInfo* contentTypeInfo(std::string_view identifier) {
  const TypeIndex& index = typeIndex();
  std::shared_lock guard(index.lock);
  auto found = index.byIdentifier.find(identifier);
  return found == index.byIdentifier.end() ? nullptr : &found->second->info;
}

std::optional<std::string_view> contentTypeForExtension(std::string_view extension) {
  if (extension.empty()) return std::nullopt;
  const TypeIndex& index = typeIndex();
  std::string key = asciiLowercase(extension);
  std::shared_lock guard(index.lock);
  auto found = index.byExtension.find(key);
  if (found == index.byExtension.end()) return std::nullopt;
  return found->second->info.identifier;
}

std::optional<std::string_view> contentTypeForMIMEType(std::string_view mimeType) {
  std::size_t semicolon = mimeType.find(';');
  if (semicolon != std::string_view::npos) mimeType = mimeType.substr(0, semicolon);
  while (!mimeType.empty() && mimeType.back() == ' ') mimeType.remove_suffix(1);
  while (!mimeType.empty() && mimeType.front() == ' ') mimeType.remove_prefix(1);
  if (mimeType.empty()) return std::nullopt;
  const TypeIndex& index = typeIndex();
  std::string key = asciiLowercase(mimeType);
  std::shared_lock guard(index.lock);
  auto found = index.byMIMEType.find(key);
  if (found == index.byMIMEType.end()) return std::nullopt;
  return found->second->info.identifier;
}

std::optional<std::string_view> contentTypeForTypeCode(std::string_view typeCode) {
  if (typeCode.size() != 4) return std::nullopt;
  const TypeIndex& index = typeIndex();
  std::shared_lock guard(index.lock);
  auto found = index.byTypeCode.find(typeCode);
  if (found == index.byTypeCode.end()) return std::nullopt;
  return found->second->info.identifier;
}

std::optional<std::string_view> preferredExtension(std::string_view identifier) {
  const ContentTypeInfo* info = contentTypeInfo(identifier);
  if (!info || info->extensions.empty()) return std::nullopt;
  return info->extensions.front();
}

std::optional<std::string_view> preferredMIMEType(std::string_view identifier) {
  const ContentTypeInfo* info = contentTypeInfo(identifier);
  if (!info || info->mimeTypes.empty()) return std::nullopt;
  return info->mimeTypes.front();
}

bool typeConformsTo(std::string_view type, std::string_view conformsTo) {
  if (type.empty() || conformsTo.empty()) return false;
  if (type == conformsTo) return true;
  // The tree is a small acyclic graph; a walk with a visited list stays safe even if a row
  // were ever to name itself as an ancestor.
  std::vector<std::string_view> pending{type};
  std::vector<std::string_view> visited;
  while (!pending.empty()) {
    std::string_view current = pending.back();
    pending.pop_back();
    if (current == conformsTo) return true;
    if (std::find(visited.begin(), visited.end(), current) != visited.end()) continue;
    visited.push_back(current);
    if (const ContentTypeInfo* info = contentTypeInfo(current))
      pending.insert(pending.end(), info->parents.begin(), info->parents.end());
  }
  return false;
}

namespace {

// The first answer of `field` for `type` and then its ancestors, nearest first (breadth first,
// parents in order).
template <class Field>
std::optional<std::string_view> nearest(std::string_view type, Field field) {
  const TypeIndex& index = typeIndex();
  std::shared_lock guard(index.lock);
  std::vector<std::string_view> queue{type};
  for (std::size_t next = 0; next < queue.size() && next < index.rows.size(); ++next) {
    auto found = index.byIdentifier.find(queue[next]);
    if (found == index.byIdentifier.end()) continue;
    if (std::optional<std::string_view> answer = field(found->second->info)) return answer;
    for (std::string_view parent : found->second->info.parents)
      if (std::find(queue.begin(), queue.end(), parent) == queue.end()) queue.push_back(parent);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string_view> readerForContentType(std::string_view type) {
  return nearest(type, [](const ContentTypeInfo& info) -> std::optional<std::string_view> {
    if (info.format->reader.empty()) return std::nullopt;
    return info.format->reader;
  });
}

std::optional<std::string_view> mimeTypeOfContentType(std::string_view identifier) {
  return nearest(identifier, [](const ContentTypeInfo& info) -> std::optional<std::string_view> {
    if (info.mimeTypes.empty()) return std::nullopt;
    return info.mimeTypes.front();
  });
}

void declareContentType(const DeclaredContentType& type) { typeIndex().declare(type); }

bool isDocumentFolderExtension(std::string_view extension) {
  std::optional<std::string_view> type = contentTypeForExtension(extension);
  return type && (typeConformsTo(*type, kUTTypePackage) ||
                  typeConformsTo(*type, "public.composite-content"));
}

std::optional<std::string> sniffedMIMETypeOfFile(const std::string& path) {
  Magic& magic = sharedMagic();
  std::lock_guard guard(magic.lock);
  if (!magic.cookie || path.empty()) return std::nullopt;
  return magicAnswer(magic.file(magic.cookie, path.c_str()));
}

std::optional<std::string> sniffedMIMEType(std::span<const std::uint8_t> bytes) {
  Magic& magic = sharedMagic();
  std::lock_guard guard(magic.lock);
  if (!magic.cookie) return std::nullopt;
  return magicAnswer(magic.buffer(magic.cookie, bytes.data(), bytes.size()));
}

std::optional<std::string> contentTypeFromContent(const std::string& path, ContentScope scope) {
  std::optional<std::string> head = fileHead(path);
  if (!head) return std::nullopt;
  if (auto type = signatureType(*head, path, scope != ContentScope::NotText))
    return std::string(*type);
  if (scope != ContentScope::Any && head->find('\0') == std::string::npos) return std::nullopt;
  std::optional<std::string> sniffed = sniffedMIMETypeOfFile(path);
  if (!sniffed) return std::nullopt;
  if (auto type = contentTypeForMIMEType(*sniffed)) {
    // Past the signatures, libmagic saying "text" (UTF-16 has NUL bytes) tells a text name
    // nothing new.
    if (scope != ContentScope::Any && typeConformsTo(*type, kUTTypeText)) return std::nullopt;
    return std::string(*type);
  }
  return dynamicIdentifier("mime-type", *sniffed);
}

std::optional<std::string> typeOfFile(const std::string& path) {
  if (path.empty()) return std::nullopt;
  std::error_code statusError;
  std::filesystem::file_status status = std::filesystem::status(path, statusError);
  if (statusError || !std::filesystem::exists(status)) return std::nullopt;
  std::string extension = extensionOfPath(path);
  if (std::filesystem::is_directory(status)) {
    if (auto package = packageTypeForExtension(extension)) return std::string(*package);
    if (hasBundleBit(path)) return std::string(kUTTypePackage);
    return std::string(kUTTypeFolder);
  }
  std::optional<std::string_view> named = contentTypeForExtension(extension);
  // Old files without a known extension may still carry a type code that names their type.
  if (!named) {
    if (std::optional<std::string> code = typeCodeOfFile(path))
      named = contentTypeForTypeCode(*code);
  }
  if (auto type = named) {
    // A name that says text may hide a document of another kind; one that says plain text may
    // hide any other kind, text ones too.
    if (typeConformsTo(*type, kUTTypeText)) {
      std::optional<std::string> found = contentTypeFromContent(
          path, typeConformsTo(*type, kUTTypePlainText) ? ContentScope::Signatures
                                                        : ContentScope::NotText);
      if (found && !typeConformsTo(*found, *type) && contentTypeInfo(*found)) return found;
    }
    return std::string(*type);
  }
  if (std::optional<std::string> found = contentTypeFromContent(path, ContentScope::Any)) {
    if (contentTypeInfo(*found) || extension.empty()) return found;
  }
  if (!extension.empty()) return dynamicIdentifier("filename-extension", extension);
  return std::nullopt;
}

Result<bool> isPackageAtPath(const std::string& path) {
  if (path.empty()) return false;
  std::error_code statusError;
  std::filesystem::file_status status = std::filesystem::symlink_status(path, statusError);
  if (statusError || !std::filesystem::exists(status))
    return Error::posix(statusError ? statusError.value() : ENOENT, path);
  if (!std::filesystem::is_directory(status)) return false;
  return packageTypeForExtension(extensionOfPath(path)).has_value() || hasBundleBit(path);
}

}  // namespace ulvek
