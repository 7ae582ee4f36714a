#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <filesystem>

#include "import/mime_type_helper.h"
#include "metadata/metadata_store.h"
#include "platform/property_list.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::TemporaryFolder;
using Stored = std::vector<std::pair<std::string, PropertyValue>>;

Data bytesOf(std::string_view text) { return Data(text.begin(), text.end()); }

void store(const std::string& path, const Stored& values) {
  for (const auto& [key, value] : values) {
    Data bytes = value.data() ? *value.data() : binaryPropertyList(value).value();
    std::string name = "user." + key;
    ASSERT_EQ(::setxattr(path.c_str(), name.c_str(), bytes.data(), bytes.size(), 0), 0) << key;
  }
}

PropertyArray strings(std::initializer_list<const char16_t*> items) {
  PropertyArray array;
  for (const char16_t* item : items) array.emplace_back(item);
  return array;
}

struct Expected {
  std::optional<TextString> title, comment, url, tags;
};

void expectResult(const ImportResult& result, const Expected& expected, bool withTitle,
                  const std::string& name) {
  auto text = [&](std::string_view key) -> std::optional<TextString> {
    const TextString* value = result.string(key);
    EXPECT_EQ(value != nullptr, result.contains(key)) << name << ": " << key << " not a string";
    return value ? std::optional<TextString>(*value) : std::nullopt;
  };
  if (withTitle)
    EXPECT_EQ(text(ImportKey::Title), expected.title) << name;
  else
    EXPECT_FALSE(result.contains(ImportKey::Title)) << name;
  EXPECT_EQ(text(ImportKey::SpotlightComment), expected.comment) << name;
  EXPECT_EQ(text(ImportKey::URL), expected.url) << name;
  EXPECT_EQ(text(ImportKey::Tags), expected.tags) << name;
  std::size_t keys = (withTitle ? 1 : 0) + (expected.comment ? 1 : 0) + (expected.url ? 1 : 0) +
                     (expected.tags ? 1 : 0);
  EXPECT_EQ(result.size(), keys) << name << ": no Text, FileSize or other keys";
}

TEST(DirectoryImport, FoldersAndAttributes) {
  struct Row {
    const char* name;
    std::string folderName;
    Stored stored;
    Expected expected;
  };
  const Row rows[] = {
      {"no attributes", "Plain Folder", {}, {u"Plain Folder"}},
      {"stored title", "Projects", {{"kMDItemTitle", u"My Projects"}}, {u"My Projects"}},
      {"stored title trimmed",
       "Projects",
       {{"kMDItemTitle", u"  Spaced Title \n"}},
       {u"Spaced Title"}},
      {"stored title equal to the name in another case",
       "Projects",
       {{"kMDItemTitle", u"PROJECTS"}},
       {u"Projects"}},
      {"stored title of only white space", "Projects", {{"kMDItemTitle", u" \t\n "}}, {u""}},
      {"empty stored title falls back to the name",
       "Projects",
       {{"kMDItemTitle", u""}},
       {u"Projects"}},
      {"stored title of another kind", "Projects", {{"kMDItemTitle", 12}}, {u"Projects"}},
      {"name with white space is trimmed", "  Padded  ", {}, {u"Padded"}},
      {"name that is not UTF-8", "caf\xE9", {}, {u"caf\uFFFD"}},
      {"everything",
       "Everything",
       {{std::string(MetaDataKey::FinderComment), u"A comment"},
        {std::string(MetaDataKey::WhereFroms), strings({u"https://a.example/", u"https://b/"})},
        {std::string(MetaDataKey::UserTags), strings({u"Red\n6", u"Work"})}},
       {u"Everything", u"A comment", u"https://a.example/", u"Red\nWork"}},
      {"empty tag list and empty address kept",
       "Empty",
       {{std::string(MetaDataKey::UserTags), PropertyArray()},
        {std::string(MetaDataKey::WhereFroms), u""}},
       {u"Empty", std::nullopt, u"", u""}},
      {"empty comment is no comment",
       "Quiet",
       {{std::string(MetaDataKey::FinderComment), u""}},
       {u"Quiet"}},
      {"comment of another kind is no comment",
       "Odd",
       {{std::string(MetaDataKey::FinderComment), 5}},
       {u"Odd"}},
      {"where-from bytes with a trailing 0",
       "Download",
       {{std::string(MetaDataKey::WhereFroms),
         PropertyValue(bytesOf(std::string("https://d/\0", 11)))}},
       {u"Download", std::nullopt, u"https://d/"}},
      {"where-from number", "Number", {{std::string(MetaDataKey::WhereFroms), 3}}, {u"Number"}},
      {"open convention tags",
       "Open",
       {{std::string(MetaDataKey::OMUserTags), strings({u"one", u"two"})}},
       {u"Open", std::nullopt, std::nullopt, u"one\ntwo"}},
      {"tags that are not all strings give no Tags",
       "Mixed",
       {{std::string(MetaDataKey::OMUserTags), PropertyValue(PropertyArray{u"one", 2})}},
       {u"Mixed"}},
  };
  TemporaryFolder root;
  for (const Row& row : rows) {
    std::filesystem::path folder = root.path() / row.folderName;
    std::filesystem::create_directory(folder);
    store(folder.string(), row.stored);
    MIMETypeHelper helper;
    expectResult(helper.openDirectory(folder.string()), row.expected, true, row.name);
    expectResult(helper.openAttributes(folder.string()), row.expected, false, row.name);
    // A file answers its attributes the same way.
    std::string file = root.write(row.folderName + ".file", "contents");
    store(file, row.stored);
    expectResult(helper.openAttributes(file), row.expected, false, row.name);
    std::filesystem::remove_all(folder);
  }
}

TEST(DirectoryImport, MissingItemsAndLinks) {
  TemporaryFolder root;
  std::string target = root.path() / "Target";
  std::filesystem::create_directory(target);
  store(target, {{std::string(MetaDataKey::UserTags), strings({u"Red"})}});
  std::string link = root.path() / "Link";
  std::filesystem::create_directory_symlink(target, link);
  std::string dangling = root.path() / "Dangling";
  std::filesystem::create_directory_symlink(root.path() / "nowhere", dangling);
  struct Row {
    const char* name;
    std::string path;
    Expected expected;
  };
  const Row rows[] = {
      {"missing folder", root.path() / "Missing", {u"Missing"}},
      // The link itself is asked, and Linux keeps no user attributes on links.
      {"link to a tagged folder", link, {u"Link"}},
      {"dangling link", dangling, {u"Dangling"}},
      {"the tagged folder itself", target, {u"Target", std::nullopt, std::nullopt, u"Red"}},
      {"trailing slash", target + "/", {u"Target", std::nullopt, std::nullopt, u"Red"}},
      {"empty path", "", {u""}},
  };
  MIMETypeHelper helper;
  for (const Row& row : rows) {
    expectResult(helper.openDirectory(row.path), row.expected, true, row.name);
    expectResult(helper.openAttributes(row.path), row.expected, false, row.name);
  }
}

TEST(DirectoryImport, CommentFromStoredAttributesOnly) {
  MIMETypeHelper helper;
  PropertyDictionary withComment{{std::string(MetaDataKey::FinderComment), u"stored"}};
  PropertyDictionary emptyComment{{std::string(MetaDataKey::FinderComment), u""}};
  EXPECT_EQ(helper.getFinderCommentAtPath("/nowhere", &withComment), u"stored");
  EXPECT_FALSE(helper.getFinderCommentAtPath("/nowhere", &emptyComment));
  EXPECT_FALSE(helper.getFinderCommentAtPath("/nowhere", nullptr));
  EXPECT_FALSE(helper.getFinderCommentAtPath("", nullptr));
}

}  // namespace
}  // namespace ulvek
