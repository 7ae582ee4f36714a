#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "import/mime_type_helper.h"
#include "protocol/import_result.h"

namespace ulvek {
namespace {

TEST(CopyHTMLMetaAttributes, PreferenceOrder) {
  struct Row {
    const char* name;
    HtmlMetaAttributes meta;
    PropertyDictionary expected;  // the whole result
  };
  const std::vector<Row> rows = {
      {"title beats og:title", {{u"og:title", u"OG"}, {u"title", u"Plain"}}, {{"Title", u"Plain"}}},
      {"dc.title beats title", {{u"title", u"Plain"}, {u"dc.title", u"DC"}}, {{"Title", u"DC"}}},
      {"dc.description, then dc.subject, description, og:description",
       {{u"description", u"D"}, {u"dc.subject", u"S"}, {u"dc.description", u"DD"}},
       {{"Description", u"DD"}}},
      {"dc.subject before description",
       {{u"description", u"D"}, {u"dc.subject", u"S"}, {u"og:description", u"O"}},
       {{"Description", u"S"}}},
      {"og:description last", {{u"og:description", u"O"}}, {{"Description", u"O"}}},
      {"dc.author beats author", {{u"author", u"A"}, {u"dc.author", u"B"}}, {{"Author", u"B"}}},
      {"keywords kept as one string, dc.keywords first",
       {{u"keywords", u"a, b c"}, {u"dc.keywords", u"d e"}},
       {{"Keywords", u"d e"}}},
      {"names are exact", {{u"Title", u"X"}, {u"dc.Title", u"Y"}}, {}},
      {"empty value is still stored", {{u"description", u""}}, {{"Description", u""}}},
  };
  for (const Row& row : rows) {
    ImportResult result;
    MIMETypeHelper::copyHTMLMetaAttributes(&row.meta, result);
    EXPECT_EQ(result.values(), row.expected) << row.name;
  }
}

// Put-if-present: a silent source keeps earlier values, a present one replaces them.
TEST(CopyHTMLMetaAttributes, KeepsOrReplacesEarlierValues) {
  ImportResult result;
  result.putIfPresent(ImportKey::Title, PropertyValue(u"From the title tag"));
  result.putIfPresent(ImportKey::Keywords, PropertyValue(u"old"));
  MIMETypeHelper::copyHTMLMetaAttributes(nullptr, result);
  HtmlMetaAttributes empty;
  MIMETypeHelper::copyHTMLMetaAttributes(&empty, result);
  HtmlMetaAttributes meta = {{u"keywords", u"new"}};
  MIMETypeHelper::copyHTMLMetaAttributes(&meta, result);
  EXPECT_EQ(result.values(),
            (PropertyDictionary{{"Title", u"From the title tag"}, {"Keywords", u"new"}}));
}

}  // namespace
}  // namespace ulvek
