#pragma once

// Text and document properties of documents that librevenge-based libraries read: the text
// generators of librevenge, with the properties they are told caught on the way.

#include <librevenge-generators/librevenge-generators.h>
#include <librevenge/librevenge.h>

#include <string>
#include <vector>

#include "importer_plugin.h"

namespace ulvek::plugin {

struct RevengeProperties {
  std::string title, subject, author, keywords;

  void take(const librevenge::RVNGPropertyList& list) {
    auto value = [&list](const char* key) -> std::string {
      const librevenge::RVNGProperty* property = list[key];
      return property ? property->getStr().cstr() : "";
    };
    title = value("dc:title");
    subject = value("dc:subject");
    author = value("dc:creator");
    if (author.empty()) author = value("meta:initial-creator");
    keywords = value("meta:keyword");
  }

  void write(Attributes& out) const {
    out.string("kMDItemTitle", title);
    out.string("kMDItemSubject", subject);
    if (!author.empty()) out.strings("kMDItemAuthors", {author});
    if (!keywords.empty()) out.strings("kMDItemKeywords", {keywords});
  }
};

// A librevenge text generator of kind Base that also keeps the document's properties.
template <typename Base, typename Output>
class PropertyCatcher : public Base {
 public:
  explicit PropertyCatcher(Output& output) : Base(output) {}
  void setDocumentMetaData(const librevenge::RVNGPropertyList& list) override {
    properties.take(list);
    Base::setDocumentMetaData(list);
  }
  RevengeProperties properties;
};

inline std::string joined(const librevenge::RVNGStringVector& parts) {
  std::string text;
  for (unsigned i = 0; i < parts.size(); ++i) {
    if (parts[i].empty()) continue;
    if (!text.empty() && text.back() != '\n') text += '\n';
    text += parts[i].cstr();
  }
  return text;
}

}  // namespace ulvek::plugin
