// ClassicMac.mdimporter: MacWrite, ClarisWorks/AppleWorks, WriteNow, Nisus and the other old
// Macintosh formats libmwaw reads, as text through librevenge's text generators. Their resource
// fork and Finder type, which libmwaw needs to tell most of them apart, come with the file as
// BinHex or MacBinary, or beside it: in the com.apple.ResourceFork and com.apple.FinderInfo
// attributes or an AppleDouble "._NAME" file. Those are joined into one AppleSingle image.

#include <librevenge-stream/librevenge-stream.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <libmwaw/libmwaw.hxx>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "revenge_support.h"

namespace {

using ulvek::plugin::Attributes;
using ulvek::plugin::PropertyCatcher;

using Bytes = std::string;

// Old documents are small; anything larger is not one of these.
constexpr std::size_t kMaxSize = 256 * 1024 * 1024;
constexpr std::uint32_t kAppleSingleMagic = 0x00051600;
constexpr std::uint32_t kAppleDoubleMagic = 0x00051607;
constexpr std::uint32_t kDataFork = 1, kResourceFork = 2, kFinderInfo = 9;

std::optional<Bytes> readFile(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) ||
      std::size_t(info.st_size) > kMaxSize)
    return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::optional<Bytes> attribute(const std::string& path, const char* name) {
  ssize_t size = ::getxattr(path.c_str(), name, nullptr, 0);
  if (size <= 0 || std::size_t(size) > kMaxSize) return std::nullopt;
  Bytes value(std::size_t(size), '\0');
  size = ::getxattr(path.c_str(), name, value.data(), value.size());
  if (size <= 0) return std::nullopt;
  value.resize(std::size_t(size));
  return value;
}

std::uint32_t be32(const Bytes& bytes, std::size_t at) {
  return (std::uint32_t(std::uint8_t(bytes[at])) << 24) |
         (std::uint32_t(std::uint8_t(bytes[at + 1])) << 16) |
         (std::uint32_t(std::uint8_t(bytes[at + 2])) << 8) | std::uint8_t(bytes[at + 3]);
}
void putBe32(Bytes& bytes, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) bytes += char((value >> shift) & 0xFF);
}

// The entries of an AppleDouble file that are kept: resource fork and Finder info.
std::vector<std::pair<std::uint32_t, Bytes>> appleDoubleEntries(const Bytes& file) {
  std::vector<std::pair<std::uint32_t, Bytes>> entries;
  if (file.size() < 26 || be32(file, 0) != kAppleDoubleMagic) return entries;
  std::size_t count = (std::size_t(std::uint8_t(file[24])) << 8) | std::uint8_t(file[25]);
  for (std::size_t i = 0; i < count && 26 + 12 * (i + 1) <= file.size(); ++i) {
    std::uint32_t id = be32(file, 26 + 12 * i);
    std::uint32_t offset = be32(file, 30 + 12 * i), length = be32(file, 34 + 12 * i);
    if ((id != kResourceFork && id != kFinderInfo) || offset > file.size() ||
        length > file.size() - offset)
      continue;
    entries.emplace_back(id, file.substr(offset, length));
  }
  return entries;
}

// The document as libmwaw reads it best: the data fork alone, or an AppleSingle image with its
// resource fork and Finder info when the file has them beside it.
Bytes withForks(const std::string& path, Bytes data) {
  std::vector<std::pair<std::uint32_t, Bytes>> entries;
  if (auto fork = attribute(path, "user.com.apple.ResourceFork"))
    entries.emplace_back(kResourceFork, *fork);
  if (auto info = attribute(path, "user.com.apple.FinderInfo"))
    entries.emplace_back(kFinderInfo, *info);
  if (entries.empty()) {
    std::size_t slash = path.rfind('/');
    std::string companion = path.substr(0, slash + 1) + "._" + path.substr(slash + 1);
    if (auto file = readFile(companion)) entries = appleDoubleEntries(*file);
  }
  if (entries.empty()) return data;
  entries.emplace_back(kDataFork, std::move(data));
  Bytes image;
  putBe32(image, kAppleSingleMagic);
  putBe32(image, 0x00020000);
  image.append(16, '\0');
  image += char(entries.size() >> 8);
  image += char(entries.size() & 0xFF);
  std::uint32_t offset = std::uint32_t(26 + 12 * entries.size());
  for (const auto& [id, bytes] : entries) {
    putBe32(image, id);
    putBe32(image, offset);
    putBe32(image, std::uint32_t(bytes.size()));
    offset += std::uint32_t(bytes.size());
  }
  for (const auto& [id, bytes] : entries) image += bytes;
  return image;
}

template <typename Generator, typename Output>
bool parseInto(librevenge::RVNGInputStream* input, Output& output,
               ulvek::plugin::RevengeProperties& properties) {
  PropertyCatcher<Generator, Output> generator(output);
  if (MWAWDocument::parse(input, &generator) != MWAWDocument::MWAW_R_OK) return false;
  properties = generator.properties;
  return true;
}

bool importClassicMac(Attributes& out, const char*, const char* path) {
  std::optional<Bytes> data = readFile(path);
  if (!data) return false;
  Bytes image = withForks(path, std::move(*data));
  librevenge::RVNGStringStream input(reinterpret_cast<const unsigned char*>(image.data()),
                                     unsigned(image.size()));
  MWAWDocument::Type type = MWAWDocument::MWAW_T_UNKNOWN;
  MWAWDocument::Kind kind = MWAWDocument::MWAW_K_UNKNOWN;
  if (MWAWDocument::isFileFormatSupported(&input, type, kind) == MWAWDocument::MWAW_C_NONE)
    return false;
  std::string text;
  ulvek::plugin::RevengeProperties properties;
  if (kind == MWAWDocument::MWAW_K_TEXT) {
    librevenge::RVNGString document;
    if (!parseInto<librevenge::RVNGTextTextGenerator>(&input, document, properties)) return false;
    text = document.cstr();
  } else if (kind == MWAWDocument::MWAW_K_SPREADSHEET || kind == MWAWDocument::MWAW_K_DATABASE) {
    librevenge::RVNGStringVector sheets;
    if (!parseInto<librevenge::RVNGTextSpreadsheetGenerator>(&input, sheets, properties))
      return false;
    text = ulvek::plugin::joined(sheets);
  } else if (kind == MWAWDocument::MWAW_K_PRESENTATION) {
    librevenge::RVNGStringVector slides;
    if (!parseInto<librevenge::RVNGTextPresentationGenerator>(&input, slides, properties))
      return false;
    text = ulvek::plugin::joined(slides);
  } else {
    librevenge::RVNGStringVector pages;
    if (!parseInto<librevenge::RVNGTextDrawingGenerator>(&input, pages, properties)) return false;
    text = ulvek::plugin::joined(pages);
  }
  properties.write(out);
  out.string("kMDItemTextContent", text);
  return true;
}

}  // namespace

ULVEK_EXPORT_IMPORTER_FACTORY(UlvekClassicMacImporterFactory, importClassicMac)
