#include "platform/resource_fork.h"

#include <filesystem>
#include <fstream>

#include "platform/extended_attributes.h"
#include "platform/file_server_metadata.h"

namespace ulvek {
namespace {

constexpr std::uint32_t kAppleSingleMagic = 0x00051600;
constexpr std::uint32_t kAppleDoubleMagic = 0x00051607;
constexpr std::uint32_t kAppleDoubleVersion1 = 0x00010000;
constexpr std::uint32_t kAppleDoubleVersion2 = 0x00020000;
constexpr std::size_t kAppleDoubleHeaderSize = 26;  // magic, version, 16 filler bytes, count
constexpr std::size_t kAppleDoubleEntrySize = 12;   // id, offset, length
constexpr std::uint32_t kResourceForkEntry = 2;
constexpr std::uint32_t kFinderInfoEntry = 9;

// A classic fork is addressed with 24-bit data offsets inside a 32-bit file; anything much
// larger beside a file is not an AppleDouble file we should read into memory.
constexpr std::uintmax_t kMaxAppleDoubleSize = 64u << 20;

constexpr std::size_t kForkHeaderSize = 16;
constexpr std::size_t kMapHeaderSize =
    28;  // header copy, next map, file ref, attributes, 2 offsets
constexpr std::size_t kTypeEntrySize = 8;
constexpr std::size_t kReferenceEntrySize = 12;

std::uint32_t readUInt32(ByteView bytes, std::size_t at) {
  return (std::uint32_t(bytes[at]) << 24) | (std::uint32_t(bytes[at + 1]) << 16) |
         (std::uint32_t(bytes[at + 2]) << 8) | std::uint32_t(bytes[at + 3]);
}

std::uint32_t readUInt24(ByteView bytes, std::size_t at) {
  return (std::uint32_t(bytes[at]) << 16) | (std::uint32_t(bytes[at + 1]) << 8) |
         std::uint32_t(bytes[at + 2]);
}

std::uint16_t readUInt16(ByteView bytes, std::size_t at) {
  return static_cast<std::uint16_t>((bytes[at] << 8) | bytes[at + 1]);
}

// Whether [offset, offset + length) lies inside [0, size), without overflow.
bool fits(std::uint64_t offset, std::uint64_t length, std::uint64_t size) {
  return offset <= size && length <= size - offset;
}

}  // namespace

bool isAppleDoubleCompanion(const std::string& path) {
  std::filesystem::path companion(path);
  std::string name = companion.filename().string();
  if (name.size() <= 2 || !name.starts_with("._")) return false;
  std::error_code error;
  if (!std::filesystem::exists(companion.parent_path() / name.substr(2), error)) return false;
  std::ifstream in(path, std::ios::binary);
  unsigned char magic[4] = {};
  if (!in.read(reinterpret_cast<char*>(magic), 4)) return false;
  std::uint32_t value =
      (std::uint32_t(magic[0]) << 24) | (magic[1] << 16) | (magic[2] << 8) | magic[3];
  return value == kAppleDoubleMagic;
}

namespace {

std::optional<Data> readAppleDoubleFile(const std::string& path) {
  std::error_code error;
  std::filesystem::path companion = appleDoublePath(path);
  if (!std::filesystem::is_regular_file(companion, error)) return std::nullopt;
  std::uintmax_t size = std::filesystem::file_size(companion, error);
  if (error || size < kAppleDoubleHeaderSize || size > kMaxAppleDoubleSize) return std::nullopt;
  std::ifstream in(companion, std::ios::binary);
  if (!in) return std::nullopt;
  Data bytes(static_cast<std::size_t>(size));
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(in.gcount()));
  return bytes;
}

std::optional<Data> appleDoubleEntry(const std::string& path, std::uint32_t entry) {
  std::optional<Data> file = readAppleDoubleFile(path);
  if (!file) return std::nullopt;
  std::optional<AppleDouble> entries = parseAppleDouble(*file);
  if (!entries) return std::nullopt;
  const std::optional<ByteView>& bytes =
      entry == kResourceForkEntry ? entries->resourceFork : entries->finderInfo;
  if (!bytes) return std::nullopt;
  return Data(bytes->begin(), bytes->end());
}

}  // namespace

std::string appleDoublePath(const std::string& path) {
  std::string trimmed = path;
  while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
  std::size_t slash = trimmed.rfind('/');
  if (slash == std::string::npos) return "._" + trimmed;
  return trimmed.substr(0, slash + 1) + "._" + trimmed.substr(slash + 1);
}

std::optional<AppleDouble> parseAppleDouble(ByteView bytes) {
  if (bytes.size() < kAppleDoubleHeaderSize) return std::nullopt;
  std::uint32_t magic = readUInt32(bytes, 0);
  std::uint32_t version = readUInt32(bytes, 4);
  if (magic != kAppleDoubleMagic && magic != kAppleSingleMagic) return std::nullopt;
  if (version != kAppleDoubleVersion1 && version != kAppleDoubleVersion2) return std::nullopt;
  std::size_t count = readUInt16(bytes, 24);
  if (!fits(kAppleDoubleHeaderSize, count * kAppleDoubleEntrySize, bytes.size()))
    return std::nullopt;

  AppleDouble result;
  for (std::size_t index = 0; index < count; ++index) {
    std::size_t at = kAppleDoubleHeaderSize + index * kAppleDoubleEntrySize;
    std::uint32_t id = readUInt32(bytes, at);
    std::uint32_t offset = readUInt32(bytes, at + 4);
    std::uint32_t length = readUInt32(bytes, at + 8);
    if (!fits(offset, length, bytes.size())) continue;
    std::optional<ByteView>* slot = id == kResourceForkEntry ? &result.resourceFork
                                    : id == kFinderInfoEntry ? &result.finderInfo
                                                             : nullptr;
    // The first entry of an ID counts; a repeated one is ignored.
    if (slot && !*slot) *slot = bytes.subspan(offset, length);
  }
  return result;
}

std::optional<Data> resourceForkBytes(const std::string& path) {
  if (path.empty()) return std::nullopt;
  std::optional<Data> fork = readExtendedAttribute(path, kResourceForkAttribute, false);
  if (!fork || fork->empty()) fork = appleDoubleEntry(path, kResourceForkEntry);
  if (!fork || fork->empty()) fork = fileServerResourceFork(path);
  if (!fork || fork->empty()) return std::nullopt;
  return fork;
}

std::optional<Data> finderInfoBytes(const std::string& path) {
  if (path.empty()) return std::nullopt;
  std::optional<Data> info = readExtendedAttribute(path, kFinderInfoAttribute, false);
  if (info) return info;
  if ((info = appleDoubleEntry(path, kFinderInfoEntry))) return info;
  return fileServerFinderInfo(path);
}

std::optional<ResourceMap> ResourceMap::parse(ByteView fork) {
  if (fork.size() < kForkHeaderSize) return std::nullopt;
  std::uint32_t dataOffset = readUInt32(fork, 0);
  std::uint32_t mapOffset = readUInt32(fork, 4);
  std::uint32_t dataLength = readUInt32(fork, 8);
  std::uint32_t mapLength = readUInt32(fork, 12);
  if (!fits(dataOffset, dataLength, fork.size())) return std::nullopt;
  if (!fits(mapOffset, mapLength, fork.size()) || mapLength < kMapHeaderSize) return std::nullopt;
  std::size_t typeList = std::size_t{mapOffset} + readUInt16(fork, mapOffset + 24);
  std::size_t mapEnd = std::size_t{mapOffset} + mapLength;
  // The type list starts with its count, which must lie inside the map.
  if (!fits(typeList, 2, mapEnd)) return std::nullopt;
  return ResourceMap(fork, dataOffset, dataLength, typeList, mapEnd);
}

// Calls visitor(type, id, data) for each reference whose data is readable, in map order, until
// it answers false; with `onlyType`, only the references of that type. A type whose entry or
// reference list leaves the map is skipped. Reference lists of a real map do not overlap, so no
// more references than fit in the map are walked: a hostile map that makes every type entry share
// one long list costs no more than an honest one.
template <typename Visit>
void ResourceMap::visit(std::optional<std::uint32_t> onlyType, Visit&& visitor) const {
  std::size_t budget = (mapEnd_ - typeList_) / kReferenceEntrySize;
  // The count is stored minus one; 0xFFFF is an empty list.
  std::size_t typeCount = static_cast<std::uint16_t>(readUInt16(fork_, typeList_) + 1);
  for (std::size_t typeIndex = 0; typeIndex < typeCount; ++typeIndex) {
    std::size_t entry = typeList_ + 2 + typeIndex * kTypeEntrySize;
    if (!fits(entry, kTypeEntrySize, mapEnd_)) return;
    std::uint32_t type = readUInt32(fork_, entry);
    if (onlyType && type != *onlyType) continue;
    std::size_t referenceCount = std::size_t{readUInt16(fork_, entry + 4)} + 1;
    std::size_t references = typeList_ + readUInt16(fork_, entry + 6);
    for (std::size_t index = 0; index < referenceCount; ++index) {
      std::size_t reference = references + index * kReferenceEntrySize;
      if (!fits(reference, kReferenceEntrySize, mapEnd_)) break;
      if (budget-- == 0) return;
      auto id = static_cast<std::int16_t>(readUInt16(fork_, reference));
      std::optional<ByteView> data = resourceData(readUInt24(fork_, reference + 5));
      if (!data) continue;
      if (!visitor(type, id, *data)) return;
    }
  }
}

std::optional<ByteView> ResourceMap::resourceData(std::size_t dataOffsetInArea) const {
  // Each resource is a 4-byte length followed by its bytes, all inside the data area.
  if (!fits(dataOffsetInArea, 4, dataLength_)) return std::nullopt;
  std::size_t at = dataOffset_ + dataOffsetInArea;
  std::uint32_t length = readUInt32(fork_, at);
  if (!fits(dataOffsetInArea + 4, length, dataLength_)) return std::nullopt;
  return fork_.subspan(at + 4, length);
}

std::optional<ByteView> ResourceMap::firstResource(std::uint32_t type) const {
  std::optional<ByteView> found;
  visit(type, [&](std::uint32_t, std::int16_t, ByteView data) {
    found = data;
    return false;
  });
  return found;
}

std::optional<ByteView> ResourceMap::resource(std::uint32_t type, std::int16_t id) const {
  std::optional<ByteView> found;
  visit(type, [&](std::uint32_t, std::int16_t resourceID, ByteView data) {
    if (resourceID != id) return true;
    found = data;
    return false;
  });
  return found;
}

std::vector<ResourceMap::Resource> ResourceMap::resources(std::size_t limit) const {
  std::vector<Resource> result;
  if (limit == 0) return result;
  visit(std::nullopt, [&](std::uint32_t type, std::int16_t id, ByteView data) {
    result.push_back({type, id, data});
    return result.size() < limit;
  });
  return result;
}

}  // namespace ulvek
