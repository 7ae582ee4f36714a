#include "import/import_result.h"

#include <gtest/gtest.h>

#include <set>

namespace ulvek {
namespace {

TEST(ImportResult, StoringModes) {
  ImportResult result;
  result.putOrRemove(ImportKey::Title, PropertyValue(u"a"));
  result.putIfPresent(ImportKey::Title, std::nullopt);
  EXPECT_EQ(*result.string(ImportKey::Title), u"a");
  result.putIfNonEmpty(ImportKey::Title, TextString());
  EXPECT_EQ(*result.string(ImportKey::Title), u"a");
  result.putOrRemove(ImportKey::Title, std::nullopt);
  EXPECT_FALSE(result.contains(ImportKey::Title));
  result.putOrRemove(ImportKey::Tags, PropertyValue(u""));
  EXPECT_EQ(*result.string(ImportKey::Tags), u"");
}

TEST(ImportResult, JoiningRules) {
  struct Row {
    const char* name;
    PropertyValue list;
    std::optional<TextString> joined;
  };
  const Row rows[] = {
      {"three", PropertyValue(PropertyArray{u"a", u"b", u"c"}), u"a\nb\nc"},
      {"empty list", PropertyValue(PropertyArray{}), u""},
      {"not a list", PropertyValue(u"a"), std::nullopt},
      {"list of other things", PropertyValue(PropertyArray{PropertyValue(1)}), std::nullopt},
  };
  for (const Row& row : rows) EXPECT_EQ(joinedStrings(row.list, u"\n"), row.joined) << row.name;
}

TEST(ImportResult, HasTwentyOneDistinctKeys) {
  std::set<std::string_view> keys(ImportKey::All.begin(), ImportKey::All.end());
  EXPECT_EQ(keys.size(), 21u);
}

}  // namespace
}  // namespace ulvek
