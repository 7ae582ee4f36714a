#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "import/import_result.h"
#include "import/mime_type_helper.h"

namespace ulvek {
namespace {

struct ExpectedValue {
  std::string_view key;
  std::optional<TextString> value;  // nothing: key absent
};

TEST(CopyHTMLMetaAttributes, PreferenceOrder) {
  struct Row {
    const char* name;
    HtmlMetaAttributes meta;
    std::vector<ExpectedValue> expected;
  };
  const std::vector<Row> rows = {
      {"title beats og:title",
       {{u"og:title", u"OG"}, {u"title", u"Plain"}},
       {{ImportKey::Title, u"Plain"}}},
      {"dc.title beats title",
       {{u"title", u"Plain"}, {u"dc.title", u"DC"}},
       {{ImportKey::Title, u"DC"}}},
      {"og:title alone", {{u"og:title", u"OG"}}, {{ImportKey::Title, u"OG"}}},
      {"dc.subject before description",
       {{u"description", u"D"}, {u"dc.subject", u"S"}, {u"og:description", u"O"}},
       {{ImportKey::Description, u"S"}}},
      {"og:description last", {{u"og:description", u"O"}}, {{ImportKey::Description, u"O"}}},
      {"dc.description first",
       {{u"dc.description", u"DD"}, {u"dc.subject", u"S"}},
       {{ImportKey::Description, u"DD"}}},
      {"author", {{u"author", u"A"}}, {{ImportKey::Author, u"A"}}},
      {"dc.author beats author",
       {{u"author", u"A"}, {u"dc.author", u"B"}},
       {{ImportKey::Author, u"B"}}},
      {"keywords kept as one string",
       {{u"keywords", u"a, b c"}},
       {{ImportKey::Keywords, u"a, b c"}}},
      {"dc.keywords beats keywords",
       {{u"keywords", u"k"}, {u"dc.keywords", u"d"}},
       {{ImportKey::Keywords, u"d"}}},
      {"names are exact: Title is not title",
       {{u"Title", u"X"}, {u"dc.Title", u"Y"}},
       {{ImportKey::Title, std::nullopt}}},
      {"empty value is still stored", {{u"description", u""}}, {{ImportKey::Description, u""}}},
      {"unrelated names write nothing",
       {{u"viewport", u"width=device-width"}},
       {{ImportKey::Title, std::nullopt}, {ImportKey::Description, std::nullopt}}},
  };
  for (const Row& row : rows) {
    ImportResult result;
    MIMETypeHelper::copyHTMLMetaAttributes(&row.meta, result);
    for (const ExpectedValue& expected : row.expected) {
      const TextString* stored = result.string(expected.key);
      if (!expected.value) {
        EXPECT_EQ(stored, nullptr) << row.name << ": " << expected.key;
        continue;
      }
      ASSERT_NE(stored, nullptr) << row.name << ": " << expected.key;
      EXPECT_EQ(*stored, *expected.value) << row.name << ": " << expected.key;
    }
  }
}

TEST(CopyHTMLMetaAttributes, KeepsEarlierValuesWhenMetaIsAbsentOrSilent) {
  ImportResult result;
  result.putIfPresent(ImportKey::Title, PropertyValue(u"From the title tag"));
  result.putIfPresent(ImportKey::Author, PropertyValue(u"Earlier"));

  MIMETypeHelper::copyHTMLMetaAttributes(nullptr, result);
  HtmlMetaAttributes empty;
  MIMETypeHelper::copyHTMLMetaAttributes(&empty, result);
  HtmlMetaAttributes onlyDescription = {{u"description", u"D"}};
  MIMETypeHelper::copyHTMLMetaAttributes(&onlyDescription, result);

  EXPECT_EQ(*result.string(ImportKey::Title), u"From the title tag");
  EXPECT_EQ(*result.string(ImportKey::Author), u"Earlier");
  EXPECT_EQ(*result.string(ImportKey::Description), u"D");
  EXPECT_EQ(result.size(), 3u);
}

TEST(CopyHTMLMetaAttributes, OverwritesEarlierValueWhenPresent) {
  ImportResult result;
  result.putIfPresent(ImportKey::Keywords, PropertyValue(u"old"));
  HtmlMetaAttributes meta = {{u"keywords", u"new"}};
  MIMETypeHelper::copyHTMLMetaAttributes(&meta, result);
  EXPECT_EQ(*result.string(ImportKey::Keywords), u"new");
}

}  // namespace
}  // namespace ulvek
