#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/property_value.h"

namespace ulvek {

// The user's defaults live in a property list at $XDG_CONFIG_HOME/ulvekbot/defaults.plist
// ($HOME/.config when XDG_CONFIG_HOME is unset).
std::string userDefaultsPath();

// Reads the defaults file afresh; nothing when the key (or the file) is missing.
std::optional<PropertyValue> userDefault(std::string_view key);

// A Boolean default: true for the Boolean true, a non-zero number or the strings "YES"/"true"/"1".
bool userDefaultIsTrue(std::string_view key);

}  // namespace ulvek
