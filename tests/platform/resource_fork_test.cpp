#include "platform/resource_fork.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "platform/extended_attributes.h"
#include "platform/type_codes.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::TemporaryFolder;

void putUInt16(Data& bytes, std::size_t at, std::uint32_t value) {
  bytes[at] = static_cast<std::uint8_t>(value >> 8);
  bytes[at + 1] = static_cast<std::uint8_t>(value);
}

void putUInt32(Data& bytes, std::size_t at, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
}

std::string text(ByteView bytes) { return std::string(bytes.begin(), bytes.end()); }
Data bytesOf(std::string_view text) { return Data(text.begin(), text.end()); }

struct TestResource {
  std::uint32_t type;
  std::int16_t id;
  std::string bytes;
};

// A classic resource fork: 16-byte header, data area at 256, map after it. Types keep the order
// in which they first appear; resources of a type keep their order.
struct ForkLayout {
  Data bytes;
  std::size_t mapOffset = 0;
  std::size_t typeList = 0;
};

ForkLayout buildFork(const std::vector<TestResource>& resources) {
  constexpr std::size_t kDataOffset = 256;
  ForkLayout fork;
  Data data;
  std::vector<std::uint32_t> types;
  std::map<std::uint32_t, std::vector<std::pair<std::int16_t, std::size_t>>> references;
  for (const TestResource& resource : resources) {
    if (!references.count(resource.type)) types.push_back(resource.type);
    references[resource.type].push_back({resource.id, data.size()});
    std::size_t at = data.size();
    data.resize(at + 4);
    putUInt32(data, at, static_cast<std::uint32_t>(resource.bytes.size()));
    data.insert(data.end(), resource.bytes.begin(), resource.bytes.end());
  }
  std::size_t typeListSize = 2 + types.size() * 8;
  Data map(28 + typeListSize);
  putUInt16(map, 24, 28);
  putUInt16(map, 28, static_cast<std::uint32_t>(types.size() - 1));
  std::size_t referenceAt = typeListSize;  // from the type list
  for (std::size_t index = 0; index < types.size(); ++index) {
    const auto& list = references[types[index]];
    std::size_t entry = 28 + 2 + index * 8;
    putUInt32(map, entry, types[index]);
    putUInt16(map, entry + 4, static_cast<std::uint32_t>(list.size() - 1));
    putUInt16(map, entry + 6, static_cast<std::uint32_t>(referenceAt));
    for (const auto& [id, offset] : list) {
      std::size_t at = map.size();
      map.resize(at + 12);
      putUInt16(map, at, static_cast<std::uint16_t>(id));
      putUInt16(map, at + 2, 0xFFFF);                              // no name
      putUInt32(map, at + 4, static_cast<std::uint32_t>(offset));  // attributes byte stays 0
      map[at + 4] = 0;
      referenceAt += 12;
    }
  }
  putUInt16(map, 26, static_cast<std::uint32_t>(map.size()));
  fork.mapOffset = kDataOffset + data.size();
  fork.typeList = fork.mapOffset + 28;
  fork.bytes.assign(kDataOffset, 0);
  putUInt32(fork.bytes, 0, kDataOffset);
  putUInt32(fork.bytes, 4, static_cast<std::uint32_t>(fork.mapOffset));
  putUInt32(fork.bytes, 8, static_cast<std::uint32_t>(data.size()));
  putUInt32(fork.bytes, 12, static_cast<std::uint32_t>(map.size()));
  fork.bytes.insert(fork.bytes.end(), data.begin(), data.end());
  fork.bytes.insert(fork.bytes.end(), map.begin(), map.end());
  return fork;
}

const std::vector<TestResource> kClipping = {
    {fourCharCode("TEXT"), 256, "plain"},
    {fourCharCode("utxt"), 256, std::string("u\0t\0", 4)},
    {fourCharCode("TEXT"), 257, "second"},
    {fourCharCode("url "), 128, "https://example.org/"},
};

TEST(ResourceMap, ReadsResourcesByTypeAndID) {
  ForkLayout fork = buildFork(kClipping);
  std::optional<ResourceMap> map = ResourceMap::parse(fork.bytes);
  ASSERT_TRUE(map);
  struct Row {
    const char* name;
    std::optional<ByteView> found;
    std::optional<std::string> expected;
  };
  const Row rows[] = {
      {"first TEXT", map->firstResource(fourCharCode("TEXT")), "plain"},
      {"first url", map->firstResource(fourCharCode("url ")), "https://example.org/"},
      {"TEXT 257", map->resource(fourCharCode("TEXT"), 257), "second"},
      {"utxt 256", map->resource(fourCharCode("utxt"), 256), std::string("u\0t\0", 4)},
      {"missing type", map->firstResource(fourCharCode("RTF ")), std::nullopt},
      {"missing id", map->resource(fourCharCode("TEXT"), 1), std::nullopt},
      {"type codes are case-sensitive", map->firstResource(fourCharCode("text")), std::nullopt},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    ASSERT_EQ(row.found.has_value(), row.expected.has_value());
    if (row.expected) EXPECT_EQ(text(*row.found), *row.expected);
  }
  std::vector<ResourceMap::Resource> all = map->resources();
  ASSERT_EQ(all.size(), 4u);
  EXPECT_EQ(all[0].type, fourCharCode("TEXT"));
  EXPECT_EQ(all[1].id, 257);
  EXPECT_EQ(all[2].type, fourCharCode("utxt"));
  EXPECT_EQ(map->resources(2).size(), 2u);
}

TEST(ResourceMap, EmptyTypeListHasNoResources) {
  ForkLayout fork = buildFork({{fourCharCode("TEXT"), 1, "x"}});
  putUInt16(fork.bytes, fork.typeList, 0xFFFF);
  std::optional<ResourceMap> map = ResourceMap::parse(fork.bytes);
  ASSERT_TRUE(map);
  EXPECT_FALSE(map->firstResource(fourCharCode("TEXT")));
  EXPECT_TRUE(map->resources().empty());
}

// Each row damages one field of a valid fork; the result is either no map or a map without the
// damaged resource, never a read outside the fork.
TEST(ResourceMap, OffsetsOutsideTheForkAreRefused) {
  struct Row {
    const char* name;
    void (*damage)(ForkLayout& fork);
    bool parses;
    std::optional<std::string> firstText;
  };
  const Row rows[] = {
      {"data offset past the end",
       [](ForkLayout& f) { putUInt32(f.bytes, 0, static_cast<std::uint32_t>(f.bytes.size())); },
       false, std::nullopt},
      {"data length past the end", [](ForkLayout& f) { putUInt32(f.bytes, 8, 0xFFFFFFF0); }, false,
       std::nullopt},
      {"map offset past the end", [](ForkLayout& f) { putUInt32(f.bytes, 4, 0xFFFFFFFF); }, false,
       std::nullopt},
      {"map length wraps", [](ForkLayout& f) { putUInt32(f.bytes, 12, 0xFFFFFFFF); }, false,
       std::nullopt},
      {"map shorter than its header", [](ForkLayout& f) { putUInt32(f.bytes, 12, 27); }, false,
       std::nullopt},
      {"type list offset past the map",
       [](ForkLayout& f) { putUInt16(f.bytes, f.mapOffset + 24, 0xFFFF); }, false, std::nullopt},
      {"type count past the map", [](ForkLayout& f) { putUInt16(f.bytes, f.typeList, 0x7FFF); },
       true, "plain"},
      {"reference list past the map",
       [](ForkLayout& f) { putUInt16(f.bytes, f.typeList + 2 + 6, 0xFFF0); }, true, std::nullopt},
      {"reference count past the map",
       [](ForkLayout& f) { putUInt16(f.bytes, f.typeList + 2 + 4, 0xFFFF); }, true, "plain"},
      {"data offset past the data area",
       [](ForkLayout& f) {
         std::size_t reference = f.typeList + 2 + 3 * 8;
         putUInt32(f.bytes, reference + 4, 0x00FFFFFF);
       },
       true, "second"},
      {"resource length past the data area",
       [](ForkLayout& f) { putUInt32(f.bytes, 256, 0x7FFFFFFF); }, true, "second"},
      {"resource length wraps", [](ForkLayout& f) { putUInt32(f.bytes, 256, 0xFFFFFFFF); }, true,
       "second"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    ForkLayout fork = buildFork(kClipping);
    row.damage(fork);
    std::optional<ResourceMap> map = ResourceMap::parse(fork.bytes);
    ASSERT_EQ(map.has_value(), row.parses);
    if (!map) continue;
    std::optional<ByteView> first = map->firstResource(fourCharCode("TEXT"));
    ASSERT_EQ(first.has_value(), row.firstText.has_value());
    if (first) EXPECT_EQ(text(*first), *row.firstText);
    map->resources();
  }
}

TEST(ResourceMap, EveryTruncationIsSafe) {
  ForkLayout fork = buildFork(kClipping);
  for (std::size_t size = 0; size < fork.bytes.size(); ++size) {
    ByteView cut(fork.bytes.data(), size);
    std::optional<ResourceMap> map = ResourceMap::parse(cut);
    EXPECT_FALSE(map) << size;  // the map ends the fork, so any cut loses part of it
  }
  EXPECT_TRUE(ResourceMap::parse(fork.bytes));
}

// Every type entry points at one list of 65536 references: the walk must stay bounded.
TEST(ResourceMap, SharedReferenceListsStayCheap) {
  Data fork(16 + 28 + 2 + 0x1000 * 8 + 65536 * 12, 0);
  putUInt32(fork, 0, 16);  // empty data area
  putUInt32(fork, 4, 16);
  putUInt32(fork, 8, 0);
  putUInt32(fork, 12, static_cast<std::uint32_t>(fork.size() - 16));
  putUInt16(fork, 16 + 24, 28);
  std::size_t typeList = 16 + 28;
  putUInt16(fork, typeList, 0x1000 - 1);
  for (std::size_t index = 0; index < 0x1000; ++index) {
    putUInt32(fork, typeList + 2 + index * 8, fourCharCode("TEXT"));
    putUInt16(fork, typeList + 2 + index * 8 + 4, 0xFFFF);
    putUInt16(fork, typeList + 2 + index * 8 + 6, 2 + 0x1000 * 8);
  }
  std::optional<ResourceMap> map = ResourceMap::parse(fork);
  ASSERT_TRUE(map);
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(map->firstResource(fourCharCode("TEXT")));
  EXPECT_FALSE(map->resource(fourCharCode("TEXT"), 3));
  EXPECT_TRUE(map->resources().empty());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

// An AppleDouble file as macOS writes it beside a file on a foreign volume.
Data buildAppleDouble(const std::vector<std::pair<std::uint32_t, std::string>>& entries,
                      std::uint32_t magic = 0x00051607, std::uint32_t version = 0x00020000) {
  Data bytes(26 + entries.size() * 12, 0);
  putUInt32(bytes, 0, magic);
  putUInt32(bytes, 4, version);
  putUInt16(bytes, 24, static_cast<std::uint32_t>(entries.size()));
  for (std::size_t index = 0; index < entries.size(); ++index) {
    std::size_t at = 26 + index * 12;
    putUInt32(bytes, at, entries[index].first);
    putUInt32(bytes, at + 4, static_cast<std::uint32_t>(bytes.size()));
    putUInt32(bytes, at + 8, static_cast<std::uint32_t>(entries[index].second.size()));
    bytes.insert(bytes.end(), entries[index].second.begin(), entries[index].second.end());
  }
  return bytes;
}

const std::string kFinderInfo = std::string("TEXTttxt") + std::string(24, '\0');

TEST(AppleDouble, ParsesEntriesAndRefusesBadTables) {
  struct Row {
    const char* name;
    Data bytes;
    bool parses;
    std::optional<std::string> fork;
    std::optional<std::string> finderInfo;
  };
  Data valid = buildAppleDouble({{9, kFinderInfo}, {2, "FORK"}});
  Data countTooLarge = valid;
  putUInt16(countTooLarge, 24, 500);
  Data forkPastEnd = valid;
  putUInt32(forkPastEnd, 26 + 12 + 8, 1000);  // length of entry 2
  Data offsetWraps = valid;
  putUInt32(offsetWraps, 26 + 12 + 4, 0xFFFFFFF0);
  putUInt32(offsetWraps, 26 + 12 + 8, 0x20);
  Data offsetPastEnd = valid;
  putUInt32(offsetPastEnd, 26 + 4, static_cast<std::uint32_t>(valid.size() + 1));
  putUInt32(offsetPastEnd, 26 + 8, 0);
  const Row rows[] = {
      {"valid", valid, true, "FORK", kFinderInfo},
      {"AppleSingle", buildAppleDouble({{2, "F"}}, 0x00051600), true, "F", std::nullopt},
      {"version 1", buildAppleDouble({{2, "F"}}, 0x00051607, 0x00010000), true, "F", std::nullopt},
      {"repeated entry keeps the first", buildAppleDouble({{2, "one"}, {2, "two"}}), true, "one",
       std::nullopt},
      {"no entries", buildAppleDouble({}), true, std::nullopt, std::nullopt},
      {"empty fork entry", buildAppleDouble({{2, ""}}), true, "", std::nullopt},
      {"wrong magic", buildAppleDouble({{2, "F"}}, 0x00051608), false, {}, {}},
      {"wrong version", buildAppleDouble({{2, "F"}}, 0x00051607, 0x00030000), false, {}, {}},
      {"short header", Data(valid.begin(), valid.begin() + 25), false, {}, {}},
      {"entry table past the end", countTooLarge, false, {}, {}},
      {"entry table cut", Data(valid.begin(), valid.begin() + 30), false, {}, {}},
      {"fork entry past the end", forkPastEnd, true, std::nullopt, kFinderInfo},
      {"entry offset wraps", offsetWraps, true, std::nullopt, kFinderInfo},
      {"entry offset past the end", offsetPastEnd, true, "FORK", std::nullopt},
      {"empty", Data(), false, {}, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::optional<AppleDouble> parsed = parseAppleDouble(row.bytes);
    ASSERT_EQ(parsed.has_value(), row.parses);
    if (!parsed) continue;
    ASSERT_EQ(parsed->resourceFork.has_value(), row.fork.has_value());
    if (row.fork) EXPECT_EQ(text(*parsed->resourceFork), *row.fork);
    ASSERT_EQ(parsed->finderInfo.has_value(), row.finderInfo.has_value());
    if (row.finderInfo) EXPECT_EQ(text(*parsed->finderInfo), *row.finderInfo);
  }
}

TEST(AppleDouble, CompanionPath) {
  const std::pair<const char*, const char*> rows[] = {
      {"dir/name.txt", "dir/._name.txt"},
      {"name", "._name"},
      {"/a/b/folder/", "/a/b/._folder"},
      {"/top", "/._top"},
  };
  for (const auto& [path, expected] : rows) EXPECT_EQ(appleDoublePath(path), expected) << path;
}

void writeBytes(const std::filesystem::path& path, const Data& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

TEST(ResourceForkBytes, AttributeThenAppleDoubleThenNothing) {
  TemporaryFolder folder;
  ForkLayout fork = buildFork(kClipping);
  std::string inAttribute = folder.write("attribute.clipping", "");
  ASSERT_TRUE(writeMetadataAttribute(inAttribute, "com.apple.ResourceFork", fork.bytes, false));
  std::string inCompanion = folder.write("companion.clipping", "");
  writeBytes(folder.path() / "._companion.clipping",
             buildAppleDouble({{9, kFinderInfo}, {2, "FROM COMPANION"}}));
  std::string both = folder.write("both.clipping", "");
  ASSERT_TRUE(writeMetadataAttribute(both, "com.apple.ResourceFork", bytesOf("ATTRIBUTE"), false));
  writeBytes(folder.path() / "._both.clipping", buildAppleDouble({{2, "COMPANION"}}));
  std::string badCompanion = folder.write("bad.clipping", "");
  Data bad = buildAppleDouble({{2, "FORK"}});
  putUInt32(bad, 26 + 8, 5000);
  writeBytes(folder.path() / "._bad.clipping", bad);
  std::string none = folder.write("none.clipping", "");
  std::string link = (folder.path() / "link.clipping").string();
  std::filesystem::create_symlink(inAttribute, link);

  struct Row {
    const char* name;
    std::string path;
    std::optional<std::string> expected;
  };
  const Row rows[] = {
      {"attribute", inAttribute, std::string(fork.bytes.begin(), fork.bytes.end())},
      {"AppleDouble companion", inCompanion, "FROM COMPANION"},
      {"attribute wins", both, "ATTRIBUTE"},
      {"companion entry past its end", badCompanion, std::nullopt},
      {"no fork", none, std::nullopt},
      {"symbolic link not followed", link, std::nullopt},
      {"missing file", (folder.path() / "missing").string(), std::nullopt},
      {"empty path", "", std::nullopt},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::optional<Data> bytes = resourceForkBytes(row.path);
    ASSERT_EQ(bytes.has_value(), row.expected.has_value());
    if (row.expected) EXPECT_EQ(std::string(bytes->begin(), bytes->end()), *row.expected);
  }

  std::optional<Data> read = resourceForkBytes(inAttribute);
  ASSERT_TRUE(read);
  std::optional<ResourceMap> map = ResourceMap::parse(*read);
  ASSERT_TRUE(map);
  EXPECT_EQ(text(*map->firstResource(fourCharCode("url "))), "https://example.org/");
}

}  // namespace
}  // namespace ulvek
