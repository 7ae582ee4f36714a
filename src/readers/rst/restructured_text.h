#pragma once

// The document information of a reStructuredText source: its title (a section title before any
// body text), the bibliographic fields below it, and the keywords and description of `.. meta::`.

#include <optional>
#include <vector>

#include "base/property_value.h"
#include "base/text_string.h"

namespace ulvek {

struct RstDocumentInfo {
  std::optional<TextString> title;
  std::optional<TextString> subtitle;
  std::vector<TextString> authors;
  std::optional<Date> date;  // a :Date: field that starts with YYYY-MM-DD
  std::optional<TextString> copyright;
  std::optional<TextString> description;  // :Abstract:, else the meta description
  std::vector<TextString> keywords;
};

RstDocumentInfo rstDocumentInfo(TextView text);

}  // namespace ulvek
