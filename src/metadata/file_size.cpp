#include "metadata/file_size.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "platform/content_types.h"
#include "platform/file_server_metadata.h"
#include "platform/resource_fork.h"

namespace ulvek {

namespace {

// Folders nested deeper than this are not entered; their files at this depth still count.
constexpr int kMaxFolderDepth = 100;
// One batch of directory records per level, the size the catalog hands out at a time.
constexpr std::size_t kEntriesPerBatch = 16;
constexpr std::size_t kDirectoryRecordSize = 24 + NAME_MAX + 1;
constexpr std::size_t kBatchBytes = kEntriesPerBatch * kDirectoryRecordSize;

// AppleDouble header: magic, version, 16 filler bytes, entry count; then 12-byte entries.
constexpr std::uint32_t kAppleDoubleMagic = 0x00051607;
constexpr std::size_t kAppleDoubleHeaderSize = 26;
constexpr std::size_t kAppleDoubleEntrySize = 12;
constexpr std::uint32_t kResourceForkEntry = 2;
constexpr std::size_t kAppleDoubleCompanionPrefix = 2;  // "._"

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }

 private:
  int fd_;
};

std::uint32_t bigEndian32(const std::uint8_t* bytes) {
  return (std::uint32_t(bytes[0]) << 24) | (std::uint32_t(bytes[1]) << 16) |
         (std::uint32_t(bytes[2]) << 8) | std::uint32_t(bytes[3]);
}

// Length of the resource fork entry of an open AppleDouble file, clipped to what the file holds.
// Reads only the header and entry table, into a fixed buffer.
std::uint64_t appleDoubleResourceForkLength(int fd, std::uint64_t fileLength) {
  std::array<std::uint8_t, kAppleDoubleHeaderSize + 32 * kAppleDoubleEntrySize> header;
  ssize_t got = ::pread(fd, header.data(), header.size(), 0);
  if (got < static_cast<ssize_t>(kAppleDoubleHeaderSize)) return 0;
  if (bigEndian32(header.data()) != kAppleDoubleMagic) return 0;
  std::size_t count = (std::size_t(header[24]) << 8) | header[25];
  for (std::size_t i = 0; i < count; ++i) {
    std::size_t at = kAppleDoubleHeaderSize + i * kAppleDoubleEntrySize;
    if (at + kAppleDoubleEntrySize > static_cast<std::size_t>(got)) break;
    if (bigEndian32(&header[at]) != kResourceForkEntry) continue;
    std::uint64_t offset = bigEndian32(&header[at + 4]);
    std::uint64_t length = bigEndian32(&header[at + 8]);
    if (offset >= fileLength) return 0;
    return std::min(length, fileLength - offset);
  }
  return 0;
}

// Length of the fork entry of the companion "._name" in the open folder `folder`.
std::uint64_t companionForkLength(int folder, const char* name) {
  char companion[kAppleDoubleCompanionPrefix + NAME_MAX + 1] = "._";
  std::size_t nameLength = std::strlen(name);
  if (nameLength > NAME_MAX - kAppleDoubleCompanionPrefix) return 0;
  std::memcpy(companion + kAppleDoubleCompanionPrefix, name, nameLength + 1);
  FileDescriptor fd(::openat(folder, companion, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (!fd.valid()) return 0;
  struct stat info;
  if (::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) return 0;
  return appleDoubleResourceForkLength(fd.get(), static_cast<std::uint64_t>(info.st_size));
}

// Resource fork length of the entry `name` of the open folder `folder`, from where readers take
// the fork, in their order: the Mac attribute, the "._name" companion, then the attributes of
// Mac file servers. No allocation: names are built in fixed buffers and attributes are asked for
// their size only.
std::uint64_t resourceForkLength(int folder, const char* name) {
  char procPath[64 + NAME_MAX + 1];
  int written = std::snprintf(procPath, sizeof procPath, "/proc/self/fd/%d/%s", folder, name);
  bool named = written > 0 && static_cast<std::size_t>(written) < sizeof procPath;
  auto attributeLength = [&](const char* attribute) -> std::uint64_t {
    ssize_t length = named ? ::lgetxattr(procPath, attribute, nullptr, 0) : -1;
    return length > 0 ? static_cast<std::uint64_t>(length) : 0;
  };
  if (std::uint64_t length = attributeLength(kResourceForkAttribute)) return length;
  if (std::uint64_t length = companionForkLength(folder, name)) return length;
  for (const char* attribute : kFileServerResourceForkAttributes) {
    if (std::uint64_t length = attributeLength(attribute)) return length;
  }
  return 0;
}

// An AppleDouble companion "._name" whose file "name" exists: its bytes are that file's fork and
// are counted with it.
bool isForkCompanion(int folder, const char* name) {
  if (std::strncmp(name, "._", kAppleDoubleCompanionPrefix) != 0) return false;
  const char* owner = name + kAppleDoubleCompanionPrefix;
  if (*owner == '\0') return false;
  struct stat info;
  return ::fstatat(folder, owner, &info, AT_SYMLINK_NOFOLLOW) == 0;
}

// The kernel's own file systems: their sizes mean nothing and some of their files never end.
bool isKernelFileSystem(int folder) {
  struct statfs info;
  if (::fstatfs(folder, &info) != 0) return true;
  switch (info.f_type) {
    case PROC_SUPER_MAGIC:
    case SYSFS_MAGIC:
    case DEVPTS_SUPER_MAGIC:
    case DEBUGFS_MAGIC:
    case TRACEFS_MAGIC:
    case SECURITYFS_MAGIC:
    case CGROUP_SUPER_MAGIC:
    case CGROUP2_SUPER_MAGIC:
    case BPF_FS_MAGIC:
      return true;
    default:
      return false;
  }
}

// One folder's sum: `workArea` holds one batch per level; each level reads its entries into its
// own slice, so the descent allocates nothing. /dev is a tmpfs like any other, so it is known
// by its identity.
struct FolderWalk {
  std::byte* workArea;
  std::uint64_t entriesLeft;
  dev_t devicesDevice = 0;
  ino_t devicesInode = 0;
  bool knowsDevices = false;

  FolderWalk(std::byte* area, std::uint64_t maxEntries) : workArea(area), entriesLeft(maxEntries) {
    struct stat devices;
    if (::stat("/dev", &devices) == 0) {
      devicesDevice = devices.st_dev;
      devicesInode = devices.st_ino;
      knowsDevices = true;
    }
  }

  bool isOutOfBounds(int folder, const struct stat& info) const {
    if (knowsDevices && info.st_dev == devicesDevice && info.st_ino == devicesInode) return true;
    return isKernelFileSystem(folder);
  }

  // Sums the data and resource fork lengths below an open folder.
  std::uint64_t size(int folder, int depth) {
    std::byte* batch = workArea + static_cast<std::size_t>(depth) * kBatchBytes;
    std::uint64_t total = 0;
    for (;;) {
      ssize_t got = ::getdents64(folder, batch, kBatchBytes);
      if (got <= 0) break;  // the end, or an error: keep what was counted
      for (ssize_t at = 0; at < got;) {
        auto* entry = reinterpret_cast<const struct dirent64*>(batch + at);
        at += entry->d_reclen;
        const char* name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
        if (entriesLeft == 0) return total;
        --entriesLeft;
        struct stat info;
        if (::fstatat(folder, name, &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (S_ISDIR(info.st_mode)) {
          if (depth + 1 >= kMaxFolderDepth) continue;
          FileDescriptor child(
              ::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
          if (child.valid() && !isOutOfBounds(child.get(), info))
            total += size(child.get(), depth + 1);
          continue;
        }
        if (isForkCompanion(folder, name)) continue;
        total += static_cast<std::uint64_t>(info.st_size);
        if (S_ISREG(info.st_mode)) total += resourceForkLength(folder, name);
      }
    }
    return total;
  }
};

std::uint64_t singleFileSize(const std::string& path, const struct stat& info) {
  std::uint64_t size = static_cast<std::uint64_t>(info.st_size);
  // The fork belongs to the file the path leads to, so a final link is resolved first; it is
  // measured, never read.
  char resolved[PATH_MAX];
  if (!::realpath(path.c_str(), resolved)) return size;
  char* slash = std::strrchr(resolved, '/');
  if (!slash || slash[1] == '\0') return size;
  *slash = '\0';
  FileDescriptor folder(
      ::open(slash == resolved ? "/" : resolved, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.valid()) return size;
  return size + resourceForkLength(folder.get(), slash + 1);
}

}  // namespace

std::uint64_t fileSizeAtPath(const std::string& path, std::uint64_t maxEntries) {
  if (path.empty()) return 0;
  struct stat info;
  if (::stat(path.c_str(), &info) != 0) return 0;
  if (!S_ISDIR(info.st_mode)) return singleFileSize(path, info);
  FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.valid()) return 0;
  // Uninitialised on purpose: only the slices of levels actually reached are touched.
  std::unique_ptr<std::byte[]> workArea(new std::byte[kMaxFolderDepth * kBatchBytes]);
  FolderWalk walk(workArea.get(), maxEntries);
  if (walk.isOutOfBounds(folder.get(), info)) return 0;
  return walk.size(folder.get(), 0);
}

namespace {

using ResourceQuery = Result<std::optional<PropertyValue>> (*)(const std::string& path,
                                                               const struct stat& info);
using Answer = Result<std::optional<PropertyValue>>;

struct ResourceRow {
  std::string_view key;
  ResourceQuery query;
};

constexpr std::array<ResourceRow, 5> kResourceRows = {{
    {ResourceKey::IsPackage,
     [](const std::string& path, const struct stat& info) -> Answer {
       if (!S_ISDIR(info.st_mode)) return std::optional(PropertyValue(false));
       Result<bool> package = isPackageAtPath(path);
       if (!package) return package.error();
       return std::optional(PropertyValue(*package));
     }},
    {ResourceKey::IsDirectory,
     [](const std::string&, const struct stat& info) -> Answer {
       return std::optional(PropertyValue(S_ISDIR(info.st_mode) != 0));
     }},
    {ResourceKey::IsRegularFile,
     [](const std::string&, const struct stat& info) -> Answer {
       return std::optional(PropertyValue(S_ISREG(info.st_mode) != 0));
     }},
    {ResourceKey::IsSymbolicLink,
     [](const std::string&, const struct stat& info) -> Answer {
       return std::optional(PropertyValue(S_ISLNK(info.st_mode) != 0));
     }},
    {ResourceKey::FileSize,
     [](const std::string&, const struct stat& info) -> Answer {
       if (S_ISDIR(info.st_mode)) return std::optional<PropertyValue>();
       return std::optional(PropertyValue(static_cast<std::int64_t>(info.st_size)));
     }},
}};

}  // namespace

Result<std::optional<PropertyValue>> getResourceValueForKey(std::string_view key,
                                                            const std::string& path) {
  if (path.empty()) return std::optional<PropertyValue>();
  struct stat info;
  if (::lstat(path.c_str(), &info) != 0) return Error::posix(errno, path);
  for (const ResourceRow& row : kResourceRows) {
    if (row.key == key) return row.query(path, info);
  }
  return std::optional<PropertyValue>();
}

bool getBoolValueForKey(std::string_view key, const std::string& path) {
  std::optional<PropertyValue> value =
      getResourceValueForKey(key, path).take().value_or(std::nullopt);
  if (!value) return false;
  if (const bool* flag = value->boolean()) return *flag;
  return false;
}

}  // namespace ulvek
