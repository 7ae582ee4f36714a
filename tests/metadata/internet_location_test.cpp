#include "metadata/internet_location.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "base/property_list.h"
#include "fork_test_files.h"
#include "platform/resource_fork.h"
#include "platform/type_codes.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace testing;

std::string binaryLocation(PropertyDictionary list) {
  Data bytes = *binaryPropertyList(PropertyValue(std::move(list)));
  return std::string(bytes.begin(), bytes.end());
}

TEST(InternetLocation, ResolvesEachKind) {
  const std::u16string page = u"https://example.org/page";
  const std::string xmlLocation =
      *xmlPropertyList(PropertyValue(PropertyDictionary{{"URL", page}, {"Name", u"Example Page"}}));
  struct Row {
    const char* name;
    std::string fileName, bytes;
    std::optional<std::u16string> address, displayName = {};
    std::string type = {};  // four characters, or empty for none
    std::string fork = {};  // resource fork bytes
    bool forkInCompanion = false;
  };
  const Row rows[] = {
      {"shortcut in capitals, lower-case key, blanks", "Example.URL",
       "[InternetShortcut]\r\nurl=  https://example.org/a \t\r\nIconIndex=0\r\n",
       u"https://example.org/a"},
      {"key after carriage-return lines", "cr.url", "[X]\rURL=https://example.org/cr\rX=1",
       u"https://example.org/cr"},
      {"single line without key", "bare.url", "https://example.org/bare\n",
       u"https://example.org/bare"},
      {"byte order mark before a single line", "bom.url", "\xEF\xBB\xBFhttps://example.org/bom",
       u"https://example.org/bom"},
      {"LINK type, other extension, single line", "bare.txt", "https://example.org/bare\n",
       std::nullopt, std::nullopt, "LINK"},
      {"key with nothing after it", "empty-key.url", "[InternetShortcut]\nURL=\n", u""},
      {"two lines without key", "two.url", "https://a.example\nhttps://b.example\n", std::nullopt},
      {"blank single line", "blank.url", "   \n", std::nullopt},
      {"latin-1 shortcut", "latin.url", "URL=https://example.org/caf\xE9", std::nullopt},
      {"webloc with address and name", "page.webloc", xmlLocation, page, u"Example Page"},
      {"binary webloc with address only", "page.webloc", binaryLocation({{"URL", page}}), page},
      {"empty webloc with url resource", "old.webloc", "", u"https://example.org/fork",
       std::nullopt, "", resourceFork({{"TEXT", "ignored"}, {"url ", "https://example.org/fork"}})},
      {"empty webloc with text resource only", "old.webloc", "", u"https://example.org/text",
       std::nullopt, "", resourceFork({{"TEXT", "https://example.org/text"}})},
      {"list without address falls back to the fork", "noaddress.webloc",
       binaryLocation({{"Name", u"x"}}), u"https://example.org/f", std::nullopt, "",
       resourceFork({{"url ", "https://example.org/f"}})},
      {"fork in an AppleDouble companion", "double.webloc", "", u"https://example.org/double",
       std::nullopt, "", resourceFork({{"url ", "https://example.org/double"}}), true},
      {"fork resource that is not UTF-8", "bad.webloc", "", std::nullopt, std::nullopt, "",
       resourceFork({{"url ", "caf\xE9"}})},
      {"fork without address resources", "icon.webloc", "", std::nullopt, std::nullopt, "",
       resourceFork({{"icns", "...."}})},
      {"neither list nor fork", "junk.webloc", "not a property list", std::nullopt},
      {"plain text with a key line", "notes.txt", "URL=https://example.org/notes\n", std::nullopt},
      {"desktop link", "Site.desktop",
       "# saved\n[Desktop Entry]\nName[de]=Seite\nName=Site\nType=Link\nURL = "
       "https://example.org/d\n",
       u"https://example.org/d", u"Site"},
      {"desktop link without a name", "n.desktop", "[Desktop Entry]\nType=Link\nURL=file:///x\n",
       u"file:///x"},
      {"desktop application", "app.desktop",
       "[Desktop Entry]\nType=Application\nName=App\nURL=https://example.org/\n", std::nullopt},
      {"desktop link key in another group", "g.desktop",
       "[Desktop Entry]\nType=Link\n[Desktop Action x]\nURL=https://example.org/\n", std::nullopt},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    TemporaryFolder folder;
    std::string path = folder.write(row.fileName, row.bytes);
    EXPECT_TRUE(row.type.empty() || setAttribute(path, kFinderInfoAttribute, finderInfo(row.type)));
    if (row.forkInCompanion) folder.write("._" + row.fileName, appleDouble({{2, row.fork}}));
    EXPECT_TRUE(row.fork.empty() || row.forkInCompanion ||
                setAttribute(path, kResourceForkAttribute, row.fork));
    std::optional<TextString> name = u"stale";
    EXPECT_EQ(resolveInternetLocation(path, &name), row.address);
    EXPECT_EQ(name, row.displayName);
  }
}

// A location file whose fork this system wrote, in the attribute or in the companion.
TEST(InternetLocation, ReadsForksWrittenHere) {
  for (ForkStorage storage : {ForkStorage::Attribute, ForkStorage::AppleDouble}) {
    TemporaryFolder folder;
    std::string path = (folder.path() / "old.webloc").string();
    std::optional<ResourceFork> fork = ResourceFork::openForWriting(path, storage);
    ASSERT_TRUE(fork);
    ASSERT_TRUE(fork->addData(byteView("https://example.org/written"), fourCharCode("url "), 256));
    fork.reset();
    EXPECT_EQ(resolveInternetLocation(path, nullptr), u"https://example.org/written");
  }
}

// Resource forks that Mac file servers on Linux keep for their clients.
TEST(InternetLocation, ForksFromFileServers) {
  const std::pair<std::string, std::string> rows[] = {
      {"user.org.netatalk.ResourceFork", "https://example.org/netatalk"},
      {"user.DosStream.AFP_Resource:$DATA", "https://example.org/samba"},
  };
  for (const auto& [attribute, address] : rows) {
    TemporaryFolder folder;
    std::string path = folder.write("old.webloc", "");
    ASSERT_TRUE(setAttribute(path, attribute, resourceFork({{"url ", address}})));
    EXPECT_EQ(resolveInternetLocation(path), fromUtf8(address)) << attribute;
  }
}

TEST(InternetLocation, MissingAndLinkedFiles) {
  TemporaryFolder folder;
  std::optional<TextString> name = u"stale";
  EXPECT_EQ(resolveInternetLocation((folder.path() / "gone.webloc").string(), &name), std::nullopt);
  EXPECT_EQ(name, std::nullopt);
  EXPECT_EQ(resolveInternetLocation((folder.path() / "gone.url").string()), std::nullopt);
  std::string target = folder.write("real.url", "URL=https://example.org/linked\n");
  std::string link = (folder.path() / "link.url").string();
  ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
  EXPECT_EQ(resolveInternetLocation(link), u"https://example.org/linked");
}

}  // namespace
}  // namespace ulvek
