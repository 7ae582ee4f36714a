#include "importers/worker_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
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
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "importers/worker_protocol.h"
#include "platform/temporary_items.h"

extern char** environ;

namespace ulvek {
namespace {

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
  int requests[2], answers[2];
  if (::pipe2(requests, O_CLOEXEC) != 0) return Error::posix(errno, "pipe");
  if (::pipe2(answers, O_CLOEXEC) != 0) {
    ::close(requests[0]);
    ::close(requests[1]);
    return Error::posix(errno, "pipe");
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, requests[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, answers[1], STDOUT_FILENO);
  std::string program = workerPath();
  std::string memory = std::to_string(limits_.memoryMiB);
  char* arguments[] = {program.data(), memory.data(), nullptr};
  // Plug-ins write their temporary files into a folder of the worker's own (TMPDIR), which goes
  // with the worker even when it is killed halfway.
  std::vector<std::string> environment;
  if (Result<TemporaryDirectory> folder = TemporaryDirectory::create("worker")) {
    temporaryFolder_ = std::make_unique<TemporaryDirectory>(std::move(*folder));
    environment.push_back("TMPDIR=" + temporaryFolder_->path());
  }
  for (char** variable = environ; *variable; ++variable) {
    if (std::string_view(*variable).starts_with("TMPDIR=") && temporaryFolder_) continue;
    environment.emplace_back(*variable);
  }
  std::vector<char*> envp;
  for (std::string& variable : environment) envp.push_back(variable.data());
  envp.push_back(nullptr);
  // The worker leads a process group of its own, so the programs its plug-ins start (Ghostscript)
  // are killed with it.
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
  ::close(requests[0]);
  ::close(answers[1]);
  if (spawned != 0) {
    ::close(requests[1]);
    ::close(answers[0]);
    return Error::posix(spawned, program);
  }
  pid_ = pid;
  group_ = pid;
  toWorker_ = requests[1];
  fromWorker_ = answers[0];
  return {};
}

std::string WorkerProcess::reap() {
  if (pid_ <= 0) return "not running";
  int status = 0;
  pid_t done = 0;
  // A worker that closed its pipe is gone or about to be; give it a moment, then make sure.
  for (int tries = 0; tries < 50 && (done = ::waitpid(pid_, &status, WNOHANG)) == 0; ++tries)
    ::usleep(2000);
  if (done == 0) {
    ::kill(-group_, SIGKILL);
    done = ::waitpid(pid_, &status, 0);
  }
  pid_ = 0;
  if (done <= 0) return "vanished";
  if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status));
  return "exit status " + std::to_string(WEXITSTATUS(status));
}

void WorkerProcess::stop() {
  if (toWorker_ >= 0) ::close(toWorker_);
  if (fromWorker_ >= 0) ::close(fromWorker_);
  toWorker_ = fromWorker_ = -1;
  // The whole group: what the worker started may outlive it.
  if (group_ > 0) ::kill(-group_, SIGKILL);
  if (pid_ > 0) ::waitpid(pid_, nullptr, 0);
  pid_ = group_ = 0;
  temporaryFolder_.reset();
}

Result<PropertyDictionary> WorkerProcess::call(const PropertyDictionary& request) {
  if (pid_ == 0) {
    if (Status started = start(); !started) return started.error();
  }
  // A worker that died between calls is started again before the request is lost on it.
  if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
    pid_ = 0;
    stop();
    if (Status started = start(); !started) return started.error();
  }
  auto deadline = std::chrono::steady_clock::now() + limits_.time;
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
      sent ? worker::readMessage(fromWorker_, deadline)
           : Result<PropertyDictionary>(workerError(EPIPE, "closed"));
  if (answer) return answer;
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
  stop();
  return workerError(code, why);
}

}  // namespace ulvek
