#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "base/property_value.h"

namespace ulvek {

// Parses an OpenStep text property list: `{ key = value; }` dictionaries, `( a, b )` arrays,
// `<0fbd 7777>` data, quoted and bare strings, with `//` and `/* */` comments; or a strings file,
// a dictionary's entries without the braces (`"key" = "value";`, `"key";` meaning key = key).
// The text is UTF-8, or UTF-16 after its byte-order mark. Nothing when the bytes are not such a
// list, when nesting passes kMaxPropertyListDepth, or when the top level is a bare word (every
// word would otherwise be a property list).
std::optional<PropertyValue> openStepPropertyListFromBytes(std::span<const std::uint8_t> bytes);

}  // namespace ulvek
