#include "metadata/item_attributes.h"

#include <gtest/gtest.h>

#include "metadata/metadata_store.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::CapturedLog;
using testing::TemporaryFolder;
using Stored = std::vector<std::pair<std::string_view, PropertyValue>>;

Data bytesOf(std::string_view text) { return Data(text.begin(), text.end()); }

// Stores the values in a real file's attributes and reads its attribute dictionary back.
PropertyDictionary throughFile(const TemporaryFolder& folder, const Stored& values) {
  static int count = 0;
  std::string file = folder.write("item-" + std::to_string(++count), "");
  for (const auto& [key, value] : values)
    EXPECT_TRUE(OVMetaDataStore::setObject(value, key, file, false)) << key;
  return OVMetaDataStore::metaDataDictionaryAtPath(file, false)
      .value.value_or(PropertyDictionary());
}

// What Linux programs write stands in where the Mac attributes are absent; tags add up.
TEST(ItemAttributes, LinuxAttributes) {
  struct Row {
    const char* name;
    Stored stored;
    std::optional<TextString> whereFrom;
    std::optional<TextString> comment;
    std::optional<PropertyArray> tags;
  };
  const Row rows[] = {
      {"xdg only",
       {{MetaDataKey::XdgOriginURL, bytesOf("https://example.org/x")},
        {MetaDataKey::XdgComment, bytesOf("KDE comment")},
        {MetaDataKey::XdgTags, bytesOf("work, ,urgent,work")}},
       u"https://example.org/x",
       u"KDE comment",
       PropertyArray{u"work", u"urgent"}},
      {"Mac attributes win, tags add up",
       {{MetaDataKey::WhereFroms, PropertyArray{u"https://mac.example/"}},
        {MetaDataKey::XdgOriginURL, bytesOf("https://example.org/x")},
        {MetaDataKey::FinderComment, u"mac"},
        {MetaDataKey::XdgComment, bytesOf("kde")},
        {MetaDataKey::UserTags, PropertyArray{u"Red\n6", u"work"}},
        {MetaDataKey::XdgTags, bytesOf("work,blue")}},
       u"https://mac.example/",
       u"mac",
       PropertyArray{u"Red", u"work", u"blue"}},
      {"C string with a final 0, and bytes that are not UTF-8",
       {{MetaDataKey::XdgOriginURL, bytesOf(std::string_view("https://a.example/\0", 19))},
        {MetaDataKey::XdgComment, bytesOf("caf\xE9")}},
       u"https://a.example/",
       std::nullopt,
       std::nullopt},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    TemporaryFolder folder;
    PropertyDictionary attributes = throughFile(folder, row.stored);
    EXPECT_EQ(getWhereFrom(attributes), row.whereFrom);
    std::optional<PropertyValue> comment = getFinderComment(attributes);
    EXPECT_EQ(comment && comment->string() ? std::optional(*comment->string()) : std::nullopt,
              row.comment);
    EXPECT_EQ(getUserTags(attributes), row.tags);
  }
}

TEST(ItemAttributes, Tags) {
  const PropertyArray none;
  struct Row {
    const char* name;
    Stored stored;
    std::optional<PropertyArray> tags;
    std::vector<std::string> log = {};
  };
  const Row rows[] = {
      {"nothing stored", {}, std::nullopt},
      {"system tags up to the first line feed",
       {{MetaDataKey::UserTags, PropertyArray{u"Red\n6", 7, u"a\nb\nc", u"Work"}}},
       PropertyArray{u"Red", u"a", u"Work"}},
      {"empty system array stops the fallback",
       {{MetaDataKey::UserTags, none}, {MetaDataKey::OMUserTags, PropertyArray{u"om"}}},
       none},
      {"open convention kept as stored",
       {{MetaDataKey::OpenMetaUserTags, PropertyArray{1, u"y\n2"}}},
       PropertyArray{1, u"y\n2"}},
      {"a string instead of an array is logged and passed over",
       {{MetaDataKey::OMUserTags, u"solo"},
        {MetaDataKey::OMUserTagsShort, none},
        {MetaDataKey::OpenMetaUserTagsShort, PropertyArray{u"d"}}},
       PropertyArray{u"d"},
       {"Invalid array: String"}},
      {"system tags as raw bytes fall back",
       {{MetaDataKey::UserTags, bytesOf("Red")}, {MetaDataKey::OMUserTags, PropertyArray{u"o"}}},
       PropertyArray{u"o"},
       {"Invalid array: Data"}},
  };
  TemporaryFolder folder;
  for (const Row& row : rows) {
    PropertyDictionary attributes = throughFile(folder, row.stored);
    CapturedLog log;
    EXPECT_EQ(getUserTags(attributes), row.tags) << row.name;
    EXPECT_EQ(log.lines(), row.log) << row.name;
  }
  OVMetaDataStore::setUseOpenMeta(false);
  EXPECT_FALSE(getUserTags(throughFile(folder, {{MetaDataKey::OMUserTags, PropertyArray{u"x"}}})));
  OVMetaDataStore::setUseOpenMeta(true);
}

TEST(ItemAttributes, WhereFromCommentAndNote) {
  const std::string url = "https://example.com/file.zip";
  const std::pair<PropertyValue, std::optional<TextString>> rows[] = {
      {PropertyArray{u"https://a.example/", u"https://b.example/"}, u"https://a.example/"},
      {u"https://s.example/", u"https://s.example/"},
      {bytesOf(url + '\0'), fromUtf8(url)},
      {bytesOf(url), fromUtf8(url)},
      {bytesOf(std::string("ab\0cd\0", 6)), u"ab"},
      {Data{'a', 0xFF}, std::nullopt},
      {42, std::nullopt},
      {PropertyArray(), std::nullopt},
      {PropertyArray{1, u"x"}, std::nullopt},
  };
  TemporaryFolder folder;
  for (std::size_t row = 0; row < std::size(rows); ++row) {
    const auto& [stored, expected] = rows[row];
    EXPECT_EQ(getWhereFrom(throughFile(folder, {{MetaDataKey::WhereFroms, stored}})), expected)
        << "row " << row;
    // A Spotlight dictionary keeps the same value under its own name.
    EXPECT_EQ(getWhereFrom({{"kMDItemWhereFroms", stored}}), expected) << "row " << row;
  }
  EXPECT_FALSE(getWhereFrom(throughFile(folder, {{MetaDataKey::WhereFroms, Data()}})));
  EXPECT_EQ(getWhereFrom({{"kMDItemWhereFroms", u"spotlight"},
                          {std::string(MetaDataKey::WhereFroms), u"attribute"}}),
            u"spotlight");

  PropertyDictionary noted = throughFile(
      folder, {{MetaDataKey::FinderComment, 3}, {MetaDataKey::IsEditableNote, bytesOf("no")}});
  EXPECT_EQ(getFinderComment(noted), PropertyValue(3));  // whatever its kind
  EXPECT_TRUE(isEditableNote(noted));                    // whatever its value
  EXPECT_FALSE(isEditableNote({}));
  EXPECT_FALSE(finderComment("", true));
}

TEST(ItemAttributes, ItemTitleForFile) {
  struct Row {
    const char* name;
    std::optional<PropertyValue> title;
    std::string path;
    std::optional<TextString> expected;
  };
  const Row rows[] = {
      {"no title", std::nullopt, "/docs/report.txt", std::nullopt},
      {"name in another case", u"REPORT.TXT", "/docs/report.txt", std::nullopt},
      {"name without extension", u"report", "/docs/report.txt", u"report"},
      {"whole path in another case", u"/DOCS/Report.txt", "/docs/report.txt", std::nullopt},
      {"full case folding", u"STRASSE", "/docs/straße", std::nullopt},
      {"decomposed name", u"Café", "/docs/cafe\xCC\x81", std::nullopt},
      {"empty title", u"", "/docs/report.txt", u""},
      {"empty title, no path", u"", "", std::nullopt},
      {"title beside a name that is not UTF-8", u"café", "/docs/caf\xE9", u"café"},
  };
  for (const Row& row : rows) {
    PropertyDictionary attributes;
    if (row.title) attributes.emplace("kMDItemTitle", *row.title);
    EXPECT_EQ(getItemTitleForFile(attributes, row.path), row.expected) << row.name;
  }
}

}  // namespace
}  // namespace ulvek
