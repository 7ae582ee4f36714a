#include "metadata/internet_location.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "location_test_files.h"
#include "platform/property_list.h"
#include "platform/resource_fork.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::appleDoubleWithFork;
using testing::finderInfo;
using testing::resourceFork;
using testing::setAttribute;
using testing::TemporaryFolder;

using Resources = std::vector<std::pair<std::string, std::string>>;

std::string xmlLocation(bool withName) {
  PropertyDictionary list{{"URL", PropertyValue(u"https://example.org/page")}};
  if (withName) list.emplace("Name", PropertyValue(u"Example Page"));
  return *xmlPropertyList(PropertyValue(list));
}

std::string binaryLocation(PropertyDictionary list) {
  Data bytes = *binaryPropertyList(PropertyValue(std::move(list)));
  return std::string(bytes.begin(), bytes.end());
}

struct LocationCase {
  std::string label;
  std::string fileName;
  std::string bytes;
  std::string type;  // four characters, or empty for none
  Resources forkInAttribute;
  Resources forkInAppleDouble;
  std::optional<std::u16string> address;
  std::optional<std::u16string> name;
};

TEST(InternetLocation, ResolvesEachKind) {
  const std::vector<LocationCase> cases = {
      {"shortcut in capitals, lower-case key, blanks",
       "Example.URL",
       "[InternetShortcut]\r\nurl=  https://example.org/a \t\r\nIconIndex=0\r\n",
       "",
       {},
       {},
       u"https://example.org/a",
       std::nullopt},
      {"shortcut key after carriage-return lines",
       "cr.url",
       "[InternetShortcut]\rURL=https://example.org/cr\rX=1",
       "",
       {},
       {},
       u"https://example.org/cr",
       std::nullopt},
      {"single address line without key",
       "bare.url",
       "https://example.org/bare\n",
       "",
       {},
       {},
       u"https://example.org/bare",
       std::nullopt},
      {"LINK type, other extension, bare line",
       "bare.txt",
       "https://example.org/bare\n",
       "LINK",
       {},
       {},
       std::nullopt,
       std::nullopt},
      {"LINK type, other extension, key line",
       "keyed.txt",
       "URL=https://example.org/keyed",
       "LINK",
       {},
       {},
       u"https://example.org/keyed",
       std::nullopt},
      {"key with nothing after it",
       "empty-key.url",
       "[InternetShortcut]\nURL=\n",
       "",
       {},
       {},
       u"",
       std::nullopt},
      {"two lines without key",
       "two.url",
       "https://a.example\nhttps://b.example\n",
       "",
       {},
       {},
       std::nullopt,
       std::nullopt},
      {"blank single line", "blank.url", "   \n", "", {}, {}, std::nullopt, std::nullopt},
      {"empty shortcut", "empty.url", "", "", {}, {}, std::nullopt, std::nullopt},
      {"latin-1 shortcut",
       "latin.url",
       "URL=https://example.org/caf\xE9",
       "",
       {},
       {},
       std::nullopt,
       std::nullopt},
      {"byte order mark before a bare line",
       "bom.url",
       "\xEF\xBB\xBFhttps://example.org/bom",
       "",
       {},
       {},
       u"https://example.org/bom",
       std::nullopt},
      {"webloc with address and name",
       "page.webloc",
       xmlLocation(true),
       "",
       {},
       {},
       u"https://example.org/page",
       u"Example Page"},
      {"webloc with address only",
       "page.webloc",
       xmlLocation(false),
       "",
       {},
       {},
       u"https://example.org/page",
       std::nullopt},
      {"binary inetloc",
       "mail.mailloc",
       binaryLocation({{"URL", PropertyValue(u"mailto:someone@example.org")}}),
       "",
       {},
       {},
       u"mailto:someone@example.org",
       std::nullopt},
      {"address that is not text",
       "number.webloc",
       binaryLocation({{"URL", PropertyValue(7)}}),
       "",
       {},
       {},
       std::nullopt,
       std::nullopt},
      {"location type without extension",
       "bookmark",
       xmlLocation(true),
       "ilht",
       {},
       {},
       u"https://example.org/page",
       u"Example Page"},
      {"empty webloc with url resource",
       "old.webloc",
       "",
       "",
       {{"url ", "https://example.org/fork"}, {"TEXT", "ignored"}},
       {},
       u"https://example.org/fork",
       std::nullopt},
      {"empty webloc with text resource only",
       "old.webloc",
       "",
       "",
       {{"TEXT", "https://example.org/text"}},
       {},
       u"https://example.org/text",
       std::nullopt},
      {"plist without address falls back to the fork",
       "noaddress.webloc",
       binaryLocation({{"Name", PropertyValue(u"x")}}),
       "",
       {{"url ", "https://example.org/f"}},
       {},
       u"https://example.org/f",
       std::nullopt},
      {"fork in an AppleDouble companion",
       "double.webloc",
       "",
       "",
       {},
       {{"url ", "https://example.org/double"}},
       u"https://example.org/double",
       std::nullopt},
      {"fork resource that is not UTF-8",
       "bad.webloc",
       "",
       "",
       {{"url ", "caf\xE9"}},
       {},
       std::nullopt,
       std::nullopt},
      {"fork without address resources",
       "icon.webloc",
       "",
       "",
       {{"icns", "...."}},
       {},
       std::nullopt,
       std::nullopt},
      {"webloc that is neither list nor fork",
       "junk.webloc",
       "not a property list",
       "",
       {},
       {},
       std::nullopt,
       std::nullopt},
      {"plain text with a key line",
       "notes.txt",
       "URL=https://example.org/notes\n",
       "",
       {},
       {},
       std::nullopt,
       std::nullopt},
      {"text type is no location",
       "notes",
       "URL=https://example.org/notes\n",
       "TEXT",
       {},
       {},
       std::nullopt,
       std::nullopt},
  };
  for (const LocationCase& row : cases) {
    SCOPED_TRACE(row.label);
    TemporaryFolder folder;
    std::string path = folder.write(row.fileName, row.bytes);
    if (!row.type.empty()) {
      ASSERT_TRUE(setAttribute(path, kFinderInfoAttribute, finderInfo(row.type)));
    }
    if (!row.forkInAttribute.empty()) {
      ASSERT_TRUE(setAttribute(path, kResourceForkAttribute, resourceFork(row.forkInAttribute)));
    }
    if (!row.forkInAppleDouble.empty()) {
      folder.write("._" + row.fileName, appleDoubleWithFork(resourceFork(row.forkInAppleDouble)));
    }
    std::optional<TextString> name = u"stale";
    EXPECT_EQ(resolveInternetLocation(path, &name), row.address);
    EXPECT_EQ(name, row.name);
    EXPECT_EQ(resolveInternetLocation(path), row.address);
  }
}

TEST(InternetLocation, MissingFileAnswersNothing) {
  TemporaryFolder folder;
  std::optional<TextString> name = u"stale";
  EXPECT_EQ(resolveInternetLocation((folder.path() / "gone.webloc").string(), &name), std::nullopt);
  EXPECT_EQ(name, std::nullopt);
  EXPECT_EQ(resolveInternetLocation((folder.path() / "gone.url").string()), std::nullopt);
  EXPECT_EQ(resolveInternetLocation(""), std::nullopt);
}

TEST(InternetLocation, LinkedLocationFileIsFollowed) {
  TemporaryFolder folder;
  std::string target = folder.write("real.url", "URL=https://example.org/linked\n");
  std::string link = (folder.path() / "link.url").string();
  ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
  EXPECT_EQ(resolveInternetLocation(link), u"https://example.org/linked");
}

}  // namespace
}  // namespace ulvek
