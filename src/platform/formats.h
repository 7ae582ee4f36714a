#pragma once

// The format registry: every kind of file the service knows, one row each, from formats.def.
// Content types, their conformance, MIME types, extensions, type codes, content signatures and the
// reader a file of the type goes to when its content decided all come from these rows.

#include <span>
#include <string_view>

namespace ulvek {

struct Format {
  std::string_view identifier;  // the uniform type identifier
  std::string_view name;        // for people
  std::string_view extensions;  // lower case, separated by blanks; the first is preferred
  std::string_view mimeTypes;   // lower case, separated by blanks; the first is preferred
  std::string_view typeCodes;   // quoted four-character codes ('PDF '), separated by blanks
  std::string_view parents;     // the types it conforms to, separated by blanks
  std::string_view signatures;  // separated by "|"; see formats.def
  std::string_view reader;      // a route's name; empty: the parents' reader
};

// Signatures may hold NUL bytes, so their length comes from the literal.
// clang-format off
inline constexpr Format kFormats[] = {
#define ULVEK_FORMAT(identifier, name, extensions, mimeTypes, typeCodes, parents, signatures, \
                     reader)                                                                  \
  {identifier, name, extensions, mimeTypes, typeCodes, parents,                               \
   std::string_view(signatures, sizeof(signatures) - 1), reader},
#include "platform/formats.def"
};
// clang-format on

inline constexpr std::span<const Format> formats() { return kFormats; }

}  // namespace ulvek
