#include "addin/elapsed_intervals.h"

namespace tarnwick::rt {
namespace {

// The first multiple of `interval` strictly after `moment`.
int64_t next_multiple_after(int64_t moment, int64_t interval) {
  int64_t quotient = moment / interval;
  if (moment < 0 && moment % interval != 0) --quotient;  // floor for times before 1970
  return (quotient + 1) * interval;
}

}  // namespace

bool ElapsedIntervals::has_elapsed(uint32_t seconds, int64_t now_unix_seconds) {
  if (seconds == 0) return true;
  auto [due, inserted] = next_due_.try_emplace(seconds, next_multiple_after(started_, seconds));
  if (now_unix_seconds < due->second) return false;
  due->second = next_multiple_after(now_unix_seconds, seconds);
  return true;
}

}  // namespace tarnwick::rt
