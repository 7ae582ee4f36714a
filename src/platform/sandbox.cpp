#include "platform/sandbox.h"

#include <elf.h>
#include <fcntl.h>
#include <linux/landlock.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace ulvek::sandbox {
namespace {

// Rights newer than the system's headers.
constexpr std::uint64_t kTruncate = 1ULL << 14;
constexpr std::uint64_t kNetBindTcp = 1ULL << 0;
constexpr std::uint64_t kNetConnectTcp = 1ULL << 1;

// The ruleset attribute as the newest kernels read it; older ones are given a shorter prefix.
struct RulesetAttributes {
  std::uint64_t handledFs = 0;
  std::uint64_t handledNet = 0;
};

int landlockAbi() {
  long abi = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  return abi < 0 ? 0 : static_cast<int>(abi);
}

// Every file-system right but reading, for the ABI at hand (reading stays unhandled: allowed).
std::uint64_t handledRights(int abi) {
  std::uint64_t rights =
      LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
      LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_DIR |
      LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO |
      LANDLOCK_ACCESS_FS_MAKE_BLOCK | LANDLOCK_ACCESS_FS_MAKE_SYM;
  if (abi >= 2) rights |= LANDLOCK_ACCESS_FS_REFER;
  if (abi >= 3) rights |= kTruncate;
  return rights;
}

// The program interpreter an ELF executable names (the dynamic loader), which execve opens for
// execution too.
std::string elfInterpreter(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  Elf64_Ehdr header{};
  if (!file.read(reinterpret_cast<char*>(&header), sizeof header)) return {};
  if (std::string_view(reinterpret_cast<const char*>(header.e_ident), SELFMAG) != ELFMAG ||
      header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_phentsize != sizeof(Elf64_Phdr))
    return {};
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    Elf64_Phdr program{};
    file.seekg(static_cast<std::streamoff>(header.e_phoff + i * sizeof program));
    if (!file.read(reinterpret_cast<char*>(&program), sizeof program)) return {};
    if (program.p_type != PT_INTERP || program.p_filesz == 0 || program.p_filesz > 4096) continue;
    std::string interpreter(program.p_filesz, '\0');
    file.seekg(static_cast<std::streamoff>(program.p_offset));
    if (!file.read(interpreter.data(), static_cast<std::streamsize>(interpreter.size()))) return {};
    return interpreter.c_str();
  }
  return {};
}

bool addRule(int ruleset, const std::string& path, std::uint64_t rights) {
  int fd = ::open(path.c_str(), O_PATH | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat info {};
  ::fstat(fd, &info);
  // Files take only the rights a file can have.
  if (!S_ISDIR(info.st_mode))
    rights &= LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_WRITE_FILE | kTruncate;
  landlock_path_beneath_attr rule{};
  rule.allowed_access = rights;
  rule.parent_fd = fd;
  bool added = rights == 0 ||
               ::syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
  ::close(fd);
  return added;
}

bool restrictFileSystem(const Policy& policy, int abi) {
  RulesetAttributes attributes{handledRights(abi), 0};
  // From ABI 4 on, TCP is refused by Landlock as well as by seccomp.
  if (abi >= 4) attributes.handledNet = kNetBindTcp | kNetConnectTcp;
  std::size_t size = abi >= 4 ? sizeof attributes : sizeof attributes.handledFs;
  int ruleset = static_cast<int>(::syscall(SYS_landlock_create_ruleset, &attributes, size, 0));
  if (ruleset < 0) return false;
  std::uint64_t writing = attributes.handledFs & ~std::uint64_t(LANDLOCK_ACCESS_FS_EXECUTE);
  for (const std::string& path : policy.writable) addRule(ruleset, path, writing);
  for (const std::string& path : policy.removable)
    addRule(ruleset, path, LANDLOCK_ACCESS_FS_REMOVE_DIR);
  for (const std::string& program : policy.programs) {
    if (!addRule(ruleset, program, LANDLOCK_ACCESS_FS_EXECUTE)) continue;
    if (std::string loader = elfInterpreter(program); !loader.empty())
      addRule(ruleset, loader, LANDLOCK_ACCESS_FS_EXECUTE);
  }
  bool restricted = ::syscall(SYS_landlock_restrict_self, ruleset, 0) == 0;
  ::close(ruleset);
  return restricted;
}

void refuse(scmp_filter_ctx filter, const char* name, int code) {
  int number = seccomp_syscall_resolve_name(name);
  if (number != __NR_SCMP_ERROR) seccomp_rule_add(filter, SCMP_ACT_ERRNO(code), number, 0);
}

bool filterSystemCalls(const Policy& policy, bool programsConfined) {
  scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
  if (!filter) return false;
  // Every thread, so no thread started before keeps the network.
  seccomp_attr_set(filter, SCMP_FLTATR_CTL_TSYNC, 1);
  // No network: only local sockets (the bus) may be made.
  seccomp_rule_add(filter, SCMP_ACT_ERRNO(EACCES), SCMP_SYS(socket), 1,
                   SCMP_A0(SCMP_CMP_NE, AF_UNIX));
  // Nothing a document reader or the service needs: administration, kernel interfaces, and
  // io_uring, whose operations pass by this filter.
  for (const char* name : {"mount",
                           "umount2",
                           "pivot_root",
                           "chroot",
                           "move_mount",
                           "open_tree",
                           "fsopen",
                           "fsmount",
                           "fsconfig",
                           "fspick",
                           "kexec_load",
                           "kexec_file_load",
                           "bpf",
                           "add_key",
                           "keyctl",
                           "request_key",
                           "perf_event_open",
                           "unshare",
                           "setns",
                           "init_module",
                           "finit_module",
                           "delete_module",
                           "reboot",
                           "swapon",
                           "swapoff",
                           "acct",
                           "open_by_handle_at",
                           "userfaultfd",
                           "iopl",
                           "ioperm",
                           "io_uring_setup",
                           "io_uring_enter",
                           "io_uring_register"})
    refuse(filter, name, EPERM);
  // LeakSanitizer stops the threads with ptrace to look for leaks at exit.
  if (!kSanitized) {
    for (const char* name : {"ptrace", "process_vm_readv", "process_vm_writev"})
      refuse(filter, name, EPERM);
  }
  // New namespaces come by clone as well as by unshare; clone3 hides its flags in memory, so it
  // is answered as missing and the C library falls back to clone.
  for (int flag : {CLONE_NEWUSER, CLONE_NEWNS, CLONE_NEWNET, CLONE_NEWPID, CLONE_NEWIPC,
                   CLONE_NEWUTS, CLONE_NEWCGROUP})
    seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), SCMP_SYS(clone), 1,
                     SCMP_A0(SCMP_CMP_MASKED_EQ, static_cast<scmp_datum_t>(flag),
                             static_cast<scmp_datum_t>(flag)));
  refuse(filter, "clone3", ENOSYS);
  if (policy.kind == Policy::Kind::Worker) {
    for (const char* name : {"connect", "bind", "listen", "accept", "accept4"})
      refuse(filter, name, EACCES);
    // Killing the worker's process group must reach all it started.
    for (const char* name : {"setsid", "setpgid"}) refuse(filter, name, EPERM);
    // Only Landlock can tell one program from another; without it none may run.
    if (!programsConfined || policy.programs.empty()) {
      for (const char* name : {"execve", "execveat"}) refuse(filter, name, EPERM);
    }
  }
  bool loaded = seccomp_load(filter) == 0;
  seccomp_release(filter);
  return loaded;
}

// How many tasks (threads) the real user runs now; RLIMIT_NPROC counts them all.
unsigned long long tasksOfUser() {
  unsigned long long tasks = 0;
  const uid_t self = ::getuid();
  std::string uid = std::to_string(self);
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename().string();
    if (name.empty() || name.find_first_not_of("0123456789") != std::string::npos) continue;
    // A process's folder belongs to its effective user: a stat passes over other users'
    // processes, most of a desktop's, without reading their status.
    struct stat owner {};
    if (::stat(entry.path().c_str(), &owner) != 0 || owner.st_uid != self) continue;
    std::ifstream status(entry.path() / "status");
    bool mine = false;
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("Uid:")) {
        std::size_t start = line.find_first_not_of(" \t", 4);
        mine = start != std::string::npos && line.compare(start, uid.size(), uid) == 0 &&
               (start + uid.size() == line.size() || std::isspace(line[start + uid.size()]));
      } else if (line.starts_with("Threads:") && mine) {
        tasks += std::strtoull(line.c_str() + 8, nullptr, 10);
      }
    }
  }
  return tasks;
}

}  // namespace

Support kernelSupport() {
  Support support;
  support.landlockAbi = landlockAbi();
  // PR_GET_SECCOMP answers the mode where seccomp is built in, EINVAL where it is not.
  support.seccomp = ::prctl(PR_GET_SECCOMP, 0, 0, 0, 0) >= 0 && seccomp_api_get() >= 1;
  return support;
}

std::vector<std::string> describe(const Support& support) {
  std::vector<std::string> lines;
  lines.push_back(support.landlockAbi > 0
                      ? "Landlock: available (ABI " + std::to_string(support.landlockAbi) + ")"
                      : "Landlock: not available (the file system stays writable)");
  lines.push_back(support.seccomp ? "seccomp: available" : "seccomp: not available");
  return lines;
}

Applied enter(const Policy& policy) {
  Applied applied;
  applied.noNewPrivileges = ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
  if (!applied.noNewPrivileges) return applied;
  int abi = landlockAbi();
  if (abi > 0) applied.landlock = restrictFileSystem(policy, abi);
  applied.seccomp = filterSystemCalls(policy, applied.landlock);
  return applied;
}

std::string findProgram(const std::string& program) {
  if (program.find('/') != std::string::npos)
    return ::access(program.c_str(), X_OK) == 0 ? program : std::string();
  const char* path = std::getenv("PATH");
  std::string_view folders = path && *path ? path : "/usr/local/bin:/usr/bin:/bin";
  while (!folders.empty()) {
    std::size_t colon = folders.find(':');
    std::string_view folder = folders.substr(0, colon);
    folders = colon == std::string_view::npos ? std::string_view() : folders.substr(colon + 1);
    if (folder.empty() || folder.front() != '/') continue;
    std::string candidate = std::string(folder) + "/" + program;
    struct stat info {};
    if (::stat(candidate.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
        ::access(candidate.c_str(), X_OK) == 0) {
      std::error_code error;
      std::filesystem::path real = std::filesystem::canonical(candidate, error);
      return error ? candidate : real.string();
    }
  }
  return {};
}

void limitWorkerResources(unsigned long long fileSizeMiB, unsigned long long lifetimeCpuSeconds) {
  rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
  rlimit fileSize{fileSizeMiB << 20, fileSizeMiB << 20};
  ::setrlimit(RLIMIT_FSIZE, &fileSize);
  rlimit cpu{lifetimeCpuSeconds, lifetimeCpuSeconds};
  ::setrlimit(RLIMIT_CPU, &cpu);
  // The kernel holds every user but root to RLIMIT_NPROC; counting root's tasks would only cost
  // the start of every worker a walk through /proc.
  if (::getuid() == 0) return;
  // Room for the plug-ins' threads and a converter or two, not for a fork bomb.
  rlim_t tasks = tasksOfUser() + 64;
  rlimit current{};
  if (::getrlimit(RLIMIT_NPROC, &current) == 0 && tasks < current.rlim_max) {
    rlimit processes{tasks, tasks};
    ::setrlimit(RLIMIT_NPROC, &processes);
  }
}

void limitProcessorTimeFor(double seconds) {
  rlimit cpu{};
  rusage usage{};
  if (::getrlimit(RLIMIT_CPU, &cpu) != 0 || ::getrusage(RUSAGE_SELF, &usage) != 0) return;
  double used = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  auto soft = static_cast<rlim_t>(std::ceil(used + std::max(seconds, 0.0))) + 1;
  cpu.rlim_cur = cpu.rlim_max == RLIM_INFINITY ? soft : std::min(soft, cpu.rlim_max);
  ::setrlimit(RLIMIT_CPU, &cpu);
}

std::optional<std::string> processStatusField(pid_t pid, std::string_view name) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string prefix = std::string(name) + ":";
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with(prefix)) continue;
    std::size_t start = line.find_first_not_of(" \t", prefix.size());
    return start == std::string::npos ? "" : line.substr(start);
  }
  return std::nullopt;
}

}  // namespace ulvek::sandbox
