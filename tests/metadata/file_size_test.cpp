#include "metadata/file_size.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "location_test_files.h"
#include "platform/resource_fork.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::appleDoubleWithFork;
using testing::setAttribute;
using testing::TemporaryFolder;

namespace fs = std::filesystem;

struct SizeCase {
  std::string label;
  std::function<std::string(const TemporaryFolder&)> make;  // answers the path to measure
  std::uint64_t expected;
};

std::string fileWithFork(const TemporaryFolder& folder, const std::string& name) {
  std::string path = folder.write(name, std::string(100, 'd'));
  EXPECT_TRUE(setAttribute(path, kResourceForkAttribute, std::string(50, 'r')));
  return path;
}

TEST(FileSize, CountsDataAndForks) {
  const std::vector<SizeCase> cases = {
      {"data and attribute fork", [](auto& f) { return fileWithFork(f, "a.bin"); }, 150},
      {"data and AppleDouble fork",
       [](auto& f) {
         f.write("._b.bin", appleDoubleWithFork(std::string(50, 'r')));
         return f.write("b.bin", std::string(100, 'd'));
       },
       150},
      {"empty file", [](auto& f) { return f.write("empty", ""); }, 0},
      {"missing path", [](auto& f) { return (f.path() / "missing").string(); }, 0},
      {"empty path", [](auto&) { return std::string(); }, 0},
      {"folder with that file and an empty subfolder",
       [](auto& f) {
         fileWithFork(f, "top/a.bin");
         fs::create_directory(f.path() / "top" / "empty");
         return (f.path() / "top").string();
       },
       150},
      {"folder counts the AppleDouble fork once",
       [](auto& f) {
         f.write("top/._b.bin", appleDoubleWithFork(std::string(50, 'r')));
         f.write("top/b.bin", std::string(100, 'd'));
         return (f.path() / "top").string();
       },
       150},
      {"orphan companion is an ordinary file",
       [](auto& f) {
         f.write("top/._gone", std::string(7, 'x'));
         return (f.path() / "top").string();
       },
       7},
      {"nested folders are summed",
       [](auto& f) {
         f.write("top/1", std::string(1, 'x'));
         f.write("top/a/2", std::string(20, 'x'));
         f.write("top/a/b/3", std::string(300, 'x'));
         return (f.path() / "top").string();
       },
       321},
      {"a linked file given directly is followed",
       [](auto& f) {
         std::string real = fileWithFork(f, "real.bin");
         fs::create_symlink(real, f.path() / "link.bin");
         return (f.path() / "link.bin").string();
       },
       150},
      {"path with dot components",
       [](auto& f) {
         fileWithFork(f, "top/a.bin");
         return (f.path() / "top" / "." / ".." / "top" / "a.bin").string();
       },
       150},
  };
  for (const SizeCase& row : cases) {
    SCOPED_TRACE(row.label);
    TemporaryFolder folder;
    std::string path = row.make(folder);
    EXPECT_EQ(fileSizeAtPath(path), row.expected);
  }
}

TEST(FileSize, LinksInsideTheFolderAreNotFollowed) {
  TemporaryFolder folder;
  std::string big = folder.write("outside/big", std::string(10000, 'x'));
  folder.write("top/1", "x");
  fs::create_symlink(big, folder.path() / "top" / "file-link");
  fs::create_directory_symlink(folder.path() / "outside", folder.path() / "top" / "folder-link");
  // A link counts as the length of the path it holds, as the catalog reports it.
  std::uint64_t expected = 1 + big.size() + (folder.path() / "outside").string().size();
  EXPECT_EQ(fileSizeAtPath((folder.path() / "top").string()), expected);
}

TEST(FileSize, DescentStopsAtDepthOneHundred) {
  TemporaryFolder folder;
  // Folder i holds a one-byte file and folder i+1; the top folder is depth 0.
  fs::path level = folder.path() / "top";
  for (int depth = 0; depth <= 104; ++depth) {
    fs::create_directory(level);
    folder.write(fs::relative(level / "f", folder.path()).string(), "x");
    level /= "d";
  }
  // Folders 0 to 99 are read; the folders inside folder 99 are not entered.
  EXPECT_EQ(fileSizeAtPath((folder.path() / "top").string()), 100u);
}

TEST(FileSize, ManyEntriesAcrossBatches) {
  TemporaryFolder folder;
  for (int i = 0; i < 200; ++i) folder.write("top/file" + std::to_string(i), "ab");
  EXPECT_EQ(fileSizeAtPath((folder.path() / "top").string()), 400u);
}

struct BoolCase {
  std::string label;
  std::string_view key;
  std::function<std::string(const TemporaryFolder&)> make;
  bool expected;
  std::optional<int> errorCode;
};

TEST(ResourceValues, BooleanProperties) {
  const std::vector<BoolCase> cases = {
      {"package folder", ResourceKey::IsPackage,
       [](auto& f) {
         fs::create_directories(f.path() / "Some.app" / "Contents");
         return (f.path() / "Some.app").string();
       },
       true, std::nullopt},
      {"plain folder is no package", ResourceKey::IsPackage,
       [](auto& f) {
         fs::create_directory(f.path() / "plain");
         return (f.path() / "plain").string();
       },
       false, std::nullopt},
      {"file is no package", ResourceKey::IsPackage, [](auto& f) { return f.write("a.app", "x"); },
       false, std::nullopt},
      {"missing item", ResourceKey::IsPackage,
       [](auto& f) { return (f.path() / "missing").string(); }, false, ENOENT},
      {"empty path", ResourceKey::IsPackage, [](auto&) { return std::string(); }, false,
       std::nullopt},
      {"folder is a directory", ResourceKey::IsDirectory, [](auto& f) { return f.path().string(); },
       true, std::nullopt},
      {"file is a regular file", ResourceKey::IsRegularFile,
       [](auto& f) { return f.write("a", "x"); }, true, std::nullopt},
      {"link is a link, not followed", ResourceKey::IsSymbolicLink,
       [](auto& f) {
         fs::create_directory_symlink(f.path(), f.path() / "link");
         return (f.path() / "link").string();
       },
       true, std::nullopt},
      {"link to a folder is no directory", ResourceKey::IsDirectory,
       [](auto& f) {
         fs::create_directory_symlink(f.path(), f.path() / "link");
         return (f.path() / "link").string();
       },
       false, std::nullopt},
      {"unknown key", "NSURLNoSuchKey", [](auto& f) { return f.write("a", "x"); }, false,
       std::nullopt},
      {"size is not a Boolean", ResourceKey::FileSize, [](auto& f) { return f.write("a", "x"); },
       false, std::nullopt},
  };
  for (const BoolCase& row : cases) {
    SCOPED_TRACE(row.label);
    TemporaryFolder folder;
    std::string path = row.make(folder);
    std::optional<Error> error = Error{"stale", 1, "stale", {}};
    EXPECT_EQ(getBoolValueForKey(row.key, path, &error), row.expected);
    EXPECT_EQ(error.has_value(), row.errorCode.has_value());
    if (error && row.errorCode) {
      EXPECT_EQ(error->domain, kPOSIXErrorDomain);
      EXPECT_EQ(error->code, *row.errorCode);
    }
  }
}

TEST(ResourceValues, ValuesOfOtherKinds) {
  TemporaryFolder folder;
  std::string file = folder.write("a", "12345");
  EXPECT_EQ(getResourceValueForKey(ResourceKey::FileSize, file), PropertyValue(5));
  EXPECT_EQ(getResourceValueForKey(ResourceKey::FileSize, folder.path().string()), std::nullopt);
  EXPECT_EQ(getResourceValueForKey("NSURLNoSuchKey", file), std::nullopt);
}

}  // namespace
}  // namespace ulvek
