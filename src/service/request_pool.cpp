#include "service/request_pool.h"

#include <algorithm>

namespace ulvek {

RequestPool::RequestPool(std::size_t threads) {
  for (std::size_t i = 0; i < std::max<std::size_t>(threads, 1); ++i)
    threads_.emplace_back([this] { serve(); });
}

RequestPool::~RequestPool() {
  {
    std::lock_guard guard(lock_);
    stopping_ = true;
  }
  changed_.notify_all();
  threads_.clear();
}

void RequestPool::submit(std::string key, Work work) {
  {
    std::lock_guard guard(lock_);
    queue_.push_back({std::move(key), std::move(work)});
  }
  changed_.notify_all();
}

void RequestPool::drain() {
  std::unique_lock guard(lock_);
  changed_.wait(guard, [&] { return queue_.empty() && running_.empty(); });
}

void RequestPool::serve() {
  std::unique_lock guard(lock_);
  for (;;) {
    // The oldest job whose key has nothing under way; later jobs of a busy key wait their turn.
    auto next = queue_.end();
    changed_.wait(guard, [&] {
      next = std::find_if(queue_.begin(), queue_.end(),
                          [&](const Job& job) { return !running_.contains(job.key); });
      return next != queue_.end() || (stopping_ && queue_.empty());
    });
    if (next == queue_.end()) return;
    Job job = std::move(*next);
    queue_.erase(next);
    running_.insert(job.key);
    guard.unlock();
    job.work();
    guard.lock();
    running_.erase(job.key);
    changed_.notify_all();
  }
}

}  // namespace ulvek
