#include "client/helper_task.h"

#include <signal.h>
#include <systemd/sd-bus.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "base/log.h"
#include "client/thread_connections.h"

namespace ulvek {
namespace {

constexpr std::string_view kClassName = "HelperTask";
constexpr unsigned kGiveUpAfter = 2;
constexpr double kBusyStep = 0.05;

std::string fileName(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

}  // namespace

std::unique_ptr<HelperTask> HelperTask::initWithPath(const std::string& path,
                                                     const std::string& registeredProxyName,
                                                     const std::string& protocol, double timeout,
                                                     int qualityOfService) {
  if (path.empty() || registeredProxyName.empty()) {
    logLine("Helper missing: " + registeredProxyName);
    return nullptr;
  }
  std::unique_ptr<HelperTask> task(new HelperTask());
  task->path_ = path;
  task->proxyName_ = registeredProxyName;
  task->protocol_ = protocol;
  task->timeout_ = timeout;
  task->qualityOfService_ = qualityOfService;
  task->relauncher_ = std::make_shared<HelperProxy::Relauncher>(
      [self = task.get()]() -> std::optional<HelperProxy> {
        self->invalidate();
        return self->proxy();
      });
  return task;
}

HelperProxy HelperTask::handedOut(HelperProxy proxy) const {
  proxy.setRelauncher(relauncher_);
  return proxy;
}

HelperTask::~HelperTask() {
  relauncher_.reset();
  try {
    terminate();
  } catch (...) {
    // Nothing may leave a destructor; terminate has logged what it could.
  }
}

std::optional<HelperProxy> HelperTask::launchUsingTimeout(double timeout) {
  interrupt();
  if (failedAttempts_ >= kGiveUpAfter) return std::nullopt;
  try {
    task_ = std::make_unique<ChildProcess>();
    task_->setQualityOfService(qualityOfService_);
    task_->setLaunchPath(path_);
    // A program that cannot be executed is one that is not running: it counts as a failed launch.
    Status launched = task_->launch();
    if (launched && task_->isRunning()) {
      if (auto proxy = thread_connections::waitForRootProxyForConnectionWithRegisteredName(
              proxyName_, timeout, protocol_)) {
        return handedOut(std::move(*proxy));
      }
      ++failedAttempts_;
      logLine("Connection to " + fileName(path_) +
              (failedAttempts_ == kGiveUpAfter ? " failed. Giving up." : " failed."));
      return std::nullopt;
    }
    ++failedAttempts_;
    logLine("Couldn't launch " + path_ + (failedAttempts_ == kGiveUpAfter ? ". Giving up." : "."));
    task_.reset();
    return std::nullopt;
  } catch (const std::exception& exception) {
    logException("launchUsingTimeout", kClassName, exception);
  }
  interrupt();
  return std::nullopt;
}

std::optional<HelperProxy> HelperTask::launchedProxyUsingTimeout(double timeout) {
  try {
    auto proxy = thread_connections::rootProxyForConnectionWithRegisteredName(proxyName_, timeout,
                                                                              protocol_);
    if (!proxy) return std::nullopt;
    return handedOut(std::move(*proxy));
  } catch (const std::exception& exception) {
    logException("launchedProxyUsingTimeout", kClassName, exception);
    return std::nullopt;
  }
}

std::optional<HelperProxy> HelperTask::proxyUsingTimeout(double timeout) {
  if (auto proxy = launchedProxyUsingTimeout(timeout)) return proxy;
  if (usesActivation_) {
    Status activated = activateRegisteredName(proxyName_, timeout);
    if (activated) {
      if (auto proxy = launchedProxyUsingTimeout(timeout)) return proxy;
    } else if (activated.error().domain != SD_BUS_ERROR_SERVICE_UNKNOWN) {
      // No service file is the usual case; anything else is worth a line.
      logLine("Activation of " + busNameForRegisteredName(proxyName_) +
              " failed: " + activated.error().localizedDescription);
    }
  }
  return launchUsingTimeout(timeout);
}

bool HelperTask::stillBusy() {
  std::optional<HelperProxy> proxy = launchedProxy();
  if (!proxy || !proxy->respondsToSelector("StillBusy")) return false;
  Result<bool> busy = proxy->stillBusy();
  return busy && *busy;
}

void HelperTask::waitUntilDone(double seconds) {
  try {
    std::optional<HelperProxy> proxy = launchedProxy();
    if (!proxy || !proxy->respondsToSelector("StillBusy")) return;
    auto busy = [&] {
      Result<bool> answer = proxy->stillBusy();
      return answer && *answer;
    };
    if (!busy()) return;
    double elapsed = 0;
    for (;;) {
      std::this_thread::sleep_for(std::chrono::duration<double>(kBusyStep));
      elapsed += kBusyStep;
      if (!(seconds > elapsed) || !busy()) return;
    }
  } catch (...) {
    // A helper that fails while we wait is done as far as we are concerned.
  }
}

void HelperTask::stop(int signalNumber) {
  if (task_) {
    try {
      if (task_->isRunning()) {
        if (signalNumber == SIGINT)
          task_->interrupt();
        else
          task_->terminate();
      }
    } catch (const std::exception& exception) {
      logException(signalNumber == SIGINT ? "interrupt" : "terminate", kClassName, exception);
    }
  }
  invalidate();
}

void HelperTask::interrupt() { stop(SIGINT); }
void HelperTask::terminate() { stop(SIGTERM); }

void HelperTask::invalidate() {
  task_.reset();
  thread_connections::invalidateConnectionsRegisteredWithName(proxyName_);
}

std::optional<pid_t> HelperTask::processIdentifier() const {
  if (!task_) return std::nullopt;
  return task_->processIdentifier();
}

}  // namespace ulvek
