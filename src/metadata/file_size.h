#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/property_value.h"
#include "base/status.h"

namespace ulvek {

// Resource properties an item can be asked for.
namespace ResourceKey {
inline constexpr std::string_view IsPackage = "NSURLIsPackageKey";
inline constexpr std::string_view IsDirectory = "NSURLIsDirectoryKey";
inline constexpr std::string_view IsRegularFile = "NSURLIsRegularFileKey";
inline constexpr std::string_view IsSymbolicLink = "NSURLIsSymbolicLinkKey";
inline constexpr std::string_view FileSize = "NSURLFileSizeKey";
}  // namespace ResourceKey

// Entries looked at in one folder's sum: a tree of millions answers what was counted by then
// rather than holding the service for minutes.
inline constexpr std::uint64_t kMaxFolderEntries = 1'000'000;

// Bytes of a file's data plus its resource fork; for a folder, the sum over the files inside it
// down to 100 levels and over at most `maxEntries` entries, symbolic links inside it not followed,
// never entering /dev or the kernel's file systems (/proc, /sys, …). 0 for anything that cannot
// be examined.
std::uint64_t fileSizeAtPath(const std::string& path, std::uint64_t maxEntries = kMaxFolderEntries);

// A resource property of the item at the path (the item itself, a final symbolic link not
// followed); nothing for an unknown key or an empty path. A missing item answers a POSIX error.
Result<std::optional<PropertyValue>> getResourceValueForKey(std::string_view key,
                                                            const std::string& path);

// The Boolean value of that property; false when it is missing, not a Boolean, or cannot be had.
bool getBoolValueForKey(std::string_view key, const std::string& path);

}  // namespace ulvek
