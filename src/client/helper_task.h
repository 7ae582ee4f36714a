#pragma once

#include <memory>
#include <optional>
#include <string>

#include "client/child_process.h"
#include "client/helper_proxy.h"

namespace ulvek {

// Starts a helper executable, finds the connection it registers, hands out a proxy for its root
// object and stops it again. A helper is started at most twice in the life of a HelperTask: after
// two failed launches it is given up, though a helper someone else started is still found.
class HelperTask {
 public:
  // Nothing, with "Helper missing: NAME" logged, when the path or the name is empty. The protocol
  // is the D-Bus interface the proxy calls (empty: none named); the time-out in seconds is the
  // connection's call time-out; the quality of service is one of QualityOfService.
  static std::unique_ptr<HelperTask> initWithPath(const std::string& path,
                                                  const std::string& registeredProxyName,
                                                  const std::string& protocol, double timeout,
                                                  int qualityOfService);
  ~HelperTask();
  HelperTask(const HelperTask&) = delete;
  HelperTask& operator=(const HelperTask&) = delete;

  // Stops a helper started earlier, starts the executable (no arguments) and waits up to 5
  // seconds for its name.
  std::optional<HelperProxy> launchUsingTimeout(double timeout);
  std::optional<HelperProxy> launch() { return launchUsingTimeout(timeout_); }
  // The running helper's proxy, without starting one.
  std::optional<HelperProxy> launchedProxyUsingTimeout(double timeout);
  std::optional<HelperProxy> launchedProxy() { return launchedProxyUsingTimeout(timeout_); }
  // The running helper's proxy, or else a launch.
  std::optional<HelperProxy> proxyUsingTimeout(double timeout);
  std::optional<HelperProxy> proxy() { return proxyUsingTimeout(timeout_); }

  // Whether the running helper says it is busy; helpers without "StillBusy" never are.
  bool stillBusy();
  // Waits, in 0.05-second steps for at most `seconds`, while the helper says it is busy.
  void waitUntilDone(double seconds);

  // Signal the helper (SIGINT, SIGTERM) and forget it and its connections.
  void interrupt();
  void terminate();
  // Forgets the helper process, without signalling it, and the cached connections.
  void invalidate();

  double timeout() const { return timeout_; }
  void setTimeout(double timeout) { timeout_ = timeout; }
  unsigned failedAttempts() const { return failedAttempts_; }
  // The helper started by the last launch, while it is known.
  std::optional<pid_t> processIdentifier() const;

 private:
  HelperTask() = default;
  void stop(int signalNumber);

  std::unique_ptr<ChildProcess> task_;
  std::string proxyName_;
  std::string path_;
  double timeout_ = 0;
  std::string protocol_;
  unsigned failedAttempts_ = 0;
  int qualityOfService_ = kQualityOfServiceDefault;
};

}  // namespace ulvek
