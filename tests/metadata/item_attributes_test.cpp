#include "metadata/item_attributes.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include "metadata/metadata_store.h"
#include "platform/property_list.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::CapturedLog;
using testing::TemporaryFolder;

Data bytesOf(std::string_view text) { return Data(text.begin(), text.end()); }

// What a value looks like once it has been stored in an attribute: a binary property list,
// except for bytes, which are kept as they are.
Data stored(const PropertyValue& value) {
  if (const Data* bytes = value.data()) return *bytes;
  return binaryPropertyList(value).value();
}

// Writes the attributes to a real file and reads its attribute dictionary back.
PropertyDictionary throughFile(
    const TemporaryFolder& folder,
    const std::vector<std::pair<std::string_view, PropertyValue>>& values) {
  static int count = 0;
  std::string file = folder.write("item-" + std::to_string(++count), "");
  for (const auto& [key, value] : values) {
    Data bytes = stored(value);
    std::string name = "user." + std::string(key);
    EXPECT_EQ(::setxattr(file.c_str(), name.c_str(), bytes.data(), bytes.size(), 0), 0) << key;
  }
  return OVMetaDataStore::metaDataDictionaryAtPath(file, false).value_or(PropertyDictionary());
}

PropertyArray strings(std::initializer_list<const char16_t*> items) {
  PropertyArray array;
  for (const char16_t* item : items) array.emplace_back(item);
  return array;
}

TEST(ItemAttributes, Tags) {
  using Stored = std::vector<std::pair<std::string_view, PropertyValue>>;
  struct Row {
    const char* name;
    Stored stored;
    std::optional<PropertyArray> userTags;
    std::optional<PropertyArray> mavericksTags;
    std::optional<PropertyArray> openMetaTags;
    std::vector<std::string> log;  // of getUserTags
    bool useOpenMeta = true;
  };
  const Row rows[] = {
      {"nothing stored", {}, std::nullopt, std::nullopt, std::nullopt, {}},
      {"system tags lose their colour",
       {{MetaDataKey::UserTags, strings({u"Red\n6", u"Work"})}},
       strings({u"Red", u"Work"}),
       strings({u"Red", u"Work"}),
       std::nullopt,
       {}},
      {"only the first line feed cuts",
       {{MetaDataKey::UserTags, strings({u"a\nb\nc", u"\n1"})}},
       strings({u"a", u""}),
       strings({u"a", u""}),
       std::nullopt,
       {}},
      {"elements that are not strings are skipped",
       {{MetaDataKey::UserTags, PropertyValue(PropertyArray{7, u"Blue\n4"})}},
       strings({u"Blue"}),
       strings({u"Blue"}),
       std::nullopt,
       {}},
      {"empty system array stops the fallback",
       {{MetaDataKey::UserTags, PropertyArray()}, {MetaDataKey::OMUserTags, strings({u"om"})}},
       PropertyArray(),
       PropertyArray(),
       strings({u"om"}),
       {}},
      {"open convention without system tags",
       {{MetaDataKey::OMUserTags, strings({u"x", u"y\n2"})}},
       strings({u"x", u"y\n2"}),
       std::nullopt,
       strings({u"x", u"y\n2"}),
       {}},
      {"open convention element kinds kept",
       {{MetaDataKey::OpenMetaUserTags, PropertyValue(PropertyArray{1, u"a"})}},
       PropertyArray{1, u"a"},
       std::nullopt,
       PropertyArray{1, u"a"},
       {}},
      {"a string instead of an array is skipped with a log line",
       {{MetaDataKey::OMUserTags, u"solo"}, {MetaDataKey::OMUserTagsShort, strings({u"b"})}},
       strings({u"b"}),
       std::nullopt,
       strings({u"b"}),
       {"Invalid array: String"}},
      {"empty open arrays are passed over",
       {{MetaDataKey::OMUserTags, PropertyArray()},
        {MetaDataKey::OMUserTagsShort, PropertyArray()},
        {MetaDataKey::OpenMetaUserTags, PropertyArray()},
        {MetaDataKey::OpenMetaUserTagsShort, strings({u"d"})}},
       strings({u"d"}),
       std::nullopt,
       strings({u"d"}),
       {}},
      {"only empty open arrays",
       {{MetaDataKey::OMUserTags, PropertyArray()}},
       std::nullopt,
       std::nullopt,
       std::nullopt,
       {}},
      {"system tags as raw bytes fall back",
       {{MetaDataKey::UserTags, PropertyValue(bytesOf("Red"))},
        {MetaDataKey::OMUserTags, strings({u"o"})}},
       strings({u"o"}),
       std::nullopt,
       strings({u"o"}),
       {"Invalid array: Data"}},
      {"open convention off",
       {{MetaDataKey::OMUserTags, strings({u"x"})}},
       std::nullopt,
       std::nullopt,
       std::nullopt,
       {},
       false},
      {"open convention off keeps system tags",
       {{MetaDataKey::UserTags, strings({u"s"})}, {MetaDataKey::OMUserTags, strings({u"x"})}},
       strings({u"s"}),
       strings({u"s"}),
       std::nullopt,
       {},
       false},
  };
  TemporaryFolder folder;
  for (const Row& row : rows) {
    PropertyDictionary attributes = throughFile(folder, row.stored);
    OVMetaDataStore::setUseOpenMeta(row.useOpenMeta);
    {
      CapturedLog log;
      EXPECT_EQ(getUserTags(attributes), row.userTags) << row.name;
      EXPECT_EQ(log.lines(), row.log) << row.name;
    }
    CapturedLog quiet;
    EXPECT_EQ(getMavericksTags(attributes), row.mavericksTags) << row.name;
    EXPECT_EQ(getOpenMetaTags(attributes), row.openMetaTags) << row.name;
    OVMetaDataStore::setUseOpenMeta(true);
  }
}

TEST(ItemAttributes, WhereFrom) {
  const std::string url = "https://example.com/file.zip";
  struct Row {
    const char* name;
    PropertyValue stored;
    std::optional<TextString> expected;
  };
  const Row rows[] = {
      {"array of two", strings({u"https://a.example/", u"https://b.example/"}),
       u"https://a.example/"},
      {"string", PropertyValue(u"https://s.example/"), u"https://s.example/"},
      {"bytes with a trailing 0", PropertyValue(bytesOf(url + '\0')), fromUtf8(url)},
      {"bytes without a trailing 0", PropertyValue(bytesOf(url)), fromUtf8(url)},
      {"bytes cut at the first 0", PropertyValue(bytesOf(std::string("ab\0cd\0", 6))), u"ab"},
      {"a lone 0 byte", PropertyValue(Data{0}), u""},
      {"bytes that are not UTF-8", PropertyValue(Data{'a', 0xFF}), std::nullopt},
      {"UTF-8 bytes", PropertyValue(bytesOf("https://example.com/caf\xC3\xA9")),
       u"https://example.com/café"},
      {"number", PropertyValue(42), std::nullopt},
      {"date", PropertyValue(Date{1}), std::nullopt},
      {"empty array", PropertyValue(PropertyArray()), std::nullopt},
      {"array starting with a number", PropertyValue(PropertyArray{1, u"x"}), std::nullopt},
      {"empty string", PropertyValue(u""), u""},
  };
  TemporaryFolder folder;
  for (const Row& row : rows) {
    PropertyDictionary attributes = throughFile(folder, {{MetaDataKey::WhereFroms, row.stored}});
    EXPECT_EQ(getWhereFrom(attributes), row.expected) << row.name;
    // A Spotlight dictionary keeps the same value under its own name.
    PropertyDictionary spotlight{{"kMDItemWhereFroms", row.stored}};
    EXPECT_EQ(getWhereFrom(spotlight), row.expected) << row.name;
  }
  // An empty attribute reads as absent.
  EXPECT_FALSE(getWhereFrom(throughFile(folder, {{MetaDataKey::WhereFroms, Data()}})));
  // The Spotlight name is asked first.
  PropertyDictionary both{{"kMDItemWhereFroms", u"spotlight"},
                          {std::string(MetaDataKey::WhereFroms), u"attribute"}};
  EXPECT_EQ(getWhereFrom(both), u"spotlight");
}

TEST(ItemAttributes, CommentAndEditableNote) {
  TemporaryFolder folder;
  struct Row {
    const char* name;
    std::vector<std::pair<std::string_view, PropertyValue>> stored;
    std::optional<PropertyValue> comment;
    bool editableNote;
  };
  const Row rows[] = {
      {"nothing", {}, std::nullopt, false},
      {"string comment",
       {{MetaDataKey::FinderComment, u"A note"}},
       PropertyValue(u"A note"),
       false},
      {"comment of another kind", {{MetaDataKey::FinderComment, 3}}, PropertyValue(3), false},
      {"empty comment", {{MetaDataKey::FinderComment, u""}}, PropertyValue(u""), false},
      {"editable note", {{MetaDataKey::IsEditableNote, u"yes"}}, std::nullopt, true},
      {"any flag value counts",
       {{MetaDataKey::IsEditableNote, PropertyValue(bytesOf("no"))}},
       std::nullopt,
       true},
  };
  for (const Row& row : rows) {
    PropertyDictionary attributes = throughFile(folder, row.stored);
    EXPECT_EQ(getFinderComment(attributes), row.comment) << row.name;
    EXPECT_EQ(isEditableNote(attributes), row.editableNote) << row.name;
  }
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
      {"title of another kind", PropertyValue(5), "/docs/report.txt", std::nullopt},
      {"a real title", PropertyValue(u"Annual Report"), "/docs/report.txt", u"Annual Report"},
      {"name in another case", PropertyValue(u"REPORT.TXT"), "/docs/report.txt", std::nullopt},
      {"name without extension", PropertyValue(u"report"), "/docs/report.txt", u"report"},
      {"whole path in another case", PropertyValue(u"/DOCS/Report.txt"), "/docs/report.txt",
       std::nullopt},
      {"trailing slash", PropertyValue(u"Folder"), "/docs/folder/", std::nullopt},
      {"full case folding", PropertyValue(u"STRASSE"), "/docs/straße", std::nullopt},
      {"decomposed name", PropertyValue(u"Café"), "/docs/cafe\xCC\x81", std::nullopt},
      {"space makes a difference", PropertyValue(u" report.txt"), "/docs/report.txt",
       u" report.txt"},
      {"empty title", PropertyValue(u""), "/docs/report.txt", u""},
      {"empty title, no path", PropertyValue(u""), "", std::nullopt},
      {"title, no path", PropertyValue(u"T"), "", u"T"},
      {"name that is not UTF-8", PropertyValue(u"caf\uFFFD"), "/docs/caf\xE9", std::nullopt},
      {"title beside a name that is not UTF-8", PropertyValue(u"café"), "/docs/caf\xE9", u"café"},
  };
  for (const Row& row : rows) {
    PropertyDictionary attributes;
    if (row.title) attributes.emplace("kMDItemTitle", *row.title);
    EXPECT_EQ(getItemTitleForFile(attributes, row.path), row.expected) << row.name;
  }
}

TEST(ItemAttributes, LastPathComponent) {
  struct Row {
    std::string path;
    TextString expected;
  };
  const Row rows[] = {
      {"/tmp/scratch.tiff", u"scratch.tiff"},
      {"/tmp/scratch", u"scratch"},
      {"/tmp/", u"tmp"},
      {"scratch///", u"scratch"},
      {"/", u"/"},
      {"///", u"/"},
      {"", u""},
      {"name", u"name"},
      {"/a/caf\xE9", u"caf\uFFFD"},
  };
  for (const Row& row : rows) EXPECT_EQ(lastPathComponent(row.path), row.expected) << row.path;
}

TEST(ItemAttributes, FinderCommentHasNoIndexToAsk) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  ASSERT_TRUE(OVMetaDataStore::setObject(PropertyValue(u"comment"), MetaDataKey::FinderComment,
                                         file, false));
  EXPECT_FALSE(finderComment("", true));
  EXPECT_FALSE(finderComment(file, true));
  EXPECT_FALSE(finderComment(file, false));
}

}  // namespace
}  // namespace ulvek
