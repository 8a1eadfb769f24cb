// TimeDateAdjust, TimeDateIncrement, comparisons and constants.
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "globerr.h"
#include "ostime.h"
#include "time/scoped_time_zone.h"
#include "time/test_times.h"

namespace {

using tarnwick::rt::ScopedTimeZone;

using tarnwick::rt::testing::local_date;
using tarnwick::rt::testing::local_timedate;

// "YYYY-MM-DD hh:mm:ss" of a value in local time.
std::string show(const TIMEDATE& td) {
  TIME t{};
  t.GM = td;
  if (TimeGMToLocal(&t)) return "invalid";
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", t.year, t.month, t.day, t.hour, t.minute, t.second);
  return text;
}

TEST(TimeDateAdjust, AppliesSmallestUnitFirstWithCarriesAndMonthEnds) {
  ScopedTimeZone zone("America/New_York");
  TIMEDATE td = local_timedate(1994, 11, 3, 10, 0);
  ASSERT_FALSE(TimeDateAdjust(&td, 0, 0, 0, -7, -1, 0));
  EXPECT_EQ(show(td), "1994-09-27 10:00:00") << "days before months";

  TIMEDATE d = local_date(1994, 11, 3);
  ASSERT_FALSE(TimeDateAdjust(&d, 0, 0, 0, -7, -1, 0));
  EXPECT_EQ(show(d), "1994-09-27 00:00:00");
  EXPECT_EQ(d.Innards[0], ALLDAY);

  td = local_timedate(2024, 5, 6, 23, 30);
  ASSERT_FALSE(TimeDateAdjust(&td, 70, 65, 0, 0, 0, 0));
  EXPECT_EQ(show(td), "2024-05-07 00:36:10") << "65 minutes and 70 seconds carry into the next day";

  struct MonthEnd {
    int y, m, d, months, years;
    const char* expected;
  } cases[] = {
      {2024, 1, 31, 1, 0, "2024-02-29 08:00:00"},   {2023, 1, 31, 1, 0, "2023-02-28 08:00:00"},
      {2024, 3, 31, -1, 0, "2024-02-29 08:00:00"},  {2024, 2, 29, 0, 1, "2025-02-28 08:00:00"},
      {2024, 1, 15, -1, 0, "2023-12-15 08:00:00"},  {2024, 12, 31, 14, -1, "2025-02-28 08:00:00"},
      {2024, 8, 31, -30, 0, "2022-02-28 08:00:00"},
  };
  for (const auto& c : cases) {
    TIMEDATE v = local_timedate(c.y, c.m, c.d, 8, 0);
    ASSERT_FALSE(TimeDateAdjust(&v, 0, 0, 0, 0, c.months, c.years));
    EXPECT_EQ(show(v), c.expected) << c.y << "-" << c.m << "-" << c.d << " " << c.months << "m " << c.years << "y";
  }
}

TEST(TimeDateAdjust, DaysKeepTheLocalClockAcrossDaylightSavingHoursDoNot) {
  ScopedTimeZone zone("America/New_York");
  const TIMEDATE before = local_timedate(2024, 3, 9, 9, 0);
  TIMEDATE next_day = before;
  ASSERT_FALSE(TimeDateAdjust(&next_day, 0, 0, 0, 1, 0, 0));
  EXPECT_EQ(show(next_day), "2024-03-10 09:00:00");
  EXPECT_EQ(TimeDateDifference(&next_day, &before), 23 * 3600);
  EXPECT_EQ(next_day.Innards[1] & ~TIMEDATE_JULIAN_MASK, before.Innards[1] & ~TIMEDATE_JULIAN_MASK)
      << "zone bits unchanged";

  TIMEDATE later = before;
  ASSERT_FALSE(TimeDateAdjust(&later, 0, 0, 24, 0, 0, 0));
  EXPECT_EQ(show(later), "2024-03-10 10:00:00");

  TIMEDATE autumn = local_timedate(2024, 11, 2, 18, 0);
  ASSERT_FALSE(TimeDateAdjust(&autumn, 0, 0, 0, 1, 0, 0));
  EXPECT_EQ(show(autumn), "2024-11-03 18:00:00");

  // Landing in the skipped hour moves on by the length of the gap.
  TIMEDATE skipped = local_timedate(2024, 3, 9, 2, 30);
  ASSERT_FALSE(TimeDateAdjust(&skipped, 0, 0, 0, 1, 0, 0));
  EXPECT_EQ(show(skipped), "2024-03-10 03:30:00");

  // Back to local midnight by the clock fields, as callers do.
  TIMEDATE now = local_timedate(2024, 7, 4, 15, 42, 17);
  TIME t{};
  t.GM = now;
  ASSERT_FALSE(TimeGMToLocal(&t));
  ASSERT_FALSE(TimeDateAdjust(&now, -t.second, -t.minute, -t.hour, 0, 0, 0));
  EXPECT_EQ(show(now), "2024-07-04 00:00:00");
}

TEST(TimeDateAdjust, PartialValuesAndRange) {
  ScopedTimeZone zone("UTC");
  TIMEDATE time_only{{23 * 360000, ANYDAY}};
  ASSERT_FALSE(TimeDateAdjust(&time_only, 0, 30, 1, 5, 0, 0));
  EXPECT_EQ(time_only.Innards[0], 30u * 6000) << "wraps past midnight; days ignored";
  EXPECT_EQ(time_only.Innards[1], ANYDAY);

  TIMEDATE date = local_date(2024, 2, 28);
  ASSERT_FALSE(TimeDateAdjust(&date, 0, 0, 48, 1, 0, 0));
  EXPECT_EQ(show(date), "2024-02-29 00:00:00") << "hours ignored";

  TIMEDATE last = local_timedate(32767, 12, 31, 12, 0);
  const TIMEDATE saved = last;
  EXPECT_TRUE(TimeDateAdjust(&last, 0, 0, 0, 1, 0, 0));
  EXPECT_EQ(last.Innards[0], saved.Innards[0]);
  EXPECT_EQ(last.Innards[1], saved.Innards[1]);
  TIMEDATE first = local_date(1, 1, 1);
  EXPECT_TRUE(TimeDateAdjust(&first, 0, 0, 0, 0, -1, 0));
  TIMEDATE wildcard;
  TimeConstant(TIMEDATE_WILDCARD, &wildcard);
  EXPECT_FALSE(TimeDateAdjust(&wildcard, 1, 1, 1, 1, 1, 1));
  EXPECT_EQ(wildcard.Innards[0], ALLDAY);
}

TEST(TimeDateIncrement, MovesByHundredthsAndNeedsATime) {
  ScopedTimeZone zone("UTC");
  TIMEDATE td = local_timedate(2023, 12, 31, 23, 59, 59);
  td.Innards[0] += 99;
  ASSERT_EQ(TimeDateIncrement(&td, 1), NOERROR);
  EXPECT_EQ(show(td), "2024-01-01 00:00:00");
  ASSERT_EQ(TimeDateIncrement(&td, -8640000), NOERROR);
  EXPECT_EQ(show(td), "2023-12-31 00:00:00");
  TIMEDATE date = local_date(2024, 1, 1);
  EXPECT_EQ(TimeDateIncrement(&date, 100), ERR_TREQ);
  EXPECT_EQ(date.Innards[0], ALLDAY);
}

TEST(TimeDateCompare, DifferencesOrderAndWildcards) {
  ScopedTimeZone zone("Europe/Berlin");
  const TIMEDATE a = local_timedate(2024, 3, 31, 1, 0);
  const TIMEDATE b = local_timedate(2024, 3, 31, 4, 0);  // two hours later: clocks went forward
  EXPECT_EQ(TimeDateDifference(&b, &a), 7200);
  EXPECT_EQ(TimeDateDifference(&a, &b), -7200);
  EXPECT_EQ(TimeDateCompare(&a, &b), -1);
  EXPECT_EQ(TimeDateCompare(&b, &a), 1);
  EXPECT_EQ(TimeDateCompare(&a, &a), 0);
  TIMEDATE a_plus = a;
  a_plus.Innards[0] += 150;
  NUMBER seconds = 0;
  TimeDateDifferenceFloat(&a_plus, &a, &seconds);
  EXPECT_DOUBLE_EQ(seconds, 1.5);
  EXPECT_EQ(TimeDateDifference(&a_plus, &a), 1);

  // The same instant recorded in another zone is equal.
  TIME india{};
  india.GM = a;
  india.zone = -3005;
  ASSERT_FALSE(TimeGMToLocalZone(&india));
  ASSERT_FALSE(TimeLocalToGM(&india));
  EXPECT_NE(india.GM.Innards[1], a.Innards[1]);
  EXPECT_TRUE(TimeDateEqual(&india.GM, &a));
  EXPECT_FALSE(TimeDateEqual(&a_plus, &a));

  // Wildcards match their part.
  TIMEDATE any_time{{ALLDAY, a.Innards[1]}};
  TIMEDATE any_date{{a.Innards[0], ANYDAY}};
  TIMEDATE wildcard;
  TimeConstant(TIMEDATE_WILDCARD, &wildcard);
  EXPECT_EQ(TimeDateCompare(&any_time, &a), 0);
  EXPECT_EQ(TimeDateCompare(&any_date, &a), 0);
  EXPECT_EQ(TimeDateCompare(&wildcard, &b), 0);
  EXPECT_EQ(TimeDateCompare(&any_date, &a_plus), -1);

  TIMEDATE minimum, maximum;
  TimeConstant(TIMEDATE_MINIMUM, &minimum);
  TimeConstant(TIMEDATE_MAXIMUM, &maximum);
  EXPECT_EQ(minimum.Innards[0] | minimum.Innards[1], 0u);
  EXPECT_EQ(maximum.Innards[0], 0u);
  EXPECT_EQ(maximum.Innards[1], 0x00FFFFFFu);
  EXPECT_EQ(TimeDateCompare(&minimum, &a), -1);
  EXPECT_EQ(TimeDateCompare(&maximum, &a), 1);
  TIMEDATE cleared = a;
  TimeDateClear(&cleared);
  EXPECT_EQ(TimeDateCompare(&cleared, &minimum), 0);
  EXPECT_EQ(TimeDateDifference(&maximum, &minimum), 0x7FFFFFFF) << "clamped to a LONG";
}

}  // namespace
