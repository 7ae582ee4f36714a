#include "platform/file_server_metadata.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/extended_attributes.h"
#include "platform/resource_fork.h"

namespace ulvek {
namespace {

constexpr std::string_view kNetatalkMetadata = "user.org.netatalk.Metadata";
constexpr std::string_view kSambaAfpInfo = "user.DosStream.AFP_AfpInfo:$DATA";

// AfpInfo: "AFP\0", version, reserved, backup date, then 32 bytes of Finder info at 16.
constexpr std::array<std::uint8_t, 4> kAfpInfoMagic = {'A', 'F', 'P', 0};
constexpr std::size_t kAfpFinderInfoOffset = 16;
constexpr std::size_t kFinderInfoSize = 32;

std::optional<Data> attribute(const std::string& path, std::string_view name) {
  std::optional<Data> bytes = readExtendedAttribute(path, std::string(name), false);
  if (!bytes || bytes->empty()) return std::nullopt;
  return bytes;
}

}  // namespace

std::optional<Data> fileServerFinderInfo(const std::string& path) {
  if (std::optional<Data> header = attribute(path, kNetatalkMetadata)) {
    if (std::optional<AppleDouble> entries = parseAppleDouble(*header)) {
      if (entries->finderInfo)
        return Data(entries->finderInfo->begin(), entries->finderInfo->end());
    }
  }
  std::optional<Data> info = attribute(path, kSambaAfpInfo);
  if (!info || info->size() < kAfpFinderInfoOffset + kFinderInfoSize) return std::nullopt;
  if (!std::equal(kAfpInfoMagic.begin(), kAfpInfoMagic.end(), info->begin())) return std::nullopt;
  auto start = info->begin() + kAfpFinderInfoOffset;
  return Data(start, start + kFinderInfoSize);
}

std::optional<Data> fileServerResourceFork(const std::string& path) {
  std::optional<std::pair<std::string_view, Data>> fork = fileServerResourceForkAttribute(path);
  if (!fork) return std::nullopt;
  return std::move(fork->second);
}

std::optional<std::pair<std::string_view, Data>> fileServerResourceForkAttribute(
    const std::string& path) {
  for (std::string_view name : kFileServerResourceForkAttributes) {
    if (std::optional<Data> fork = attribute(path, name)) return std::pair(name, std::move(*fork));
  }
  return std::nullopt;
}

}  // namespace ulvek
