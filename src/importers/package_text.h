#pragma once

// The text of two package kinds the host reads itself where no importer answers.

#include <optional>
#include <string>

#include "base/text_string.h"

namespace ulvek {

// An OmniOutliner 3 package: its contents.xml (plain or compressed), tags and styles left out.
std::optional<TextString> outlinePackageText(const std::string& path);
// A chat log package: the text of its one XML transcript.
std::optional<TextString> chatLogPackageText(const std::string& path);

}  // namespace ulvek
