#pragma once

// What the host corrects in an importer's answer for a few kinds of file, by the path's suffix:
// one small function per kind, in one table.

#include <string>
#include <string_view>

#include "base/property_value.h"

namespace ulvek {

// Mellel (".mellel"): placeholder values ("<title>") are dropped. Web archives of Internet
// Explorer (".mht"): the text, which is HTML, becomes plain text. Scapple (".scap"): without a
// text, the notes joined by line feeds become the text.
void correctImporterAnswer(PropertyDictionary& attributes, const std::string& path);

}  // namespace ulvek
