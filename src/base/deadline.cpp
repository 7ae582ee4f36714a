#include "base/deadline.h"

#include <algorithm>
#include <string>

#include "base/failure.h"
#include "base/log.h"

namespace ulvek {
namespace {

// Calls between two readings of the clock.
constexpr int kCallsPerClockReading = 256;

thread_local ReadingDeadline* innermostDeadline = nullptr;
thread_local int callsUntilClockReading = 0;

}  // namespace

ReadingDeadline::ReadingDeadline(std::optional<Clock::duration> limit) : outer_(innermostDeadline) {
  if (outer_) end_ = outer_->end_;
  if (limit) {
    Clock::time_point own = Clock::now() + *limit;
    if (!end_ || own < *end_) end_ = own;
  }
  // A deadline already passed outside stays passed without another line.
  expired_ = outer_ && outer_->expired_ && end_ == outer_->end_;
  innermostDeadline = this;
  callsUntilClockReading = 0;
}

ReadingDeadline::~ReadingDeadline() {
  innermostDeadline = outer_;
  callsUntilClockReading = 0;
}

std::optional<ReadingDeadline::Clock::time_point> ReadingDeadline::current() {
  if (!innermostDeadline) return std::nullopt;
  return innermostDeadline->end_;
}

bool readingTimeIsUp() {
  ReadingDeadline* deadline = innermostDeadline;
  if (!deadline || !deadline->end_) return false;
  if (deadline->expired_) return true;
  if (--callsUntilClockReading > 0) return false;
  callsUntilClockReading = kCallsPerClockReading;
  ReadingDeadline::Clock::time_point now = ReadingDeadline::Clock::now();
  if (now < *deadline->end_) return false;
  // Outer deadlines that passed as well were cut by this one line.
  bool logged = false;
  for (ReadingDeadline* passed = deadline; passed && passed->end_ && *passed->end_ <= now;
       passed = passed->outer_) {
    logged = logged || passed->expired_;
    passed->expired_ = true;
  }
  if (!logged) {
    std::string_view file = LogContext::file();
    logFailure(FailureKind::TimedOut, "Time limit reached, answered the text read so far: " +
                                          std::string(file.empty() ? "(data)" : file));
  }
  return true;
}

std::optional<ReadingDeadline::Clock::duration> readingLimitOfSeconds(
    std::optional<double> seconds) {
  if (!seconds || !(*seconds > 0)) return std::nullopt;
  // Past a few decades the clock's arithmetic would overflow; that long is no limit to speak of.
  constexpr double kLongest = 1e9;
  return std::chrono::duration_cast<ReadingDeadline::Clock::duration>(
      std::chrono::duration<double>(std::min(*seconds, kLongest)));
}

}  // namespace ulvek
