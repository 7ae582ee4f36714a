#pragma once

#include "base/property_value.h"
#include "base/text_string.h"

namespace ulvek {

// An address dictionary (Street, City, State, ZIP, Country, CountryCode) as lines in the order
// its country writes them; empty parts are left out. "" when the dictionary holds nothing.
TextString formattedPostalAddress(const PropertyDictionary& address);

// The lower-case two-letter code of a country code or a common country name ("USA",
// "Deutschland"), or "" when it is not known.
TextString countryCodeOf(TextView codeOrName);

}  // namespace ulvek
