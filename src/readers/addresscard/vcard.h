#pragma once

// vCard 2.1, 3.0 and 4.0 content lines: unfolding, parameters, value encodings and escapes.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/text_string.h"
#include "platform/file_bytes.h"

namespace ulvek {

// One content line of a card: "item1.EMAIL;TYPE=work:ann@example.org".
struct VCardProperty {
  std::string group;  // "item1"; empty when ungrouped
  std::string name;   // upper case: "EMAIL"
  // Parameters, names upper case; a bare 2.1 parameter ("HOME") is a TYPE.
  std::vector<std::pair<std::string, std::string>> parameters;
  // The value with the transfer encoding (quoted-printable, base64) undone and the bytes decoded
  // in the line's charset; escapes are still in place.
  TextString value;

  bool hasType(std::string_view type) const;  // ignoring case, comma lists included
  std::optional<std::string> parameter(std::string_view name) const;
};

struct VCard {
  std::string version;  // "2.1", "3.0", "4.0"
  std::vector<VCardProperty> properties;
};

// How much one file may make: cards past `maxCards` and properties past `maxProperties` of a card
// are left out, with a log line.
struct VCardLimits {
  std::size_t maxCards = 1;
  std::size_t maxProperties = 20000;
};

// The cards of a vCard file in order; nothing when the bytes hold no BEGIN:VCARD. Binary values
// (PHOTO, LOGO, SOUND, KEY) are skipped unread.
std::optional<std::vector<VCard>> parseVCards(Bytes bytes, std::string_view name = {},
                                              const VCardLimits& limits = {});

// Structured values have at most seven parts (ADR); what follows more parts than this is dropped,
// so that a line of separators costs no more than its length.
inline constexpr std::size_t kMaxVCardValueParts = 16;

// The value split at unescaped `separator` (";" for structured values, "," for lists), each part
// with its escapes undone: \n \N newline, \, \; \\ and any other escaped character itself.
// At most `maxParts` parts.
std::vector<TextString> splitVCardValue(TextView value, char16_t separator,
                                        std::size_t maxParts = kMaxVCardValueParts);
TextString unescapeVCardText(TextView value);

// Bytes of a quoted-printable value; "=" followed by anything but two hex digits stays literal.
std::string decodeQuotedPrintable(std::string_view text);

}  // namespace ulvek
