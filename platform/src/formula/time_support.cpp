// Local calendar conversions through the runtime's time functions.
#include "formula/time_support.h"

#include <optional>
#include <string>

#include "env/environment.h"
#include "ostime.h"
#include "time/intl_settings.h"
#include "time/time_text.h"
#include "time/timedate.h"

namespace tarnwick::rt::formula {
namespace {

constexpr int64_t kTicksPerMinute = 60 * kTicksPerSecond;
constexpr int64_t kTicksPerHour = 60 * kTicksPerMinute;

void fill_date(DWORD julian, LocalTime& out) {
  civil_from_julian(julian, out.year, out.month, out.day);
  out.weekday = weekday_of_julian(julian);
}

void fill_clock(DWORD ticks, LocalTime& out) {
  out.hour = static_cast<int>(ticks / kTicksPerHour);
  out.minute = static_cast<int>(ticks % kTicksPerHour / kTicksPerMinute);
  out.second = static_cast<int>(ticks % kTicksPerMinute / kTicksPerSecond);
  out.hundredth = static_cast<int>(ticks % kTicksPerSecond);
}

bool valid_julian(int64_t julian) { return julian >= kJulianDayOfYear1 && julian <= julian_day(kMaxYear, 12, 31); }

// The Julian day of a local date whose month and day may lie outside their
// ranges; false outside years 1..kMaxYear.
bool normalised_julian(const LocalTime& local, int64_t& julian) {
  const int64_t months = int64_t(local.year) * 12 + (local.month - 1);
  const int64_t year = floor_div(months, 12);
  const int month = static_cast<int>(months - year * 12) + 1;
  if (year < 1 || year > kMaxYear) return false;
  julian = int64_t(julian_day(static_cast<int>(year), month, 1)) + local.day - 1;
  return valid_julian(julian);
}

int64_t clock_ticks(const LocalTime& local) {
  return ((int64_t(local.hour) * 60 + local.minute) * 60 + local.second) * kTicksPerSecond + local.hundredth;
}

}  // namespace

bool to_local(const TIMEDATE& t, LocalTime& out) {
  out = LocalTime{};
  const bool date = has_date(t), time = has_time(t);
  if (!date && !time) return false;
  if (time && t.Innards[0] >= static_cast<DWORD>(kTicksPerDay)) return false;
  TIMEDATE local_date = t, local_clock = t;
  if (date && time) {
    // The local calendar date and wall-clock time of an instant.
    if (!is_complete_instant(t)) return false;
    TimeExtractLocal(&t, FALSE, &local_date);
    TimeExtractLocal(&t, TRUE, &local_clock);
  }
  out.has_date = date;
  out.has_time = time;
  if (date) {
    if (!valid_julian(julian_of(local_date))) return false;
    fill_date(julian_of(local_date), out);
  }
  if (time) fill_clock(local_clock.Innards[0], out);
  return true;
}

bool from_local(const LocalTime& local, TIMEDATE& out) {
  if (!local.has_date && !local.has_time) return false;
  if (!local.has_date) {
    out.Innards[0] = static_cast<DWORD>(floor_mod(clock_ticks(local), kTicksPerDay));
    out.Innards[1] = ANYDAY;
    return true;
  }
  int64_t julian = 0;
  if (!normalised_julian(local, julian)) return false;
  if (!local.has_time) {
    out.Innards[0] = ALLDAY;
    out.Innards[1] = static_cast<DWORD>(julian);
    return true;
  }
  const int64_t local_ticks = (julian - kJulianDayOf1970) * kTicksPerDay + clock_ticks(local);
  const CivilTime civil = civil_from_ticks(local_ticks);
  if (!is_valid_civil(civil)) return false;
  TIME time{};
  time.year = civil.year;
  time.month = civil.month;
  time.day = civil.day;
  time.hour = civil.hour;
  time.minute = civil.minute;
  time.second = civil.second;
  time.hundredth = civil.hundredth;
  OSCurrentTimeZone(&time.zone, &time.dst);
  if (TimeLocalToGM(&time)) return false;
  out = time.GM;
  return true;
}

TIMEDATE current_time() {
  TIMEDATE now;
  OSCurrentTIMEDATE(&now);
  return now;
}

TIMEDATE local_date(int days_from_today) {
  const TIMEDATE now = current_time();
  TIMEDATE today;
  TimeExtractLocal(&now, FALSE, &today);
  TimeDateAdjust(&today, 0, 0, 0, days_from_today, 0, 0);
  return today;
}

namespace {

// Holds alive on this thread, and whether the settings were looked at since
// the outermost one began.
thread_local int t_holds = 0;
thread_local bool t_looked_in_hold = false;

}  // namespace

SettingsHold::SettingsHold() {
  if (t_holds++ == 0) t_looked_in_hold = false;
}

SettingsHold::~SettingsHold() { --t_holds; }

const INTLFORMAT& intl_settings() {
  // Reading the settings takes a dozen notes.ini look-ups: keep them per
  // thread while notes.ini is unchanged, which the environment's snapshot
  // tells without looking at the file.
  struct Cached {
    std::optional<EnvironmentSnapshot> environment;
    INTLFORMAT settings{};
  };
  thread_local Cached cached;
  if (t_holds > 0 && t_looked_in_hold && cached.environment) return cached.settings;
  EnvironmentSnapshot now;
  if (!cached.environment || !now.same_as(*cached.environment)) {
    cached.settings = current_intl_settings();
    cached.environment = std::move(now);
  }
  t_looked_in_hold = t_holds > 0;
  return cached.settings;
}

bool time_from_text(std::string_view text, TIMEDATE& out) {
  constexpr TFMT kAnyForm{TDFMT_FULL, TTFMT_FULL, TZFMT_NEVER, TSFMT_DATETIME};
  const ParsedTimeDate parsed = parse_timedate(intl_settings(), kAnyForm, text);
  if (parsed.status != NOERROR) return false;
  for (size_t i = parsed.consumed; i < text.size(); ++i) {
    if (text[i] != ' ' && text[i] != '\t') return false;
  }
  out = parsed.value;
  return true;
}

}  // namespace tarnwick::rt::formula
