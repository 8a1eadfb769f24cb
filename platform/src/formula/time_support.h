// Local calendar view of TIMEDATE values for the formula language: time-date
// constants, @Date, @Year..., @Adjust and @Today work on local dates and
// times; values are kept in GMT with the zone bits of where they were made.
//
// Local time is the operating system's zone (TZ). A date-only value
// ({ALLDAY, Julian day}) and a time-only value ({ticks, ANYDAY}) carry no
// zone and are read as they are. Thread-safe.
#pragma once

#include "formula/syntax.h"
#include "global.h"

namespace tarnwick::rt::formula {

struct LocalTime {
  bool has_date = true;
  bool has_time = true;
  int year = 0, month = 0, day = 0;
  int weekday = 0;  // 1 = Sunday
  int hour = 0, minute = 0, second = 0, hundredth = 0;
};

bool is_date_only(const TIMEDATE& t);
bool is_time_only(const TIMEDATE& t);

// Local components of a time; false for a value that is no valid time.
bool to_local(const TIMEDATE& t, LocalTime& out);
// The time for local components (date only / time only when the other part
// is absent). Out-of-range fields carry over (month 13 = January next year).
// False when the result is not representable.
bool from_local(const LocalTime& local, TIMEDATE& out);

TIMEDATE current_time();
// Today's local date plus `days`, as a date-only value.
TIMEDATE local_date(int days_from_today);

// The value of a [time-date] constant; a constant without a year is in the
// current year.
bool time_from_constant(const TimeConstant& constant, TIMEDATE& out);

}  // namespace tarnwick::rt::formula
