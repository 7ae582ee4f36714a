#include "iptc_digest.h"

#include <glib.h>

#include <cstdint>
#include <cstring>
#include <fstream>

namespace ulvek::image {

namespace {

constexpr std::uint16_t kIptcResource = 0x0404;
constexpr std::uint16_t kIptcDigestResource = 0x0425;
// More Photoshop resources than any picture carries; a hostile file stops here.
constexpr std::size_t kMaxResources = 16 * 1024 * 1024;

// A resource's data, or nothing.
bool locate(const std::string& resources, std::uint16_t id, std::string& data) {
  const auto* bytes = reinterpret_cast<const Exiv2::byte*>(resources.data());
  const Exiv2::byte* record = nullptr;
  std::uint32_t headerSize = 0;
  std::uint32_t dataSize = 0;
  if (Exiv2::Photoshop::locateIrb(bytes, static_cast<long>(resources.size()), id, &record,
                                  &headerSize, &dataSize) != 0)
    return false;
  const std::size_t start = static_cast<std::size_t>(record - bytes) + headerSize;
  if (start > resources.size() || dataSize > resources.size() - start) return false;
  data.assign(resources, start, dataSize);
  return true;
}

std::string md5(const std::string& data) {
  gchar* digest = g_compute_checksum_for_data(
      G_CHECKSUM_MD5, reinterpret_cast<const guchar*>(data.data()), data.size());
  std::string text = digest ? digest : "";
  g_free(digest);
  return text;
}

std::string hex(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (unsigned char c : bytes) {
    text += kDigits[c >> 4];
    text += kDigits[c & 15];
  }
  return text;
}

// The Photoshop resources of a JPEG's APP13 segments, joined, up to the first scan.
std::string jpegResources(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  unsigned char start[2] = {};
  if (!file.read(reinterpret_cast<char*>(start), 2) || start[0] != 0xFF || start[1] != 0xD8)
    return {};
  static constexpr char kPhotoshop[] = "Photoshop 3.0";  // with its NUL
  std::string resources;
  for (;;) {
    unsigned char marker[4] = {};
    if (!file.read(reinterpret_cast<char*>(marker), 2) || marker[0] != 0xFF) break;
    if (marker[1] == 0xD8 || (marker[1] >= 0xD0 && marker[1] <= 0xD7) || marker[1] == 0x01)
      continue;
    if (marker[1] == 0xDA || marker[1] == 0xD9) break;  // the picture starts, or ends
    if (!file.read(reinterpret_cast<char*>(marker + 2), 2)) break;
    const std::size_t length = (std::size_t(marker[2]) << 8 | marker[3]);
    if (length < 2) break;
    if (marker[1] != 0xED) {
      file.seekg(static_cast<std::streamoff>(length - 2), std::ios::cur);
      continue;
    }
    std::string segment(length - 2, '\0');
    if (!file.read(segment.data(), static_cast<std::streamsize>(segment.size()))) break;
    if (segment.size() < sizeof kPhotoshop ||
        std::memcmp(segment.data(), kPhotoshop, sizeof kPhotoshop) != 0)
      continue;
    resources.append(segment, sizeof kPhotoshop);
    if (resources.size() > kMaxResources) return {};
  }
  return resources;
}

// A TIFF tag's bytes as stored.
std::string tiffBytes(const Exiv2::Image& image, const char* key) {
  const Exiv2::ExifData& exif = image.exifData();
  auto found = exif.findKey(Exiv2::ExifKey(key));
  if (found == exif.end() || found->size() == 0 || found->size() > kMaxResources) return {};
  std::string bytes(found->size(), '\0');
  // Numbers go back into the bytes in the file's own order.
  found->copy(reinterpret_cast<Exiv2::byte*>(bytes.data()), image.byteOrder());
  return bytes;
}

}  // namespace

IptcState iptcStateOfResources(const std::string& resources, std::string iptc) {
  if (!resources.empty()) locate(resources, kIptcResource, iptc);
  if (iptc.empty()) return IptcState::Absent;
  std::string digest;
  if (!locate(resources, kIptcDigestResource, digest) || digest.size() != 16)
    return IptcState::Synchronised;
  // A TIFF's tag pads the IPTC to whole 32-bit units; writers take the digest with or without.
  const std::string stored = hex(digest);
  if (stored == md5(iptc)) return IptcState::Synchronised;
  const std::size_t end = iptc.find_last_not_of('\0');
  if (end != std::string::npos && iptc.size() - end - 1 < 4 &&
      stored == md5(iptc.substr(0, end + 1)))
    return IptcState::Synchronised;
  return IptcState::ChangedAfterXmp;
}

IptcState iptcState(const std::string& path, const Exiv2::Image& image) {
  switch (image.imageType()) {
    case Exiv2::ImageType::jpeg:
      return iptcStateOfResources(jpegResources(path));
    case Exiv2::ImageType::tiff:
      // A TIFF keeps its IPTC in a tag of its own, the digest among the Photoshop resources.
      return iptcStateOfResources(tiffBytes(image, "Exif.Image.ImageResources"),
                                  tiffBytes(image, "Exif.Image.IPTCNAA"));
    default:
      return IptcState::Absent;
  }
}

}  // namespace ulvek::image
