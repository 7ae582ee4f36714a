#pragma once

#include <string>

#include "readers/epub/ncx_parser.h"

namespace ulvek::testing {

// "label=content" per entry, children in braces, siblings joined by " | ".
inline std::string render(const NavEntries& entries) {
  std::string text;
  for (const NavEntry& entry : entries) {
    if (!text.empty()) text += " | ";
    text += toUtf8(entry.label) + "=" + entry.content;
    if (entry.hasChildren) text += "{" + render(entry.children) + "}";
  }
  return text;
}

}  // namespace ulvek::testing
