// International settings from notes.ini and the text forms of TIMEDATE.
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "globerr.h"
#include "intl.h"
#include "osenv.h"
#include "ostime.h"
#include "testing/temp_data_directory.h"
#include "time/scoped_time_zone.h"
#include "time/test_times.h"

namespace {

namespace fs = std::filesystem;
using tarnwick::rt::ScopedTimeZone;
using tarnwick::rt::testing::local_date;
using tarnwick::rt::testing::local_timedate;

constexpr TFMT kDefault{TDFMT_FULL, TTFMT_FULL, TZFMT_NEVER, TSFMT_DATETIME};

class TimeText : public ::testing::Test {
 protected:
  tarnwick::testing::TempDataDirectory data_{"[Notes]\n"};

  static DWORD julian(int year, int month, int day) {
    return tarnwick::rt::testing::local_date(year, month, day).Innards[1];
  }

  static std::string text(const TIMEDATE& td, const TFMT& format = kDefault, const INTLFORMAT* intl = nullptr) {
    char buffer[MAXALPHATIMEDATE + 1];
    WORD length = 0;
    const STATUS status = ConvertTIMEDATEToText(intl, &format, &td, buffer, MAXALPHATIMEDATE, &length);
    if (status != NOERROR) return "error " + std::to_string(status);
    return std::string(buffer, length);
  }

  static STATUS parse(const std::string& input, TIMEDATE& out, const TFMT* format = nullptr) {
    std::string copy = input;
    char* p = copy.data();
    return ConvertTextToTIMEDATE(nullptr, format, &p, static_cast<WORD>(copy.size()), &out);
  }

};

TEST_F(TimeText, IntlSettingsDefaultsLayoutAndNotesIni) {
  ScopedTimeZone zone("America/New_York");
  INTLFORMAT intl;
  std::memset(&intl, 0x5A, sizeof intl);
  OSGetIntlSettings(&intl, sizeof intl);
  EXPECT_EQ(intl.Length, 140);
  EXPECT_EQ(intl.Flags, DATE_MDY | DATE_4DIGIT_YEAR | NUMBER_LEADING_ZERO | DAYLIGHT_SAVINGS);
  EXPECT_EQ(intl.TimeZone, 5) << "hours added to local time to get GMT";
  EXPECT_EQ(intl.CurrencyDigits, 2);
  EXPECT_STREQ(intl.AMString, "AM");
  EXPECT_STREQ(intl.PMString, "PM");
  EXPECT_STREQ(intl.CurrencyString, "$");
  EXPECT_STREQ(intl.ThousandString, ",");
  EXPECT_STREQ(intl.DecimalString, ".");
  EXPECT_STREQ(intl.DateString, "/");
  EXPECT_STREQ(intl.TimeString, ":");
  EXPECT_STREQ(intl.YesterdayString, "Yesterday");
  EXPECT_STREQ(intl.TodayString, "Today");
  EXPECT_STREQ(intl.TomorrowString, "Tomorrow");

  OSSetEnvironmentVariable("DateOrder", "dmy");
  OSSetEnvironmentVariable("ClockType", "24_HOUR");
  OSSetEnvironmentVariable("FourDigitYear", "0");
  OSSetEnvironmentVariable("DateSeparator", "-");
  OSSetEnvironmentVariable("AMString", "vormittags");  // longer than the field
  OSSetEnvironmentVariable("CurrencySymbol", "EUR");
  OSSetEnvironmentVariable("CurrencyPosition", "suffix");
  OSSetEnvironmentVariable("TodayString", "Heute");
  ScopedTimeZone india("Asia/Kolkata");
  OSGetIntlSettings(&intl, sizeof intl);
  EXPECT_EQ(intl.Flags, DATE_DMY | CLOCK_24_HOUR | NUMBER_LEADING_ZERO | CURRENCY_SUFFIX);
  EXPECT_EQ(intl.TimeZone, -3005);
  EXPECT_STREQ(intl.AMString, "vorm");
  EXPECT_STREQ(intl.DateString, "-");
  EXPECT_STREQ(intl.CurrencyString, "EUR");
  EXPECT_STREQ(intl.TodayString, "Heute");

  // A short buffer gets only its own bytes.
  unsigned char small[16];
  std::memset(small, 0xEE, sizeof small);
  OSGetIntlSettings(reinterpret_cast<INTLFORMAT*>(small), 10);
  EXPECT_EQ(small[3], 10) << "Length tells how much was written";
  EXPECT_EQ(small[8], 'v');
  EXPECT_EQ(small[10], 0xEE);
}

TEST_F(TimeText, DefaultFormsFollowTheSettings) {
  ScopedTimeZone zone("America/New_York");
  const TIMEDATE morning = local_timedate(2021, 3, 9, 10, 37, 0);
  const TIMEDATE evening = local_timedate(1991, 12, 16, 18, 13, 32);
  EXPECT_EQ(text(morning), "03/09/2021 10:37:00 AM");
  EXPECT_EQ(text(evening), "12/16/1991 06:13:32 PM");
  EXPECT_EQ(text(local_timedate(2021, 3, 9, 0, 5)), "03/09/2021 12:05:00 AM");
  EXPECT_EQ(text(local_timedate(2021, 3, 9, 12, 5)), "03/09/2021 12:05:00 PM");
  EXPECT_EQ(text(local_date(2021, 3, 9)), "03/09/2021");
  EXPECT_EQ(text(TIMEDATE{{(22 * 3600 + 5 * 60) * 100, ANYDAY}}), "10:05:00 PM");
  EXPECT_EQ(text(local_date(95, 6, 23)), "06/23/0095");

  OSSetEnvironmentVariable("FourDigitYear", "0");
  EXPECT_EQ(text(evening), "12/16/91 06:13:32 PM");
  EXPECT_EQ(text(morning), "03/09/2021 10:37:00 AM") << "two digits only for 1950-1999";
  EXPECT_EQ(text(evening, TFMT{TDFMT_FULL4, TTFMT_FULL, TZFMT_NEVER, TSFMT_DATETIME}), "12/16/1991 06:13:32 PM");

  OSSetEnvironmentVariable("DateOrder", "DMY");
  OSSetEnvironmentVariable("DateSeparator", "-");
  EXPECT_EQ(text(local_timedate(2021, 3, 5, 11, 30, 22)), "05-03-2021 11:30:22 AM");
  OSSetEnvironmentVariable("DateOrder", "YMD");
  OSSetEnvironmentVariable("DateSeparator", ".");
  OSSetEnvironmentVariable("ClockType", "24_HOUR");
  OSSetEnvironmentVariable("TimeSeparator", "h");
  EXPECT_EQ(text(local_timedate(2021, 3, 5, 23, 30, 22)), "2021.03.05 23h30h22");
  EXPECT_EQ(text(local_timedate(2021, 3, 5, 7, 3, 2)), "2021.03.05 07h03h02");
}

TEST_F(TimeText, FormatsSelectTheParts) {
  ScopedTimeZone zone("Europe/Berlin");
  TIMEDATE now;
  OSCurrentTIMEDATE(&now);
  TIME parts{};
  parts.GM = now;
  ASSERT_FALSE(TimeGMToLocal(&parts));
  const TIMEDATE value = local_timedate(1993, 4, 11, 10, 43, 30, 25);
  auto with = [&](BYTE d, BYTE t, BYTE s, const TIMEDATE& v) { return text(v, TFMT{d, t, TZFMT_NEVER, s}); };
  EXPECT_EQ(with(TDFMT_CPARTIAL, TTFMT_FULL, TSFMT_DATE, value), "04/11/1993") << "not this year: with year";
  const TIMEDATE this_year = local_timedate(parts.year, 4, 11, 10, 43);
  EXPECT_EQ(with(TDFMT_CPARTIAL, TTFMT_FULL, TSFMT_DATE, this_year), "04/11");
  EXPECT_EQ(with(TDFMT_PARTIAL, TTFMT_FULL, TSFMT_DATE, value), "04/11");
  EXPECT_EQ(with(TDFMT_DPARTIAL, TTFMT_PARTIAL, TSFMT_DATETIME, value), "04/1993 10:43 AM");
  EXPECT_EQ(with(TDFMT_FULL, TTFMT_FULL, TSFMT_TIME, value), "10:43:30 AM");
  EXPECT_EQ(with(TDFMT_FULL, TTFMT_HOUR, TSFMT_TIME, value), "10 AM");
  EXPECT_EQ(with(TDFMT_FULL, TTFMT_FULL_MAX, TSFMT_TIME, value), "10:43:30.25 AM");

  // Today, Yesterday, Tomorrow.
  TIMEDATE yesterday = now, tomorrow = now, later = now;
  ASSERT_FALSE(TimeDateAdjust(&yesterday, 0, 0, 0, -1, 0, 0));
  ASSERT_FALSE(TimeDateAdjust(&tomorrow, 0, 0, 0, 1, 0, 0));
  ASSERT_FALSE(TimeDateAdjust(&later, 0, 0, 0, 5, 0, 0));
  EXPECT_EQ(with(TDFMT_FULL, TTFMT_PARTIAL, TSFMT_CDATETIME, now).rfind("Today ", 0), 0u);
  EXPECT_EQ(with(TDFMT_FULL, TTFMT_PARTIAL, TSFMT_CDATETIME, yesterday).rfind("Yesterday ", 0), 0u);
  EXPECT_EQ(with(TDFMT_FULL, TTFMT_PARTIAL, TSFMT_CDATE, tomorrow), "Tomorrow");
  EXPECT_EQ(with(TDFMT_FULL, TTFMT_PARTIAL, TSFMT_CDATETIME, later).find("day"), std::string::npos);
  TIMEDATE today_only;
  TimeExtractLocal(&now, FALSE, &today_only);
  EXPECT_EQ(with(TDFMT_FULL, TTFMT_FULL, TSFMT_CDATETIME, today_only), "Today");

  // Bad formats, bad values, bad settings.
  EXPECT_EQ(with(7, TTFMT_FULL, TSFMT_DATE, value), "error " + std::to_string(ERR_TFMT));
  EXPECT_EQ(with(TDFMT_FULL, TTFMT_FULL, 5, value), "error " + std::to_string(ERR_TFMT));
  EXPECT_EQ(text(TIMEDATE{{8640000, 2460000}}), "error " + std::to_string(ERR_TDO_CONV));
  EXPECT_EQ(text(TIMEDATE{{0, 0}}), "error " + std::to_string(ERR_TDO_CONV));
  INTLFORMAT intl;
  OSGetIntlSettings(&intl, sizeof intl);
  std::strcpy(intl.PMString, "pm");
  intl.Flags |= TIME_AMPM_PREFIX;
  EXPECT_EQ(text(local_timedate(2021, 3, 9, 15, 0), kDefault, &intl), "03/09/2021 pm 03:00:00");
  intl.Length = 0;
  EXPECT_EQ(text(value, kDefault, &intl), "error " + std::to_string(ERR_IFMT));
}

TEST_F(TimeText, ZonesAndBufferLimits) {
  ScopedTimeZone zone("America/New_York");
  TIME india{};
  india.year = 2024;
  india.month = 7;
  india.day = 1;
  india.hour = 9;
  india.zone = -3005;
  ASSERT_FALSE(TimeLocalToGM(&india));
  const auto zoned = [](BYTE z) { return TFMT{TDFMT_FULL, TTFMT_FULL, z, TSFMT_DATETIME}; };
  EXPECT_EQ(text(india.GM), "06/30/2024 11:30:00 PM") << "New York time";
  EXPECT_EQ(text(india.GM, zoned(TZFMT_SOMETIMES)), "07/01/2024 09:00:00 AM ZE5B");
  EXPECT_EQ(text(india.GM, zoned(TZFMT_ALWAYS)), "07/01/2024 09:00:00 AM ZE5B");
  const TIMEDATE summer = local_timedate(2024, 7, 1, 9, 0), winter = local_timedate(2024, 1, 1, 9, 0);
  EXPECT_EQ(text(summer, zoned(TZFMT_SOMETIMES)), "07/01/2024 09:00:00 AM");
  EXPECT_EQ(text(summer, zoned(TZFMT_ALWAYS)), "07/01/2024 09:00:00 AM EDT");
  EXPECT_EQ(text(winter, zoned(TZFMT_ALWAYS)), "01/01/2024 09:00:00 AM EST");

  char buffer[12];
  std::memset(buffer, '#', sizeof buffer);
  WORD length = 99;
  ASSERT_EQ(ConvertTIMEDATEToText(nullptr, nullptr, &winter, buffer, 5, &length), NOERROR);
  EXPECT_EQ(length, 5);
  EXPECT_EQ(std::string(buffer, sizeof buffer), "01/01#######");
}

TEST_F(TimeText, ReadsWhatItPrintsAndCommonVariants) {
  ScopedTimeZone zone("America/New_York");
  TIMEDATE now;
  OSCurrentTIMEDATE(&now);
  TIME today{};
  today.GM = now;
  ASSERT_FALSE(TimeGMToLocal(&today));

  // Round trips through every structure and several settings.
  const TIMEDATE values[] = {local_timedate(2021, 3, 9, 10, 37, 0), local_timedate(1991, 12, 16, 18, 13, 32),
                             local_timedate(2024, 2, 29, 0, 0, 59), local_timedate(2024, 11, 3, 0, 30),
                             local_date(2100, 2, 28),       TIMEDATE{{(13 * 3600 + 1) * 100, ANYDAY}}};
  for (const char* order : {"MDY", "DMY", "YMD"}) {
    OSSetEnvironmentVariable("DateOrder", order);
    for (const char* clock : {"12_HOUR", "24_HOUR"}) {
      OSSetEnvironmentVariable("ClockType", clock);
      for (const TIMEDATE& v : values) {
        const std::string printed = text(v);
        TIMEDATE back{};
        ASSERT_EQ(parse(printed, back), NOERROR) << printed;
        EXPECT_EQ(back.Innards[0], v.Innards[0]) << printed << " " << order;
        EXPECT_EQ(back.Innards[1], v.Innards[1]) << printed << " " << order;
      }
    }
  }
  OSSetEnvironmentVariable("DateOrder", "MDY");
  OSSetEnvironmentVariable("ClockType", "12_HOUR");

  struct Case {
    const char* input;
    const char* expected;  // printed back with the default format
  } cases[] = {
      {"1/2/2026", "01/02/2026"},
      {" 01/02/2026 10:00", "01/02/2026 10:00:00 AM"},
      {"10:00 PM", "10:00:00 PM"},
      {"10 pm", "10:00:00 PM"},
      {"12:00 AM", "12:00:00 AM"},
      {"12 PM", "12:00:00 PM"},
      {"2026-01-02", "01/02/2026"},
      {"2026-07-02T10:00:00", "07/02/2026 10:00:00 AM"},
      {"1.2.26 23:59:59", "01/02/2026 11:59:59 PM"},
      {"1/2/95", "01/02/1995"},
      {"6/15/02 5:30 PM", "06/15/2002 05:30:00 PM"},
      {"01/02/2026 10:00 EST", "01/02/2026 10:00:00 AM"},
      {"07/02/2026 10:00 EDT", "07/02/2026 10:00:00 AM"},
      {"01/02/2026 15:00 GMT", "01/02/2026 10:00:00 AM"},
      {"01/02/2026 20:30 ZE5B", "01/02/2026 10:00:00 AM"},
      {"01/2026", "01/01/2026"},
      {"10:00:00.5", "10:00:00 AM"},
      {"Jan 2, 2026", "01/02/2026"},
      {"january 2 2026 10:00 pm", "01/02/2026 10:00:00 PM"},
      {"2-Feb-1996", "02/02/1996"},
      {"29 Feb 2024 13:15", "02/29/2024 01:15:00 PM"},
  };
  for (const auto& c : cases) {
    TIMEDATE got{};
    ASSERT_EQ(parse(c.input, got), NOERROR) << c.input;
    EXPECT_EQ(text(got), c.expected) << c.input;
  }
  TIMEDATE got{};
  ASSERT_EQ(parse("10:00:00.5", got), NOERROR);
  EXPECT_EQ(got.Innards[0], 3600000u + 50);
  ASSERT_EQ(parse("01/02/2026 20:30 ZE5B", got), NOERROR);
  EXPECT_EQ(got.Innards[1] >> 24, 0x65u) << "keeps the zone it was written in";
  ASSERT_EQ(parse("12/25", got), NOERROR);
  EXPECT_EQ(text(got), "12/25/" + std::to_string(today.year)) << "this year";
  ASSERT_EQ(parse("Today 12", got), NOERROR);
  EXPECT_EQ(text(got, TFMT{TDFMT_FULL, TTFMT_FULL, TZFMT_NEVER, TSFMT_CDATETIME}), "Today 12:00:00 PM");
  ASSERT_EQ(parse("tomorrow", got), NOERROR);
  EXPECT_EQ(got.Innards[0], ALLDAY);
  EXPECT_EQ(text(got, TFMT{TDFMT_FULL, TTFMT_FULL, TZFMT_NEVER, TSFMT_CDATE}), "Tomorrow");

  OSSetEnvironmentVariable("DateOrder", "DMY");
  ASSERT_EQ(parse("02/01/2026", got), NOERROR);
  EXPECT_EQ(got.Innards[1], julian(2026, 1, 2));
}

TEST_F(TimeText, RejectsInvalidTextAndStopsWhereTheValueEnds) {
  ScopedTimeZone zone("Europe/Berlin");
  for (const char* bad : {"",
                          "   ",
                          "hello",
                          "13/45/2026",
                          "2/30/2026",
                          "2/29/2100",
                          "0/1/2026",
                          "1/2/2026 25:00",
                          "1/2/2026 10:61",
                          "13:00 PM",
                          "0 AM",
                          "1/2/2026xyz",
                          "99999/1/1",
                          "1/2/2026 10:00 XYZ",
                          "10",
                          "10:",
                          "1/",
                          "//",
                          "123456789012/1/1",
                          "Feb 30 2024",
                          "30 Foo 2024"}) {
    TIMEDATE out{{7, 7}};
    EXPECT_EQ(parse(bad, out), ERR_TDO_CONV) << '"' << bad << '"';
    EXPECT_EQ(out.Innards[0], 7u) << bad;
  }
  TIMEDATE out{};
  const TFMT time_only{TDFMT_FULL, TTFMT_FULL, TZFMT_NEVER, TSFMT_TIME};
  ASSERT_EQ(parse("10", out, &time_only), NOERROR) << "a lone hour when a time is asked for";
  EXPECT_EQ(out.Innards[0], 3600000u);
  const TFMT bad_format{TDFMT_FULL, 9, TZFMT_NEVER, TSFMT_DATE};
  EXPECT_EQ(parse("1/2/2026", out, &bad_format), ERR_TFMT);

  char list[] = "1/2/2026 10:00; 1/3/2026";
  char* p = list;
  ASSERT_EQ(ConvertTextToTIMEDATE(nullptr, nullptr, &p, sizeof list - 1, &out), NOERROR);
  EXPECT_EQ(p - list, 14);
  EXPECT_NE(out.Innards[0], ALLDAY);
  p = list;
  ASSERT_EQ(ConvertTextToTIMEDATE(nullptr, nullptr, &p, 8, &out), NOERROR) << "reads no further than MaxLength";
  EXPECT_EQ(p - list, 8);
  EXPECT_EQ(out.Innards[0], ALLDAY);
  EXPECT_EQ(ConvertTextToTIMEDATE(nullptr, nullptr, nullptr, 8, &out), ERR_TDO_CONV);
}

}  // namespace
