#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/property_value.h"
#include "base/status.h"
#include "platform/file_bytes.h"

namespace ulvek {

// How far a member may inflate before it is refused as a zip bomb: beyond `maxSize`, or beyond
// `maxRatio` times its packed size once it passes `ratioFloor` (small members compress well).
struct ZipLimits {
  std::uint64_t maxSize = 200ull * 1024 * 1024;
  std::uint64_t maxRatio = 100;
  std::uint64_t ratioFloor = 1024 * 1024;
};

// One entry of the central directory.
struct ZipMember {
  std::string name;  // as stored, "/" between folders
  std::uint64_t packedSize = 0;
  std::uint64_t size = 0;
  bool isFolder = false;  // the name ends in "/"
  bool isLink = false;    // Unix symbolic link in the external attributes
};

// Read access to single members of a zip archive by name, without unpacking it: minizip served
// from an in-memory image of the whole file (mapped when large). A member of the exact name is
// found first; else names are compared without regard to ASCII case and the first match in the
// central directory wins.
class ZipArchive {
 public:
  // The archive at `path`, or nothing when it cannot be read or is no zip archive.
  static std::unique_ptr<ZipArchive> initWithZipFile(const std::string& path);
  // An archive in memory (an openData block, a member of another archive); `name` is for log
  // lines. The bytes must outlive the archive.
  static std::unique_ptr<ZipArchive> initWithData(Bytes bytes, std::string name);

  ~ZipArchive();
  ZipArchive(const ZipArchive&) = delete;
  ZipArchive& operator=(const ZipArchive&) = delete;

  // Opens `path` with minizip's own file access; NO when an archive is already open.
  bool openZipFile(const std::string& path);
  bool closeZipFile();

  // YES when the member exists; it becomes the current member.
  bool testForNamedFile(std::string_view name);
  // The member's whole content; nothing (with one log line) when it is missing, damaged, or
  // inflates past the limits.
  std::optional<Data> dataForNamedFile(std::string_view name, const ZipLimits& limits = {});
  // Every entry, in central-directory order.
  std::vector<ZipMember> members();

  const std::string& archiveName() const { return archiveName_; }
  // The size of the archive image (for ratio limits of whole-archive unpacking).
  std::uint64_t archiveSize() const { return image_.size(); }

  // Used by the I/O functions minizip calls.
  struct Image {
    Bytes bytes;
    std::int64_t pos = 0;
  };

 private:
  ZipArchive() = default;
  bool openImage();
  std::optional<Data> readCurrent(std::string_view name, const ZipLimits& limits);

  // Where each member's entry is in the central directory, by exact name and by name in ASCII
  // lower case (the first of each): found in one pass, where a search by name walks the whole
  // directory, which made reading every chapter of a book quadratic in its members.
  struct MemberPosition {
    unsigned long directoryOffset = 0;
    unsigned long number = 0;
  };
  struct MemberIndex {
    std::unordered_map<std::string, MemberPosition> exact, folded;
  };
  const MemberIndex& memberIndex();

  void* zipFile_ = nullptr;
  std::optional<MemberIndex> index_;
  std::string archiveName_;
  std::optional<FileBytes> file_;
  Bytes image_;
  Image state_;
};

// How much a whole archive may unpack to: at most `maxTotal` bytes, and at most `maxRatio` times
// the archive's own size; at most `maxMembers` entries.
struct UnpackLimits {
  std::uint64_t maxTotal = 1024ull * 1024 * 1024;
  std::uint64_t maxRatio = 200;
  std::uint64_t maxMembers = 100000;
};

// Unpacks every member below `destination` (an existing folder, normally a TemporaryDirectory).
// Refuses, with one log line and nothing written, archives with absolute member names, names that
// climb out with "..", symbolic links, or contents past the limits. Writes nothing outside
// `destination`, and no more bytes in all than the limits allow. Of members whose names differ
// only in case, the first is unpacked and the others skipped with a log line.
Status unpackZipArchive(ZipArchive& archive, const std::string& destination,
                        const UnpackLimits& limits = {});

// YES when a member name stays inside the folder it is unpacked into.
bool isSafeMemberName(std::string_view name);

}  // namespace ulvek
