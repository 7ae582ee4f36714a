#pragma once

#include <string>
#include <vector>

#include "base/text_string.h"
#include "platform/file_bytes.h"

namespace ulvek {

// One entry of a book's table of contents.
struct NavEntry {
  std::string content;  // target path, percent-decoded, without its fragment
  TextString label;     // trimmed
  std::vector<NavEntry> children;
  bool hasChildren = false;  // a "children" list exists, even an empty one
};
using NavEntries = std::vector<NavEntry>;

// Which navigation document the bytes hold.
enum class NavigationFormat {
  NCX,          // EPUB 2: navMap of nested navPoints
  NavDocument,  // EPUB 3: the nested lists of the <nav epub:type="toc"> element
};

// Reads a navigation document into nested entries; targets stay relative to the document's own
// folder. The XML is read with names as written, without DTDs or external entities; documents
// that are not well-formed keep the entries read before the error.
class NCXParser {
 public:
  NCXParser(Bytes data, NavigationFormat format = NavigationFormat::NCX);

  // The top-level entries.
  const NavEntries& children() const { return children_; }
  // NO when the document was not well-formed or was refused.
  bool isWellFormed() const { return wellFormed_; }

 private:
  NavEntries children_;
  bool wellFormed_ = false;
};

// Every entry of the tree, descendants included.
std::size_t countOfEntries(const NavEntries& entries);

}  // namespace ulvek
