#include "platform/resource_fork.h"

#include <gtest/gtest.h>

#include <sys/xattr.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "fork_test_files.h"
#include "platform/type_codes.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace testing;

std::optional<std::string> text(std::optional<ByteView> bytes) {
  if (!bytes) return std::nullopt;
  return std::string(bytes->begin(), bytes->end());
}

// Its map holds three types: 'TEXT' (256 "plain", 257 "second"), 'utxt' and 'url '.
const std::string kClipping = resourceFork({{"TEXT", "plain", 256},
                                            {"utxt", std::string("u\0t\0", 4), 256},
                                            {"TEXT", "second", 257},
                                            {"url ", "https://example.org/"}});

TEST(ResourceMap, ReadsResourcesByTypeAndID) {
  std::optional<ResourceMap> map = ResourceMap::parse(byteView(kClipping));
  ASSERT_TRUE(map);
  EXPECT_EQ(text(map->firstResource(fourCharCode("TEXT"))), "plain");
  EXPECT_EQ(text(map->firstResource(fourCharCode("url "))), "https://example.org/");
  EXPECT_EQ(text(map->resource(fourCharCode("TEXT"), 257)), "second");
  EXPECT_EQ(text(map->resource(fourCharCode("TEXT"), 1)), std::nullopt);
  EXPECT_EQ(text(map->firstResource(fourCharCode("text"))), std::nullopt);  // codes are exact
  EXPECT_EQ(map->resources().size(), 4u);
  EXPECT_EQ(map->resources().at(1).id, 257);  // map order: a type's resources together
  EXPECT_EQ(map->resources(2).size(), 2u);
  // An empty type list (count 0xFFFF).
  std::string empty = resourceFork({});
  std::optional<ResourceMap> none = ResourceMap::parse(byteView(empty));
  EXPECT_TRUE(none && !none->firstResource(fourCharCode("TEXT")) && none->resources().empty());
}

// Each row damages one field of a valid fork: the answer is no map or a map without the damaged
// resource, never a read outside the fork.
TEST(ResourceMap, OffsetsOutsideTheForkAreRefused) {
  // The map (header, three types, four references) ends the fork.
  const std::size_t map = kClipping.size() - (28 + 2 + 3 * 8 + 4 * 12), types = map + 28;
  struct Row {
    const char* name;
    std::size_t at;
    std::uint64_t value;
    int size;
    bool parses;
    std::optional<std::string> firstText;
  };
  const Row rows[] = {
      {"data offset past the end", 0, 0xFFFFFF00, 4, false, {}},
      {"data length past the end", 8, 0xFFFFFFF0, 4, false, {}},
      {"map offset past the end", 4, 0xFFFFFFFF, 4, false, {}},
      {"map length wraps", 12, 0xFFFFFFFF, 4, false, {}},
      {"map shorter than its header", 12, 27, 4, false, {}},
      {"type list offset past the map", map + 24, 0xFFFF, 2, false, {}},
      {"type count past the map", types, 0x7FFF, 2, true, "plain"},
      {"reference list past the map", types + 2 + 6, 0xFFF0, 2, true, std::nullopt},
      {"reference count past the map", types + 2 + 4, 0xFFFF, 2, true, "plain"},
      {"data offset past the data area", types + 2 + 3 * 8 + 4, 0x00FFFFFF, 4, true, "second"},
      {"resource length past the data area", 256, 0x7FFFFFFF, 4, true, "second"},
      {"resource length wraps", 256, 0xFFFFFFFF, 4, true, "second"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::string fork = kClipping;
    putBigEndian(fork, row.at, row.value, row.size);
    std::optional<ResourceMap> parsed = ResourceMap::parse(byteView(fork));
    ASSERT_EQ(parsed.has_value(), row.parses);
    if (!parsed) continue;
    EXPECT_EQ(text(parsed->firstResource(fourCharCode("TEXT"))), row.firstText);
    parsed->resources();
  }
  // Any cut loses part of the map.
  for (std::size_t size = 0; size < kClipping.size(); ++size)
    EXPECT_FALSE(ResourceMap::parse(byteView(kClipping).first(size))) << size;
}

// Every type entry points at one list of 65536 references: the walk must stay bounded.
TEST(ResourceMap, SharedReferenceListsStayCheap) {
  const std::size_t size = 16 + 28 + 2 + 0x1000 * 8 + 65536 * 12;
  std::string fork = be32(16) + be32(16) + be32(0) + be32(size - 16);  // empty data area
  fork += std::string(24, '\0') + be16(28) + be16(0) + be16(0x1000 - 1);
  for (int type = 0; type < 0x1000; ++type) fork += "TEXT" + be16(0xFFFF) + be16(2 + 0x1000 * 8);
  fork.resize(size);
  std::optional<ResourceMap> map = ResourceMap::parse(byteView(fork));
  ASSERT_TRUE(map);
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(map->firstResource(fourCharCode("TEXT")));
  EXPECT_FALSE(map->resource(fourCharCode("TEXT"), 3));
  EXPECT_TRUE(map->resources().empty());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST(AppleDouble, ParsesEntriesAndRefusesBadTables) {
  const std::string info = finderInfo("TEXT");
  const std::string valid = appleDouble({{9, info}, {2, "FORK"}});
  auto damaged = [&](std::size_t at, std::uint32_t value, std::size_t at2 = 0,
                     std::uint32_t value2 = 0) {
    std::string bytes = valid;
    putBigEndian(bytes, at, value, at == 24 ? 2 : 4);
    if (at2) putBigEndian(bytes, at2, value2, 4);
    return bytes;
  };
  struct Row {
    const char* name;
    std::string bytes;
    bool parses;
    std::optional<std::string> fork, finderInfo;
  };
  const Row rows[] = {
      {"valid", valid, true, "FORK", info},
      {"AppleSingle", appleDouble({{2, "F"}}, 0x00051600), true, "F", {}},
      {"repeated entry keeps the first", appleDouble({{2, "one"}, {2, "two"}}), true, "one", {}},
      {"no entries", appleDouble({}), true, {}, {}},
      {"empty fork entry", appleDouble({{2, ""}}), true, "", {}},
      {"wrong magic", appleDouble({{2, "F"}}, 0x00051608), false, {}, {}},
      {"wrong version", appleDouble({{2, "F"}}, 0x00051607, 0x00030000), false, {}, {}},
      {"short header", valid.substr(0, 25), false, {}, {}},
      {"entry table past the end", damaged(24, 500), false, {}, {}},
      {"fork entry past the end", damaged(26 + 12 + 8, 1000), true, {}, info},
      {"entry offset wraps", damaged(26 + 12 + 4, 0xFFFFFFF0, 26 + 12 + 8, 0x20), true, {}, info},
      {"entry offset past the end", damaged(26 + 4, valid.size() + 1, 26 + 8, 0), true, "FORK", {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::optional<AppleDouble> parsed = parseAppleDouble(byteView(row.bytes));
    ASSERT_EQ(parsed.has_value(), row.parses);
    if (!parsed) continue;
    EXPECT_EQ(text(parsed->resourceFork), row.fork);
    EXPECT_EQ(text(parsed->finderInfo), row.finderInfo);
  }

  const std::pair<const char*, const char*> companions[] = {
      {"dir/name.txt", "dir/._name.txt"},
      {"/a/b/folder/", "/a/b/._folder"},
  };
  for (const auto& [path, expected] : companions) EXPECT_EQ(appleDoublePath(path), expected);
}

TEST(ResourceForkBytes, AttributeThenAppleDoubleThenNothing) {
  TemporaryFolder folder;
  auto item = [&](const std::string& name, const std::string& attribute,
                  const std::string& companion) {
    std::string path = folder.write(name, "");
    EXPECT_TRUE(attribute.empty() || setAttribute(path, kResourceForkAttribute, attribute));
    if (!companion.empty()) folder.write("._" + name, companion);
    return path;
  };
  std::string badCompanion = appleDouble({{2, "FORK"}});
  putBigEndian(badCompanion, 26 + 8, 5000, 4);
  std::string link = (folder.path() / "link").string();
  std::filesystem::create_symlink(item("target", kClipping, ""), link);
  const std::pair<std::string, std::optional<std::string>> rows[] = {
      {item("attribute", kClipping, ""), kClipping},
      {item("companion", "", appleDouble({{9, finderInfo("clpt")}, {2, "COMPANION"}})),
       "COMPANION"},
      {item("both", "ATTRIBUTE", appleDouble({{2, "COMPANION"}})), "ATTRIBUTE"},
      {item("companion entry past its end", "", badCompanion), std::nullopt},
      {item("no fork", "", ""), std::nullopt},
      {link, std::nullopt},  // not followed
      {(folder.path() / "missing").string(), std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& [path, expected] : rows) {
    std::optional<Data> bytes = resourceForkBytes(path);
    EXPECT_EQ(bytes ? std::optional(std::string(bytes->begin(), bytes->end())) : std::nullopt,
              expected)
        << path;
  }
}

std::optional<std::string> text(const std::optional<Data>& bytes) {
  if (!bytes) return std::nullopt;
  return std::string(bytes->begin(), bytes->end());
}

std::string codeText(std::uint32_t code) {
  return {char(code >> 24), char(code >> 16), char(code >> 8), char(code)};
}

bool hasAttribute(const std::string& path, const char* name) {
  return ::lgetxattr(path.c_str(), name, nullptr, 0) >= 0;
}

const std::uint32_t kTEXT = fourCharCode("TEXT"), kSTR = fourCharCode("STR "),
                    kUrl = fourCharCode("url ");

// Written through one object, read back through another, in the attribute and in the companion:
// the fork is a valid map where the readers look, and nothing is left in the other place.
TEST(ResourceFork, WritesReadsAndRemovesInEitherStorage) {
  for (ForkStorage storage : {ForkStorage::Attribute, ForkStorage::AppleDouble}) {
    bool inAttribute = storage == ForkStorage::Attribute;
    SCOPED_TRACE(inAttribute ? "attribute" : "AppleDouble");
    TemporaryFolder folder;
    std::string path = (folder.path() / "note").string();
    {
      std::optional<ResourceFork> fork = ResourceFork::openForWriting(path, storage);
      ASSERT_TRUE(fork);
      EXPECT_TRUE(std::filesystem::is_regular_file(path));  // made by opening
      EXPECT_TRUE(fork->removeType(kTEXT, 128));            // nothing to remove is no failure
      EXPECT_TRUE(fork->addData(byteView("first"), kTEXT, 128));
      EXPECT_TRUE(fork->addData(byteView("other"), kTEXT, 129));
      EXPECT_TRUE(fork->addData(byteView("replaced"), kTEXT, 128));
      EXPECT_TRUE(fork->addString(u"Caf\u00E9 \u2192 bar", kSTR, -16396));
      EXPECT_TRUE(fork->addString(u"", kSTR, 1));
      EXPECT_FALSE(fork->addString(std::u16string(256, u'x'), kSTR, 2));
      EXPECT_TRUE(fork->addString(std::u16string(255, u'x'), kSTR, 3));
      EXPECT_TRUE(fork->addData(byteView("https://example.org/"), kUrl, 256));
      EXPECT_EQ(text(fork->dataForType(kTEXT, 128)), "replaced");
      EXPECT_EQ(fork->storage(), storage);
    }
    EXPECT_EQ(hasAttribute(path, kResourceForkAttribute), inAttribute);
    EXPECT_EQ(std::filesystem::exists(appleDoublePath(path)), !inAttribute);

    std::optional<Data> bytes = resourceForkBytes(path);
    ASSERT_TRUE(bytes);
    std::optional<ResourceMap> map = ResourceMap::parse(*bytes);
    ASSERT_TRUE(map);
    std::vector<std::pair<std::string, std::int16_t>> order;
    for (const ResourceMap::Resource& resource : map->resources())
      order.emplace_back(codeText(resource.type), resource.id);
    // A type's resources stay together, a replaced one goes last of its type.
    const std::vector<std::pair<std::string, std::int16_t>> expectedOrder = {
        {"TEXT", 129}, {"TEXT", 128}, {"STR ", -16396}, {"STR ", 1}, {"STR ", 3}, {"url ", 256}};
    EXPECT_EQ(order, expectedOrder);
    EXPECT_EQ(text(map->firstResource(kTEXT)), "other");

    std::optional<ResourceFork> reading = ResourceFork::openForReading(path);
    ASSERT_TRUE(reading);
    EXPECT_EQ(text(reading->dataForType(kSTR, -16396)), std::string("\x0A") + "Caf? ? bar");
    EXPECT_EQ(text(reading->dataForType(kSTR, 1)), std::string(1, '\0'));
    EXPECT_EQ(reading->dataForType(kSTR, 3)->size(), 256u);
    EXPECT_EQ(reading->dataForType(kSTR, 2), std::nullopt);
    EXPECT_FALSE(reading->addData(byteView("x"), kTEXT, 1));  // opened for reading
    EXPECT_FALSE(reading->removeType(kTEXT, 128));

    {
      std::optional<ResourceFork> fork = ResourceFork::openForWriting(path, storage);
      ASSERT_TRUE(fork);
      EXPECT_TRUE(fork->removeType(kTEXT, 128));
      EXPECT_TRUE(fork->removeType(kUrl, 256));
      // Not written until the fork is closed.
      EXPECT_TRUE(ResourceFork::openForReading(path)->dataForType(kTEXT, 128));
    }
    reading = ResourceFork::openForReading(path);
    ASSERT_TRUE(reading);
    EXPECT_EQ(reading->dataForType(kTEXT, 128), std::nullopt);
    EXPECT_EQ(reading->dataForType(kUrl, 256), std::nullopt);
    EXPECT_EQ(text(reading->dataForType(kTEXT, 129)), "other");
  }
}

// Rewriting a fork keeps what this system does not change: other resources with their names and
// attributes, and the companion's Finder info.
TEST(ResourceFork, RewritingKeepsTheRest) {
  TemporaryFolder folder;
  std::string inAttribute = folder.write("attribute", "data");
  ASSERT_TRUE(setAttribute(inAttribute, kResourceForkAttribute, kClipping));
  std::string inCompanion = folder.write("companion", "");
  folder.write("._companion", appleDouble({{9, finderInfo("clpt")}, {2, kClipping}}));
  // A name and attributes on the 'url ' resource: the name list at the map's end.
  std::string named = kClipping;
  std::size_t map = named.size() - (28 + 2 + 3 * 8 + 4 * 12);
  putBigEndian(named, map + 26, named.size() - map, 2);  // the name list offset
  putBigEndian(named, named.size() - 12 + 2, 0, 2);      // the last reference's name
  named[named.size() - 12 + 4] = 0x20;                   // purgeable
  named += std::string("\x04home", 5);
  putBigEndian(named, 12, named.size() - map, 4);  // the map's length
  std::string withName = folder.write("named", "");
  ASSERT_TRUE(setAttribute(withName, kResourceForkAttribute, named));
  // A name that leaves the map is no name.
  std::string cut = named;
  cut[cut.size() - 5] = char(200);
  std::optional<ResourceMap> cutMap = ResourceMap::parse(byteView(cut));
  ASSERT_TRUE(cutMap);
  EXPECT_FALSE(cutMap->resources().at(3).name);
  // A file server's fork is written back where the server keeps it.
  std::string server = folder.write("server", "");
  ASSERT_TRUE(setAttribute(server, "user.org.netatalk.ResourceFork", kClipping));

  for (const std::string& path : {inAttribute, inCompanion, withName, server}) {
    SCOPED_TRACE(path);
    std::optional<ResourceFork> fork = ResourceFork::openForWriting(path);
    ASSERT_TRUE(fork);
    EXPECT_EQ(fork->storage(),
              path == inCompanion ? ForkStorage::AppleDouble : ForkStorage::Attribute);
    EXPECT_TRUE(fork->addData(byteView("new"), kSTR, 5));
    fork.reset();
    std::optional<Data> bytes = resourceForkBytes(path);
    ASSERT_TRUE(bytes);
    std::optional<ResourceMap> rewritten = ResourceMap::parse(*bytes);
    ASSERT_TRUE(rewritten);
    std::vector<ResourceMap::Resource> resources = rewritten->resources();
    ASSERT_EQ(resources.size(), 5u);
    EXPECT_EQ(text(rewritten->firstResource(kTEXT)), "plain");
    EXPECT_EQ(text(rewritten->resource(kTEXT, 257)), "second");
    EXPECT_EQ(text(rewritten->firstResource(fourCharCode("utxt"))), std::string("u\0t\0", 4));
    EXPECT_EQ(text(rewritten->firstResource(kSTR)), "new");
    const ResourceMap::Resource& url = resources.at(3);
    EXPECT_EQ(text(url.data), "https://example.org/");
    if (path == withName) {
      ASSERT_TRUE(url.name);
      EXPECT_EQ(text(*url.name), "home");
      EXPECT_EQ(url.attributes, 0x20);
    } else {
      EXPECT_FALSE(url.name);
    }
  }
  EXPECT_FALSE(hasAttribute(server, kResourceForkAttribute));
  const std::string info = finderInfo("clpt");
  EXPECT_EQ(finderInfoBytes(inCompanion), Data(info.begin(), info.end()));
  EXPECT_EQ(testing::readFile(inAttribute), "data");
}

// Where a new fork goes, and what is refused.
TEST(ResourceFork, StorageAndRefusals) {
  TemporaryFolder folder;
  // A fork too large for any attribute moves to the companion, and the attribute goes.
  std::string large = folder.write("large", "");
  {
    std::optional<ResourceFork> fork = ResourceFork::openForWriting(large);
    ASSERT_TRUE(fork);
    EXPECT_EQ(fork->storage(), ForkStorage::Attribute);
    EXPECT_TRUE(fork->addData(byteView("small"), kTEXT, 1));
    EXPECT_TRUE(hasAttribute(large, kResourceForkAttribute));
    EXPECT_TRUE(fork->addData(byteView(std::string(100'000, 'x')), kTEXT, 2));
    EXPECT_EQ(fork->storage(), ForkStorage::AppleDouble);
  }
  EXPECT_FALSE(hasAttribute(large, kResourceForkAttribute));
  EXPECT_EQ(text(ResourceFork::openForReading(large)->dataForType(kTEXT, 1)), "small");

  // A file with a companion (Finder info only) gets its fork there.
  std::string typed = folder.write("typed", "");
  folder.write("._typed", appleDouble({{9, finderInfo("clpt")}}));
  EXPECT_EQ(ResourceFork::openForWriting(typed)->storage(), ForkStorage::AppleDouble);

  // Through a link, the fork of the file it leads to.
  std::string target = folder.write("target", "");
  std::filesystem::create_symlink(target, folder.path() / "link");
  ASSERT_TRUE(ResourceFork::openForWriting((folder.path() / "link").string())
                  ->addData(byteView("x"), kTEXT, 1));
  EXPECT_TRUE(hasAttribute(target, kResourceForkAttribute));

  // Data offsets have 24 bits: nothing may start past 16 MiB.
  std::string full = folder.write("full", "");
  std::optional<ResourceFork> fork = ResourceFork::openForWriting(full, ForkStorage::AppleDouble);
  ASSERT_TRUE(fork);
  EXPECT_TRUE(fork->addData(byteView(std::string(0xFFFFFF - 3, 'x')), kTEXT, 1));
  EXPECT_FALSE(fork->addData(byteView("over"), kTEXT, 2));
  EXPECT_FALSE(fork->dataForType(kTEXT, 2));
  fork.reset();

  // A damaged fork is neither read nor overwritten; a missing one is not read.
  std::string damaged = folder.write("damaged", "");
  ASSERT_TRUE(setAttribute(damaged, kResourceForkAttribute, kClipping.substr(0, 100)));
  EXPECT_FALSE(ResourceFork::openForReading(damaged));
  EXPECT_FALSE(ResourceFork::openForWriting(damaged));
  EXPECT_EQ(resourceForkBytes(damaged)->size(), 100u);
  EXPECT_FALSE(ResourceFork::openForReading(folder.write("plain", "")));
  EXPECT_FALSE(ResourceFork::openForReading((folder.path() / "missing").string()));
  // Names of more than 255 characters, and files that cannot be made.
  EXPECT_FALSE(ResourceFork::openForWriting((folder.path() / std::string(256, 'n')).string()));
  EXPECT_FALSE(ResourceFork::openForWriting((folder.path() / "no/such/folder").string()));
  EXPECT_FALSE(ResourceFork::openForWriting(""));
}

}  // namespace
}  // namespace ulvek
