#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/property_value.h"
#include "base/text_string.h"

namespace ulvek {

using ByteView = std::span<const std::uint8_t>;

// Attribute names under which Linux keeps what macOS keeps in a file's named forks.
inline constexpr char kFinderInfoAttribute[] = "user.com.apple.FinderInfo";
inline constexpr char kResourceForkAttribute[] = "user.com.apple.ResourceFork";

// The AppleDouble companion of a file: "dir/._name" for "dir/name".
std::string appleDoublePath(const std::string& path);
// YES for a "._NAME" file that holds an AppleDouble header and stands beside NAME: the
// companion of another file, not a document of its own.
bool isAppleDoubleCompanion(const std::string& path);

// The entries of an AppleDouble (or AppleSingle) file that this system reads. Views point into
// the bytes given to parseAppleDouble.
struct AppleDouble {
  std::optional<ByteView> resourceFork;  // entry 2
  std::optional<ByteView> finderInfo;    // entry 9
};

// Parses an AppleDouble header and entry table. Nothing when the magic or version is wrong or the
// entry table does not fit; an entry whose range leaves the bytes is treated as missing.
std::optional<AppleDouble> parseAppleDouble(ByteView bytes);

// The bytes of a file's resource fork: the "com.apple.ResourceFork" attribute, else the resource
// fork entry of the AppleDouble file beside it. Nothing when neither exists or the fork is empty.
// A symbolic link is not followed.
std::optional<Data> resourceForkBytes(const std::string& path);

// The Finder info (32 bytes or fewer when damaged) of a file: the "com.apple.FinderInfo"
// attribute, else the Finder info entry of the AppleDouble file beside it.
std::optional<Data> finderInfoBytes(const std::string& path);

// A read-only view of a classic resource fork: header, data area and resource map. Every offset
// is checked against the fork before use; a resource that does not fit is simply not there.
class ResourceMap {
 public:
  struct Resource {
    std::uint32_t type = 0;
    std::int16_t id = 0;
    ByteView data;
    std::uint8_t attributes = 0;
    std::optional<ByteView> name;  // without its length byte
  };

  // Nothing when the header or map does not fit the bytes. The bytes must outlive the map.
  static std::optional<ResourceMap> parse(ByteView fork);

  // The first resource of a type in the fork's own order (the resource manager's index 1).
  std::optional<ByteView> firstResource(std::uint32_t type) const;
  // The resource of that type and ID.
  std::optional<ByteView> resource(std::uint32_t type, std::int16_t id) const;
  // The readable resources in map order, at most `limit` of them (a hostile map may make its
  // type entries share one reference list, so the count is not bounded by the fork's size).
  std::vector<Resource> resources(std::size_t limit = 4096) const;

 private:
  ResourceMap(ByteView fork, std::size_t dataOffset, std::size_t dataLength, std::size_t typeList,
              std::size_t nameList, std::size_t mapEnd)
      : fork_(fork),
        dataOffset_(dataOffset),
        dataLength_(dataLength),
        typeList_(typeList),
        nameList_(nameList),
        mapEnd_(mapEnd) {}

  template <typename Visit>
  void visit(std::optional<std::uint32_t> onlyType, Visit&& visitor) const;
  std::optional<ByteView> resourceData(std::size_t dataOffsetInArea) const;
  std::optional<ByteView> resourceName(std::size_t reference) const;

  ByteView fork_;
  std::size_t dataOffset_;
  std::size_t dataLength_;
  std::size_t typeList_;
  std::size_t nameList_;
  std::size_t mapEnd_;
};

// Where a fork that is written lives: the "com.apple.ResourceFork" attribute, or the AppleDouble
// "._NAME" file beside the file (for file systems without user attributes, or forks too large for
// one attribute). Automatic keeps a fork where it is found; a new one goes to the attribute, to
// the companion when the file already has one or the attribute is refused.
enum class ForkStorage { Automatic, Attribute, AppleDouble };

// One open resource fork, read into memory: single resources are read, added and removed by type
// and ID. A fork opened for writing is written back whole, as a valid resource map, by addData()
// at once and by removeType() when the fork is closed (or flush() is called).
class ResourceFork {
 public:
  // Nothing when the file has no fork or its map cannot be read.
  static std::optional<ResourceFork> openForReading(const std::string& path);
  // Creates the file if needed and opens its fork, empty if it has none. Nothing when the file
  // cannot be made, its name is longer than 255 characters, or it holds a fork that cannot be read
  // (which is never overwritten).
  static std::optional<ResourceFork> openForWriting(const std::string& path,
                                                    ForkStorage storage = ForkStorage::Automatic);

  ResourceFork(ResourceFork&& other) noexcept;
  ResourceFork& operator=(ResourceFork&& other) noexcept;
  ResourceFork(const ResourceFork&) = delete;
  ResourceFork& operator=(const ResourceFork&) = delete;
  ~ResourceFork();

  // The bytes of the resource of that type and ID, or nothing.
  std::optional<Data> dataForType(std::uint32_t type, std::int16_t id) const;
  // Replaces any resource of that type and ID by one holding the bytes (last of its type, with no
  // name) and writes the fork. False, and the resource not added, for a fork opened for reading,
  // one that would outgrow the map's 24-bit data offsets, or when writing fails.
  bool addData(ByteView bytes, std::uint32_t type, std::int16_t id);
  // Stores the string as a Pascal string: a length byte, then the characters in ASCII (others
  // become "?"). False for more than 255 characters.
  bool addString(TextView string, std::uint32_t type, std::int16_t id);
  // Removes the resource; true also when there is none. Written when the fork is closed.
  bool removeType(std::uint32_t type, std::int16_t id);
  // Writes the fork now if it changed since it was last written.
  bool flush();

  // Where the fork is written (for a fork opened for writing).
  ForkStorage storage() const { return storage_; }

 private:
  struct Entry {
    std::uint32_t type = 0;
    std::int16_t id = 0;
    std::uint8_t attributes = 0;
    std::optional<std::string> name;
    Data data;
  };

  ResourceFork() = default;
  bool load(ByteView bytes);
  std::optional<Data> serialize() const;
  bool write();

  std::string path_;  // the file the fork belongs to, links resolved
  bool writable_ = false;
  bool dirty_ = false;
  bool automatic_ = false;  // may move from the attribute to the companion
  ForkStorage storage_ = ForkStorage::Attribute;
  std::string attributeName_;  // the attribute the fork lives in, for ForkStorage::Attribute
  std::vector<Entry> entries_;
  Data reserved_;  // bytes 16 to 256 of the fork, kept as they were
  std::uint16_t mapAttributes_ = 0;
};

}  // namespace ulvek
