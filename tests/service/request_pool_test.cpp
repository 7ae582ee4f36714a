// Requests of one connection run one after another in order; those of others run beside them.
#include "service/request_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ulvek {
namespace {

using namespace std::chrono_literals;

TEST(RequestPoolTest, OneKeyInOrderOthersAlongside) {
  struct Row {
    const char* name;
    std::size_t threads;
    std::vector<std::string> keys;  // one job each, submitted in this order
    int mostAtOnce;                 // jobs seen running together at the peak
  };
  const Row rows[] = {
      {"one thread", 1, {":1.1", ":1.2", ":1.3"}, 1},
      {"one connection", 4, {":1.1", ":1.1", ":1.1", ":1.1"}, 1},
      {"two connections", 2, {":1.1", ":1.2", ":1.1", ":1.2"}, 2},
      {"fewer threads than connections", 2, {":1.1", ":1.2", ":1.3", ":1.4"}, 2},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::mutex lock;
    std::map<std::string, std::vector<std::size_t>> ran;  // key → jobs in the order they ran
    std::atomic<int> atOnce{0};
    std::atomic<int> mostAtOnce{0};
    {
      RequestPool pool(row.threads);
      for (std::size_t i = 0; i < row.keys.size(); ++i) {
        pool.submit(row.keys[i], [&, i] {
          int now = ++atOnce;
          for (int seen = mostAtOnce; now > seen && !mostAtOnce.compare_exchange_weak(seen, now);) {
          }
          std::this_thread::sleep_for(50ms);
          {
            std::lock_guard guard(lock);
            ran[row.keys[i]].push_back(i);
          }
          --atOnce;
        });
      }
      pool.drain();
      std::size_t count = 0;
      for (const auto& [key, jobs] : ran) {
        count += jobs.size();
        EXPECT_TRUE(std::is_sorted(jobs.begin(), jobs.end())) << key;
      }
      EXPECT_EQ(count, row.keys.size());
    }
    EXPECT_EQ(mostAtOnce.load(), row.mostAtOnce);
  }
}

TEST(RequestPoolTest, EndingRunsWhatWasQueued) {
  std::atomic<int> done{0};
  {
    RequestPool pool(2);
    for (int i = 0; i < 6; ++i)
      pool.submit(i % 2 ? ":1.1" : ":1.2", [&] {
        std::this_thread::sleep_for(10ms);
        ++done;
      });
  }
  EXPECT_EQ(done.load(), 6);
}

}  // namespace
}  // namespace ulvek
