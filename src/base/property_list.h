#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/property_value.h"
#include "base/text_string.h"

namespace ulvek {

// Extensions of property-list files, compared without regard to case: the file tests and the
// markup decoding below them read the one list.
inline constexpr TextView kPropertyListExtensions[] = {
    u"PLIST", u"strings", u"qfilter", u"scriptSuite", u"entitlements", u"scriptTerminology"};

// Nesting deeper than this is refused as malformed: nobody writes such lists, attackers do.
inline constexpr int kMaxPropertyListDepth = 512;

// Parses a binary ("bplist00…"), XML or OpenStep text property list, or a strings file; nothing
// when the bytes are not one. A list nested deeper than kMaxPropertyListDepth is refused, with a
// log line naming the file where a name is given (probes that only peek give none).
std::optional<PropertyValue> propertyListFromBytes(std::span<const std::uint8_t> bytes,
                                                   std::string_view name = {});

// Serialises a value as a binary property list, version 1.0; nothing (with the serializer's
// message) when the value cannot be written.
std::optional<Data> binaryPropertyList(const PropertyValue& value,
                                       std::string* errorMessage = nullptr);

// Serialises a value as an XML property list.
std::optional<std::string> xmlPropertyList(const PropertyValue& value);

}  // namespace ulvek
