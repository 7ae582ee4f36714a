#pragma once

// Real processes for the service tests and benchmarks: a private dbus-daemon, the ulvekbotd64
// daemon and the ulvekbot command line, all built in this tree.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "service/json.h"

extern char** environ;

namespace ulvek {

// Readable values in test failures.
inline void PrintTo(const PropertyValue& value, std::ostream* out) { *out << toJson(value); }
inline void PrintTo(const ImportResult& result, std::ostream* out) { *out << toJson(result); }

}  // namespace ulvek

namespace ulvek::testing {

inline std::string builtProgram(std::string_view name) {
  return std::string(ULVEK_BINARY_DIR) + "/src/" + std::string(name);
}

inline std::string readWholeFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// A started program. Destroying one that still runs kills it and reaps it.
class ChildProcess {
 public:
  ChildProcess() = default;
  ChildProcess(ChildProcess&& other) noexcept { *this = std::move(other); }
  ChildProcess& operator=(ChildProcess&& other) noexcept {
    stop();
    pid_ = other.pid_;
    status_ = other.status_;
    other.pid_ = -1;
    return *this;
  }
  ~ChildProcess() { stop(); }

  // Starts `arguments` with standard output and error going to files (empty: inherited) or,
  // for output, to `outputDescriptor` when one is given; in `folder` when one is given.
  static ChildProcess start(const std::vector<std::string>& arguments,
                            const std::string& outputPath = "", const std::string& errorPath = "",
                            int outputDescriptor = -1, const std::string& folder = "") {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!folder.empty()) posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
    if (outputDescriptor >= 0) {
      posix_spawn_file_actions_adddup2(&actions, outputDescriptor, STDOUT_FILENO);
    } else if (!outputPath.empty()) {
      posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outputPath.c_str(),
                                       O_WRONLY | O_CREAT | O_TRUNC, 0644);
    }
    if (!errorPath.empty()) {
      posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorPath.c_str(),
                                       O_WRONLY | O_CREAT | O_TRUNC, 0644);
    }
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
      argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    ChildProcess child;
    int failure = posix_spawn(&child.pid_, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) throw std::runtime_error("cannot start " + arguments[0]);
    return child;
  }

  pid_t pid() const { return pid_; }

  // The exit status once the process ended within the time (128 + signal number when killed).
  std::optional<int> waitForExit(std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (pid_ > 0) {
      int status = 0;
      pid_t done = waitpid(pid_, &status, WNOHANG);
      if (done == pid_) {
        pid_ = -1;
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        break;
      }
      if (std::chrono::steady_clock::now() >= deadline) return std::nullopt;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return status_;
  }

  bool running() { return pid_ > 0 && !waitForExit(std::chrono::milliseconds(0)); }

  void stop() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    if (!waitForExit(std::chrono::seconds(5))) {
      ::kill(pid_, SIGKILL);
      waitForExit(std::chrono::seconds(5));
    }
  }

 private:
  pid_t pid_ = -1;
  std::optional<int> status_;
};

// A session bus of our own, so tests never depend on (or disturb) a user's session. While it
// lives, DBUS_SESSION_BUS_ADDRESS names it for this process and the programs it starts.
class PrivateBus {
 public:
  PrivateBus() {
    std::string pattern = (std::filesystem::temp_directory_path() / "ulvekbus-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    folder_ = pattern;
    std::filesystem::path config = folder_ / "bus.conf";
    std::ofstream(config) << R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:dir=)" << folder_.string()
                          << R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";
    int pipeEnds[2];
    if (pipe2(pipeEnds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    daemon_ = ChildProcess::start(
        {"/usr/bin/dbus-daemon", "--config-file=" + config.string(), "--nofork", "--print-address"},
        "", (folder_ / "dbus-daemon.log").string(), pipeEnds[1]);
    close(pipeEnds[1]);
    address_ = readLine(pipeEnds[0], std::chrono::seconds(10));
    close(pipeEnds[0]);
    if (address_.empty()) throw std::runtime_error("dbus-daemon gave no address");
    setenv("DBUS_SESSION_BUS_ADDRESS", address_.c_str(), 1);
  }

  ~PrivateBus() {
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
    daemon_.stop();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  const std::string& address() const { return address_; }

 private:
  static std::string readLine(int descriptor, std::chrono::milliseconds timeout) {
    std::string line;
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
      pollfd request{descriptor, POLLIN, 0};
      if (poll(&request, 1, 100) <= 0) continue;
      char c;
      if (read(descriptor, &c, 1) != 1) break;
      if (c == '\n') return line;
      line += c;
    }
    return {};
  }

  std::filesystem::path folder_;
  ChildProcess daemon_;
  std::string address_;
};

// The built daemon on the current session bus, logging into a file.
inline ChildProcess startDaemon(const std::string& logPath) {
  return ChildProcess::start({builtProgram("ulvekbotd64")}, "", logPath);
}

struct ProgramOutput {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs a program in `folder` to its end, collecting its output through files there.
inline ProgramOutput runProgram(const std::vector<std::string>& arguments,
                                const std::filesystem::path& folder) {
  std::string outPath = (folder / "program.out").string();
  std::string errPath = (folder / "program.err").string();
  ChildProcess child = ChildProcess::start(arguments, outPath, errPath, -1, folder.string());
  ProgramOutput output;
  output.status = child.waitForExit(std::chrono::seconds(60)).value_or(-1);
  output.out = readWholeFile(outPath);
  output.err = readWholeFile(errPath);
  return output;
}

// Polls a file until it contains `fragment` or the time is up.
inline bool waitForText(const std::filesystem::path& path, std::string_view fragment,
                        std::chrono::milliseconds timeout) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  while (readWholeFile(path).find(fragment) == std::string::npos) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

}  // namespace ulvek::testing
