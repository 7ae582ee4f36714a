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
  // The running helper's proxy, or else (when allowed) one the bus starts from its service file,
  // or else a launch. The proxies a task hands out make a call that finds the helper gone once
  // more on the proxy this answers.
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

  // Whether proxy() first asks the bus to start the helper by its name (D-Bus activation),
  // before it launches the executable; off by default, since the bus may start another
  // installation than the path names. A helper the bus started is not stopped by the task.
  void setUsesActivation(bool uses) { usesActivation_ = uses; }

  double timeout() const { return timeout_; }
  void setTimeout(double timeout) { timeout_ = timeout; }
  unsigned failedAttempts() const { return failedAttempts_; }
  // The helper started by the last launch, while it is known.
  std::optional<pid_t> processIdentifier() const;

 private:
  HelperTask() = default;
  void stop(int signalNumber);
  HelperProxy handedOut(HelperProxy proxy) const;

  std::unique_ptr<ChildProcess> task_;
  std::string proxyName_;
  std::string path_;
  double timeout_ = 0;
  std::string protocol_;
  unsigned failedAttempts_ = 0;
  int qualityOfService_ = kQualityOfServiceDefault;
  bool usesActivation_ = false;
  // Proxies hold it weakly: one that outlives the task retries nothing.
  std::shared_ptr<HelperProxy::Relauncher> relauncher_;
};

}  // namespace ulvek
