#include "importers/worker_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <functional>
#include <future>
#include <initializer_list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/log.h"
#include "base/text_string.h"
#include "importers/worker_protocol.h"
#include "platform/sandbox.h"
#include "platform/temporary_items.h"

extern char** environ;

namespace ulvek {
namespace {

// Lines of a plug-in's printing logged per call; the rest are counted.
constexpr std::size_t kOutputLines = 10;
constexpr std::size_t kOutputLineLength = 1000;
// How long a worker may take to start, before and apart from any call's time limit.
constexpr std::chrono::seconds kStartLimit{10};

void closeAll(std::initializer_list<int> descriptors) {
  for (int fd : descriptors)
    if (fd >= 0) ::close(fd);
}

// What the worker keeps of the host's environment: the language, where the user's files are,
// where programs are, the project's own settings and the sanitizers' options.
bool keptVariable(std::string_view variable) {
  std::string_view name = variable.substr(0, variable.find('='));
  for (std::string_view kept : {"PATH", "HOME", "LANG", "LANGUAGE", "TZ", "XDG_CACHE_HOME",
                                "XDG_CONFIG_HOME", "XDG_DATA_HOME"})
    if (name == kept) return true;
  return name.starts_with("LC_") || name.starts_with("ULVEKBOT_") ||
         (name.ends_with("SAN_OPTIONS") && name.size() <= 16);
}

std::vector<std::string> workerEnvironment(const std::string& temporaryFolder) {
  std::vector<std::string> environment;
  if (!temporaryFolder.empty()) environment.push_back("TMPDIR=" + temporaryFolder);
  for (char** variable = environ; *variable; ++variable)
    if (keptVariable(*variable)) environment.emplace_back(*variable);
  return environment;
}

Error workerError(int code, std::string why) {
  Error error = Error::posix(code, "importer worker");
  error.localizedDescription = std::move(why);
  return error;
}

// The kernel kills a worker when the thread that started it ends (the worker's parent-death
// signal follows the thread, not the process). Workers are therefore started from one thread that
// lasts as long as the process, so that a worker outlives the import thread that needed it first.
class LastingThread {
 public:
  LastingThread() {
    // Signals are for the threads that wait for them, never this one.
    sigset_t all, previous;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &previous);
    std::thread([this] { serve(); }).detach();
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  }

  int run(std::function<int()> work) {
    std::packaged_task<int()> task(std::move(work));
    std::future<int> done = task.get_future();
    {
      std::lock_guard guard(lock_);
      tasks_.push_back(std::move(task));
    }
    added_.notify_one();
    return done.get();
  }

 private:
  void serve() {
    for (;;) {
      std::unique_lock guard(lock_);
      added_.wait(guard, [&] { return !tasks_.empty(); });
      std::packaged_task<int()> task = std::move(tasks_.front());
      tasks_.pop_front();
      guard.unlock();
      task();
    }
  }

  std::mutex lock_;
  std::condition_variable added_;
  std::deque<std::packaged_task<int()>> tasks_;
};

int onLastingThread(std::function<int()> work) {
  static LastingThread* thread = new LastingThread();
  return thread->run(std::move(work));
}

}  // namespace

WorkerProcess::~WorkerProcess() { stop(); }

std::string WorkerProcess::workerPath() {
  if (const char* path = std::getenv("ULVEKBOT_IMPORTER_WORKER"); path && *path) return path;
  std::error_code error;
  std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  return (self.parent_path() / "ulvekbot-importer-worker").string();
}

Status WorkerProcess::start() {
  // The host reads the worker's printing without blocking, and the worker never waits for the
  // host to read it: what does not fit the pipe is lost.
  int requests[2], answers[2], printed[2];
  if (::pipe2(requests, O_CLOEXEC) != 0) return Error::posix(errno, "pipe");
  if (::pipe2(answers, O_CLOEXEC) != 0) {
    closeAll({requests[0], requests[1]});
    return Error::posix(errno, "pipe");
  }
  if (::pipe2(printed, O_CLOEXEC | O_NONBLOCK) != 0) {
    closeAll({requests[0], requests[1], answers[0], answers[1]});
    return Error::posix(errno, "pipe");
  }
  ::fcntl(printed[1], F_SETPIPE_SZ, 1 << 20);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, requests[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, answers[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, printed[1], STDERR_FILENO);
  std::string program = workerPath();
  std::string memory = std::to_string(limits_.memoryMiB);
  char* arguments[] = {program.data(), memory.data(), nullptr};
  // Plug-ins write their temporary files into a folder of the worker's own (TMPDIR), which goes
  // with the worker even when it is killed halfway; it is the only folder they may write to.
  std::string folder;
  if (Result<TemporaryDirectory> made = TemporaryDirectory::create("worker")) {
    temporaryFolder_ = std::make_unique<TemporaryDirectory>(std::move(*made));
    folder = temporaryFolder_->path();
  }
  std::vector<std::string> environment = workerEnvironment(folder);
  std::vector<char*> envp;
  for (std::string& variable : environment) envp.push_back(variable.data());
  envp.push_back(nullptr);
  // The worker leads a process group of its own, so the programs its plug-ins start (Ghostscript)
  // are killed with it; its sandbox keeps them from leaving the group.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setpgroup(&attributes, 0);
  // The daemon blocks SIGTERM and SIGINT to read them in its loop; the worker must not inherit
  // that, nor a SIGPIPE ignored for the moment.
  sigset_t none, terminating;
  sigemptyset(&none);
  sigemptyset(&terminating);
  for (int number : {SIGTERM, SIGINT, SIGHUP, SIGPIPE}) sigaddset(&terminating, number);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &terminating);
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  pid_t pid = 0;
  int spawned = onLastingThread([&] {
    return ::posix_spawn(&pid, program.c_str(), &actions, &attributes, arguments, envp.data());
  });
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  closeAll({requests[0], answers[1], printed[1]});
  if (spawned != 0) {
    closeAll({requests[1], answers[0], printed[0]});
    return Error::posix(spawned, program);
  }
  pid_ = pid;
  group_ = pid;
  toWorker_ = requests[1];
  fromWorker_ = answers[0];
  output_ = printed[0];
  pidfd_ = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  // A call's time limit is its plug-in's: the worker's own start (the loader, its sandbox) is
  // waited for apart, with a ping.
  struct sigaction ignore {
  }, previous{};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &ignore, &previous);
  bool pinged = worker::writeMessage(
      toWorker_, {{std::string(worker::Field::Operation), PropertyValue(worker::Operation::Ping)}});
  ::sigaction(SIGPIPE, &previous, nullptr);
  Result<PropertyDictionary> pong =
      pinged
          ? worker::readMessage(fromWorker_, std::chrono::steady_clock::now() + kStartLimit, pidfd_)
          : Result<PropertyDictionary>(workerError(EPIPE, "closed"));
  if (!pong) {
    int code = pong.error().code;
    std::string why = reap();
    relayOutput(program);
    stop();
    return workerError(code, why);
  }
  static std::once_flag told;
  std::call_once(told, [] {
    if (sandbox::kernelSupport().landlockAbi == 0)
      logLine("No Landlock on this kernel: importer workers may write files (seccomp only)");
  });
  return {};
}

std::string WorkerProcess::reap() {
  if (pid_ <= 0) return "not running";
  siginfo_t info{};
  // A worker that closed its pipe is gone or about to be; give it a moment, then make sure. It
  // stays unreaped meanwhile, so its group cannot be taken by another process before the kill.
  for (int tries = 0; tries < 50; ++tries) {
    info.si_pid = 0;
    if (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
        info.si_pid == pid_)
      break;
    ::usleep(2000);
  }
  ::kill(-group_, SIGKILL);
  int status = 0;
  pid_t done = ::waitpid(pid_, &status, 0);
  pid_ = group_ = 0;
  if (done <= 0) return "vanished";
  if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status));
  return "exit status " + std::to_string(WEXITSTATUS(status));
}

void WorkerProcess::stop() {
  closeAll({toWorker_, fromWorker_, output_, pidfd_});
  toWorker_ = fromWorker_ = output_ = pidfd_ = -1;
  partialLine_.clear();
  // The whole group: what the worker started may outlive it.
  if (group_ > 0) ::kill(-group_, SIGKILL);
  if (pid_ > 0) ::waitpid(pid_, nullptr, 0);
  pid_ = group_ = 0;
  temporaryFolder_.reset();
}

void WorkerProcess::relayOutput(const std::string& subject) {
  if (output_ < 0) return;
  std::string text = std::move(partialLine_);
  partialLine_.clear();
  char buffer[65536];
  for (ssize_t got; (got = ::read(output_, buffer, sizeof buffer)) != 0;) {
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) break;
    text.append(buffer, static_cast<std::size_t>(got));
  }
  std::size_t lines = 0;
  for (std::size_t start = 0; start < text.size();) {
    std::size_t end = text.find('\n', start);
    std::string_view line(text.data() + start,
                          (end == std::string::npos ? text.size() : end) - start);
    start = end == std::string::npos ? text.size() : end + 1;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty()) continue;
    if (++lines > kOutputLines) continue;
    line = line.substr(0, kOutputLineLength);
    // The file goes first unless the plug-in named it; the importer's name comes from the
    // caller's log context.
    if (line.find(subject) == std::string_view::npos)
      logLine(subject + ": " + std::string(line));
    else
      logLine(line);
  }
  if (lines > kOutputLines)
    logLine(subject + ": \u2026 " + std::to_string(lines - kOutputLines) + " more lines");
}

Result<PropertyDictionary> WorkerProcess::call(const PropertyDictionary& request) {
  if (pid_ == 0) {
    if (Status started = start(); !started) return started.error();
  }
  // A worker that died between calls is started again before the request is lost on it.
  siginfo_t info{};
  if (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
      info.si_pid == pid_) {
    reap();
    stop();
    if (Status started = start(); !started) return started.error();
  }
  auto deadline = std::chrono::steady_clock::now() + limits_.time;
  if (const PropertyValue* extra = find(request, worker::Field::ExtraTime);
      extra && extra->real() && *extra->real() > 0)
    deadline += std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(*extra->real()));
  // A dead reader turns writes into SIGPIPE; the service must not die of that. The signal is held
  // back in this thread only, as other threads may call workers of their own meanwhile, and
  // dropped when the write raised it.
  sigset_t brokenPipe, previous;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &brokenPipe, &previous);
  // The worker learns when the host stops waiting, so an importer can answer what it has.
  PropertyDictionary timed = request;
  timed[std::string(worker::Field::Deadline)] =
      PropertyValue(std::chrono::duration<double>(deadline.time_since_epoch()).count());
  bool sent = worker::writeMessage(toWorker_, timed);
  if (!sent && !sigismember(&previous, SIGPIPE)) {
    timespec now{};
    while (::sigtimedwait(&brokenPipe, nullptr, &now) == SIGPIPE) {
    }
  }
  ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  Result<PropertyDictionary> answer =
      sent ? worker::readMessage(fromWorker_, deadline, pidfd_)
           : Result<PropertyDictionary>(workerError(EPIPE, "closed"));
  std::optional<TextString> subject = worker::stringField(request, worker::Field::Path);
  if (!subject) subject = worker::stringField(request, worker::Field::Executable);
  std::string about = subject ? toUtf8(*subject) : "importer worker";
  if (answer) {
    relayOutput(about);
    return answer;
  }
  std::string why;
  int code = answer.error().code;
  if (code == ETIMEDOUT) {
    ::kill(-group_, SIGKILL);
    reap();
    why = "timeout";
  } else if (code == EBADMSG) {
    ::kill(-group_, SIGKILL);
    reap();
    why = "garbage";
  } else {
    why = reap();
  }
  relayOutput(about);
  stop();
  return workerError(code, why);
}

}  // namespace ulvek
