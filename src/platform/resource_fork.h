#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/property_value.h"

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
              std::size_t mapEnd)
      : fork_(fork),
        dataOffset_(dataOffset),
        dataLength_(dataLength),
        typeList_(typeList),
        mapEnd_(mapEnd) {}

  template <typename Visit>
  void visit(std::optional<std::uint32_t> onlyType, Visit&& visitor) const;
  std::optional<ByteView> resourceData(std::size_t dataOffsetInArea) const;

  ByteView fork_;
  std::size_t dataOffset_;
  std::size_t dataLength_;
  std::size_t typeList_;
  std::size_t mapEnd_;
};

}  // namespace ulvek
