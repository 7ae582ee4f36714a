#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace ulvek {

// Threads that run requests at the same time, except those under one key (a connection to the
// bus), which run one after the other in the order they came.
class RequestPool {
 public:
  using Work = std::function<void()>;

  explicit RequestPool(std::size_t threads);
  // Runs the work queued so far, then ends the threads.
  ~RequestPool();
  RequestPool(const RequestPool&) = delete;
  RequestPool& operator=(const RequestPool&) = delete;

  // `work` must not throw.
  void submit(std::string key, Work work);
  // Waits until all work submitted so far has run.
  void drain();

 private:
  struct Job {
    std::string key;
    Work work;
  };
  void serve();

  std::mutex lock_;
  std::condition_variable changed_;
  std::deque<Job> queue_;
  std::set<std::string> running_;  // keys with work under way
  bool stopping_ = false;
  std::vector<std::jthread> threads_;
};

}  // namespace ulvek
