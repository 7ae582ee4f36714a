#include "protocol/import_result.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/text_limits.h"
#include "test_support.h"

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

// Only Text was cut once: a 100 MB title, or three 50 MB fields, made a reply the bus refused,
// and the bus dropped the service with it.
TEST(ImportResult, EveryValueIsCutToTravel) {
  const std::size_t value = ImportResult::kMaxValueBytes;
  struct Row {
    std::string name;
    std::string key;
    PropertyValue input;
    std::size_t units;  // of the string, or elements of the list, after the cut
    bool cut;
  };
  const std::vector<Row> rows = {
      {"short title", "Title", PropertyValue(u"Title"), 5, false},
      {"title at the limit", "Title", PropertyValue(TextString(value, u'a')), value, false},
      {"100 MB title", "Title", PropertyValue(TextString(100u << 20, u'a')), value, true},
      {"two-byte characters", "Description", PropertyValue(TextString(value, u'\u00e9')), value / 2,
       true},
      // A cut never splits a surrogate pair: the pair counts six bytes, and only its first unit
      // would fit.
      {"surrogate pair at the edge", "Comment",
       PropertyValue(TextString(value - 4, u'a') + u"\U0001F600"), value - 4, true},
      {"text is cut at its own limit", "Text", PropertyValue(TextString(60u << 20, u'a')),
       kMaxTextUtf8Bytes, true},
      {"long list", "Keywords", PropertyValue(PropertyArray(100000, PropertyValue(u"k"))),
       ImportResult::kMaxListCount, true},
      {"numbers stay", "FileSize", PropertyValue(std::int64_t{1} << 40), 0, false},
  };
  for (const Row& row : rows) {
    ImportResult result;
    result.putOrRemove(row.key, row.input);
    testing::CapturedLog log;
    result.limitSizes("/x/file");
    const PropertyValue* kept = result.get(row.key);
    ASSERT_TRUE(kept) << row.name;
    if (kept->string()) EXPECT_EQ(kept->string()->size(), row.units) << row.name;
    if (kept->array()) {
      EXPECT_EQ(kept->array()->size(), row.units) << row.name;
    }
    if (!kept->string() && !kept->array()) EXPECT_EQ(*kept, row.input) << row.name;
    EXPECT_EQ(log.lines(), row.cut
                               ? std::vector<std::string>{"Truncated: /x/file (" + row.key + ")"}
                               : std::vector<std::string>{})
        << row.name;
  }
}

TEST(ImportResult, TheWholeAnswerStaysWithinItsBudget) {
  ImportResult result;
  const TextString large(2u << 20, u'm');
  for (std::string_view key : ImportKey::All) {
    if (key == ImportKey::Text)
      result.putOrRemove(key, PropertyValue(TextString(kMaxTextUtf8Bytes + 1, u't')));
    else if (key == ImportKey::Keywords)
      result.putOrRemove(key,
                         PropertyValue(PropertyArray(32, PropertyValue(large.substr(0, 1 << 19)))));
    else
      result.putOrRemove(key, PropertyValue(large));
  }
  testing::CapturedLog log;
  result.limitSizes("/x/file");
  std::size_t metadata = 0;
  for (const auto& [key, value] : result.values()) {
    if (key == ImportKey::Text) {
      EXPECT_EQ(utf8Size(*value.string()), kMaxTextUtf8Bytes);
      continue;
    }
    if (value.string()) metadata += utf8Size(*value.string());
    if (value.array())
      for (const PropertyValue& item : *value.array()) metadata += utf8Size(*item.string());
  }
  EXPECT_LE(metadata, ImportResult::kMaxMetadataBytes);
  EXPECT_GE(metadata, ImportResult::kMaxMetadataBytes - ImportResult::kMaxValueBytes);
  // What the budget left no room for is gone, not an empty value.
  for (const auto& [key, value] : result.values())
    EXPECT_TRUE(!value.string() || !value.string()->empty()) << key;
  EXPECT_EQ(log.lines().size(), ImportKey::All.size());
}

// An answer whose text travels beside the message may carry more text; what is cut is marked,
// and the mark is no part of the result's value.
TEST(ImportResult, TextLimitOfAScopeAndTheCutMark) {
  struct Row {
    const char* name;
    std::size_t scopeLimit;  // 0: no scope
    std::size_t units;
    std::size_t kept;
    bool truncated;
  };
  const std::vector<Row> rows = {
      {"classic limit", 0, kMaxTextUtf8Bytes + 10, kMaxTextUtf8Bytes, true},
      {"raised limit keeps more", 64u << 20, kMaxTextUtf8Bytes + 10, kMaxTextUtf8Bytes + 10, false},
      {"small text", 16, 16, 16, false},
      {"lowered limit", 16, 17, 16, true},
  };
  for (const Row& row : rows) {
    ImportResult result;
    result.putOrRemove(ImportKey::Text, PropertyValue(TextString(row.units, u'a')));
    testing::CapturedLog log;
    {
      std::optional<ScopedTextLimit> scope;
      if (row.scopeLimit) scope.emplace(row.scopeLimit);
      result.limitSizes("/x/file");
    }
    EXPECT_EQ(result.string(ImportKey::Text)->size(), row.kept) << row.name;
    EXPECT_EQ(result.textTruncated(), row.truncated) << row.name;
    ImportResult same;
    same.putOrRemove(ImportKey::Text, PropertyValue(*result.string(ImportKey::Text)));
    EXPECT_EQ(result, same) << row.name;
  }
  // The scope ends with its block.
  ImportResult after;
  after.putOrRemove(ImportKey::Text, PropertyValue(TextString(kMaxTextUtf8Bytes + 1, u'a')));
  testing::CapturedLog log;
  after.limitSizes("/x/file");
  EXPECT_EQ(after.string(ImportKey::Text)->size(), kMaxTextUtf8Bytes);
}

}  // namespace
}  // namespace ulvek
