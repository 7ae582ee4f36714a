#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ulvek::sandbox {

// AddressSanitizer's leak check needs ptrace at exit, so sanitized builds keep it.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif
#else
inline constexpr bool kSanitized = false;
#endif

// A field of /proc/PID/status ("NoNewPrivs", "Seccomp"), or nothing when it cannot be read.
std::optional<std::string> processStatusField(pid_t pid, std::string_view name);

// What this kernel offers a process that wants to give up rights.
struct Support {
  // The Landlock ABI version, 0 where Landlock is missing or disabled.
  int landlockAbi = 0;
  // Whether seccomp filters can be installed.
  bool seccomp = false;
};
Support kernelSupport();
// "Landlock: active (ABI 7)", "seccomp: active", or why not: one line each.
std::vector<std::string> describe(const Support& support);

// What a process keeps once it entered its sandbox.
struct Policy {
  enum class Kind {
    // Runs third-party plug-ins: no network, no tracing, no namespaces, no keys, no programs
    // but `programs`, no way out of its process group.
    Worker,
    // The service: no network sockets; it spawns workers, which take their own, stricter one.
    Daemon,
  };
  Kind kind = Kind::Worker;
  // Folders (and single files such as /dev/null) that stay writable; all else is read-only.
  std::vector<std::string> writable;
  // Programs that may still be run (absolute paths); their ELF interpreter comes with them.
  std::vector<std::string> programs;
  // Folders from which empty folders may be removed: the parents of writable folders that the
  // process removes when it ends.
  std::vector<std::string> removable;
};

// What entering the sandbox achieved.
struct Applied {
  bool noNewPrivileges = false;
  bool seccomp = false;
  bool landlock = false;
};

// Gives up the rights `policy` does not keep, for this process and all it starts; there is no
// way back. Where the kernel lacks Landlock the file system stays as it was (and programs other
// than `programs` stay forbidden only where seccomp can forbid them all), with one log line.
Applied enter(const Policy& policy);

// The absolute path of `program` on $PATH (or `program` itself when it has a slash), or empty.
std::string findProgram(const std::string& program);

// Resource limits of the worker: no core files, files up to `fileSizeMiB`, a bound on processes
// and a cap on processor time over its life (its calls are timed by the host).
void limitWorkerResources(unsigned long long fileSizeMiB, unsigned long long lifetimeCpuSeconds);
// Lets the coming call use `seconds` of processor time before SIGXCPU ends the worker.
void limitProcessorTimeFor(double seconds);

}  // namespace ulvek::sandbox
