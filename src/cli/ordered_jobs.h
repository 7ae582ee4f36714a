#pragma once

// Work on several threads whose answers are used in the order the work was listed.

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <thread>
#include <type_traits>
#include <vector>

namespace ulvek::cli {

// Calls produce(i) for every i below `count` on up to `threads` threads, and consume(i, answer)
// on the calling thread in the order of i, as soon as answer i and those before it are there. At
// most `window` answers wait to be consumed at any time, so a long list never lies in memory
// whole. With one thread, each item is produced and consumed in turn on the calling thread.
// `produce` must not throw.
template <typename Produce, typename Consume>
void runInOrder(std::size_t count, std::size_t threads, std::size_t window, Produce produce,
                Consume consume) {
  if (threads <= 1 || count <= 1) {
    for (std::size_t i = 0; i < count; ++i) consume(i, produce(i));
    return;
  }
  using Answer = std::invoke_result_t<Produce&, std::size_t>;
  window = std::max(window, threads);
  std::mutex lock;
  std::condition_variable answered, consumedOne;
  // Answer i waits in slot i % window; the one `window` before it was consumed by then.
  std::vector<std::optional<Answer>> slots(window);
  std::size_t next = 0;
  std::size_t consumed = 0;
  bool stopping = false;

  auto work = [&] {
    std::unique_lock guard(lock);
    for (;;) {
      consumedOne.wait(guard,
                       [&] { return stopping || next >= count || next < consumed + window; });
      if (stopping || next >= count) return;
      std::size_t i = next++;
      guard.unlock();
      Answer answer = produce(i);
      guard.lock();
      slots[i % window] = std::move(answer);
      if (i == consumed) answered.notify_one();
    }
  };
  std::vector<std::jthread> pool;
  // Stops and joins the threads however the loop below ends.
  struct Stop {
    std::mutex& lock;
    bool& stopping;
    std::condition_variable& consumedOne;
    std::vector<std::jthread>& pool;
    ~Stop() {
      {
        std::lock_guard guard(lock);
        stopping = true;
      }
      consumedOne.notify_all();
      pool.clear();
    }
  } stop{lock, stopping, consumedOne, pool};
  for (std::size_t t = 0; t < std::min(threads, count); ++t) pool.emplace_back(work);

  while (consumed < count) {
    std::optional<Answer> answer;
    {
      std::unique_lock guard(lock);
      answered.wait(guard, [&] { return slots[consumed % window].has_value(); });
      answer.swap(slots[consumed % window]);
      ++consumed;
    }
    consumedOne.notify_all();
    consume(consumed - 1, std::move(*answer));
  }
}

}  // namespace ulvek::cli
