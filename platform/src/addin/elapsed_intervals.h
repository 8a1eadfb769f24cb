// The timers behind AddInSecondsHaveElapsed: for an interval of n seconds,
// the first question asked after the clock passes a multiple of n (counted
// from the Unix epoch, so a minute tick falls on the minute) and after the
// task started is answered true; later questions are false until the next
// multiple passes. Each interval keeps its own timer. A moment missed
// entirely (the task was busy for several intervals) gives one true, not a
// burst.
//
// Not thread-safe; the add-in services guard it.
#pragma once

#include <cstdint>
#include <map>

namespace tarnwick::rt {

class ElapsedIntervals {
 public:
  explicit ElapsedIntervals(int64_t started_unix_seconds) : started_(started_unix_seconds) {}

  bool has_elapsed(uint32_t seconds, int64_t now_unix_seconds);

 private:
  int64_t started_;
  std::map<uint32_t, int64_t> next_due_;  // interval -> the multiple that makes it true next
};

}  // namespace tarnwick::rt
