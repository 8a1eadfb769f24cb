// Local calendar view of TIMEDATE values for the formula language, on top of
// the runtime's time functions: the same local zone and daylight-saving
// rules (ostime.h), international settings (intl.h) and text forms as
// ConvertTIMEDATEToText / ConvertTextToTIMEDATE.
//
// Values are kept in GMT with the zone bits of where they were made; their
// components are read in the operating system's zone (TZ). A date-only value
// ({ALLDAY, Julian day}) and a time-only value ({ticks, ANYDAY}) carry no
// zone and are read as they are. Thread-safe.
#pragma once

#include <string_view>

#include "global.h"
#include "intl.h"

namespace tarnwick::rt::formula {

struct LocalTime {
  bool has_date = true;
  bool has_time = true;
  int year = 0, month = 0, day = 0;
  int weekday = 0;  // 1 = Sunday
  int hour = 0, minute = 0, second = 0, hundredth = 0;
};

// Local components of a time; false for a value that is no valid time.
bool to_local(const TIMEDATE& t, LocalTime& out);
// The time for local components (date only / time only when the other part
// is absent). Out-of-range fields carry over (month 13 = January next year,
// minute 60 = the next hour). False when the result is not representable.
bool from_local(const LocalTime& local, TIMEDATE& out);

TIMEDATE current_time();
// Today's local date plus `days`, as a date-only value.
TIMEDATE local_date(int days_from_today);

// The runtime's international settings, read again when notes.ini changes.
// The reference stays valid until the next call on the same thread.
const INTLFORMAT& intl_settings();

// While one is alive on a thread, intl_settings() looks at notes.ini only
// on its first call there: one formula run, or one computation of a note
// with its form, uses one set of settings throughout. Holds nest.
class SettingsHold {
 public:
  SettingsHold();
  ~SettingsHold();
  SettingsHold(const SettingsHold&) = delete;
  SettingsHold& operator=(const SettingsHold&) = delete;
};

// A whole text read as a time-date the way ConvertTextToTIMEDATE reads it
// (date order, separators and Today/Yesterday/Tomorrow words of the
// international settings; a date without a year is in the current year).
// Spaces may surround the value; anything else makes it fail.
bool time_from_text(std::string_view text, TIMEDATE& out);

}  // namespace tarnwick::rt::formula
