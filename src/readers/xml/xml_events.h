#pragma once

#include <functional>
#include <string_view>

#include "platform/file_bytes.h"

namespace ulvek {

// Streams the events of an XML document to callbacks, with element names as written (no
// namespace processing). Documents that declare entities, nest deeper than the limit, or expand
// entities past expat's amplification limit are refused: no real document does that.
struct XmlEvents {
  std::function<void(std::string_view name, const char** attributes)> start;
  std::function<void(std::string_view name)> end;
  std::function<void(std::string_view text)> text;
};

inline constexpr int kMaxXmlDepth = 1000;

// False when the document is not well-formed or was refused; events seen until then stay seen.
bool parseXml(std::string_view xml, const XmlEvents& events);

// An attribute's value by name, or null.
const char* xmlAttribute(const char** attributes, std::string_view name);

}  // namespace ulvek
