#pragma once

#include <optional>
#include <span>
#include <string>

#include "base/text_string.h"
#include "platform/file_bytes.h"

namespace ulvek {

// "wpd" by extension (the file's type code is not kept on this system).
bool isWordPerfectFile(const std::string& path);
std::span<const TextView> wordPerfectFileTypes();

// The text after the last "{WP}" mark of a file read as Mac OS Roman, with the mark's control
// codes turned into line breaks, tabs and hyphens; nothing for files that are not WordPerfect
// files by name, cannot be read, carry no mark or give no text.
std::optional<TextString> stringWithContentsOfWordPerfectFile(const std::string& path);
// The same on bytes.
std::optional<TextString> wordPerfectMarkedText(Bytes bytes);

}  // namespace ulvek
