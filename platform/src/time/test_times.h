// Test support: time-date values for a local wall-clock time of the zone the
// process runs in (TZ), built through the runtime's own conversions.
#pragma once

#include <gtest/gtest.h>

#include "ostime.h"

namespace tarnwick::rt::testing {

inline TIMEDATE local_timedate(int year, int month, int day, int hour, int minute, int second = 0,
                               int hundredth = 0) {
  TIME t{};
  t.year = year;
  t.month = month;
  t.day = day;
  t.hour = hour;
  t.minute = minute;
  t.second = second;
  t.hundredth = hundredth;
  OSCurrentTimeZone(&t.zone, &t.dst);
  EXPECT_FALSE(TimeLocalToGM(&t));
  return t.GM;
}

// The date-only value of a local calendar day.
inline TIMEDATE local_date(int year, int month, int day) {
  const TIMEDATE noon = local_timedate(year, month, day, 12, 0);
  TIMEDATE date;
  TimeExtractLocal(&noon, FALSE, &date);
  return date;
}

}  // namespace tarnwick::rt::testing
