#pragma once

// Real processes for the service tests and benchmarks: a private dbus-daemon, the ulvekbotd64
// daemon and the ulvekbot command line, all built in this tree.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "client/thread_connections.h"
#include "protocol/dbus_interface.h"
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
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// A started program. Destroying one that still runs kills it and reaps it.
class ChildProcess {
 public:
  ChildProcess() = default;
  ChildProcess(ChildProcess&& other) noexcept { *this = std::move(other); }
  ChildProcess& operator=(ChildProcess&& other) noexcept {
    stop();
    pid_ = std::exchange(other.pid_, -1);
    status_ = other.status_;
    return *this;
  }
  ~ChildProcess() { stop(); }

  // Starts `arguments` in `folder` (empty: ours) with standard output and error going to files
  // (empty: inherited).
  static ChildProcess start(const std::vector<std::string>& arguments,
                            const std::string& outputPath = "", const std::string& errorPath = "",
                            const std::string& folder = "") {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!folder.empty()) posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
    const std::pair<int, const std::string*> outputs[] = {{1, &outputPath}, {2, &errorPath}};
    for (const auto& [descriptor, path] : outputs) {
      if (path->empty()) continue;
      posix_spawn_file_actions_addopen(&actions, descriptor, path->c_str(),
                                       O_WRONLY | O_CREAT | O_TRUNC, 0644);
    }
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
      argv.push_back(const_cast<char*>(argument.data()));
    argv.push_back(nullptr);
    ChildProcess child;
    int failure = posix_spawn(&child.pid_, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) throw std::runtime_error("cannot start " + arguments[0]);
    return child;
  }

  // The exit status once the process ended within the time (128 + signal number when killed).
  std::optional<int> waitForExit(std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (pid_ > 0) {
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      } else if (std::chrono::steady_clock::now() >= deadline) {
        return std::nullopt;
      } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
    }
    return status_;
  }

  bool running() { return pid_ > 0 && !waitForExit(std::chrono::milliseconds(0)); }
  // The process id while it has not been reaped, else -1.
  pid_t pid() const { return pid_; }

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

// A session bus of our own, so tests never depend on (or disturb) a user's session. While it
// lives, DBUS_SESSION_BUS_ADDRESS names it for this process and the programs it starts.
//
// Given services (bus name and program), the bus starts them on demand from service files, as a
// desktop's bus starts an installed service.
class PrivateBus {
 public:
  explicit PrivateBus(const std::vector<std::pair<std::string, std::string>>& services = {}) {
    std::string pattern = (std::filesystem::temp_directory_path() / "ulvekbus-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    folder_ = pattern;
    std::vector<std::string> arguments = {"/usr/bin/dbus-daemon", "--nofork", "--print-address"};
    if (services.empty()) {
      arguments.push_back("--session");
      arguments.push_back("--address=unix:dir=" + folder_.string());
    } else {
      std::filesystem::create_directory(folder_ / "services");
      for (const auto& [name, program] : services) {
        std::ofstream(folder_ / "services" / (name + ".service"))
            << "[D-BUS Service]\nName=" << name << "\nExec=" << program << "\n";
      }
      std::ofstream(folder_ / "session.conf")
          << "<busconfig><type>session</type><listen>unix:tmpdir=" << folder_.string()
          << "</listen><servicedir>" << (folder_ / "services").string()
          << "</servicedir><policy context=\"default\">"
             "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
             "<allow own=\"*\"/></policy></busconfig>\n";
      arguments.push_back("--config-file=" + (folder_ / "session.conf").string());
    }
    // The daemon prints its address once it listens.
    std::filesystem::path addressFile = folder_ / "address";
    daemon_ = ChildProcess::start(arguments, addressFile.string(),
                                  (folder_ / "dbus-daemon.log").string());
    if (!waitForText(addressFile, "\n", std::chrono::seconds(10)))
      throw std::runtime_error("dbus-daemon gave no address");
    std::string address = readWholeFile(addressFile);
    setenv("DBUS_SESSION_BUS_ADDRESS", address.substr(0, address.find('\n')).c_str(), 1);
  }

  ~PrivateBus() {
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
    daemon_.stop();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

 private:
  std::filesystem::path folder_;
  ChildProcess daemon_;
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
  ChildProcess child = ChildProcess::start(arguments, outPath, errPath, folder.string());
  ProgramOutput output;
  output.status = child.waitForExit(std::chrono::seconds(60)).value_or(-1);
  output.out = readWholeFile(outPath);
  output.err = readWholeFile(errPath);
  return output;
}

// Where a test wants a call's error: null when it does not; cleared before each call.
using ErrorOut = std::optional<Error>*;
inline void clearError(ErrorOut error) {
  if (error) error->reset();
}
inline void setError(ErrorOut error, Error value) {
  if (error) *error = std::move(value);
}

// The client library's proxy for the daemon, with each call's error in an out-parameter so a
// check reads as one line.
class ServiceClient {
 public:
  static std::unique_ptr<ServiceClient> connect(ErrorOut error = nullptr) {
    clearError(error);
    return std::make_unique<ServiceClient>();
  }

  // Waits until the daemon owns its name and makes the proxy.
  bool waitForService(std::chrono::milliseconds timeout) {
    proxy_ = thread_connections::waitForTimeInterval(std::chrono::duration<double>(timeout).count(),
                                                     "ulvekbotd64", 15, dbus::kInterfaceName);
    return proxy_.has_value();
  }
  std::optional<std::string> serviceOwner() { return proxy_->connectionForProxy()->nameOwner(); }

  bool ping(ErrorOut error) { return report(proxy_->ping(), error); }
  bool terminate(ErrorOut error) { return report(proxy_->terminate(), error); }
  bool callWithoutArguments(std::string_view method, ErrorOut error) {
    return report(proxy_->call(method), error);
  }
  std::optional<std::string> introspect(ErrorOut error) {
    return take(proxy_->introspect(), error);
  }
  std::optional<ImportResult> openFile(const std::string& path, ErrorOut error) {
    return take(proxy_->openFile(path), error);
  }
  std::optional<ImportResult> openDirectory(const std::string& path, ErrorOut error) {
    return take(proxy_->openDirectory(path), error);
  }
  std::optional<ImportResult> openAttributes(const std::string& path, ErrorOut error) {
    return take(proxy_->openAttributes(path), error);
  }
  std::optional<ImportResult> openData(const std::optional<Data>& data,
                                       const std::optional<TextString>& url,
                                       const std::optional<TextString>& mimeType, ErrorOut error) {
    return take(proxy_->openData(data, url, mimeType), error);
  }
  std::optional<bool> supportsFile(const std::string& path, ErrorOut error) {
    return take(proxy_->supportsFile(path), error);
  }
  std::optional<bool> isPlainFile(const std::string& path, ErrorOut error) {
    return take(proxy_->isPlainFile(path), error);
  }

 private:
  static bool report(const Status& status, ErrorOut error) {
    clearError(error);
    if (!status) setError(error, status.error());
    return status.ok();
  }
  template <typename T>
  static std::optional<T> take(Result<T> result, ErrorOut error) {
    clearError(error);
    if (!result) setError(error, result.error());
    return std::move(result).take();
  }

  std::optional<HelperProxy> proxy_;
};

}  // namespace ulvek::testing
