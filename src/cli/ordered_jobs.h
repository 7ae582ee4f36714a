#pragma once

// Work on several threads whose answers are used in the order the work was listed.

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <limits>
#include <mutex>
#include <optional>
#include <thread>
#include <type_traits>
#include <vector>

namespace ulvek::cli {

// How far the threads may run ahead of the oldest item not yet consumed: at most `items` items
// taken, and no new one while the answers waiting weigh `bytes` or more.
struct Window {
  Window(std::size_t items, std::size_t bytes = std::numeric_limits<std::size_t>::max())
      : items(items), bytes(bytes) {}
  std::size_t items;
  std::size_t bytes;
};

struct Weightless {
  template <typename Answer>
  std::size_t operator()(const Answer&) const {
    return 0;
  }
};

// Takes items from next() until it answers nothing, calls produce(item) for each on up to
// `threads` threads, and consume(i, item, answer) on the calling thread in the order the items
// came, as soon as answer i and those before it are there. next() is called on one thread at a
// time and only while the window allows (answers weighed by weigh(answer)), so neither the items
// nor the answers of a long list ever lie in memory whole. With one thread, each item is taken,
// produced and consumed in turn on the calling thread. `produce` must not throw.
template <typename Next, typename Produce, typename Consume, typename Weigh = Weightless>
void runInOrder(Next next, std::size_t threads, Window limits, Produce produce, Consume consume,
                Weigh weigh = {}) {
  using Item = typename std::invoke_result_t<Next&>::value_type;
  using Answer = std::invoke_result_t<Produce&, const Item&>;
  if (threads <= 1) {
    for (std::size_t i = 0;; ++i) {
      std::optional<Item> item = next();
      if (!item) return;
      Answer answer = produce(*item);
      consume(i, std::move(*item), std::move(answer));
    }
  }
  // A single item is read on the calling thread: starting threads would cost more than it.
  std::deque<Item> ahead;
  for (std::optional<Item> item; ahead.size() < 2 && (item = next());)
    ahead.push_back(std::move(*item));
  if (ahead.size() == 1) {
    Answer answer = produce(ahead.front());
    consume(0, std::move(ahead.front()), std::move(answer));
  }
  if (ahead.size() < 2) return;
  auto take = [&]() -> std::optional<Item> {
    if (ahead.empty()) return next();
    std::optional<Item> item = std::move(ahead.front());
    ahead.pop_front();
    return item;
  };
  const std::size_t window = std::max(limits.items, threads);
  std::mutex lock;
  std::condition_variable answered, consumedOne;
  // Item i and its answer wait in slot i % window; the one `window` before it was consumed by
  // then, and nobody else touches the slot until this one is consumed.
  struct Slot {
    std::optional<Item> item;
    std::optional<Answer> answer;
    std::size_t weight = 0;  // of the answer, weighed once
  };
  std::vector<Slot> slots(window);
  std::size_t taken = 0;
  std::size_t consumed = 0;
  std::size_t waitingBytes = 0;  // of the answers produced and not yet consumed
  bool exhausted = false;
  bool stopping = false;

  auto work = [&] {
    std::unique_lock guard(lock);
    for (;;) {
      // An answer waiting means the consumer has one to take, so a full window always drains.
      consumedOne.wait(guard, [&] {
        return stopping || exhausted || (taken < consumed + window && waitingBytes < limits.bytes);
      });
      if (stopping || exhausted) return;
      std::optional<Item> item = take();
      if (!item) {
        exhausted = true;
        consumedOne.notify_all();
        answered.notify_one();
        return;
      }
      const std::size_t i = taken++;
      Slot& slot = slots[i % window];
      slot.item = std::move(item);
      guard.unlock();
      Answer answer = produce(*slot.item);
      const std::size_t weight = weigh(answer);
      guard.lock();
      slot.answer = std::move(answer);
      slot.weight = weight;
      waitingBytes += weight;
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
  for (std::size_t t = 0; t < threads; ++t) pool.emplace_back(work);

  for (;;) {
    std::optional<Item> item;
    std::optional<Answer> answer;
    {
      std::unique_lock guard(lock);
      Slot& slot = slots[consumed % window];
      answered.wait(guard,
                    [&] { return slot.answer.has_value() || (exhausted && consumed == taken); });
      if (!slot.answer) return;
      item.swap(slot.item);
      answer.swap(slot.answer);
      waitingBytes -= slot.weight;
      ++consumed;
    }
    consumedOne.notify_all();
    consume(consumed - 1, std::move(*item), std::move(*answer));
  }
}

}  // namespace ulvek::cli
