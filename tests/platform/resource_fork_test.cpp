#include "platform/resource_fork.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace ulvek
