#include "restart_backoff.h"

#include <algorithm>

namespace tarnwick::server {

RestartBackoff::Duration RestartBackoff::after_abnormal_end(Duration run_time) {
  if (run_time >= kHealthyRun) next_ = kFirstDelay;
  Duration delay = next_;
  next_ = std::min(next_ * 2, kLongestDelay);
  return delay;
}

}  // namespace tarnwick::server
