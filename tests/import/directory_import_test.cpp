#include <gtest/gtest.h>

#include <filesystem>

#include "import/mime_type_helper.h"
#include "metadata/metadata_store.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::TemporaryFolder;
using Stored = std::vector<std::pair<std::string_view, PropertyValue>>;

void store(const std::string& path, const Stored& values) {
  for (const auto& [key, value] : values)
    ASSERT_TRUE(OVMetaDataStore::setObject(value, key, path, false)) << key;
}

// The expected title (for openDirectory) and the keys both operations answer; nothing else.
void expectResults(const std::string& path, const std::optional<TextString>& title,
                   const PropertyDictionary& keys, const std::string& name) {
  MIMETypeHelper helper;
  PropertyDictionary withTitle = keys;
  if (title) withTitle.emplace("Title", *title);
  EXPECT_EQ(helper.openDirectory(path).values(), withTitle) << name << ": openDirectory";
  EXPECT_EQ(helper.openAttributes(path).values(), keys) << name << ": openAttributes";
}

// Stored tags, addresses and comments of files and folders also travel in the service's tests.
TEST(DirectoryImport, TitlesAndStoredKeys) {
  struct Row {
    std::string folderName;
    Stored stored;
    TextString title;
    PropertyDictionary keys;
  };
  const Row rows[] = {
      {"Plain Folder", {}, u"Plain Folder", {}},
      {"  Padded  ", {}, u"Padded", {}},
      {"Trimmed", {{"kMDItemTitle", u"  Spaced Title \n"}}, u"Spaced Title", {}},
      {"Projects", {{"kMDItemTitle", u"PROJECTS"}}, u"Projects", {}},
      {"White", {{"kMDItemTitle", u" \t\n "}}, u"", {}},
      {"Empty title", {{"kMDItemTitle", u""}}, u"Empty title", {}},
      {"Odd comment", {{MetaDataKey::FinderComment, 5}}, u"Odd comment", {}},
      {"Empty lists",
       {{MetaDataKey::UserTags, PropertyArray()}, {MetaDataKey::WhereFroms, u""}},
       u"Empty lists",
       {{"URL", u""}, {"Tags", u""}}},
  };
  TemporaryFolder root;
  for (const Row& row : rows) {
    std::filesystem::path folder = root.path() / row.folderName;
    std::filesystem::create_directory(folder);
    store(folder.string(), row.stored);
    expectResults(folder.string(), row.title, row.keys, row.folderName);
  }
}

TEST(DirectoryImport, MissingItemsAndLinks) {
  TemporaryFolder root;
  std::string target = root.path() / "Target";
  std::filesystem::create_directory(target);
  store(target, {{MetaDataKey::UserTags, PropertyArray{u"Red"}}});
  std::filesystem::create_directory_symlink(target, root.path() / "Link");
  std::filesystem::create_directory_symlink(root.path() / "nowhere", root.path() / "Dangling");
  // The link itself is asked, and Linux keeps no user attributes on links.
  expectResults(root.path() / "Link", u"Link", {}, "link to a tagged folder");
  expectResults(root.path() / "Dangling", u"Dangling", {}, "dangling link");
  expectResults(root.path() / "Missing", u"Missing", {}, "missing folder");
  expectResults(target + "/", u"Target", {{"Tags", u"Red"}}, "trailing slash");
  expectResults("", u"", {}, "empty path");
}

}  // namespace
}  // namespace ulvek
