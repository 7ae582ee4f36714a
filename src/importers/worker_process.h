#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>

#include "base/property_value.h"
#include "base/status.h"
#include "platform/temporary_items.h"

namespace ulvek {

// The host's side of the importer worker: starts `ulvekbot-importer-worker` on first use, keeps
// it, and starts it again after it died. A call that takes longer than the time limit kills the
// worker; its error then says why ("timeout", "signal 11", "exit status 3", "garbage").
//
// The worker runs sandboxed (platform/sandbox.h) with a clean environment; what its plug-ins
// print is logged, a few lines per call, naming the file.
class WorkerProcess {
 public:
  struct Limits {
    std::chrono::milliseconds time{10000};
    unsigned long long memoryMiB = 2048;
  };

  explicit WorkerProcess(Limits limits) : limits_(limits) {}
  ~WorkerProcess();
  WorkerProcess(const WorkerProcess&) = delete;
  WorkerProcess& operator=(const WorkerProcess&) = delete;

  Result<PropertyDictionary> call(const PropertyDictionary& request);
  void setLimits(Limits limits) { limits_ = limits; }
  const Limits& limits() const { return limits_; }
  // The worker's process id while it runs (tests kill it), else 0.
  pid_t pid() const { return pid_; }

  // Kills the worker and what it started, and removes its temporary folder.
  void stop();

  // Where the worker program is: $ULVEKBOT_IMPORTER_WORKER, else beside the running program.
  static std::string workerPath();

 private:
  Status start();
  // Why the worker went away, once it has: "signal 11", "exit status 3". What it started is
  // killed first.
  std::string reap();
  // Logs what the worker printed during a call about `subject` (the file or the bundle).
  void relayOutput(const std::string& subject);

  Limits limits_;
  pid_t pid_ = 0;
  pid_t group_ = 0;
  std::unique_ptr<TemporaryDirectory> temporaryFolder_;
  int toWorker_ = -1;
  int fromWorker_ = -1;
  // The worker's standard output and error, and a descriptor that turns readable when it ends.
  int output_ = -1;
  int pidfd_ = -1;
  std::string partialLine_;
};

}  // namespace ulvek
