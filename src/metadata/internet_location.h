#pragma once

#include <optional>
#include <string>

#include "base/text_string.h"

namespace ulvek {

// The address an internet location file points to: a shortcut file's "URL=" line (or, for a
// ".url" file, its single line), a property-list location file's "URL", else the first 'url ' or
// 'TEXT' resource of its resource fork. Nothing for anything that is no internet location or
// holds no readable address. `name`, when given, is cleared first and receives the display name
// ("Name") of a property-list location file that has an address. A desktop entry (".desktop")
// is a location only when its Type is Link: its "URL" and "Name".
std::optional<TextString> resolveInternetLocation(const std::string& path,
                                                  std::optional<TextString>* name = nullptr);

}  // namespace ulvek
