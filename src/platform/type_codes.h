#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/text_string.h"

namespace ulvek {

// Four-character codes are 32-bit values, first character in the most significant byte.
constexpr std::uint32_t fourCharCode(const char (&code)[5]) {
  return (std::uint32_t(std::uint8_t(code[0])) << 24) |
         (std::uint32_t(std::uint8_t(code[1])) << 16) |
         (std::uint32_t(std::uint8_t(code[2])) << 8) | std::uint32_t(std::uint8_t(code[3]));
}

// The quoted text form of a type code: "'TEXT'", "'PDF '". The code's bytes are Mac Roman.
TextString fileTypeForHFSTypeCode(std::uint32_t code);

// The 32-bit code of a quoted type code; 0 when the text is not six units of the quoted form
// or a unit has no Mac Roman byte.
std::uint32_t HFSTypeCodeFromFileType(TextView fileType);

// The quoted type code of the file at `path`, from the first four bytes of its
// "com.apple.FinderInfo" attribute, else from the Finder info of the AppleDouble file "._NAME"
// beside it. Nothing for folders, for a missing, short or all-zero type, and for symbolic links
// (a link is never followed).
std::optional<TextString> HFSTypeOfFile(const std::string& path);

}  // namespace ulvek
