// How long the server waits before it starts a task again that ended
// abnormally: a short first delay, so a crashed task is back at once, then
// twice as long for each further end in a row, up to a ceiling. A run that
// lasted long enough counts as healthy and starts the series over.
#pragma once

#include <chrono>

namespace tarnwick::server {

class RestartBackoff {
 public:
  using Duration = std::chrono::milliseconds;

  static constexpr Duration kFirstDelay{100};
  static constexpr Duration kLongestDelay{30'000};
  static constexpr Duration kHealthyRun{10'000};

  // The delay before the next start, given how long the run that just
  // ended lasted.
  Duration after_abnormal_end(Duration run_time);

 private:
  Duration next_ = kFirstDelay;
};

}  // namespace tarnwick::server
