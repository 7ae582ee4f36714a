// The reading deadline: how scopes nest, how rarely the clock is read, and the one line it logs.

#include "base/deadline.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/failure.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;
using Duration = ReadingDeadline::Clock::duration;

// Enough calls for the clock to be read at least once.
bool upAfterManyCalls() {
  bool up = false;
  for (int i = 0; i < 1000 && !up; ++i) up = readingTimeIsUp();
  return up;
}

TEST(ReadingDeadline, NestedScopesNeverPushAnOuterTimeBack) {
  struct Row {
    const char* name;
    std::optional<Duration> outer;
    std::optional<Duration> inner;
    bool upInside;
    bool upAfterInner;
  };
  const std::vector<Row> rows = {
      {"no deadline at all", std::nullopt, std::nullopt, false, false},
      {"passed outer, none inside", 0s, std::nullopt, true, true},
      {"passed outer, longer inside", 0s, 1h, true, true},
      {"long outer, passed inside", 1h, 0s, true, false},
      {"none outside, passed inside", std::nullopt, 0s, true, false},
      {"long both", 1h, 2h, false, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    testing::CapturedLog log;
    ReadingDeadline outer(row.outer);
    {
      ReadingDeadline inner(row.inner);
      EXPECT_EQ(upAfterManyCalls(), row.upInside);
    }
    EXPECT_EQ(upAfterManyCalls(), row.upAfterInner);
  }
  EXPECT_FALSE(upAfterManyCalls()) << "the scopes ended";
}

TEST(ReadingDeadline, CurrentIsTheEarlierOfTheNestedTimes) {
  EXPECT_EQ(ReadingDeadline::current(), std::nullopt);
  ReadingDeadline outer(1h);
  std::optional<ReadingDeadline::Clock::time_point> outerEnd = ReadingDeadline::current();
  ASSERT_TRUE(outerEnd);
  {
    ReadingDeadline later(2h);
    EXPECT_EQ(ReadingDeadline::current(), outerEnd);
    ReadingDeadline none(std::nullopt);
    EXPECT_EQ(ReadingDeadline::current(), outerEnd);
  }
  {
    ReadingDeadline earlier(1min);
    EXPECT_LT(*ReadingDeadline::current(), *outerEnd);
  }
  EXPECT_EQ(ReadingDeadline::current(), outerEnd);
}

TEST(ReadingDeadline, TheClockIsReadOnlyNowAndThen) {
  // A deadline that passes between two readings is seen only at the next one: within a few
  // hundred calls, not at once.
  testing::CapturedLog log;
  ReadingDeadline deadline(20ms);
  EXPECT_FALSE(readingTimeIsUp());  // the first call reads the clock
  std::this_thread::sleep_for(30ms);
  int calls = 1;
  while (!readingTimeIsUp()) ++calls;
  EXPECT_GT(calls, 1);
  EXPECT_LE(calls, 256);
}

TEST(ReadingDeadline, OneLineNamingTheFileAndATimedOutFailure) {
  testing::CapturedLog log;
  FailureScope failures;
  LogContext reading("reader test", "/tmp/slow.html");
  ReadingDeadline outer(0s);
  {
    ReadingDeadline inner(0s);
    EXPECT_TRUE(upAfterManyCalls());
  }
  EXPECT_TRUE(upAfterManyCalls());
  {
    // Started after the time passed: already up, nothing more to say.
    ReadingDeadline late(1h);
    EXPECT_TRUE(readingTimeIsUp());
  }
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0], "Time limit reached, answered the text read so far: /tmp/slow.html");
  ASSERT_TRUE(failures.failure());
  EXPECT_EQ(failures.failure()->kind, FailureKind::TimedOut);
  EXPECT_EQ(failureKindName(FailureKind::TimedOut), "timed-out");
}

TEST(ReadingDeadline, LimitsInSeconds) {
  struct Row {
    const char* name;
    std::optional<double> seconds;
    std::optional<Duration> limit;
  };
  const std::vector<Row> rows = {
      {"none", std::nullopt, std::nullopt},
      {"zero is no limit", 0.0, std::nullopt},
      {"below zero is no limit", -3.0, std::nullopt},
      {"not a number", std::numeric_limits<double>::quiet_NaN(), std::nullopt},
      {"fractions", 0.25, 250ms},
      {"whole seconds", 30.0, 30s},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(readingLimitOfSeconds(row.seconds), row.limit);
  }
  // Far beyond any clock: still a time that can be added to now.
  std::optional<Duration> huge = readingLimitOfSeconds(1e300);
  ASSERT_TRUE(huge);
  ReadingDeadline deadline(huge);
  EXPECT_GT(*ReadingDeadline::current(), ReadingDeadline::Clock::now());
  EXPECT_FALSE(upAfterManyCalls());
}

}  // namespace
}  // namespace ulvek
