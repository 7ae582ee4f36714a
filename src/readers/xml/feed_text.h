#pragma once

#include <optional>

#include "base/text_string.h"

namespace ulvek {

// The reading text of an RSS (0.9x, 1.0, 2.0) or Atom feed: the feed's title and description,
// then each item's title and its summary or content, whose HTML becomes plain text. Nothing when
// the markup is not a feed, or is broken before its title. A feed cut short gives what came
// before the cut.
std::optional<TextString> feedText(TextView markup);

}  // namespace ulvek
