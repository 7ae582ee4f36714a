#include "readers/textbundle/text_bundle.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>
#include <vector>

#include "base/ascii.h"
#include "base/failure.h"
#include "base/log.h"
#include "platform/open_beneath.h"
#include "platform/temporary_items.h"
#include "readers/zip/zip_archive.h"
#include "text/character_tables.h"
#include "text/text_decoding.h"

namespace ulvek {

namespace fs = std::filesystem;

namespace {

constexpr std::array<TextView, 4> kTextBundleFileTypes = {u"textbundle", u"TEXTBUNDLE", u"textpack",
                                                          u"TEXTPACK"};
constexpr std::array<TextView, 18> kMarkDownFileTypes = {
    u"markdown", u"MARKDOWN", u"mdtext", u"MDTEXT", u"mkdown",  u"MKDOWN",
    u"mdown",    u"MDOWN",    u"mark",   u"MARK",   u"mdwn",    u"MDWN",
    u"mmd",      u"MMD",      u"md",     u"MD",     u"textile", u"TEXTILE"};

// Markdown extensions by length (2 to 8).
struct MarkDownRow {
  std::size_t length;
  std::array<TextView, 2> names;
};
constexpr std::array<MarkDownRow, 7> kMarkDownByLength = {{
    {2, {u"md", u""}},
    {3, {u"mmd", u""}},
    {4, {u"mdwn", u"mark"}},
    {5, {u"mdown", u""}},
    {6, {u"mdtext", u"mkdown"}},
    {7, {u"textile", u""}},
    {8, {u"markdown", u""}},
}};

// A folder's entry names, sorted; nothing when it cannot be listed.
std::optional<std::vector<std::string>> sortedListing(const std::string& folder) {
  std::error_code error;
  fs::directory_iterator entries(folder, error);
  if (error) return std::nullopt;
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : entries) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

// The bundle's first "text.*" entry decoded; nothing (with a log line) without one, or when it
// is not a regular file.
std::optional<TextString> bundleText(const std::string& folder, StringEncoding encoding,
                                     StringEncoding* usedEncoding) {
  std::optional<std::vector<std::string>> names = sortedListing(folder);
  if (!names) return std::nullopt;
  auto text = std::find_if(names->begin(), names->end(), [](const std::string& name) {
    return startsWithIgnoringASCIICase(name, "text.");
  });
  if (text == names->end()) {
    logLine("No text file in text bundle: " + folder);
    return std::nullopt;
  }
  // The text is read only where it lies inside the bundle: a link could name any file.
  Result<FileBytes> bytes = readFileBeneath(folder, *text);
  if (!bytes) {
    logFailure(FailureKind::Damaged,
               "Text of text bundle is not a file in it: " + folder + "/" + *text);
    return std::nullopt;
  }
  return stringWithFileBytes(bytes.value().bytes(), encoding, usedEncoding);
}

std::optional<TextString> textPackText(const std::string& path, StringEncoding encoding,
                                       StringEncoding* usedEncoding) {
  Result<TemporaryDirectory> folder = TemporaryDirectory::create("textpack");
  if (!folder) return std::nullopt;
  std::unique_ptr<ZipArchive> archive = ZipArchive::initWithZipFile(path);
  if (!archive) {
    logFailure(FailureKind::Damaged, "Text pack is not a zip archive: " + path);
    return std::nullopt;
  }
  if (Status unpacked = unpackZipArchive(*archive, folder->path()); !unpacked) return std::nullopt;
  std::optional<TextString> result;
  for (const std::string& name :
       sortedListing(folder->path()).value_or(std::vector<std::string>{})) {
    if (!endsWithIgnoringASCIICase(name, ".textbundle")) continue;
    std::string bundle = folder->path() + "/" + name;
    if (!fs::is_directory(fs::symlink_status(bundle))) continue;
    if (auto text = bundleText(bundle, encoding, usedEncoding)) result = std::move(text);
  }
  if (!result) logFailure(FailureKind::Damaged, "No text bundle in text pack: " + path);
  return result;
}

}  // namespace

bool isTextBundleFile(const std::string& path) {
  TextString extension = pathExtension(path);
  return isTextBundleExtension(TextView(extension), std::nullopt);
}

std::span<const TextView> textBundleFileTypes() { return kTextBundleFileTypes; }

bool isMarkDownExtension(OptionalText extension, OptionalText type) {
  if (!extension || extension->size() < 2 || extension->size() > 8) return false;
  for (const MarkDownRow& row : kMarkDownByLength) {
    if (row.length != extension->size()) continue;
    for (TextView name : row.names)
      if (!name.empty() && isEqualToStringIgnoringAsciiCase(*extension, name)) return true;
  }
  return false;
}

bool isMarkDownFile(const std::string& path) {
  TextString extension = pathExtension(path);
  return isMarkDownExtension(TextView(extension), std::nullopt);
}

std::span<const TextView> markDownFileTypes() { return kMarkDownFileTypes; }

std::optional<TextString> stringWithContentsOfTextBundleFile(const std::string& path,
                                                             StringEncoding encoding,
                                                             StringEncoding* usedEncoding) {
  if (path.empty()) return std::nullopt;
  if (endsWithIgnoringASCIICase(path, ".textbundle"))
    return bundleText(path, encoding, usedEncoding);
  if (endsWithIgnoringASCIICase(path, ".textpack"))
    return textPackText(path, encoding, usedEncoding);
  return std::nullopt;
}

bool decompressTextBundleFile(const std::string& source, const std::string& target) {
  if (source.empty() || target.empty()) return false;
  std::error_code error;
  if (endsWithIgnoringASCIICase(source, ".textbundle")) {
    fs::copy(source, target, fs::copy_options::recursive, error);
    if (!error) return true;
  }
  if (!endsWithIgnoringASCIICase(source, ".textpack")) return false;
  std::unique_ptr<ZipArchive> archive = ZipArchive::initWithZipFile(source);
  if (!archive) return false;
  std::string parent = fs::path(target).parent_path().string();
  if (parent.empty()) parent = ".";
  if (Status unpacked = unpackZipArchive(*archive, parent); !unpacked) return false;
  std::optional<std::vector<std::string>> names = sortedListing(parent);
  if (!names) return false;
  auto bundle = std::find_if(names->begin(), names->end(), [](const std::string& name) {
    return endsWithIgnoringASCIICase(name, ".textbundle");
  });
  if (bundle == names->end()) return false;
  std::string found = parent + "/" + *bundle;
  if (isEqualToStringIgnoringAsciiCase(fromUtf8(found), fromUtf8(target))) return true;
  fs::rename(found, target, error);
  return !error;
}

}  // namespace ulvek
