#pragma once

// Builders for the resource forks, Finder info and AppleDouble files that location and size tests
// put beside their files.

#include <sys/xattr.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ulvek::testing {

inline void appendBigEndian(std::string& out, std::uint64_t value, int bytes) {
  for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8) out.push_back(char(value >> shift));
}

// A classic resource fork holding the resources in order, each with ID 128 + its index. Resources
// of one type share one reference list, in the order given.
inline std::string resourceFork(const std::vector<std::pair<std::string, std::string>>& resources) {
  constexpr std::uint32_t kDataOffset = 256;
  std::string data;
  std::vector<std::uint32_t> offsets;
  for (const auto& [type, bytes] : resources) {
    offsets.push_back(std::uint32_t(data.size()));
    appendBigEndian(data, bytes.size(), 4);
    data += bytes;
  }
  std::vector<std::string> types;
  for (const auto& [type, bytes] : resources) {
    bool known = false;
    for (const auto& seen : types) known = known || seen == type;
    if (!known) types.push_back(type);
  }
  std::string typeList;
  appendBigEndian(typeList, types.size() - 1, 2);
  std::string references;
  std::size_t referencesStart = 2 + 8 * types.size();
  for (const auto& type : types) {
    std::size_t count = 0;
    std::string list;
    for (std::size_t i = 0; i < resources.size(); ++i) {
      if (resources[i].first != type) continue;
      ++count;
      appendBigEndian(list, 128 + i, 2);
      appendBigEndian(list, 0xFFFF, 2);
      appendBigEndian(list, offsets[i], 4);  // attributes byte 0, then 3-byte offset
      appendBigEndian(list, 0, 4);
    }
    typeList += type;
    appendBigEndian(typeList, count - 1, 2);
    appendBigEndian(typeList, referencesStart + references.size(), 2);
    references += list;
  }
  std::string map(16, '\0');
  appendBigEndian(map, 0, 4);
  appendBigEndian(map, 0, 2);
  appendBigEndian(map, 0, 2);
  appendBigEndian(map, 28, 2);
  std::size_t nameListOffset = 28 + typeList.size() + references.size();
  appendBigEndian(map, nameListOffset, 2);
  map += typeList + references;
  std::string fork;
  appendBigEndian(fork, kDataOffset, 4);
  appendBigEndian(fork, kDataOffset + data.size(), 4);
  appendBigEndian(fork, data.size(), 4);
  appendBigEndian(fork, map.size(), 4);
  fork.resize(kDataOffset, '\0');
  fork += data;
  fork += map;
  return fork;
}

// An AppleDouble file whose only entry is the resource fork.
inline std::string appleDoubleWithFork(std::string_view fork) {
  std::string out;
  appendBigEndian(out, 0x00051607, 4);
  appendBigEndian(out, 0x00020000, 4);
  out.append(16, '\0');
  appendBigEndian(out, 1, 2);
  appendBigEndian(out, 2, 4);
  appendBigEndian(out, 26 + 12, 4);
  appendBigEndian(out, fork.size(), 4);
  out += fork;
  return out;
}

inline bool setAttribute(const std::string& path, const char* name, std::string_view bytes) {
  return ::setxattr(path.c_str(), name, bytes.data(), bytes.size(), 0) == 0;
}

// Finder info whose file type is `type` (four characters).
inline std::string finderInfo(std::string_view type) {
  std::string info(32, '\0');
  info.replace(0, 4, type);
  return info;
}

}  // namespace ulvek::testing
