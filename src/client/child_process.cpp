#include "client/child_process.h"

#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "base/log.h"

extern char** environ;

namespace ulvek {
namespace {

// ioprio_set(2) has no glibc wrapper.
constexpr int kIoprioWhoProcess = 1;
constexpr int kIoprioClassBestEffort = 2;
constexpr int kIoprioClassIdle = 3;
constexpr int kIoprioClassShift = 13;

void setIoPriority(pid_t pid, int ioClass, int level) {
  syscall(SYS_ioprio_set, kIoprioWhoProcess, pid, (ioClass << kIoprioClassShift) | level);
}

}  // namespace

ChildProcess::~ChildProcess() {
  if (pid_ <= 0 || ended_ || reap(false)) return;
  // Reaped in the background when it ends, so a helper left running leaves no zombie.
  std::thread([pid = pid_] {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
  }).detach();
}

Status ChildProcess::launch() {
  if (pid_ > 0) {
    return Error::posix(EALREADY, path_);
  }
  std::vector<std::string> arguments{path_};
  arguments.insert(arguments.end(), arguments_.begin(), arguments_.end());
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  // The child starts with default signal handling and a mask of its own.
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
  posix_spawnattr_setflags(&attributes, flags);
  pid_t pid = -1;
  int failure = posix_spawn(&pid, path_.c_str(), nullptr, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  if (failure != 0) return Error::posix(failure, path_);
  pid_ = pid;
  ended_ = false;
  status_ = -1;
  // Set as the child starts: nice values and I/O classes have no spawn attribute.
  if (qualityOfService_ == kQualityOfServiceBackground) {
    sched_param parameters{};
    sched_setscheduler(pid_, SCHED_IDLE, &parameters);
    setpriority(PRIO_PROCESS, pid_, 19);
    setIoPriority(pid_, kIoprioClassIdle, 0);
  } else if (qualityOfService_ == kQualityOfServiceUtility) {
    setpriority(PRIO_PROCESS, pid_, 10);
    setIoPriority(pid_, kIoprioClassBestEffort, 7);
  }
  return {};
}

bool ChildProcess::reap(bool wait) {
  if (pid_ <= 0) return false;
  if (ended_) return true;
  int status = 0;
  pid_t r;
  do {
    r = waitpid(pid_, &status, wait ? 0 : WNOHANG);
  } while (r < 0 && errno == EINTR);
  if (r != pid_) return false;
  ended_ = true;
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return true;
}

bool ChildProcess::isRunning() { return pid_ > 0 && !reap(false); }

void ChildProcess::signal(int number) {
  if (isRunning()) kill(pid_, number);
}

void ChildProcess::interrupt() { signal(SIGINT); }
void ChildProcess::terminate() { signal(SIGTERM); }

void ChildProcess::waitUntilExit() { reap(true); }

std::optional<pid_t> ChildProcess::processIdentifier() const {
  if (pid_ <= 0) return std::nullopt;
  return pid_;
}

std::unique_ptr<ChildProcess> ChildProcess::launchedTaskWithLaunchPath(
    const std::string& path, const std::vector<std::string>& arguments) {
  auto process = std::make_unique<ChildProcess>();
  process->setLaunchPath(path);
  process->setArguments(arguments);
  if (!process->launch()) return nullptr;
  return process;
}

bool launchAndWaitUntilExit(ChildProcess& process) {
  try {
    if (!process.launch()) return false;
    process.waitUntilExit();
    return process.terminationStatus() == 0;
  } catch (const std::exception& exception) {
    logException("launchAndWaitUntilExit", "ChildProcess", exception);
    return false;
  }
}

bool launchTaskAndWaitUntilExitWithLaunchPath(const std::string& path,
                                              const std::vector<std::string>& arguments) {
  try {
    std::unique_ptr<ChildProcess> process =
        ChildProcess::launchedTaskWithLaunchPath(path, arguments);
    if (!process) return false;
    process->waitUntilExit();
    return process->terminationStatus() == 0;
  } catch (const std::exception& exception) {
    logException("launchTaskAndWaitUntilExitWithLaunchPath", "ChildProcess", exception);
    return false;
  }
}

}  // namespace ulvek
