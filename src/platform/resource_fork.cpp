#include "platform/resource_fork.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <utility>

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

namespace {

struct LocatedFork {
  Data bytes;
  ForkStorage storage;
  std::string attribute;  // for ForkStorage::Attribute
};

// The fork of a file and where it lives, in the order readers look: the Mac attribute, the
// AppleDouble companion, then what file servers keep. With a storage named, only there.
std::optional<LocatedFork> locateFork(const std::string& path,
                                      ForkStorage only = ForkStorage::Automatic) {
  if (only != ForkStorage::AppleDouble) {
    std::optional<Data> fork = readExtendedAttribute(path, kResourceForkAttribute, false);
    if (fork && !fork->empty())
      return LocatedFork{std::move(*fork), ForkStorage::Attribute, kResourceForkAttribute};
  }
  if (only != ForkStorage::Attribute) {
    std::optional<Data> fork = appleDoubleEntry(path, kResourceForkEntry);
    if (fork && !fork->empty()) return LocatedFork{std::move(*fork), ForkStorage::AppleDouble, {}};
  }
  if (only == ForkStorage::Automatic) {
    if (auto server = fileServerResourceForkAttribute(path))
      return LocatedFork{std::move(server->second), ForkStorage::Attribute,
                         std::string(server->first)};
  }
  return std::nullopt;
}

}  // namespace

std::optional<Data> resourceForkBytes(const std::string& path) {
  if (path.empty()) return std::nullopt;
  std::optional<LocatedFork> fork = locateFork(path);
  if (!fork) return std::nullopt;
  return std::move(fork->bytes);
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
  std::size_t nameList = std::size_t{mapOffset} + readUInt16(fork, mapOffset + 26);
  std::size_t mapEnd = std::size_t{mapOffset} + mapLength;
  // The type list starts with its count, which must lie inside the map.
  if (!fits(typeList, 2, mapEnd)) return std::nullopt;
  return ResourceMap(fork, dataOffset, dataLength, typeList, nameList, mapEnd);
}

// Calls visitor(type, reference, data) for each reference whose data is readable, in map order,
// until it answers false; with `onlyType`, only the references of that type. A type whose entry or
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
      std::optional<ByteView> data = resourceData(readUInt24(fork_, reference + 5));
      if (!data) continue;
      if (!visitor(type, reference, *data)) return;
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

std::optional<ByteView> ResourceMap::resourceName(std::size_t reference) const {
  std::uint16_t offset = readUInt16(fork_, reference + 2);
  if (offset == 0xFFFF) return std::nullopt;  // no name
  std::size_t at = nameList_ + offset;
  if (!fits(at, 1, mapEnd_) || !fits(at + 1, fork_[at], mapEnd_)) return std::nullopt;
  return fork_.subspan(at + 1, fork_[at]);
}

std::optional<ByteView> ResourceMap::firstResource(std::uint32_t type) const {
  std::optional<ByteView> found;
  visit(type, [&](std::uint32_t, std::size_t, ByteView data) {
    found = data;
    return false;
  });
  return found;
}

std::optional<ByteView> ResourceMap::resource(std::uint32_t type, std::int16_t id) const {
  std::optional<ByteView> found;
  visit(type, [&](std::uint32_t, std::size_t reference, ByteView data) {
    if (static_cast<std::int16_t>(readUInt16(fork_, reference)) != id) return true;
    found = data;
    return false;
  });
  return found;
}

std::vector<ResourceMap::Resource> ResourceMap::resources(std::size_t limit) const {
  std::vector<Resource> result;
  if (limit == 0) return result;
  visit(std::nullopt, [&](std::uint32_t type, std::size_t reference, ByteView data) {
    result.push_back({type, static_cast<std::int16_t>(readUInt16(fork_, reference)), data,
                      fork_[reference + 4], resourceName(reference)});
    return result.size() < limit;
  });
  return result;
}

namespace {

constexpr std::size_t kForkDataStart = 256;  // header, then bytes for the system and application
constexpr std::size_t kMapAttributes = 22;   // after the header copy, next map and file ref
constexpr std::uint32_t kMaxDataOffset = 0xFFFFFF;  // references hold 24 bits
constexpr std::size_t kMaxNameLength = 255;
constexpr std::size_t kMaxFileNameUnits = 255;

void appendUInt32(Data& bytes, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(std::uint8_t(value >> shift));
}

void appendUInt16(Data& bytes, std::uint16_t value) {
  bytes.push_back(std::uint8_t(value >> 8));
  bytes.push_back(std::uint8_t(value));
}

// The entries of an AppleDouble file in their order, those that leave the file left out.
struct AppleDoubleFile {
  std::array<std::uint8_t, 16> filler{};
  std::vector<std::pair<std::uint32_t, Data>> entries;
};

std::optional<AppleDoubleFile> appleDoubleFile(ByteView bytes) {
  if (!parseAppleDouble(bytes)) return std::nullopt;
  AppleDoubleFile file;
  std::copy_n(bytes.begin() + 8, file.filler.size(), file.filler.begin());
  std::size_t count = readUInt16(bytes, 24);
  for (std::size_t index = 0; index < count; ++index) {
    std::size_t at = kAppleDoubleHeaderSize + index * kAppleDoubleEntrySize;
    std::uint32_t offset = readUInt32(bytes, at + 4), length = readUInt32(bytes, at + 8);
    if (!fits(offset, length, bytes.size())) continue;
    ByteView entry = bytes.subspan(offset, length);
    file.entries.emplace_back(readUInt32(bytes, at), Data(entry.begin(), entry.end()));
  }
  return file;
}

Data appleDoubleBytes(const AppleDoubleFile& file) {
  Data bytes;
  appendUInt32(bytes, kAppleDoubleMagic);
  appendUInt32(bytes, kAppleDoubleVersion2);
  bytes.insert(bytes.end(), file.filler.begin(), file.filler.end());
  appendUInt16(bytes, static_cast<std::uint16_t>(file.entries.size()));
  std::size_t offset = kAppleDoubleHeaderSize + file.entries.size() * kAppleDoubleEntrySize;
  for (const auto& [id, contents] : file.entries) {
    appendUInt32(bytes, id);
    appendUInt32(bytes, static_cast<std::uint32_t>(offset));
    appendUInt32(bytes, static_cast<std::uint32_t>(contents.size()));
    offset += contents.size();
  }
  for (const auto& entry : file.entries)
    bytes.insert(bytes.end(), entry.second.begin(), entry.second.end());
  return bytes;
}

// Replaces a file by new bytes in one step: written beside it, then renamed over it.
bool replaceFile(const std::string& path, const Data& bytes) {
  std::string temporary = path + ".XXXXXX";
  int fd = ::mkstemp(temporary.data());
  if (fd < 0) return false;
  bool ok = ::fchmod(fd, 0644) == 0;
  for (std::size_t written = 0; ok && written < bytes.size();) {
    ssize_t count = ::write(fd, bytes.data() + written, bytes.size() - written);
    ok = count > 0;
    if (ok) written += static_cast<std::size_t>(count);
  }
  ok = ::close(fd) == 0 && ok;
  if (ok && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
  ::unlink(temporary.c_str());
  return false;
}

bool writeAppleDoubleFork(const std::string& path, const Data& fork) {
  std::string companion = appleDoublePath(path);
  AppleDoubleFile file;
  std::error_code error;
  if (std::filesystem::exists(std::filesystem::symlink_status(companion, error))) {
    // A companion that cannot be read is not ours to overwrite.
    std::optional<Data> existing = readAppleDoubleFile(path);
    std::optional<AppleDoubleFile> parsed = existing ? appleDoubleFile(*existing) : std::nullopt;
    if (!parsed) return false;
    file = std::move(*parsed);
  }
  auto entry = std::find_if(file.entries.begin(), file.entries.end(),
                            [](const auto& item) { return item.first == kResourceForkEntry; });
  // The fork last, as macOS writes it, so that it can grow without moving the others.
  if (entry == file.entries.end())
    file.entries.emplace_back(kResourceForkEntry, fork);
  else
    entry->second = fork;
  return replaceFile(companion, appleDoubleBytes(file));
}

// Length of a file name in UTF-16 units, as the classic file system counts it.
std::size_t utf16Length(std::string_view utf8) {
  std::size_t units = 0;
  for (unsigned char byte : utf8) {
    if ((byte & 0xC0) != 0x80) ++units;  // a character's first byte
    if ((byte & 0xF8) == 0xF0) ++units;  // outside the BMP: a surrogate pair
  }
  return units;
}

std::optional<std::string> resolvedPath(const std::string& path) {
  char resolved[PATH_MAX];
  if (!::realpath(path.c_str(), resolved)) return std::nullopt;
  return std::string(resolved);
}

}  // namespace

ResourceFork::ResourceFork(ResourceFork&& other) noexcept { *this = std::move(other); }

ResourceFork& ResourceFork::operator=(ResourceFork&& other) noexcept {
  if (this == &other) return *this;
  if (writable_ && dirty_) write();
  path_ = std::move(other.path_);
  writable_ = std::exchange(other.writable_, false);
  dirty_ = std::exchange(other.dirty_, false);
  automatic_ = other.automatic_;
  storage_ = other.storage_;
  attributeName_ = std::move(other.attributeName_);
  entries_ = std::move(other.entries_);
  reserved_ = std::move(other.reserved_);
  mapAttributes_ = other.mapAttributes_;
  return *this;
}

ResourceFork::~ResourceFork() {
  if (writable_ && dirty_) write();
}

bool ResourceFork::load(ByteView bytes) {
  std::optional<ResourceMap> map = ResourceMap::parse(bytes);
  if (!map) return false;
  for (const ResourceMap::Resource& resource :
       map->resources(std::numeric_limits<std::size_t>::max())) {
    Entry entry{resource.type, resource.id, resource.attributes, std::nullopt,
                Data(resource.data.begin(), resource.data.end())};
    if (resource.name) entry.name = std::string(resource.name->begin(), resource.name->end());
    entries_.push_back(std::move(entry));
  }
  if (readUInt32(bytes, 0) >= kForkDataStart)
    reserved_.assign(bytes.begin() + kForkHeaderSize, bytes.begin() + kForkDataStart);
  mapAttributes_ = readUInt16(bytes, readUInt32(bytes, 4) + kMapAttributes);
  return true;
}

std::optional<ResourceFork> ResourceFork::openForReading(const std::string& path) {
  if (path.empty()) return std::nullopt;
  std::optional<std::string> resolved = resolvedPath(path);
  if (!resolved) return std::nullopt;
  std::optional<LocatedFork> located = locateFork(*resolved);
  if (!located) return std::nullopt;
  ResourceFork fork;
  fork.path_ = *resolved;
  fork.storage_ = located->storage;
  fork.attributeName_ = std::move(located->attribute);
  if (!fork.load(located->bytes)) return std::nullopt;
  return fork;
}

std::optional<ResourceFork> ResourceFork::openForWriting(const std::string& path,
                                                         ForkStorage storage) {
  if (path.empty()) return std::nullopt;
  std::string name = std::filesystem::path(path).filename().string();
  if (utf16Length(name) > kMaxFileNameUnits) return std::nullopt;
  struct stat info;
  if (::stat(path.c_str(), &info) != 0) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) return std::nullopt;
    ::close(fd);
  }
  std::optional<std::string> resolved = resolvedPath(path);
  if (!resolved) return std::nullopt;

  ResourceFork fork;
  fork.path_ = *resolved;
  fork.writable_ = true;
  fork.automatic_ = storage == ForkStorage::Automatic;
  fork.attributeName_ = kResourceForkAttribute;
  if (std::optional<LocatedFork> located = locateFork(*resolved, storage)) {
    if (!fork.load(located->bytes)) return std::nullopt;
    fork.storage_ = located->storage;
    fork.attributeName_ = std::move(located->attribute);
  } else if (storage == ForkStorage::Automatic) {
    // A file that already has a companion keeps its Mac data together in it.
    std::error_code error;
    bool companion = std::filesystem::is_regular_file(appleDoublePath(*resolved), error);
    fork.storage_ = companion ? ForkStorage::AppleDouble : ForkStorage::Attribute;
  } else {
    fork.storage_ = storage;
  }
  return fork;
}

std::optional<Data> ResourceFork::dataForType(std::uint32_t type, std::int16_t id) const {
  for (const Entry& entry : entries_) {
    if (entry.type == type && entry.id == id) return entry.data;
  }
  return std::nullopt;
}

bool ResourceFork::removeType(std::uint32_t type, std::int16_t id) {
  if (!writable_) return false;
  if (std::erase_if(entries_,
                    [&](const Entry& entry) { return entry.type == type && entry.id == id; }) > 0)
    dirty_ = true;
  return true;
}

bool ResourceFork::addData(ByteView bytes, std::uint32_t type, std::int16_t id) {
  if (!removeType(type, id)) return false;
  entries_.push_back(Entry{type, id, 0, std::nullopt, Data(bytes.begin(), bytes.end())});
  dirty_ = true;
  if (write()) return true;
  entries_.pop_back();  // a fork that cannot hold it, or a failed write: no trace of it
  return false;
}

bool ResourceFork::addString(TextView string, std::uint32_t type, std::int16_t id) {
  if (string.size() > kMaxNameLength) return false;
  Data bytes{static_cast<std::uint8_t>(string.size())};
  for (char16_t unit : string) bytes.push_back(unit < 0x80 ? std::uint8_t(unit) : '?');
  return addData(bytes, type, id);
}

bool ResourceFork::flush() {
  if (!writable_) return false;
  return !dirty_ || write();
}

// Header, the kept bytes up to 256, the data area (each resource a length and its bytes), then
// the map: a copy of the header, the type list, the reference lists and the name list. Types in
// the order they first appear, the resources of a type in theirs.
std::optional<Data> ResourceFork::serialize() const {
  std::vector<std::uint32_t> types;
  for (const Entry& entry : entries_)
    if (std::find(types.begin(), types.end(), entry.type) == types.end())
      types.push_back(entry.type);

  Data data, typeList, references, names;
  appendUInt16(typeList, static_cast<std::uint16_t>(types.size() - 1));  // 0xFFFF: none
  std::size_t referencesStart = 2 + types.size() * kTypeEntrySize;
  for (std::uint32_t type : types) {
    std::size_t count = 0, listOffset = referencesStart + references.size();
    for (const Entry& entry : entries_) {
      if (entry.type != type) continue;
      ++count;
      if (data.size() > kMaxDataOffset) return std::nullopt;
      appendUInt16(references, static_cast<std::uint16_t>(entry.id));
      std::uint16_t nameOffset = 0xFFFF;
      if (entry.name) {
        if (names.size() >= 0xFFFF || entry.name->size() > kMaxNameLength) return std::nullopt;
        nameOffset = static_cast<std::uint16_t>(names.size());
        names.push_back(static_cast<std::uint8_t>(entry.name->size()));
        names.insert(names.end(), entry.name->begin(), entry.name->end());
      }
      appendUInt16(references, nameOffset);
      appendUInt32(references,
                   (std::uint32_t(entry.attributes) << 24) | std::uint32_t(data.size()));
      appendUInt32(references, 0);  // the handle, filled in by whoever loads it
      if (entry.data.size() > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
      appendUInt32(data, static_cast<std::uint32_t>(entry.data.size()));
      data.insert(data.end(), entry.data.begin(), entry.data.end());
    }
    if (listOffset > 0xFFFF) return std::nullopt;
    appendUInt32(typeList, type);
    appendUInt16(typeList, static_cast<std::uint16_t>(count - 1));
    appendUInt16(typeList, static_cast<std::uint16_t>(listOffset));
  }
  std::size_t nameListOffset = kMapHeaderSize + typeList.size() + references.size();
  if (nameListOffset > 0xFFFF) return std::nullopt;
  std::size_t mapOffset = kForkDataStart + data.size();
  std::size_t mapLength = nameListOffset + names.size();
  if (mapOffset + mapLength > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;

  Data fork;
  fork.reserve(mapOffset + mapLength);
  for (std::size_t value : {kForkDataStart, mapOffset, data.size(), mapLength})
    appendUInt32(fork, static_cast<std::uint32_t>(value));
  Data header(fork);
  if (reserved_.size() == kForkDataStart - kForkHeaderSize)
    fork.insert(fork.end(), reserved_.begin(), reserved_.end());
  else
    fork.resize(kForkDataStart);
  fork.insert(fork.end(), data.begin(), data.end());
  fork.insert(fork.end(), header.begin(), header.end());
  fork.resize(fork.size() + 6);  // the next map's handle and the file's reference number
  appendUInt16(fork, mapAttributes_);
  appendUInt16(fork, static_cast<std::uint16_t>(kMapHeaderSize));
  appendUInt16(fork, static_cast<std::uint16_t>(nameListOffset));
  for (const Data* part : {&typeList, &references, &names})
    fork.insert(fork.end(), part->begin(), part->end());
  return fork;
}

bool ResourceFork::write() {
  std::optional<Data> fork = serialize();
  if (!fork) return false;
  bool written = false;
  if (storage_ == ForkStorage::Attribute) {
    int error = 0;
    written = writeExtendedAttribute(path_, attributeName_, *fork, false, &error);
    // A file system without user attributes, or a fork too large for one: the companion.
    bool refused = error == ENOTSUP || error == E2BIG || error == ENOSPC || error == ERANGE;
    if (!written && automatic_ && refused && attributeName_ == kResourceForkAttribute &&
        writeAppleDoubleFork(path_, *fork)) {
      removeExtendedAttribute(path_, attributeName_, false);  // an old fork would be read first
      storage_ = ForkStorage::AppleDouble;
      written = true;
    }
  } else {
    written = writeAppleDoubleFork(path_, *fork);
  }
  if (written) dirty_ = false;
  return written;
}

}  // namespace ulvek
