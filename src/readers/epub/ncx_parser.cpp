#include "readers/epub/ncx_parser.h"

#include <optional>
#include <sstream>

#include "base/file_url.h"
#include "readers/epub/epub_paths.h"
#include "readers/xml/xml_events.h"
#include "text/string_utilities.h"

namespace ulvek {
namespace {

constexpr std::size_t kRoot = static_cast<std::size_t>(-1);

// Entries are gathered flat, each naming its parent, and nested once the document has been
// read: a stack of references into growing lists would dangle.
struct Node {
  std::string content;
  TextString label;
  std::size_t parent = kRoot;
  bool keep = true;
};

NavEntries nested(const std::vector<Node>& nodes) {
  std::vector<std::vector<std::size_t>> kids(nodes.size());
  std::vector<std::size_t> top;
  for (std::size_t i = 0; i < nodes.size(); ++i)
    if (nodes[i].keep) (nodes[i].parent == kRoot ? top : kids[nodes[i].parent]).push_back(i);
  // Nesting depth is bounded by the XML reader's depth limit.
  auto build = [&](auto& self, const std::vector<std::size_t>& indexes) -> NavEntries {
    NavEntries entries;
    entries.reserve(indexes.size());
    for (std::size_t index : indexes) {
      const Node& node = nodes[index];
      NavEntries children = self(self, kids[index]);
      bool hasChildren = !children.empty();
      entries.push_back({node.content, node.label, std::move(children), hasChildren});
    }
    return entries;
  };
  return build(build, top);
}

std::string targetOf(const char* src) {
  std::string raw = src ? src : "";
  return withoutFragment(percentDecoded(raw).value_or(raw));
}

// navMap: an entry is made when its first child starts or, for a leaf, when it ends; the end of
// every navPoint pops one level.
bool parseNCX(std::string_view xml, std::vector<Node>& nodes) {
  std::vector<std::size_t> stack{kRoot};
  long navLabel = 0;
  std::optional<std::string> label, content;
  auto addNavPoint = [&] {
    if (content && label) {
      std::size_t parent = stack.back();
      nodes.push_back({*content, stringByTrimmingWhiteSpaces(fromUtf8(*label)), parent});
      stack.push_back(nodes.size() - 1);
    }
    content.reset();
    label.reset();
  };
  XmlEvents events;
  events.start = [&](std::string_view name, const char** attributes) {
    if (name == "navPoint") {
      addNavPoint();
    } else if (name == "navLabel") {
      ++navLabel;
      if (!label) label.emplace();
    } else if (name == "content") {
      content = targetOf(xmlAttribute(attributes, "src"));
    }
  };
  events.end = [&](std::string_view name) {
    if (name == "navPoint") {
      addNavPoint();
      // A navPoint without label or target made no entry but still ends a level; the top list
      // itself is never popped.
      if (stack.size() > 1) stack.pop_back();
    } else if (name == "navLabel" && navLabel > 0) {
      --navLabel;
    }
  };
  events.text = [&](std::string_view text) {
    if (navLabel > 0 && label) *label += text;
  };
  return parseXml(xml, events);
}

bool hasToken(const char* list, std::string_view token) {
  std::istringstream words(list ? list : "");
  std::string word;
  while (words >> word)
    if (word == token) return true;
  return false;
}

// The first <nav epub:type="toc">: each <li> is an entry, labelled by the text of its first <a>
// or <span>, whose target is the <a>'s href; nested <ol> lists are its children.
bool parseNavDocument(std::string_view xml, std::vector<Node>& nodes) {
  int depth = 0;
  int tocDepth = 0;  // depth of the toc nav element while inside it
  bool tocDone = false;
  int labelDepth = 0;  // depth of the element whose text is the label, while collecting
  std::vector<std::size_t> stack{kRoot};
  std::vector<bool> labelled{false};
  std::string label;
  XmlEvents events;
  events.start = [&](std::string_view name, const char** attributes) {
    ++depth;
    if (tocDepth == 0) {
      if (!tocDone && name == "nav" && hasToken(xmlAttribute(attributes, "epub:type"), "toc"))
        tocDepth = depth;
      return;
    }
    if (name == "li") {
      nodes.push_back({std::string(), TextString(), stack.back()});
      stack.push_back(nodes.size() - 1);
      labelled.push_back(false);
    } else if ((name == "a" || name == "span") && labelDepth == 0 && stack.back() != kRoot &&
               !labelled.back()) {
      labelDepth = depth;
      label.clear();
      if (name == "a") nodes[stack.back()].content = targetOf(xmlAttribute(attributes, "href"));
    }
  };
  events.end = [&](std::string_view name) {
    if (depth == labelDepth) {
      labelDepth = 0;
      labelled.back() = true;
      nodes[stack.back()].label =
          stringByTrimmingWhiteSpaces(stringByRemovingMultipleWhiteSpaces(fromUtf8(label)));
    }
    if (tocDepth != 0 && name == "li" && stack.size() > 1) {
      stack.pop_back();
      labelled.pop_back();
    }
    if (depth == tocDepth) {
      tocDepth = 0;
      tocDone = true;
    }
    --depth;
  };
  events.text = [&](std::string_view text) {
    if (labelDepth != 0) label += text;
  };
  bool wellFormed = parseXml(xml, events);
  // A document that breaks off inside a label keeps the label read so far.
  if (labelDepth != 0 && stack.back() != kRoot)
    nodes[stack.back()].label =
        stringByTrimmingWhiteSpaces(stringByRemovingMultipleWhiteSpaces(fromUtf8(label)));
  return wellFormed;
}

// A heading without a link of its own leads to its first linked descendant; one that leads
// nowhere is left out (its descendants lead nowhere either).
void settleHeadings(std::vector<Node>& nodes) {
  std::vector<bool> own(nodes.size());
  for (std::size_t i = 0; i < nodes.size(); ++i) own[i] = !nodes[i].content.empty();
  // Descendants come after their ancestors, so walking backwards settles every child before its
  // parent, and the earliest child writes last.
  for (std::size_t i = nodes.size(); i-- > 0;) {
    std::size_t parent = nodes[i].parent;
    if (!nodes[i].content.empty() && parent != kRoot && !own[parent])
      nodes[parent].content = nodes[i].content;
  }
  for (Node& node : nodes) node.keep = !node.content.empty();
}

}  // namespace

NCXParser::NCXParser(Bytes data, NavigationFormat format) {
  std::string_view xml(reinterpret_cast<const char*>(data.data()), data.size());
  std::vector<Node> nodes;
  if (format == NavigationFormat::NCX) {
    wellFormed_ = parseNCX(xml, nodes);
  } else {
    wellFormed_ = parseNavDocument(xml, nodes);
    settleHeadings(nodes);
  }
  children_ = nested(nodes);
}

std::size_t countOfEntries(const NavEntries& entries) {
  std::size_t count = entries.size();
  for (const NavEntry& entry : entries) count += countOfEntries(entry.children);
  return count;
}

}  // namespace ulvek
