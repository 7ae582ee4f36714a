#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/property_value.h"

namespace ulvek {

// The one place that talks to the system's extended-attribute calls. Metadata key K lives in the
// Linux attribute "user.K": the other namespaces are the system's, and "user." is the only one an
// ordinary process may write. `followLinks` false acts on a symbolic link itself; note that Linux
// refuses "user." attributes on symbolic links (EPERM on write, nothing to list or read).
//
// Every call answers nothing (or false) on failure and stores the system's error number in
// `errorNumber` when one is given; on success `errorNumber` is set to 0.

inline constexpr std::string_view kUserAttributePrefix = "user.";

// The item's metadata keys: its "user." attribute names without the prefix, in the system's
// order, as raw bytes (not checked for UTF-8). Attributes of other namespaces are left out. An
// item without attributes answers an empty list.
std::optional<std::vector<std::string>> listMetadataKeys(const std::string& path, bool followLinks,
                                                         int* errorNumber = nullptr);

// The bytes of metadata key `key` (attribute "user.<key>"). An attribute of length 0 answers
// empty bytes; a missing one fails with ENODATA.
std::optional<Data> readMetadataAttribute(const std::string& path, std::string_view key,
                                          bool followLinks, int* errorNumber = nullptr);

// Creates or replaces metadata key `key` with `bytes`.
bool writeMetadataAttribute(const std::string& path, std::string_view key,
                            std::span<const std::uint8_t> bytes, bool followLinks,
                            int* errorNumber = nullptr);

// Removes metadata key `key`; a missing attribute fails with ENODATA.
bool removeMetadataAttribute(const std::string& path, std::string_view key, bool followLinks,
                             int* errorNumber = nullptr);

// The bytes of any attribute by its full Linux name ("user.com.apple.FinderInfo"). An attribute
// of length 0 answers empty bytes; a missing one fails with ENODATA.
std::optional<Data> readExtendedAttribute(const std::string& path, const std::string& name,
                                          bool followLinks, int* errorNumber = nullptr);

// Creates or replaces, or removes, any attribute by its full Linux name.
bool writeExtendedAttribute(const std::string& path, const std::string& name,
                            std::span<const std::uint8_t> bytes, bool followLinks,
                            int* errorNumber = nullptr);
bool removeExtendedAttribute(const std::string& path, const std::string& name, bool followLinks,
                             int* errorNumber = nullptr);

}  // namespace ulvek
