#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "base/property_value.h"
#include "base/status.h"
#include "importers/worker_process.h"

namespace ulvek {

// Importer workers for calls made from several threads at once: a call borrows an idle worker,
// or starts one, and gives it back when answered. A worker is never shared by two calls, so the
// pool holds as many workers as calls ever ran at the same time, and one for a single thread.
class WorkerPool {
 public:
  explicit WorkerPool(WorkerProcess::Limits limits) : limits_(limits) {}
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  Result<PropertyDictionary> call(const PropertyDictionary& request);

  // Apply to the calls that start from now on.
  void setLimits(WorkerProcess::Limits limits);
  WorkerProcess::Limits limits() const;

  // Workers started and not yet stopped, idle or busy.
  std::size_t size() const;

  // Stops the idle workers; busy ones finish their call and stay.
  void stop();

 private:
  mutable std::mutex lock_;
  WorkerProcess::Limits limits_;
  std::vector<std::unique_ptr<WorkerProcess>> idle_;
  std::size_t busy_ = 0;
};

}  // namespace ulvek
