#pragma once

#include <cstddef>

#include "base/text_string.h"

namespace ulvek {

// The most text one result carries, in UTF-8 bytes: it stays well inside a D-Bus message (128 MiB)
// with the metadata beside it.
inline constexpr std::size_t kMaxTextUtf8Bytes = 48u * 1024 * 1024;
// The most any other string of a result carries, in UTF-8 bytes.
inline constexpr std::size_t kMaxValueUtf8Bytes = 1024u * 1024;

// The text cap in force on this thread: kMaxTextUtf8Bytes unless an answer whose text travels
// beside the message has raised it. Readers that build text from a huge input stop a little past
// it, since the rest would be cut anyway.
std::size_t textLimitUtf8Bytes();
void setTextLimitUtf8Bytes(std::size_t bytes);

// The UTF-8 size of UTF-16 text, at most: each surrogate counts three bytes.
std::size_t utf8Size(TextView text);
// The longest start of the text whose UTF-8 size (as utf8Size counts) fits in `bytes`, never
// ending inside a surrogate pair.
TextView utf8Prefix(TextView text, std::size_t bytes);

}  // namespace ulvek
