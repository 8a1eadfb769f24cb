#include "restart_backoff.h"

#include <gtest/gtest.h>

namespace tarnwick::server {
namespace {

using std::chrono::milliseconds;

TEST(RestartBackoff, DelayDoublesForEndsInARowUpToTheCeiling) {
  RestartBackoff backoff;
  EXPECT_EQ(backoff.after_abnormal_end(milliseconds(5)), milliseconds(100));
  EXPECT_EQ(backoff.after_abnormal_end(milliseconds(5)), milliseconds(200));
  EXPECT_EQ(backoff.after_abnormal_end(milliseconds(5)), milliseconds(400));
  milliseconds last{0};
  for (int i = 0; i < 20; ++i) last = backoff.after_abnormal_end(milliseconds(5));
  EXPECT_EQ(last, RestartBackoff::kLongestDelay);
}

TEST(RestartBackoff, AHealthyRunStartsTheSeriesOver) {
  RestartBackoff backoff;
  backoff.after_abnormal_end(milliseconds(5));
  backoff.after_abnormal_end(milliseconds(5));
  EXPECT_EQ(backoff.after_abnormal_end(RestartBackoff::kHealthyRun), milliseconds(100));
  EXPECT_EQ(backoff.after_abnormal_end(RestartBackoff::kHealthyRun - milliseconds(1)), milliseconds(200));
}

}  // namespace
}  // namespace tarnwick::server
