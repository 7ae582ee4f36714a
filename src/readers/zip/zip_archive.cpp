#include "readers/zip/zip_archive.h"

#include <fcntl.h>
#include <minizip/unzip.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

#include "base/ascii.h"
#include "base/failure.h"
#include "base/log.h"

namespace ulvek {
namespace {

// minizip's I/O record served from the archive image; `opaque` is the image and its position.
using Image = ZipArchive::Image;

voidpf ZCALLBACK openImageStream(voidpf opaque, const char*, int) {
  auto* image = static_cast<Image*>(opaque);
  image->pos = 0;
  return image;
}

uLong ZCALLBACK readImage(voidpf, voidpf stream, void* buffer, uLong size) {
  auto* image = static_cast<Image*>(stream);
  auto length = static_cast<std::int64_t>(image->bytes.size());
  if (image->pos < 0 || image->pos >= length) return 0;
  // Never past the end: a short count makes minizip fail the read.
  auto count = static_cast<uLong>(std::min<std::int64_t>(size, length - image->pos));
  std::memcpy(buffer, image->bytes.data() + image->pos, count);
  image->pos += static_cast<std::int64_t>(size);
  return count;
}

long ZCALLBACK tellImage(voidpf, voidpf stream) {
  return static_cast<long>(static_cast<Image*>(stream)->pos);
}

long ZCALLBACK seekImage(voidpf, voidpf stream, uLong offset, int origin) {
  auto* image = static_cast<Image*>(stream);
  auto signedOffset = static_cast<std::int64_t>(offset);
  switch (origin) {
    case ZLIB_FILEFUNC_SEEK_SET:
      image->pos = signedOffset;
      return 0;
    case ZLIB_FILEFUNC_SEEK_CUR:
      image->pos += signedOffset;
      return 0;
    case ZLIB_FILEFUNC_SEEK_END:
      image->pos = static_cast<std::int64_t>(image->bytes.size()) - signedOffset;
      return 0;
    default:
      return -1;
  }
}

int ZCALLBACK closeImage(voidpf, voidpf stream) {
  static_cast<Image*>(stream)->pos = 0;
  return 0;
}

int ZCALLBACK imageError(voidpf, voidpf stream) {
  auto* image = static_cast<Image*>(stream);
  return image->pos < 0 || image->pos > static_cast<std::int64_t>(image->bytes.size()) ? -1 : 0;
}

// Names are compared as minizip compares them, without regard to case in ASCII letters only;
// it finds no member whose name is longer than this.
constexpr std::size_t kLongestName = 255;

bool isUnixLink(const unz_file_info& info) {
  constexpr uLong kUnixHost = 3;
  if ((info.version >> 8) != kUnixHost) return false;
  return ((info.external_fa >> 16) & S_IFMT) == S_IFLNK;
}

}  // namespace

std::unique_ptr<ZipArchive> ZipArchive::initWithZipFile(const std::string& path) {
  std::unique_ptr<ZipArchive> archive(new ZipArchive());
  archive->archiveName_ = path;
  std::optional<FileBytes> file = FileBytes::read(path).take();
  if (!file) return nullptr;
  archive->file_ = std::move(file);
  archive->image_ = archive->file_->bytes();
  if (!archive->openImage()) return nullptr;
  return archive;
}

std::unique_ptr<ZipArchive> ZipArchive::initWithData(Bytes bytes, std::string name) {
  std::unique_ptr<ZipArchive> archive(new ZipArchive());
  archive->archiveName_ = std::move(name);
  archive->image_ = bytes;
  if (!archive->openImage()) return nullptr;
  return archive;
}

bool ZipArchive::openImage() {
  state_.bytes = image_;
  state_.pos = 0;
  zlib_filefunc_def functions{};
  functions.zopen_file = openImageStream;
  functions.zread_file = readImage;
  functions.zwrite_file = nullptr;
  functions.ztell_file = tellImage;
  functions.zseek_file = seekImage;
  functions.zclose_file = closeImage;
  functions.zerror_file = imageError;
  functions.opaque = &state_;
  zipFile_ = unzOpen2(archiveName_.c_str(), &functions);
  return zipFile_ != nullptr;
}

ZipArchive::~ZipArchive() {
  if (zipFile_) closeZipFile();
}

bool ZipArchive::openZipFile(const std::string& path) {
  if (zipFile_) return false;
  index_.reset();
  zipFile_ = unzOpen(path.c_str());
  return zipFile_ != nullptr;
}

bool ZipArchive::closeZipFile() {
  if (!zipFile_ || unzClose(zipFile_) != UNZ_OK) return false;
  zipFile_ = nullptr;
  return true;
}

const ZipArchive::MemberIndex& ZipArchive::memberIndex() {
  if (index_) return *index_;
  index_.emplace();
  for (int status = unzGoToFirstFile(zipFile_); status == UNZ_OK;
       status = unzGoToNextFile(zipFile_)) {
    unz_file_info info{};
    char name[kLongestName + 1] = {};
    unz_file_pos position{};
    if (unzGetCurrentFileInfo(zipFile_, &info, name, sizeof name - 1, nullptr, 0, nullptr, 0) !=
            UNZ_OK ||
        unzGetFilePos(zipFile_, &position) != UNZ_OK)
      break;
    if (info.size_filename > kLongestName) continue;
    // As minizip compares names: up to a NUL.
    std::string found(name);
    const MemberPosition at{position.pos_in_zip_directory, position.num_of_file};
    index_->folded.emplace(asciiLowercase(found), at);
    index_->exact.emplace(std::move(found), at);
  }
  return *index_;
}

bool ZipArchive::testForNamedFile(std::string_view name) {
  if (!zipFile_ || name.size() > kLongestName) return false;
  const MemberIndex& index = memberIndex();
  // The exact name first: otherwise "ABC" finds an earlier "abc", and every case variant of a
  // large member inflates it again.
  auto found = index.exact.find(std::string(name));
  if (found == index.exact.end()) {
    found = index.folded.find(asciiLowercase(name));
    if (found == index.folded.end()) return false;
  }
  unz_file_pos position{found->second.directoryOffset, found->second.number};
  return unzGoToFilePos(zipFile_, &position) == UNZ_OK;
}

std::optional<Data> ZipArchive::dataForNamedFile(std::string_view name, const ZipLimits& limits) {
  if (!testForNamedFile(name)) {
    logLine("Unable to locate " + std::string(name) + " in " + archiveName_);
    return std::nullopt;
  }
  return readCurrent(name, limits);
}

std::optional<Data> ZipArchive::readCurrent(std::string_view name, const ZipLimits& limits) {
  unz_file_info info{};
  if (unzGetCurrentFileInfo(zipFile_, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK) {
    logLine("Unable to extract file info for: " + std::string(name));
    return std::nullopt;
  }
  std::uint64_t size = info.uncompressed_size;
  bool tooLarge = size > limits.maxSize ||
                  (size > limits.ratioFloor &&
                   size / std::max<std::uint64_t>(info.compressed_size, 1) > limits.maxRatio);
  if (tooLarge) {
    logFailure(FailureKind::TooLarge, "Skipped: " + std::string(name) + " in " + archiveName_ +
                                          " (" + std::to_string(size / (1024 * 1024)) +
                                          " MB inflated)");
    return std::nullopt;
  }
  if (unzOpenCurrentFile(zipFile_) != UNZ_OK) {
    logLine("Unable to open file " + std::string(name) + " for extration from archive");
    return std::nullopt;
  }
  Data data(static_cast<std::size_t>(size));
  if (size == 0) {
    unzCloseCurrentFile(zipFile_);
    return data;
  }
  // One read for the whole size, in pieces minizip's unsigned count can hold.
  std::uint64_t got = 0;
  while (got < size) {
    unsigned piece = static_cast<unsigned>(std::min<std::uint64_t>(size - got, 1u << 30));
    int count = unzReadCurrentFile(zipFile_, data.data() + got, piece);
    if (count <= 0) break;
    got += static_cast<std::uint64_t>(count);
  }
  if (got != size) {
    logLine("Failed to read " + std::string(name) + " from archive");
    return std::nullopt;
  }
  unzCloseCurrentFile(zipFile_);
  return data;
}

std::vector<ZipMember> ZipArchive::members() {
  std::vector<ZipMember> found;
  if (!zipFile_) return found;
  for (int status = unzGoToFirstFile(zipFile_); status == UNZ_OK;
       status = unzGoToNextFile(zipFile_)) {
    unz_file_info info{};
    char name[kLongestName + 1] = {};
    if (unzGetCurrentFileInfo(zipFile_, &info, name, sizeof name - 1, nullptr, 0, nullptr, 0) !=
        UNZ_OK)
      break;
    ZipMember member;
    member.name.assign(name, std::min<std::size_t>(info.size_filename, sizeof name - 1));
    member.packedSize = info.compressed_size;
    member.size = info.uncompressed_size;
    member.isFolder = !member.name.empty() && member.name.back() == '/';
    member.isLink = isUnixLink(info);
    found.push_back(std::move(member));
  }
  return found;
}

bool isSafeMemberName(std::string_view name) {
  if (name.empty() || name.front() == '/' || name.front() == '\\') return false;
  if (name.find('\0') != std::string_view::npos || name.find('\\') != std::string_view::npos)
    return false;
  // A drive letter ("C:") is as absolute as a leading slash.
  if (name.size() >= 2 && name[1] == ':') return false;
  for (std::string_view part : nonEmptyParts(name, '/'))
    if (part == "..") return false;
  return true;
}

namespace {

Status writeMember(const std::string& path, const Data& data) {
  // O_EXCL: a member never overwrites, or writes through, anything already there.
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return Error::posix(errno, path);
  std::size_t written = 0;
  while (written < data.size()) {
    ssize_t count = ::write(fd, data.data() + written, data.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      int error = errno;
      ::close(fd);
      return Error::posix(error, path);
    }
    written += static_cast<std::size_t>(count);
  }
  ::close(fd);
  return {};
}

// `kind`: TooLarge for what the limits refuse, Damaged for names and links no archive needs.
Status refuse(const ZipArchive& archive, const std::string& reason,
              FailureKind kind = FailureKind::Damaged) {
  logFailure(kind, "Unsafe archive: " + archive.archiveName() + " (" + reason + ")");
  Error error = Error::posix(EPERM, archive.archiveName());
  error.localizedDescription = reason;
  return error;
}

}  // namespace

Status unpackZipArchive(ZipArchive& archive, const std::string& destination,
                        const UnpackLimits& limits) {
  std::vector<ZipMember> members = archive.members();
  if (members.size() > limits.maxMembers)
    return refuse(archive, "too many members", FailureKind::TooLarge);
  std::uint64_t total = 0;
  std::uint64_t budget = std::min(limits.maxTotal, archive.archiveSize() * limits.maxRatio);
  // Everything is checked before anything is written.
  for (const ZipMember& member : members) {
    if (!isSafeMemberName(member.name)) return refuse(archive, "member name " + member.name);
    if (member.isLink) return refuse(archive, "symbolic link " + member.name);
    total += member.size;
    if (total > budget) return refuse(archive, "inflates past the limit", FailureKind::TooLarge);
  }
  std::uint64_t written = 0;
  std::set<std::string> unpacked;
  for (const ZipMember& member : members) {
    std::filesystem::path target = std::filesystem::path(destination) / member.name;
    std::error_code error;
    // A name that comes again, in any case, is one readers cannot tell from the first (lookups
    // ignore case): keep the first.
    if (!member.isFolder && !unpacked.insert(asciiLowercase(member.name)).second) {
      logLine("Duplicate archive member: " + archive.archiveName() + " (" + member.name + ")");
      continue;
    }
    if (member.isFolder) {
      std::filesystem::create_directories(target, error);
      if (error) return Error::posix(error.value(), target.string());
      continue;
    }
    std::filesystem::create_directories(target.parent_path(), error);
    if (error) return Error::posix(error.value(), target.string());
    // The sizes the directory declares were checked; what is written counts as well.
    std::optional<Data> data =
        archive.dataForNamedFile(member.name, ZipLimits{budget - written, ~0ull, 0});
    if (!data) return refuse(archive, "unreadable member " + member.name);
    written += data->size();
    if (Status stored = writeMember(target.string(), *data); !stored) return stored;
  }
  return {};
}

}  // namespace ulvek
