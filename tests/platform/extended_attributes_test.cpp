#include "platform/extended_attributes.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <cerrno>

#include "test_support.h"

namespace ulvek {
namespace {

using testing::TemporaryFolder;

Data bytesOf(std::string_view text) { return Data(text.begin(), text.end()); }

// Key K is the attribute "user.K"; listing shows user attributes only, without the prefix.
TEST(ExtendedAttributes, KeysLiveInTheUserNamespace) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  // The trusted namespace needs privileges; where it can be written it must stay hidden.
  ::setxattr(file.c_str(), "trusted.ulvek-test", "1", 1, 0);
  const Data value{0, 1, 0, 255};
  int errorNumber = -1;
  ASSERT_TRUE(writeMetadataAttribute(file, "Grüße.tag", value, true, &errorNumber));
  EXPECT_EQ(errorNumber, 0);
  EXPECT_EQ(readExtendedAttribute(file, "user.Grüße.tag", true), value);
  EXPECT_EQ(readMetadataAttribute(file, "Grüße.tag", true), value);
  EXPECT_EQ(listMetadataKeys(file, true), std::vector<std::string>{"Grüße.tag"});
  EXPECT_TRUE(removeMetadataAttribute(file, "Grüße.tag", true));
  EXPECT_EQ(listMetadataKeys(file, true), std::vector<std::string>{});
}

TEST(ExtendedAttributes, FailuresAnswerTheSystemErrorNumber) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "x");
  struct Row {
    const char* name;
    std::string path;
    std::string key;
    int list, read, write, remove;  // expected error numbers, 0 for success
  };
  const Row rows[] = {
      {"missing file", (folder.path() / "missing").string(), "k", ENOENT, ENOENT, ENOENT, ENOENT},
      {"path through a file", file + "/below", "k", ENOTDIR, ENOTDIR, ENOTDIR, ENOTDIR},
      {"path with NUL", file + std::string(1, '\0'), "k", EINVAL, EINVAL, EINVAL, EINVAL},
      {"key with NUL", file, std::string("a\0b", 3), 0, EINVAL, EINVAL, EINVAL},
      {"name over 255 bytes", file, std::string(251, 'k'), 0, ERANGE, ERANGE, ERANGE},
      {"missing attribute", file, "absent", 0, ENODATA, 0, 0},
  };
  for (const Row& row : rows) {
    int list = -1, read = -1, write = -1, remove = -1;
    EXPECT_EQ(listMetadataKeys(row.path, true, &list).has_value(), row.list == 0) << row.name;
    EXPECT_EQ(readMetadataAttribute(row.path, row.key, true, &read).has_value(), row.read == 0)
        << row.name;
    EXPECT_EQ(writeMetadataAttribute(row.path, row.key, bytesOf("v"), true, &write), row.write == 0)
        << row.name;
    EXPECT_EQ(removeMetadataAttribute(row.path, row.key, true, &remove), row.remove == 0)
        << row.name;
    EXPECT_EQ(std::vector({list, read, write, remove}),
              std::vector({row.list, row.read, row.write, row.remove}))
        << row.name;
  }
}

// The kernel refuses values above 64 KiB; ext4 without large attributes already refuses 64 KiB.
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
    EXPECT_TRUE(errorNumber == E2BIG || (size == 65536 && errorNumber == ENOSPC)) << size;
    EXPECT_FALSE(readMetadataAttribute(file, "big", true)) << size;
  }
}

}  // namespace
}  // namespace ulvek
