// Conversions between TIME and TIMEDATE, checked against the documented
// examples and against the C library's own zone functions as an oracle.
#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ostime.h"
#include "time/scoped_time_zone.h"
#include "time/test_times.h"

namespace {

using tarnwick::rt::ScopedTimeZone;

using tarnwick::rt::testing::make_time;

TIME local_time(int year, int month, int day, int hour, int minute, int second = 0) {
  int zone = 0, dst = 0;
  OSCurrentTimeZone(&zone, &dst);
  return make_time(year, month, day, hour, minute, second, zone, dst);
}

int64_t unix_seconds(const TIMEDATE& td) {
  return (static_cast<int64_t>(td.Innards[1] & TIMEDATE_JULIAN_MASK) - 2440588) * 86400 + td.Innards[0] / 100;
}

TIMEDATE from_unix(std::time_t t) {
  TIMEDATE td;
  td.Innards[0] = static_cast<DWORD>((t % 86400) * 100);
  td.Innards[1] = static_cast<DWORD>(t / 86400 + 2440588);
  return td;
}

std::time_t oracle_local_to_gmt(int year, int month, int day, int hour, int minute, int isdst) {
  std::tm tm{};
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_isdst = isdst;
  return std::mktime(&tm);
}

TEST(TimeConversion, DocumentedExamples) {
  ScopedTimeZone utc("UTC");  // the stored zone, not the machine's, decides
  TIME est = make_time(1996, 12, 10, 14, 49, 4, 5, 1);
  ASSERT_FALSE(TimeLocalToGM(&est));
  EXPECT_EQ(est.GM.Innards[0], 0x006CDCC0u);
  EXPECT_EQ(est.GM.Innards[1], 0x852563FCu);

  TIME bombay = make_time(1996, 12, 11, 1, 19, 4, -3005, 0);
  ASSERT_FALSE(TimeLocalToGM(&bombay));
  EXPECT_EQ(bombay.GM.Innards[0], 0x006CDCC0u) << "the same moment";
  EXPECT_EQ(bombay.GM.Innards[1], 0x652563FCu);
  EXPECT_EQ(TimeDateCompare(&est.GM, &bombay.GM), 0);

  // The toolkit's GMT sample on an India machine.
  ScopedTimeZone india("Asia/Kolkata");
  TIME sample{};
  sample.GM.Innards[0] = 0x18019D;
  sample.GM.Innards[1] = 0x65258693;
  sample.zone = -3005;
  ASSERT_FALSE(TimeGMToLocalZone(&sample));
  EXPECT_EQ(sample.year, 2021);
  EXPECT_EQ(sample.month, 3);
  EXPECT_EQ(sample.day, 9);
  EXPECT_EQ(sample.hour * 10000 + sample.minute * 100 + sample.second, 95212);
  EXPECT_EQ(sample.hundredth, 77);
  sample.zone = 0;
  ASSERT_FALSE(TimeGMToLocalZone(&sample));
  EXPECT_EQ(sample.hour * 10000 + sample.minute * 100 + sample.second, 42212);
  ASSERT_FALSE(TimeGMToLocal(&sample)) << "ignores the caller's zone";
  EXPECT_EQ(sample.hour * 10000 + sample.minute * 100 + sample.second, 95212);
  EXPECT_EQ(sample.zone, -3005);
  EXPECT_EQ(sample.dst, 0);
  EXPECT_EQ(sample.weekday, 3) << "Tuesday";

  TIMEDATE constructed;
  TimeConstruct(TimeExtractDate(&sample.GM) & TIMEDATE_JULIAN_MASK, TimeExtractTicks(&sample.GM), &constructed);
  EXPECT_EQ(constructed.Innards[1], 0x258693u);
  EXPECT_TRUE(TimeDateEqual(&constructed, &sample.GM)) << "zone bits are ignored";
  EXPECT_EQ(TimeExtractJulianDate(&sample.GM), 0x258693u);
}

// Every half hour of a year, in zones with northern, southern, half-hour and
// no daylight saving: local fields and weekday as localtime_r gives them, and
// back to the same instant.
TEST(TimeConversion, GmtToLocalMatchesTheCLibraryThroughAYear) {
  for (const char* tz : {"America/New_York", "Europe/Berlin", "Australia/Sydney", "Asia/Kolkata", "UTC"}) {
    ScopedTimeZone zone(tz);
    const std::time_t start = 1704067200;  // 2024-01-01 00:00 GMT
    int failures = 0;
    for (std::time_t t = start; t < start + 366 * 86400 && failures < 5; t += 1800) {
      std::tm expected{};
      localtime_r(&t, &expected);
      TIME got{};
      got.GM = from_unix(t);
      ASSERT_FALSE(TimeGMToLocal(&got));
      const bool same = got.year == expected.tm_year + 1900 && got.month == expected.tm_mon + 1 &&
                        got.day == expected.tm_mday && got.hour == expected.tm_hour && got.minute == expected.tm_min &&
                        got.weekday == expected.tm_wday + 1;
      EXPECT_TRUE(same) << tz << " at " << t << ": got " << got.year << "-" << got.month << "-" << got.day << " "
                        << got.hour << ":" << got.minute;
      TIME back = got;
      ASSERT_FALSE(TimeLocalToGM(&back));
      // Times in the repeated hour read back as the earlier instant.
      const bool repeated = unix_seconds(back.GM) == t - 3600;
      EXPECT_TRUE(unix_seconds(back.GM) == t || repeated) << tz << " at " << t;
      if (!same) ++failures;
    }
  }
}

TEST(TimeConversion, LocalToGmtMatchesTheCLibraryAroundClockChanges) {
  struct Case {
    const char* tz;
    int year, month, day, hour, minute;
    int oracle_isdst;  // -1 unambiguous; else the reading we expect
  } cases[] = {
      // New York: forward 10 Mar 2024 2:00, back 3 Nov 2024 2:00.
      {"America/New_York", 2024, 3, 10, 1, 59, -1},
      {"America/New_York", 2024, 3, 10, 2, 30, 0},  // skipped: read with the offset before
      {"America/New_York", 2024, 3, 10, 3, 0, -1},
      {"America/New_York", 2024, 11, 3, 0, 59, -1},
      {"America/New_York", 2024, 11, 3, 1, 30, 1},  // repeated: the earlier one
      {"America/New_York", 2024, 11, 3, 2, 0, -1},
      {"America/New_York", 2024, 2, 29, 12, 0, -1},
      // Berlin: forward 31 Mar 2024 2:00, back 27 Oct 2024 3:00.
      {"Europe/Berlin", 2024, 3, 31, 2, 30, 0},
      {"Europe/Berlin", 2024, 10, 27, 2, 30, 1},
      {"Europe/Berlin", 2024, 10, 27, 3, 30, -1},
      // Sydney: back 7 Apr 2024 3:00, forward 6 Oct 2024 2:00.
      {"Australia/Sydney", 2024, 4, 7, 2, 30, 1},
      {"Australia/Sydney", 2024, 10, 6, 2, 30, 0},
      {"Australia/Sydney", 2024, 12, 31, 23, 59, -1},
      {"Asia/Kolkata", 2024, 6, 1, 0, 15, -1},
      {"UTC", 2100, 2, 28, 23, 59, -1},
  };
  for (const auto& c : cases) {
    ScopedTimeZone zone(c.tz);
    TIME t = local_time(c.year, c.month, c.day, c.hour, c.minute);
    ASSERT_FALSE(TimeLocalToGM(&t)) << c.tz;
    EXPECT_EQ(unix_seconds(t.GM), oracle_local_to_gmt(c.year, c.month, c.day, c.hour, c.minute, c.oracle_isdst))
        << c.tz << " " << c.month << "/" << c.day << " " << c.hour << ":" << c.minute;
  }
}

// A zone other than the machine's uses the law of its region; checked against
// the C library running in a real zone of that region.
TEST(TimeConversion, ForeignZonesFollowTheirRegionsLaw) {
  struct Foreign {
    const char* tz;
    int zone;
  } zones[] = {{"America/New_York", 5}, {"Europe/Berlin", -1}, {"Australia/Sydney", -10}};
  for (const auto& f : zones) {
    std::vector<std::tm> expected;
    const std::time_t start = 1704067200;
    {
      ScopedTimeZone real(f.tz);
      for (std::time_t t = start; t < start + 366 * 86400; t += 3600) {
        std::tm tm{};
        localtime_r(&t, &tm);
        expected.push_back(tm);
      }
    }
    ScopedTimeZone machine("Asia/Tokyo");
    size_t i = 0;
    int failures = 0;
    for (std::time_t t = start; t < start + 366 * 86400 && failures < 5; t += 3600, ++i) {
      TIME got{};
      got.GM = from_unix(t);
      got.zone = f.zone;
      got.dst = 1;
      ASSERT_FALSE(TimeGMToLocalZone(&got));
      const bool same = got.day == expected[i].tm_mday && got.hour == expected[i].tm_hour;
      EXPECT_TRUE(same) << f.tz << " at " << t;
      if (!same) ++failures;
    }
  }
}

TEST(TimeConversion, RejectsInvalidFieldsAndValues) {
  ScopedTimeZone zone("Europe/Berlin");
  const TIME valid = local_time(2024, 2, 29, 23, 59, 59);
  TIME copy = valid;
  EXPECT_FALSE(TimeLocalToGM(&copy)) << "2024 is a leap year";
  auto fails = [&](auto change) {
    TIME t = valid;
    t.GM = TIMEDATE{{1, 2}};
    change(t);
    const bool failed = TimeLocalToGM(&t) != FALSE;
    return failed && t.GM.Innards[0] == 1 && t.GM.Innards[1] == 2;
  };
  EXPECT_TRUE(fails([](TIME& t) { t.year = 2100; })) << "2100 is not a leap year";
  EXPECT_TRUE(fails([](TIME& t) { t.year = 2023; }));
  EXPECT_TRUE(fails([](TIME& t) { t.day = 30; }));
  EXPECT_TRUE(fails([](TIME& t) { t.month = 13; }));
  EXPECT_TRUE(fails([](TIME& t) { t.month = 0; }));
  EXPECT_TRUE(fails([](TIME& t) { t.hour = 24; }));
  EXPECT_TRUE(fails([](TIME& t) { t.minute = 60; }));
  EXPECT_TRUE(fails([](TIME& t) { t.second = -1; }));
  EXPECT_TRUE(fails([](TIME& t) { t.hundredth = 100; }));
  EXPECT_TRUE(fails([](TIME& t) { t.year = 0; }));
  EXPECT_TRUE(fails([](TIME& t) { t.zone = 2005; })) << "20 minutes is not a zone";
  EXPECT_TRUE(fails([](TIME& t) { t.zone = 16; }));

  TIME minimum{};
  TimeConstant(TIMEDATE_MINIMUM, &minimum.GM);
  EXPECT_TRUE(TimeGMToLocal(&minimum)) << "{0,0} lies before year 1";
  TIME wildcard{};
  TimeConstant(TIMEDATE_WILDCARD, &wildcard.GM);
  EXPECT_TRUE(TimeGMToLocal(&wildcard));
  TIME bad_ticks{};
  bad_ticks.GM = TIMEDATE{{8640000, 2460000}};
  EXPECT_TRUE(TimeGMToLocal(&bad_ticks));
  TIME bad_zone{};
  bad_zone.GM = TIMEDATE{{0, 2460000}};
  bad_zone.zone = 99;
  EXPECT_TRUE(TimeGMToLocalZone(&bad_zone));
}

TEST(TimeConversion, DateOnlyAndTimeOnlyValuesKeepTheirWallClock) {
  ScopedTimeZone zone("Australia/Sydney");
  TIME date_only{};
  date_only.GM = TIMEDATE{{ALLDAY, 2460370}};  // 2024-02-29, a Thursday
  ASSERT_FALSE(TimeGMToLocal(&date_only));
  EXPECT_EQ(date_only.year * 10000 + date_only.month * 100 + date_only.day, 20240229);
  EXPECT_EQ(date_only.weekday, 5);
  EXPECT_EQ(date_only.hour + date_only.minute + date_only.second, 0);

  TIME time_only{};
  time_only.GM = TIMEDATE{{(17 * 3600 + 5 * 60 + 9) * 100 + 42, ANYDAY}};
  ASSERT_FALSE(TimeGMToLocal(&time_only));
  EXPECT_EQ(time_only.hour * 10000 + time_only.minute * 100 + time_only.second, 170509);
  EXPECT_EQ(time_only.hundredth, 42);
  EXPECT_EQ(time_only.year, 0);

  // 2024-02-29 20:00 GMT is already 1 March 07:00 in Sydney.
  TIMEDATE instant{{20 * 360000, 2460370 | 0xCA000000u}};
  TIMEDATE part;
  TimeExtractLocal(&instant, FALSE, &part);
  EXPECT_EQ(part.Innards[0], ALLDAY);
  EXPECT_EQ(part.Innards[1], 2460371u);
  TimeExtractLocal(&instant, TRUE, &part);
  EXPECT_EQ(part.Innards[0], 7u * 360000);
  EXPECT_EQ(part.Innards[1], ANYDAY);
  TimeExtractLocal(&date_only.GM, TRUE, &part);
  EXPECT_EQ(part.Innards[0], ALLDAY) << "no time to extract";
  EXPECT_EQ(part.Innards[1], ANYDAY);
  TimeExtractLocal(&date_only.GM, FALSE, &part);
  EXPECT_EQ(part.Innards[1], 2460370u);
}

}  // namespace
