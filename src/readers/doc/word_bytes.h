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

// Records what was wrong once, however often it recurs.
inline void noteDamage(std::vector<std::string>& damage, const char* what) {
  if (std::find(damage.begin(), damage.end(), what) == damage.end()) damage.emplace_back(what);
}

}  // namespace ulvek::word
