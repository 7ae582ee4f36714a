#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "base/property_value.h"
#include "protocol/import_result.h"

// JSON text of results for the command line: one object per result, on one line.
namespace ulvek {

// Strings become UTF-8 (a lone surrogate becomes U+FFFD), dates ISO 8601 UTC with six fractional
// digits ("2023-11-14T22:13:20.123456Z"), data base64, integers exact in both signednesses,
// non-finite reals null. Dictionary keys are sorted.
std::string toJson(const PropertyValue& value);

// The result's keys in the order of ImportKey::All, any other key after them in sorted order.
std::string toJson(const ImportResult& result);

// Calls `member` for each value of the result, in the order toJson writes them.
void forEachJsonMember(const ImportResult& result,
                       const std::function<void(std::string_view, const PropertyValue&)>& member);

// toJson(value) written to a stream; a string goes a slice at a time, so a long text is never
// held a second time as one JSON string.
void writeJson(std::ostream& out, const PropertyValue& value);

// The date text used above; years beyond four digits carry a sign.
std::string isoDateString(Date date);

}  // namespace ulvek
