#pragma once

#include <optional>
#include <span>
#include <string>

#include "base/property_value.h"

namespace ulvek {

// The binary property list format, version "bplist00", read and written by us: libplist drops
// everything after a NUL unit in ASCII strings, cannot tell a 16-byte unsigned integer from a
// negative one, recurses once per nesting level and aborts on some damaged dictionaries.

// Nothing when the bytes are not a well-formed list, nest deeper than kMaxPropertyListDepth,
// hold a cycle, or would expand (through shared objects) beyond a few million values.
std::optional<PropertyValue> readBinaryPropertyList(std::span<const std::uint8_t> bytes);

// Strings are written as ASCII where they are, UTF-16 otherwise, NUL units included; unsigned
// integers above the signed range as 16-byte integers. Nothing (with a message) for strings that
// are not valid Unicode and nesting beyond the limit.
std::optional<Data> writeBinaryPropertyList(const PropertyValue& value,
                                            std::string* errorMessage = nullptr);

}  // namespace ulvek
