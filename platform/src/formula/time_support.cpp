// Local calendar conversions through the C library's zone rules (TZ).
#include "formula/time_support.h"

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>

#include "ostime.h"
#include "time/timedate.h"

namespace tarnwick::rt::formula {
namespace {

constexpr int64_t kSecondsPerDay = 86400;

// Years the calendar arithmetic accepts (TIMEDATE spans far more, but the
// language's dates stay within these).
constexpr int kMinYear = 1;
constexpr int kMaxYear = 9999;

// The zone rules of a year, remembered per thread: finding them takes
// several calendar conversions, and they change only with the year or TZ.
LocalZone zone_of_year(std::time_t moment, int year) {
  struct Remembered {
    int year = 0;
    std::string tz;
    LocalZone zone{};
  };
  thread_local Remembered last;
  const char* tz = std::getenv("TZ");
  const std::string_view current_tz = tz == nullptr ? std::string_view("\x01unset") : std::string_view(tz);
  if (last.year != year || last.tz != current_tz) {
    last.zone = local_zone(moment);
    last.year = year;
    last.tz = std::string(current_tz);
  }
  return last.zone;
}

}  // namespace

bool is_date_only(const TIMEDATE& t) { return t.Innards[0] == ALLDAY && t.Innards[1] != ANYDAY; }
bool is_time_only(const TIMEDATE& t) { return t.Innards[1] == ANYDAY && t.Innards[0] != ALLDAY; }

bool to_local(const TIMEDATE& t, LocalTime& out) {
  out = LocalTime{};
  if (t.Innards[0] == ALLDAY && t.Innards[1] == ANYDAY) return false;
  if (is_time_only(t)) {
    if (t.Innards[0] >= TICKS_IN_DAY) return false;
    out.has_date = false;
    DWORD ticks = t.Innards[0];
    out.hour = static_cast<int>(ticks / TICKS_IN_HOUR);
    out.minute = static_cast<int>(ticks % TICKS_IN_HOUR / TICKS_IN_MINUTE);
    out.second = static_cast<int>(ticks % TICKS_IN_MINUTE / TICKS_IN_SECOND);
    out.hundredth = static_cast<int>(ticks % TICKS_IN_SECOND);
    return true;
  }
  const DWORD julian = t.Innards[1] & TIMEDATE_JULIAN_MASK;
  if (is_date_only(t)) {
    out.has_time = false;
    civil_from_julian(julian, out.year, out.month, out.day);
    out.weekday = static_cast<int>((julian + 1) % 7) + 1;
    return true;
  }
  if (t.Innards[0] >= TICKS_IN_DAY) return false;
  const int64_t unix_seconds =
      (static_cast<int64_t>(julian) - kJulianDayOf1970) * kSecondsPerDay + t.Innards[0] / TICKS_IN_SECOND;
  const std::time_t seconds = static_cast<std::time_t>(unix_seconds);
  std::tm tm{};
  if (!localtime_r(&seconds, &tm)) return false;
  out.year = tm.tm_year + 1900;
  out.month = tm.tm_mon + 1;
  out.day = tm.tm_mday;
  out.weekday = tm.tm_wday + 1;
  out.hour = tm.tm_hour;
  out.minute = tm.tm_min;
  out.second = tm.tm_sec;
  out.hundredth = static_cast<int>(t.Innards[0] % TICKS_IN_SECOND);
  return true;
}

bool from_local(const LocalTime& local, TIMEDATE& out) {
  if (!local.has_date && !local.has_time) return false;
  if (!local.has_date) {
    const int64_t ticks = ((int64_t(local.hour) * 60 + local.minute) * 60 + local.second) * TICKS_IN_SECOND +
                          local.hundredth;
    const int64_t day_ticks = ((ticks % TICKS_IN_DAY) + TICKS_IN_DAY) % TICKS_IN_DAY;
    out.Innards[0] = static_cast<DWORD>(day_ticks);
    out.Innards[1] = ANYDAY;
    return true;
  }
  // Normalise year and month first (month 13 = January of the next year),
  // then let the day count carry over through the Julian day number.
  int64_t months = int64_t(local.year) * 12 + (local.month - 1);
  const int64_t year = months >= 0 ? months / 12 : (months - 11) / 12;
  const int month = static_cast<int>(months - year * 12) + 1;
  if (year < kMinYear || year > kMaxYear) return false;
  const int64_t julian = int64_t(julian_day(static_cast<int>(year), month, 1)) + local.day - 1;
  if (!local.has_time) {
    if (julian <= 0 || julian > int64_t(TIMEDATE_JULIAN_MASK)) return false;
    out.Innards[0] = ALLDAY;
    out.Innards[1] = static_cast<DWORD>(julian);
    return true;
  }
  int civil_year, civil_month, civil_day;
  civil_from_julian(static_cast<DWORD>(julian), civil_year, civil_month, civil_day);
  if (civil_year < kMinYear || civil_year > kMaxYear) return false;
  std::tm tm{};
  tm.tm_year = civil_year - 1900;
  tm.tm_mon = civil_month - 1;
  tm.tm_mday = civil_day;
  tm.tm_hour = local.hour;
  tm.tm_min = local.minute;
  tm.tm_sec = local.second;
  tm.tm_isdst = -1;
  const std::time_t seconds = std::mktime(&tm);
  if (seconds == static_cast<std::time_t>(-1) && !(tm.tm_year == 69 && tm.tm_mday == 31)) return false;
  const LocalZone zone = zone_of_year(seconds, civil_year);
  const int hundredth = ((local.hundredth % 100) + 100) % 100;
  out = timedate_from_unix(seconds, hundredth, zone_bits(zone.standard_offset_seconds, zone.observes_dst));
  return true;
}

TIMEDATE current_time() {
  TIMEDATE now;
  OSCurrentTIMEDATE(&now);
  return now;
}

TIMEDATE local_date(int days_from_today) {
  LocalTime today;
  to_local(current_time(), today);
  today.has_time = false;
  today.day += days_from_today;
  TIMEDATE out{};
  from_local(today, out);
  return out;
}

bool time_from_constant(const TimeConstant& constant, TIMEDATE& out) {
  LocalTime local;
  local.has_date = constant.has_date;
  local.has_time = constant.has_time;
  if (constant.has_date) {
    local.year = constant.year;
    if (!constant.has_year) {
      LocalTime now;
      to_local(current_time(), now);
      local.year = now.year;
    }
    local.month = constant.month;
    local.day = constant.day;
  }
  local.hour = constant.hour;
  local.minute = constant.minute;
  local.second = constant.second;
  local.hundredth = constant.hundredth;
  return from_local(local, out);
}

}  // namespace tarnwick::rt::formula
