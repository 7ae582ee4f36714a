#pragma once

// Zip archives made with minizip's writer, for tests of readers that open zip files.

#include <minizip/zip.h>
#include <sys/stat.h>

#include <string>
#include <vector>

namespace ulvek::testing {

struct ZipEntry {
  std::string name;
  std::string bytes;
  bool link = false;    // stored as a Unix symbolic link whose target is `bytes`
  bool stored = false;  // no compression
};

// Writes the archive to `path`; answers whether it was written.
inline bool writeZip(const std::string& path, const std::vector<ZipEntry>& entries) {
  zipFile zip = zipOpen(path.c_str(), APPEND_STATUS_CREATE);
  if (!zip) return false;
  for (const ZipEntry& entry : entries) {
    zip_fileinfo info{};
    if (entry.link) info.external_fa = static_cast<uLong>(S_IFLNK | 0777) << 16;
    // "Made by" Unix (3), so external attributes carry the mode.
    int opened =
        zipOpenNewFileInZip4(zip, entry.name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                             entry.stored ? 0 : Z_DEFLATED, Z_DEFAULT_COMPRESSION, 0, -MAX_WBITS,
                             DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY, nullptr, 0, (3 << 8) | 20, 0);
    if (opened != ZIP_OK) return zipClose(zip, nullptr), false;
    zipWriteInFileInZip(zip, entry.bytes.data(), static_cast<unsigned>(entry.bytes.size()));
    zipCloseFileInZip(zip);
  }
  return zipClose(zip, nullptr) == ZIP_OK;
}

}  // namespace ulvek::testing
