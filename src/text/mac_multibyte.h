#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "base/text_string.h"
#include "text/encodings.h"
#include "text/mac_cjk_tables.h"

namespace ulvek {

// Apple's multi-byte Mac scripts (Japanese, Chinese traditional and simplified, Korean): ICU's
// converter for the base charset with Apple's own single bytes, extensions and multi-character
// mappings on top. Nullptr for any other CF number.
const mac_tables::MultiByteScript* macMultiByteScript(CFStringEncoding encoding);

// Strict decoding gives nothing at the first byte sequence Apple's table does not define.
// Otherwise each bad sequence becomes one U+FFFD, counted in `replacements`: an undefined byte,
// a lead byte cut off at the end or followed by ASCII (which is then read afresh), or a lead and
// trail pair without a character.
std::optional<TextString> decodeMacMultiByte(std::span<const std::uint8_t> bytes,
                                             const mac_tables::MultiByteScript& script, bool strict,
                                             std::size_t* replacements = nullptr);

// Nothing when a character has no code in the script. Text this decodes encodes back to bytes
// that decode to the same text.
std::optional<std::string> encodeMacMultiByte(TextView text,
                                              const mac_tables::MultiByteScript& script);

}  // namespace ulvek
