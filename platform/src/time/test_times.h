// Test support: time-date values for a local wall-clock time of the zone the
// process runs in (TZ), built through the runtime's own conversions.
#pragma once

#include <gtest/gtest.h>

#include "ostime.h"

namespace tarnwick::rt::testing {

// A broken-down time in the given zone (platform zone number and DST flag).
inline TIME make_time(int year, int month, int day, int hour, int minute, int second, int zone, int dst,
                      int hundredth = 0) {
  TIME t{};
  t.year = year;
  t.month = month;
  t.day = day;
  t.hour = hour;
  t.minute = minute;
  t.second = second;
  t.hundredth = hundredth;
  t.zone = zone;
  t.dst = dst;
  return t;
}

inline TIMEDATE local_timedate(int year, int month, int day, int hour, int minute, int second = 0,
                               int hundredth = 0) {
  int zone = 0, dst = 0;
  OSCurrentTimeZone(&zone, &dst);
  TIME t = make_time(year, month, day, hour, minute, second, zone, dst, hundredth);
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
