#include "iso8601.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace tarnwick::client {
namespace {

class TimeText : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* old = std::getenv("TZ");
    saved_ = old ? old : "";
    had_ = old != nullptr;
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
  }
  void TearDown() override {
    if (had_) {
      setenv("TZ", saved_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }
  std::string saved_;
  bool had_ = false;
};

TEST_F(TimeText, InstantsRoundTripThroughTheLocalZone) {
  const auto winter = parse_iso8601("2026-03-02T09:30:00+01:00");
  ASSERT_TRUE(winter);
  EXPECT_EQ(winter->Innards[0], 8u * 360000 + 30u * 6000);  // 08:30 GMT
  EXPECT_EQ(winter->Innards[1] & 0x00FFFFFFu, 2461102u);    // Julian day of 2 March 2026
  EXPECT_EQ(iso8601(*winter), "2026-03-02T09:30:00+01:00");

  // Given in another zone, shown in the local one (summer time here).
  const auto summer = parse_iso8601("2026-07-01T22:15:30.25Z");
  ASSERT_TRUE(summer);
  EXPECT_EQ(iso8601(*summer), "2026-07-02T00:15:30.25+02:00");
  EXPECT_EQ(iso8601(*parse_iso8601("2026-07-01T12:00:00-0530")), "2026-07-01T19:30:00+02:00");
}

// Found by fuzzing: a zone's offset of old (local mean time, with seconds)
// and instants at the ends of the four-digit years must still print text
// that reads back as the same instant.
TEST_F(TimeText, OldZoneOffsetsAndTheEndsOfTheYearsRoundTrip) {
  setenv("TZ", "Europe/Berlin", 1);  // +00:53:28 before 1893
  tzset();
  const auto old = parse_iso8601("1013-03-29T02:30+0100");
  ASSERT_TRUE(old);
  const std::string printed = iso8601(*old);
  EXPECT_EQ(printed, "1013-03-29T02:23:00+00:53");
  const auto again = parse_iso8601(printed);
  ASSERT_TRUE(again);
  EXPECT_EQ(iso8601(*again), printed);
  EXPECT_EQ(again->Innards[0], old->Innards[0]);

  EXPECT_FALSE(parse_iso8601("9999-12-31T23:00-14:00")) << "its text here would need a five-digit year";
  EXPECT_FALSE(parse_iso8601("0000-01-01T00:30+01:00"));
  EXPECT_TRUE(parse_iso8601("9999-12-30T12:00Z"));
}

TEST_F(TimeText, DateOnlyAndTimeOnlyValues) {
  const auto date = parse_iso8601("2024-02-29");
  ASSERT_TRUE(date);
  EXPECT_EQ(date->Innards[0], 0xFFFFFFFFu);
  EXPECT_EQ(iso8601(*date), "2024-02-29");
  TIMEDATE time_only{{3600u * 100 * 13, 0xFFFFFFFFu}};
  EXPECT_EQ(iso8601(time_only), "13:00:00");
  TIMEDATE wild{{0xFFFFFFFFu, 0xFFFFFFFFu}};
  EXPECT_EQ(iso8601(wild), "");
}

TEST_F(TimeText, RejectsWhatIsNotAZonedTime) {
  for (const char* text : {"", "2026-03-02T09:30", "2026-13-01T00:00Z", "2025-02-29", "2026-03-02T24:00Z",
                           "2026-03-02T09:30:00+1", "2026-03-02T09:30:00+01:00x", "yesterday", "2026-3-2"}) {
    EXPECT_FALSE(parse_iso8601(text)) << text;
  }
}

TEST_F(TimeText, LocalDateTimesForRequests) {
  const auto parsed = parse_local_date_time("2026-12-24T17:05");
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->year, 2026);
  EXPECT_EQ(parsed->month, 12);
  EXPECT_EQ(parsed->day, 24);
  EXPECT_EQ(parsed->hour, 17);
  EXPECT_EQ(parsed->minute, 5);
  EXPECT_EQ(parsed->second, 0);
  EXPECT_FALSE(parse_local_date_time("2026-12-24"));
  EXPECT_FALSE(parse_local_date_time("2026-12-24T17:05+01:00"));
}

}  // namespace
}  // namespace tarnwick::client
