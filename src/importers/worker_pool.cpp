#include "importers/worker_pool.h"

namespace ulvek {

Result<PropertyDictionary> WorkerPool::call(const PropertyDictionary& request) {
  std::unique_ptr<WorkerProcess> worker;
  {
    std::lock_guard guard(lock_);
    if (idle_.empty()) {
      worker = std::make_unique<WorkerProcess>(limits_);
    } else {
      worker = std::move(idle_.back());
      idle_.pop_back();
      worker->setLimits(limits_);
    }
    ++busy_;
  }
  Result<PropertyDictionary> answer = worker->call(request);
  std::lock_guard guard(lock_);
  --busy_;
  // The most recently used worker is lent first: a single thread keeps calling one process.
  idle_.push_back(std::move(worker));
  return answer;
}

void WorkerPool::setLimits(WorkerProcess::Limits limits) {
  std::lock_guard guard(lock_);
  limits_ = limits;
}

WorkerProcess::Limits WorkerPool::limits() const {
  std::lock_guard guard(lock_);
  return limits_;
}

std::size_t WorkerPool::size() const {
  std::lock_guard guard(lock_);
  return idle_.size() + busy_;
}

void WorkerPool::stop() {
  std::vector<std::unique_ptr<WorkerProcess>> stopping;
  {
    std::lock_guard guard(lock_);
    stopping.swap(idle_);
  }
  // Destroying a worker stops it, outside the lock: reaping may take a moment.
}

}  // namespace ulvek
