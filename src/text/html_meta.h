#pragma once

#include <cstddef>
#include <functional>
#include <map>

#include "base/text_string.h"

namespace ulvek {

class MarkupSource;

// Title and meta tags of an HTML document. Each reads the head only: the scan stops at the body
// start tag.

// Meta attributes: the lower-cased NAME (else PROPERTY) of each meta tag → its CONTENT. A name
// that occurs again has the later values appended, each after one space, in document order.
using HtmlMetaAttributes = std::map<TextString, TextString, std::less<>>;

// The raw text between <title> and </title>; empty when there is none.
TextString htmlTitle(TextView html);
TextString htmlTitle(const MarkupSource& html);
// The title with character references converted and white space trimmed at both ends.
TextString normalizedHtmlTitle(TextView html);
TextString normalizedHtmlTitle(const MarkupSource& html);

// Meta attributes with the raw CONTENT values.
HtmlMetaAttributes htmlMetaAttributes(TextView html);
// Meta attributes with references converted; values holding balanced markup are converted to
// plain text (line-break runs become one "\n"), others have white runs collapsed to one space.
HtmlMetaAttributes htmlMetaAttributesByConvertingEntitiesToCharacters(TextView html);
HtmlMetaAttributes htmlMetaAttributesByConvertingEntitiesToCharacters(const MarkupSource& html);

// Counts the "<" and ">" units of the text into the optional outputs; true exactly when both
// counts are equal and not zero.
bool countLT(TextView text, std::size_t* lessThanCount = nullptr,
             std::size_t* greaterThanCount = nullptr);

}  // namespace ulvek
