#include "protocol/import_result.h"

#include <gtest/gtest.h>

#include <set>

namespace ulvek {
namespace {

TEST(ImportResult, StoringModes) {
  ImportResult result;
  result.putOrRemove(ImportKey::Title, PropertyValue(u"a"));
  result.putIfPresent(ImportKey::Title, std::nullopt);
  result.putIfNonEmpty(ImportKey::Title, TextString());
  EXPECT_EQ(*result.string(ImportKey::Title), u"a");
  result.putOrRemove(ImportKey::Title, std::nullopt);
  EXPECT_FALSE(result.contains(ImportKey::Title));
  result.putOrRemove(ImportKey::Tags, PropertyValue(u""));
  EXPECT_EQ(*result.string(ImportKey::Tags), u"");
  std::set<std::string_view> keys(ImportKey::All.begin(), ImportKey::All.end());
  EXPECT_EQ(keys.size(), 21u);
}

TEST(ImportResult, JoiningRules) {
  const std::pair<PropertyValue, std::optional<TextString>> rows[] = {
      {PropertyValue(PropertyArray{u"a", u"b", u"c"}), u"a\nb\nc"},
      {PropertyValue(PropertyArray{}), u""},
      {PropertyValue(u"a"), std::nullopt},
      {PropertyValue(PropertyArray{PropertyValue(1)}), std::nullopt},
  };
  for (const auto& [list, joined] : rows) EXPECT_EQ(joinedStrings(list, u"\n"), joined);
}

}  // namespace
}  // namespace ulvek
