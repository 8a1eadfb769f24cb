#include "time/timedate.h"
#include "time/scoped_time_zone.h"

#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "ostime.h"

namespace {

using namespace tarnwick::rt;

TEST(JulianDays, KnownDatesAndRoundTripOverCenturies) {
  EXPECT_EQ(julian_day(1970, 1, 1), 2440588u);
  EXPECT_EQ(julian_day(1996, 12, 10), 2450428u);
  EXPECT_EQ(julian_day(2021, 3, 9), 0x258693u);
  EXPECT_EQ(julian_day(2000, 3, 1) - julian_day(2000, 2, 28), 2u) << "2000 is a leap year";
  EXPECT_EQ(julian_day(1900, 3, 1) - julian_day(1900, 2, 28), 1u) << "1900 is not";
  for (DWORD jd = julian_day(1, 1, 1); jd < julian_day(9999, 12, 31); jd += 97) {
    int y, m, d;
    civil_from_julian(jd, y, m, d);
    ASSERT_EQ(julian_day(y, m, d), jd);
  }
}

TEST(CurrentTime, ZoneBitsFollowTheOperatingSystemZone) {
  struct Case {
    const char* tz;
    DWORD top_byte;
    int zone;
    int dst;
  } cases[] = {
      {"America/New_York", 0x85, 5, 1},    // 5 h west, observes DST
      {"Asia/Kolkata", 0x65, -3005, 0},    // 5:30 east, no DST
      {"Australia/Sydney", 0xCA, -10, 1},  // 10 h east, observes DST
      {"UTC", 0x00, 0, 0},
      {"America/St_Johns", 0xA3, 3003, 1},  // 3:30 west, observes DST
  };
  for (const auto& c : cases) {
    ScopedTimeZone zone(c.tz);
    TIMEDATE now;
    OSCurrentTIMEDATE(&now);
    EXPECT_EQ(now.Innards[1] >> 24, c.top_byte) << c.tz;
    int number = 99, dst = 99;
    OSCurrentTimeZone(&number, &dst);
    EXPECT_EQ(number, c.zone) << c.tz;
    EXPECT_EQ(dst, c.dst) << c.tz;
    EXPECT_EQ(static_cast<int>(now.Innards[1] >> 31), dst) << "date word DST bit matches OSCurrentTimeZone";
  }
}

TEST(CurrentTime, IsGmtAndCloseToTheSystemClock) {
  ScopedTimeZone zone("Asia/Kolkata");
  TIMEDATE now;
  OSCurrentTIMEDATE(&now);
  const std::time_t t = std::time(nullptr);
  const int64_t days = static_cast<int64_t>(now.Innards[1] & TIMEDATE_JULIAN_MASK) - kJulianDayOf1970;
  const int64_t seconds = days * 86400 + now.Innards[0] / TICKS_IN_SECOND;
  EXPECT_LE(std::llabs(seconds - static_cast<int64_t>(t)), 2);
  EXPECT_LT(now.Innards[0], static_cast<DWORD>(TICKS_IN_DAY));
  OSCurrentTIMEDATE(nullptr);
  OSCurrentTimeZone(nullptr, nullptr);
}

}  // namespace
