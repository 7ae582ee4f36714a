#pragma once

// Reading the little-endian structures of Word files, of every version.

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/file_bytes.h"

namespace ulvek::word {

// The caller has checked that the bytes are there.
inline std::uint16_t u16(Bytes bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

inline std::uint32_t u32(Bytes bytes, std::size_t at) {
  return static_cast<std::uint32_t>(bytes[at]) | static_cast<std::uint32_t>(bytes[at + 1]) << 8 |
         static_cast<std::uint32_t>(bytes[at + 2]) << 16 |
         static_cast<std::uint32_t>(bytes[at + 3]) << 24;
}

// `size` bytes at `offset`, or nothing when they are not all inside `bytes`.
inline std::optional<Bytes> slice(Bytes bytes, std::uint64_t offset, std::uint64_t size) {
  if (offset > bytes.size() || size > bytes.size() - offset) return std::nullopt;
  return bytes.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(size));
}

// In a PLC of `count` entries (count + 1 positions, then the entries' data), the entry whose
// range [position i, position i + 1) holds `fc`; nothing when none does.
inline std::optional<std::size_t> plcEntryHolding(Bytes plc, std::size_t count, std::size_t fc) {
  std::size_t low = 0, high = count;
  while (low < high) {
    std::size_t middle = (low + high) / 2;
    if (u32(plc, middle * 4 + 4) <= fc)
      low = middle + 1;
    else
      high = middle;
  }
  if (low >= count || u32(plc, low * 4) > fc) return std::nullopt;
  return low;
}

// Records what was wrong once, however often it recurs.
inline void noteDamage(std::vector<std::string>& damage, const char* what) {
  if (std::find(damage.begin(), damage.end(), what) == damage.end()) damage.emplace_back(what);
}

}  // namespace ulvek::word
