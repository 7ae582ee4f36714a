#pragma once

// The text of WordPerfect 4.2, 5.x and 6.x+ documents, read from their function codes.

#include <optional>
#include <string_view>

#include "base/text_string.h"
#include "platform/file_bytes.h"

namespace ulvek {

enum class WordPerfectFormat { None, WP42, WP5, WP6 };

// Which format the bytes are: a "\xFFWPC" prefix names 5.x or 6.x; 4.2 files have no prefix and
// are recognised by their balanced function codes.
WordPerfectFormat wordPerfectFormat(Bytes bytes);

// The document's text: paragraphs end in line feeds, tabs are tabs, formatting codes vanish.
// Nothing (with one log line) for bytes of no known format or with a broken prefix; a damaged
// document area ends the text where the damage starts (with one log line).
std::optional<TextString> wordPerfectDocumentText(Bytes bytes, std::string_view name = {});

}  // namespace ulvek
