#include <array>
#include <string_view>

#include "import/import_result.h"
#include "import/mime_type_helper.h"

namespace ulvek {

namespace {

// Result key and the meta names that can fill it, most preferred first.
struct MetaRow {
  std::string_view resultKey;
  std::array<std::u16string_view, 4> metaNames;
};

constexpr std::array<MetaRow, 4> kHTMLMetaRows = {{
    {ImportKey::Title, {u"dc.title", u"title", u"og:title"}},
    {ImportKey::Description, {u"dc.description", u"dc.subject", u"description", u"og:description"}},
    {ImportKey::Author, {u"dc.author", u"author"}},
    {ImportKey::Keywords, {u"dc.keywords", u"keywords"}},
}};

}  // namespace

void MIMETypeHelper::copyHTMLMetaAttributes(const HtmlMetaAttributes* meta, ImportResult& result) {
  if (!meta || meta->empty()) return;
  for (const MetaRow& row : kHTMLMetaRows) {
    for (std::u16string_view name : row.metaNames) {
      if (name.empty()) break;
      auto found = meta->find(name);
      if (found == meta->end()) continue;
      result.putIfPresent(row.resultKey, PropertyValue(found->second));
      break;
    }
  }
}

}  // namespace ulvek
