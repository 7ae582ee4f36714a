#include "platform/temporary_items.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <system_error>

#include "base/log.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

constexpr int kTerminatingSignals[] = {SIGTERM, SIGINT, SIGHUP, SIGPIPE};

// What a signal handler removes. Paths are written before the count that publishes them, under
// the mutex; the handler only reads. Tests change XDG_CACHE_HOME, hence more than one.
constexpr int kMaxFolders = 8;
char gFolders[kMaxFolders][PATH_MAX];
std::atomic<int> gFolderCount{0};
std::atomic<pid_t> gOwner{0};
std::mutex gMutex;

// ---- Removal that runs in a signal handler: system calls only, no allocation ----

struct DirectoryEntry {
  ino64_t inode;
  off64_t offset;
  unsigned short length;
  unsigned char type;
  char name[];
};

constexpr int kMaxDepth = 24;

bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
}

void removeContents(int folder, int depth);

void removeEntry(int folder, const char* name, int depth) {
  if (::unlinkat(folder, name, 0) == 0 || errno != EISDIR) return;
  if (depth < kMaxDepth) {
    int child = ::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (child >= 0) {
      removeContents(child, depth + 1);
      ::close(child);
    }
  }
  ::unlinkat(folder, name, AT_REMOVEDIR);
}

void removeContents(int folder, int depth) {
  alignas(8) char buffer[2048];
  // Removing while reading may skip entries: read again until a pass finds nothing.
  for (int pass = 0; pass < 4; ++pass) {
    bool found = false;
    ::lseek(folder, 0, SEEK_SET);
    long size;
    while ((size = ::syscall(SYS_getdents64, folder, buffer, sizeof buffer)) > 0) {
      for (long at = 0; at < size;) {
        auto* entry = reinterpret_cast<DirectoryEntry*>(buffer + at);
        at += entry->length;
        if (isDotOrDotDot(entry->name)) continue;
        found = true;
        removeEntry(folder, entry->name, depth);
      }
    }
    if (!found) return;
  }
}

void removeTreeNow(const char* path) {
  int folder = ::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (folder < 0) return;
  removeContents(folder, 0);
  ::close(folder);
  ::rmdir(path);
}

void removeRegistered() {
  if (gOwner.load() != ::getpid()) return;
  int count = gFolderCount.load();
  for (int i = 0; i < count; ++i) removeTreeNow(gFolders[i]);
}

void onTerminatingSignal(int number) {
  int saved = errno;
  removeRegistered();
  errno = saved;
  // SA_RESETHAND put the default action back: the pending signal ends the process as it would
  // have without us, once the handler returns.
  ::raise(number);
}

// Only signals that would end the process take the handler: one the program ignores or handles
// itself stays as it is (the daemon blocks SIGTERM and SIGINT and reads them in its loop).
void installHandlers() {
  for (int number : kTerminatingSignals) {
    struct sigaction current {};
    if (::sigaction(number, nullptr, &current) != 0) continue;
    if ((current.sa_flags & SA_SIGINFO) || current.sa_handler != SIG_DFL) continue;
    struct sigaction action {};
    action.sa_handler = onTerminatingSignal;
    ::sigemptyset(&action.sa_mask);
    for (int other : kTerminatingSignals) ::sigaddset(&action.sa_mask, other);
    action.sa_flags = SA_RESETHAND | SA_RESTART;
    ::sigaction(number, &action, nullptr);
  }
}

// Called with the mutex held. A forked child starts a list of its own.
void takeOwnership() {
  pid_t self = ::getpid();
  if (gOwner.load() == self) return;
  gFolderCount.store(0);
  gOwner.store(self);
  static std::atomic<pid_t> handledFor{0};
  if (handledFor.exchange(self) == 0) std::atexit(removeRegistered);
}

bool isRegistered(const std::string& path) {
  for (int i = 0; i < gFolderCount.load(); ++i)
    if (path == gFolders[i]) return true;
  return false;
}

bool registerFolder(const std::string& path) {
  int count = gFolderCount.load();
  if (count >= kMaxFolders || path.size() >= PATH_MAX) return false;
  std::memcpy(gFolders[count], path.c_str(), path.size() + 1);
  gFolderCount.store(count + 1);
  installHandlers();
  return true;
}

std::optional<unsigned long long> number(std::string_view text) {
  unsigned long long value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
  return value;
}

// Whether a folder below the root named PID-STARTTIME belongs to a process that has ended. Names
// of any other form are left alone.
bool isAbandoned(std::string_view name) {
  std::size_t dash = name.find('-');
  if (dash == std::string_view::npos) return false;
  std::optional<unsigned long long> pid = number(name.substr(0, dash));
  std::optional<unsigned long long> start = number(name.substr(dash + 1));
  if (!pid || !start || *pid == 0 || *pid > INT_MAX) return false;
  auto id = static_cast<pid_t>(*pid);
  if (::kill(id, 0) != 0 && errno == ESRCH) return true;
  // Alive (or not ours to signal): abandoned only when the pid now names a later process.
  std::optional<unsigned long long> now = processStartTime(id);
  return now && *start != 0 && *now != *start;
}

std::size_t sweep(const std::string& root) {
  std::size_t removed = 0;
  std::error_code error;
  for (fs::directory_iterator it(root, error), end; !error && it != end; it.increment(error)) {
    std::string name = it->path().filename().string();
    if (!isAbandoned(name)) continue;
    std::error_code ignored;
    if (fs::remove_all(it->path(), ignored) > 0) ++removed;
  }
  return removed;
}

}  // namespace

namespace {

// Where a process without a home keeps its cache: /tmp is everybody's, so the folder is the
// user's own, made private, and refused when someone else made it first.
std::string sharedTemporaryBase() { return "/tmp/ulvekbot-" + std::to_string(::getuid()); }

Status ensurePrivateFolder(const std::string& folder) {
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return Error::posix(errno, folder);
  struct stat info {};
  if (::lstat(folder.c_str(), &info) != 0) return Error::posix(errno, folder);
  if (!S_ISDIR(info.st_mode) || info.st_uid != ::getuid() || (info.st_mode & 077) != 0)
    return Error::posix(EPERM, folder + " is not a private folder of this user");
  return {};
}

}  // namespace

std::string temporaryItemsRoot() {
  std::string cache;
  if (const char* xdg = std::getenv("XDG_CACHE_HOME"); xdg && *xdg == '/') {
    cache = xdg;
  } else if (const char* home = std::getenv("HOME"); home && *home == '/') {
    cache = std::string(home) + "/.cache";
  } else if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && *runtime == '/') {
    cache = runtime;
  } else {
    cache = sharedTemporaryBase();
  }
  return cache + "/TemporaryItems/ulvekbot";
}

std::optional<unsigned long long> processStartTime(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string stat{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  // The command name may hold spaces and parentheses: fields are counted after its last ')'.
  std::size_t end = stat.rfind(')');
  if (end == std::string::npos) return std::nullopt;
  std::size_t at = end + 1;
  for (int field = 3; field <= 22; ++field) {
    while (at < stat.size() && stat[at] == ' ') ++at;
    std::size_t next = stat.find(' ', at);
    if (next == std::string::npos) next = stat.size();
    if (field == 22) return number(std::string_view(stat).substr(at, next - at));
    at = next;
  }
  return std::nullopt;
}

std::string processFolderName(pid_t pid, unsigned long long startTime) {
  return std::to_string(pid) + "-" + std::to_string(startTime);
}

Result<std::string> temporaryItemsFolder() {
  std::string root = temporaryItemsRoot();
  std::string folder =
      root + "/" + processFolderName(::getpid(), processStartTime(::getpid()).value_or(0));
  std::lock_guard lock(gMutex);
  takeOwnership();
  bool known = isRegistered(folder);
  if (!known) {
    if (root.starts_with(sharedTemporaryBase() + "/")) {
      if (Status made = ensurePrivateFolder(sharedTemporaryBase()); !made) return made.error();
    }
    std::error_code error;
    fs::create_directories(root, error);
    if (error) return Error::posix(error.value(), root);
    ::chmod(root.c_str(), 0700);
    sweep(root);
  }
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return Error::posix(errno, folder);
  if (!known) registerFolder(folder);
  return folder;
}

std::size_t sweepAbandonedTemporaryItems() { return sweep(temporaryItemsRoot()); }

void removeProcessTemporaryItems() {
  std::lock_guard lock(gMutex);
  if (gOwner.load() != ::getpid()) return;
  for (int i = 0; i < gFolderCount.load(); ++i) {
    std::error_code ignored;
    fs::remove_all(gFolders[i], ignored);
  }
}

bool adoptTemporaryFolder(const std::string& path) {
  fs::path folder = fs::path(path).lexically_normal();
  fs::path root = fs::path(temporaryItemsRoot()).lexically_normal();
  fs::path relative = folder.lexically_relative(root);
  if (relative.empty() || *relative.begin() == ".." || *relative.begin() == ".") return false;
  struct stat status {};
  if (::lstat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
      status.st_uid != ::getuid())
    return false;
  std::lock_guard lock(gMutex);
  takeOwnership();
  return isRegistered(folder.string()) || registerFolder(folder.string());
}

Result<TemporaryDirectory> TemporaryDirectory::create(std::string_view prefix) {
  Result<std::string> folder = temporaryItemsFolder();
  if (!folder) return folder.error();
  std::string pattern = *folder + "/" + std::string(prefix) + ".XXXXXX";
  if (!::mkdtemp(pattern.data())) return Error::posix(errno, pattern);
  return TemporaryDirectory(std::move(pattern));
}

TemporaryDirectory& TemporaryDirectory::operator=(TemporaryDirectory&& other) noexcept {
  if (this != &other) {
    remove();
    path_ = std::move(other.path_);
    other.path_.clear();
  }
  return *this;
}

void TemporaryDirectory::remove() {
  if (path_.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
  path_.clear();
}

TemporaryFile& TemporaryFile::operator=(TemporaryFile&& other) noexcept {
  if (this != &other) {
    remove();
    path_ = std::exchange(other.path_, {});
  }
  return *this;
}

void TemporaryFile::remove() noexcept {
  if (path_.empty()) return;
  try {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
    bool gone = !std::filesystem::exists(std::filesystem::symlink_status(path_, error));
    if (!gone && ::unlink(path_.c_str()) != 0) logLine("Couldn't remove path " + path_);
  } catch (const std::exception& exception) {
    logException("removePath:", "TemporaryFile", exception);
  }
  path_.clear();
}

}  // namespace ulvek
