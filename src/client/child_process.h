#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/status.h"

namespace ulvek {

// How much of the machine a child process may take. The values are those of the classic
// quality-of-service classes; on Linux they become a scheduling policy, a nice value and an I/O
// priority class, set on the child when it starts:
//
//   UserInteractive, UserInitiated, Default   unchanged (the parent's)
//   Utility                                    nice 10, best-effort I/O at the lowest level (7)
//   Background                                 SCHED_IDLE, nice 19, idle I/O class
enum QualityOfService : int {
  kQualityOfServiceUserInteractive = 0x21,
  kQualityOfServiceUserInitiated = 0x19,
  kQualityOfServiceUtility = 0x11,
  kQualityOfServiceBackground = 0x09,
  kQualityOfServiceDefault = -1,
};

// A program started with posix_spawn and watched until it ends. The process inherits the
// environment and standard streams. A process still running when the object goes away is not
// signalled; it is reaped when it ends, so it leaves no zombie.
class ChildProcess {
 public:
  ChildProcess() = default;
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void setLaunchPath(std::string path) { path_ = std::move(path); }
  void setArguments(std::vector<std::string> arguments) { arguments_ = std::move(arguments); }
  void setQualityOfService(int qualityOfService) { qualityOfService_ = qualityOfService; }

  // Starts the program; fails when it cannot be executed (missing, not executable, not a
  // program) or was started already.
  Status launch();
  bool isRunning();
  // SIGINT and SIGTERM; nothing when the process is not running.
  void interrupt();
  void terminate();
  void waitUntilExit();
  // The exit status, or 128 + the signal number for a process a signal ended; -1 before it ends.
  int terminationStatus() const { return status_; }
  std::optional<pid_t> processIdentifier() const;

  static std::unique_ptr<ChildProcess> launchedTaskWithLaunchPath(
      const std::string& path, const std::vector<std::string>& arguments);

 private:
  void signal(int number);
  // Records the exit status once the process has ended.
  bool reap(bool wait);

  std::string path_;
  std::vector<std::string> arguments_;
  int qualityOfService_ = kQualityOfServiceDefault;
  pid_t pid_ = -1;
  bool ended_ = false;
  int status_ = -1;
};

// Runs a program to its end: true exactly when it exited with status 0; false when it could not
// be started.
bool launchTaskAndWaitUntilExitWithLaunchPath(const std::string& path,
                                              const std::vector<std::string>& arguments);
bool launchAndWaitUntilExit(ChildProcess& process);

}  // namespace ulvek
