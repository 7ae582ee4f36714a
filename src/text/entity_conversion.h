#pragma once

// Conversions between character references ("&eacute;", "&#233;", "&#xE9;") and characters.

#include <cstddef>

#include "base/text_string.h"

namespace ulvek {

// Decodes references in place; the write position never runs ahead of the read position, so a
// scanner's private copy can be converted where it lies. Answers the new length.
//   markup:      also convert "&amp;", "&lt;", "&gt;", "&quot;" (and references to those
//                characters); without it they stay as written so the text remains markup-safe
//   onlyNumeric: named references other than apos and nbsp stay
//   nonUmlauted: every unit written is folded (accents removed)
std::size_t ConvertEntitiesToCharacters(char16_t* units, std::size_t length, bool markup,
                                        bool onlyNumeric, bool nonUmlauted);

// Decodes only "&quot;", "&amp;", "&lt;", "&gt;" and "&#34;", "&#38;", "&#60;", "&#62;", in
// place. Answers the new length.
std::size_t ConvertStandardEntitiesToCharacters(char16_t* units, std::size_t length);

TextString stringByConvertingEntitiesToCharacters(TextView text, bool markup, bool onlyNumeric,
                                                  bool nonUmlauted);
// Markup references included, no folding.
TextString stringByConvertingEntitiesToCharacters(TextView text);
TextString stringByConvertingEntitiesToCharactersNonUmlauted(TextView text, bool nonUmlauted);

TextString stringByConvertingStandardEntitiesToCharacters(TextView text);

// ASCII text: named characters as "&name;", other non-ASCII units as "&#decimal;". ASCII is
// copied as it is ("&" and "<" included).
TextString stringByConvertingCharactersToEntities(TextView text);

}  // namespace ulvek
