#pragma once

#include <string>
#include <string_view>

#include <systemd/sd-bus.h>

#include "base/property_value.h"
#include "protocol/import_result.h"

// Property values and import results on the wire, as the D-Bus dictionary `a{sv}`.
//
// Each value travels as a variant of one fixed type: string `s`, signed integer `x`, unsigned
// integer `t`, real `d`, Boolean `b`, date `(x)` (microseconds since 1970-01-01 UTC), data `ay`,
// array `av`, dictionary `a{sv}`. Everything survives the trip exactly except what D-Bus strings
// cannot hold: a lone surrogate, U+0000 and the noncharacters U+FDD0…U+FDEF and U+xxFFFE/U+xxFFFF
// arrive as U+FFFD, and dictionary keys that are not UTF-8 arrive with U+FFFD for the bad bytes.
//
// The functions follow sd-bus: they answer a non-negative number on success and a negative errno
// value when the message cannot be written or does not hold what is expected.
namespace ulvek::dbus {

inline constexpr const char* kDictionarySignature = "a{sv}";

// Writes a dictionary at the message's current position.
int appendDictionary(sd_bus_message* message, const PropertyDictionary& dictionary);
// Writes one value as a variant.
int appendVariant(sd_bus_message* message, const PropertyValue& value);
int appendResult(sd_bus_message* message, const ImportResult& result);

// Reads a dictionary (or one variant) at the message's current position. Narrower integer types
// are widened (`y`, `q`, `u` to unsigned; `n`, `i` to signed) and object paths and signatures read
// as strings; any other type is -EBADMSG.
int readDictionary(sd_bus_message* message, PropertyDictionary& dictionary);
int readVariant(sd_bus_message* message, PropertyValue& value);
int readResult(sd_bus_message* message, ImportResult& result);

// Text as a D-Bus string accepts it (see above for what is replaced).
std::string wireString(TextView text);
// UTF-8 bytes (such as keys and paths) as a D-Bus string accepts them.
std::string wireString(std::string_view utf8);

}  // namespace ulvek::dbus
