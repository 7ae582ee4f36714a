// Work spread over threads comes back in the order it was listed, with few items taken and few
// answers waiting.
#include "cli/ordered_jobs.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace ulvek::cli {
namespace {

TEST(OrderedJobsTest, AnswersComeInOrderAndFewWait) {
  struct Row {
    const char* name;
    std::size_t count;
    std::size_t threads;
    std::size_t window;
  };
  const Row rows[] = {
      {"nothing to do", 0, 4, 16},
      {"one item", 1, 4, 16},
      {"one thread", 50, 1, 4},
      {"more threads than items", 3, 8, 32},
      {"window of one a thread", 200, 4, 4},
      {"window below the threads", 100, 4, 1},
      {"wide window", 300, 3, 64},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::atomic<std::size_t> produced{0};
    std::atomic<std::size_t> mostAhead{0};
    std::atomic<std::size_t> consumedCount{0};
    std::set<std::thread::id> producers;
    std::mutex producersLock;
    std::vector<std::size_t> order;
    std::size_t taken = 0;
    runInOrder(
        [&]() -> std::optional<std::size_t> {
          if (taken == row.count) return std::nullopt;
          return taken++;
        },
        row.threads, row.window,
        [&](std::size_t i) {
          // Late items finish first now and then, so the order must be restored.
          if (i % 7 == 0) std::this_thread::sleep_for(std::chrono::microseconds(300));
          std::size_t ahead = ++produced - consumedCount;
          for (std::size_t seen = mostAhead;
               ahead > seen && !mostAhead.compare_exchange_weak(seen, ahead);) {
          }
          std::lock_guard guard(producersLock);
          producers.insert(std::this_thread::get_id());
          return std::to_string(i);
        },
        [&](std::size_t i, std::size_t item, std::string answer) {
          EXPECT_EQ(item, i);
          EXPECT_EQ(answer, std::to_string(i));
          order.push_back(i);
          ++consumedCount;
        });
    ASSERT_EQ(order.size(), row.count);
    for (std::size_t i = 0; i < order.size(); ++i) EXPECT_EQ(order[i], i);
    EXPECT_LE(mostAhead.load(), std::max(row.window, row.threads) + 1);
    // One thread, or one item, needs no threads of its own.
    if ((row.threads == 1 || row.count == 1) && row.count > 0) {
      EXPECT_EQ(producers, std::set<std::thread::id>{std::this_thread::get_id()});
    }
  }
}

// While the first answer is slow to come, the others wait for it only up to the weight allowed:
// each thread may finish the item it holds, no more.
TEST(OrderedJobsTest, WaitingAnswersKeepToTheirWeight) {
  constexpr std::size_t kThreads = 3, kWeight = 100, kMostBytes = 1000;
  std::mutex lock;
  std::size_t waiting = 0, mostWaiting = 0, taken = 0;
  std::vector<std::size_t> order;
  runInOrder(
      [&]() -> std::optional<std::size_t> {
        if (taken == 200) return std::nullopt;
        return taken++;
      },
      kThreads, Window(1000, kMostBytes),
      [&](std::size_t i) {
        if (i % 50 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));
        std::lock_guard guard(lock);
        waiting += kWeight;
        mostWaiting = std::max(mostWaiting, waiting);
        return std::string(kWeight, 'x');
      },
      [&](std::size_t i, std::size_t, std::string answer) {
        std::lock_guard guard(lock);
        waiting -= answer.size();
        order.push_back(i);
      },
      [](const std::string& answer) { return answer.size(); });
  ASSERT_EQ(order.size(), 200u);
  for (std::size_t i = 0; i < order.size(); ++i) EXPECT_EQ(order[i], i);
  EXPECT_LE(mostWaiting, kMostBytes + kThreads * kWeight);
  EXPECT_GE(mostWaiting, kMostBytes / 2) << "the threads went on while the first item was slow";
}

TEST(OrderedJobsTest, AThrowingConsumerStopsTheThreads) {
  std::atomic<std::size_t> produced{0};
  std::size_t taken = 0;
  EXPECT_THROW(runInOrder([&]() -> std::optional<std::size_t> { return taken++; }, 4, 8,
                          [&](std::size_t i) {
                            ++produced;
                            return i;
                          },
                          [&](std::size_t i, std::size_t, std::size_t) {
                            if (i == 5) throw std::runtime_error("stop");
                          }),
               std::runtime_error);
  // Nothing is taken that could not wait in the window.
  EXPECT_LE(produced.load(), 5u + 8u + 4u);
  EXPECT_LE(taken, 5u + 8u + 4u);
}

}  // namespace
}  // namespace ulvek::cli
