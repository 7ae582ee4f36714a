#pragma once

#include <cstdint>
#include <optional>

namespace ulvek {

// A character of a WordPerfect character set (0 is ASCII) in Unicode; nothing for sets and
// positions without a mapping here.
std::optional<char16_t> wordPerfectCharacter(std::uint8_t set, std::uint8_t character);

// WordPerfect 6 stores 32 common accented letters as the single bytes 0x01 to 0x20.
char16_t wordPerfectSoftMappedCharacter(std::uint8_t code);

}  // namespace ulvek
