#pragma once

// Builders for the resource forks, Finder info and AppleDouble files that tests put beside files.

#include <sys/xattr.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ulvek::testing {

// Writes `value` big-endian as `size` bytes at `at`, growing `bytes` when needed.
inline void putBigEndian(std::string& bytes, std::size_t at, std::uint64_t value, int size) {
  if (bytes.size() < at + size) bytes.resize(at + size);
  for (int i = 0; i < size; ++i) bytes[at + i] = char(value >> (8 * (size - 1 - i)));
}
inline std::string be16(std::uint64_t value) {
  std::string bytes;
  putBigEndian(bytes, 0, value, 2);
  return bytes;
}
inline std::string be32(std::uint64_t value) { return be16(value >> 16) + be16(value); }

inline std::span<const std::uint8_t> byteView(const std::string& bytes) {
  return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
}

struct TestResource {
  std::string type;  // four characters
  std::string bytes;
  std::int16_t id = 128;
};

// A classic resource fork: 16-byte header, data area at 256, then the map (28-byte header, type
// list, reference lists). Types keep the order in which they first appear, resources of a type
// theirs. No resources make the type count 0xFFFF, an empty list.
inline std::string resourceFork(const std::vector<TestResource>& resources) {
  std::vector<std::string> types;
  for (const TestResource& resource : resources)
    if (std::find(types.begin(), types.end(), resource.type) == types.end())
      types.push_back(resource.type);
  std::string data, typeList = be16(types.size() - 1), references;
  for (const std::string& type : types) {
    std::size_t listOffset = 2 + 8 * types.size() + references.size(), count = 0;
    for (const TestResource& resource : resources) {
      if (resource.type != type) continue;
      ++count;  // no name, attributes byte 0 before the 24-bit data offset
      references += be16(std::uint16_t(resource.id)) + be16(0xFFFF) + be32(data.size()) + be32(0);
      data += be32(resource.bytes.size()) + resource.bytes;
    }
    typeList += type + be16(count - 1) + be16(listOffset);
  }
  std::string map = std::string(24, '\0') + be16(28) +
                    be16(28 + typeList.size() + references.size()) + typeList + references;
  std::string header = be32(256) + be32(256 + data.size()) + be32(data.size()) + be32(map.size());
  return header + std::string(256 - 16, '\0') + data + map;
}

// An AppleDouble file (entry 2 the resource fork, entry 9 the Finder info), as macOS writes it
// beside a file on a foreign volume. Entry i's table row starts at 26 + 12 * i.
inline std::string appleDouble(const std::vector<std::pair<std::uint32_t, std::string>>& entries,
                               std::uint32_t magic = 0x00051607,
                               std::uint32_t version = 0x00020000) {
  std::string table = be32(magic) + be32(version) + std::string(16, '\0') + be16(entries.size());
  std::string contents;
  for (const auto& [id, bytes] : entries) {
    table += be32(id) + be32(26 + 12 * entries.size() + contents.size()) + be32(bytes.size());
    contents += bytes;
  }
  return table + contents;
}

// 32 bytes of Finder info whose file type is `type` (four characters).
inline std::string finderInfo(std::string_view type) {
  std::string info(32, '\0');
  info.replace(0, type.size(), type);
  return info;
}

inline bool setAttribute(const std::string& path, const std::string& name, std::string_view bytes) {
  return ::setxattr(path.c_str(), name.c_str(), bytes.data(), bytes.size(), 0) == 0;
}

}  // namespace ulvek::testing
