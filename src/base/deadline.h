#pragma once

// A time by which in-process readers stop. The service serves one request at a time by default,
// so a reader that runs long keeps every client waiting; readers check readingTimeIsUp() in
// their long loops, stop there and answer what they have read so far.

#include <chrono>
#include <optional>

namespace ulvek {

// Sets the time by which readers on this thread stop, while it lives. Deadlines nest; an inner
// one can bring the time forward but never push an outer one back. No deadline: no limit.
class ReadingDeadline {
 public:
  using Clock = std::chrono::steady_clock;

  // `limit` from now; none leaves the outer deadline (if any) in force.
  explicit ReadingDeadline(std::optional<Clock::duration> limit);
  ~ReadingDeadline();
  ReadingDeadline(const ReadingDeadline&) = delete;
  ReadingDeadline& operator=(const ReadingDeadline&) = delete;

  // The time in force on this thread, if any.
  static std::optional<Clock::time_point> current();

 private:
  friend bool readingTimeIsUp();

  ReadingDeadline* outer_;
  std::optional<Clock::time_point> end_;
  bool expired_ = false;
};

// Whether the thread's deadline has passed. Cheap enough for a reader's innermost loop: the
// clock is read once in a while only, so the answer may come a few hundred calls late. The first
// call that finds the time up logs one line naming the file being read (and reports it as a
// TimedOut failure); later ones only answer true.
bool readingTimeIsUp();

// Limits of the user's settings and command lines in seconds; none, zero or less means none.
std::optional<ReadingDeadline::Clock::duration> readingLimitOfSeconds(
    std::optional<double> seconds);

}  // namespace ulvek
