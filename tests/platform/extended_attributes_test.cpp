#include "platform/extended_attributes.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "test_support.h"

namespace ulvek {
namespace {

using testing::TemporaryFolder;

Data bytesOf(std::string_view text) { return Data(text.begin(), text.end()); }

bool sameKeys(std::vector<std::string> keys, std::vector<std::string> expected) {
  std::sort(keys.begin(), keys.end());
  std::sort(expected.begin(), expected.end());
  return keys == expected;
}

TEST(ExtendedAttributes, ValuesRoundTripUnderTheUserNamespace) {
  TemporaryFolder folder;
  std::string file = folder.write("item.txt", "contents");
  struct Row {
    const char* name;
    std::string key;
    Data value;
  };
  const Row rows[] = {
      {"empty value", "com.example.empty", Data()},
      {"short text", "com.apple.metadata:kMDItemWhereFroms", bytesOf("https://example.com/")},
      {"bytes with NUL", "binary", Data{0, 1, 0, 255}},
      {"2000 bytes", "large", Data(2000, 'x')},
      {"non-ASCII key", "Grüße.tag", bytesOf("v")},
  };
  for (const Row& row : rows) {
    int errorNumber = -1;
    ASSERT_TRUE(writeMetadataAttribute(file, row.key, row.value, true, &errorNumber)) << row.name;
    EXPECT_EQ(errorNumber, 0) << row.name;
    auto value = readMetadataAttribute(file, row.key, true, &errorNumber);
    ASSERT_TRUE(value) << row.name;
    EXPECT_EQ(*value, row.value) << row.name;
    // The same attribute under its full Linux name.
    EXPECT_EQ(readExtendedAttribute(file, "user." + row.key, true), row.value) << row.name;
  }

  auto keys = listMetadataKeys(file, true);
  ASSERT_TRUE(keys);
  EXPECT_TRUE(sameKeys(*keys, {"com.example.empty", "com.apple.metadata:kMDItemWhereFroms",
                               "binary", "large", "Grüße.tag"}));

  for (const Row& row : rows) EXPECT_TRUE(removeMetadataAttribute(file, row.key, true)) << row.name;
  keys = listMetadataKeys(file, true);
  ASSERT_TRUE(keys);
  EXPECT_TRUE(keys->empty());
}

TEST(ExtendedAttributes, ListingShowsOnlyUserAttributes) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  ASSERT_TRUE(writeMetadataAttribute(file, "mine", bytesOf("1"), true));
  // The trusted namespace needs privileges; where it can be written it must stay hidden.
  bool haveTrusted = ::setxattr(file.c_str(), "trusted.ulvek-test", "1", 1, 0) == 0;
  auto keys = listMetadataKeys(file, true);
  ASSERT_TRUE(keys);
  EXPECT_EQ(*keys, std::vector<std::string>{"mine"}) << "trusted written: " << haveTrusted;
}

TEST(ExtendedAttributes, FailuresAnswerTheSystemErrorNumber) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "x");
  std::string missing = (folder.path() / "missing").string();
  std::string throughFile = file + "/below";
  std::string withNul = file + std::string(1, '\0') + "x";
  struct Row {
    const char* name;
    std::string path;
    std::string key;
    int list, read, write, remove;  // expected error numbers, 0 for success
  };
  const Row rows[] = {
      {"missing file", missing, "k", ENOENT, ENOENT, ENOENT, ENOENT},
      {"path through a file", throughFile, "k", ENOTDIR, ENOTDIR, ENOTDIR, ENOTDIR},
      {"path with NUL", withNul, "k", EINVAL, EINVAL, EINVAL, EINVAL},
      {"key with NUL", file, std::string("a\0b", 3), 0, EINVAL, EINVAL, EINVAL},
      {"name over 255 bytes", file, std::string(251, 'k'), 0, ERANGE, ERANGE, ERANGE},
      {"missing attribute", file, "absent", 0, ENODATA, 0, 0},
  };
  for (const Row& row : rows) {
    int errorNumber = -1;
    EXPECT_EQ(listMetadataKeys(row.path, true, &errorNumber).has_value(), row.list == 0)
        << row.name;
    EXPECT_EQ(errorNumber, row.list) << row.name;
    errorNumber = -1;
    EXPECT_EQ(readMetadataAttribute(row.path, row.key, true, &errorNumber).has_value(),
              row.read == 0)
        << row.name;
    EXPECT_EQ(errorNumber, row.read) << row.name;
    errorNumber = -1;
    EXPECT_EQ(writeMetadataAttribute(row.path, row.key, bytesOf("v"), true, &errorNumber),
              row.write == 0)
        << row.name;
    EXPECT_EQ(errorNumber, row.write) << row.name;
    errorNumber = -1;
    EXPECT_EQ(removeMetadataAttribute(row.path, row.key, true, &errorNumber), row.remove == 0)
        << row.name;
    EXPECT_EQ(errorNumber, row.remove) << row.name;
  }
}

// The kernel refuses values above 64 KiB; ext4 without large-attribute support stops below.
TEST(ExtendedAttributes, ValueSizeLimits) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  for (std::size_t size : {std::size_t{65536}, std::size_t{65537}, std::size_t{1} << 20}) {
    Data value(size, 'v');
    int errorNumber = 0;
    if (writeMetadataAttribute(file, "big", value, true, &errorNumber)) {
      EXPECT_EQ(readMetadataAttribute(file, "big", true), value) << size;
      continue;
    }
    if (size > 65536)
      EXPECT_EQ(errorNumber, E2BIG) << size;
    else
      EXPECT_TRUE(errorNumber == ENOSPC || errorNumber == E2BIG) << size << ": " << errorNumber;
    EXPECT_FALSE(readMetadataAttribute(file, "big", true)) << size;
  }
}

// Linux keeps no user attributes on symbolic links: writing to the link itself is refused with
// EPERM, and listing or reading it finds nothing; following the link reaches the target.
TEST(ExtendedAttributes, SymbolicLinks) {
  TemporaryFolder folder;
  std::string target = folder.write("target", "x");
  std::string link = (folder.path() / "link").string();
  std::string dangling = (folder.path() / "dangling").string();
  std::filesystem::create_symlink(target, link);
  std::filesystem::create_symlink(folder.path() / "nowhere", dangling);
  ASSERT_TRUE(writeMetadataAttribute(target, "tag", bytesOf("on target"), true));

  int errorNumber = 0;
  EXPECT_FALSE(writeMetadataAttribute(link, "tag", bytesOf("on link"), false, &errorNumber));
  EXPECT_EQ(errorNumber, EPERM);
  auto linkKeys = listMetadataKeys(link, false);
  ASSERT_TRUE(linkKeys);
  EXPECT_TRUE(linkKeys->empty());
  EXPECT_FALSE(readMetadataAttribute(link, "tag", false, &errorNumber));
  EXPECT_EQ(errorNumber, ENODATA);
  EXPECT_FALSE(removeMetadataAttribute(link, "tag", false, &errorNumber));
  EXPECT_EQ(errorNumber, EPERM);

  EXPECT_EQ(readMetadataAttribute(link, "tag", true), bytesOf("on target"));
  EXPECT_EQ(listMetadataKeys(link, true), std::vector<std::string>{"tag"});

  EXPECT_FALSE(listMetadataKeys(dangling, true, &errorNumber));
  EXPECT_EQ(errorNumber, ENOENT);
  auto danglingKeys = listMetadataKeys(dangling, false, &errorNumber);
  ASSERT_TRUE(danglingKeys);
  EXPECT_TRUE(danglingKeys->empty());
}

TEST(ExtendedAttributes, RawReadOfForeignNames) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  Data finderInfo(32, 0);
  std::copy_n("TEXTttxt", 8, finderInfo.begin());
  ASSERT_EQ(::setxattr(file.c_str(), "user.com.apple.FinderInfo", finderInfo.data(),
                       finderInfo.size(), 0),
            0);
  EXPECT_EQ(readExtendedAttribute(file, "user.com.apple.FinderInfo", false), finderInfo);
  int errorNumber = 0;
  EXPECT_FALSE(readExtendedAttribute(file, "user.com.apple.ResourceFork", false, &errorNumber));
  EXPECT_EQ(errorNumber, ENODATA);
}

}  // namespace
}  // namespace ulvek
