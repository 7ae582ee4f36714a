#pragma once

// Text bundles (folders holding one "text.*" file beside its assets), text packs (such a folder
// zipped) and the Markdown file types. Markdown is not converted: its text is its source.

#include <optional>
#include <span>
#include <string>

#include "base/text_string.h"
#include "metadata/file_types.h"
#include "text/encodings.h"

namespace ulvek {

// "textbundle" and "textpack" in any case; the type is not looked at.
bool isTextBundleFile(const std::string& path);
std::span<const TextView> textBundleFileTypes();

// "md", "mmd", "mdwn", "mark", "mdown", "mdtext", "mkdown", "textile", "markdown", any case.
bool isMarkDownExtension(OptionalText extension, OptionalText type);
bool isMarkDownFile(const std::string& path);
std::span<const TextView> markDownFileTypes();

// The bundle's text file decoded with `encoding` (kDetectEncoding to detect it): the first
// "text.*" entry of a ".textbundle" folder, or of each ".textbundle" folder inside a ".textpack"
// archive (the last one found wins). A text pack is unpacked into the service's temporary folder,
// which is removed before this returns. Listings are sorted so the choice is repeatable.
std::optional<TextString> stringWithContentsOfTextBundleFile(
    const std::string& path, StringEncoding encoding, StringEncoding* usedEncoding = nullptr);

// Makes a text bundle folder at `target` from a bundle (copied) or a pack (unpacked beside the
// target, then moved there).
bool decompressTextBundleFile(const std::string& source, const std::string& target);

}  // namespace ulvek
