#include "time/timedate.h"

#include <sys/time.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>

#include "ostime.h"

namespace tarnwick::rt {

DWORD julian_day(int year, int month, int day) {
  // Days from civil (Howard Hinnant's algorithm), shifted to the Julian day.
  const int y = year - (month <= 2 ? 1 : 0);
  const int era = (y >= 0 ? y : y - 399) / 400;
  const int yoe = y - era * 400;
  const int mp = (month + 9) % 12;
  const int doy = (153 * mp + 2) / 5 + day - 1;
  const int doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  const int64_t days_since_1970 = static_cast<int64_t>(era) * 146097 + doe - 719468;
  return static_cast<DWORD>(days_since_1970 + kJulianDayOf1970);
}

void civil_from_julian(DWORD julian, int& year, int& month, int& day) {
  const int64_t z = static_cast<int64_t>(julian) - kJulianDayOf1970 + 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  year = static_cast<int>(yoe + era * 400 + (month <= 2 ? 1 : 0));
}

bool is_leap_year(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int days_in_month(int year, int month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12) return 0;
  return month == 2 && is_leap_year(year) ? 29 : kDays[month - 1];
}

int weekday_of_julian(DWORD julian) { return static_cast<int>((julian + 1) % 7) + 1; }

bool is_valid_civil(const CivilTime& c) {
  return c.year >= 1 && c.year <= kMaxYear && c.month >= 1 && c.month <= 12 && c.day >= 1 &&
         c.day <= days_in_month(c.year, c.month) && c.hour >= 0 && c.hour <= 23 && c.minute >= 0 && c.minute <= 59 &&
         c.second >= 0 && c.second <= 59 && c.hundredth >= 0 && c.hundredth <= 99;
}

int64_t ticks_from_civil(const CivilTime& c) {
  const int64_t days = static_cast<int64_t>(julian_day(c.year, c.month, c.day)) - kJulianDayOf1970;
  return days * kTicksPerDay + ((c.hour * 60 + c.minute) * 60 + c.second) * kTicksPerSecond + c.hundredth;
}

CivilTime civil_from_ticks(int64_t ticks) {
  CivilTime c;
  const int64_t days = floor_div(ticks, kTicksPerDay);
  int64_t rest = ticks - days * kTicksPerDay;
  civil_from_julian(static_cast<DWORD>(days + kJulianDayOf1970), c.year, c.month, c.day);
  c.hundredth = static_cast<int>(rest % 100);
  rest /= 100;
  c.second = static_cast<int>(rest % 60);
  rest /= 60;
  c.minute = static_cast<int>(rest % 60);
  c.hour = static_cast<int>(rest / 60);
  return c;
}

LocalZone local_zone(std::time_t around) {
  std::tm now{};
  localtime_r(&around, &now);
  // Each thread remembers the last year and zone it looked at: the answer only
  // changes with the year or with TZ.
  struct Cached {
    std::string tz;
    int year = -1;
    LocalZone zone{};
  };
  thread_local Cached cached;
  const char* tz_env = std::getenv("TZ");
  const std::string_view tz = tz_env != nullptr ? tz_env : "";
  if (cached.year == now.tm_year && cached.tz == tz) return cached.zone;

  // The standard offset is the smaller of the mid-winter and mid-summer
  // offsets: daylight saving always moves clocks forward. Both moments are
  // found from `around` without mktime, which is not safe to call from
  // several threads.
  const std::time_t mid_january = around - static_cast<std::time_t>(now.tm_yday - 14) * 86400;
  const std::time_t mid_july = mid_january + static_cast<std::time_t>(181) * 86400;
  std::tm jan{};
  std::tm jul{};
  localtime_r(&mid_january, &jan);
  localtime_r(&mid_july, &jul);
  const long standard = std::min(jan.tm_gmtoff, jul.tm_gmtoff);
  cached.tz.assign(tz);
  cached.year = now.tm_year;
  cached.zone = LocalZone{static_cast<int>(standard), jan.tm_gmtoff != jul.tm_gmtoff};
  return cached.zone;
}

DWORD zone_bits(int standard_offset_seconds, bool observes_dst) {
  const int magnitude = std::abs(standard_offset_seconds);
  const DWORD hours = static_cast<DWORD>(magnitude / 3600) & 0x0F;
  const DWORD quarters = static_cast<DWORD>((magnitude % 3600) / 900) & 0x03;
  DWORD bits = (hours << 24) | (quarters << 28);
  if (standard_offset_seconds > 0) bits |= TIMEDATE_EAST_MASK;
  if (observes_dst) bits |= TIMEDATE_DST_MASK;
  return bits;
}

int zone_number(int standard_offset_seconds) {
  const int magnitude = std::abs(standard_offset_seconds);
  const int number = magnitude / 3600 + ((magnitude % 3600) / 60) * 100;
  return standard_offset_seconds > 0 ? -number : number;
}

LocalZone zone_from_bits(DWORD date_word) {
  const int hours = static_cast<int>((date_word & TIMEDATE_HOURS_MASK) >> 24);
  const int quarters = static_cast<int>((date_word & TIMEDATE_QUARTERS_MASK) >> 28);
  const int magnitude = hours * 3600 + quarters * 900;
  return LocalZone{(date_word & TIMEDATE_EAST_MASK) != 0 ? magnitude : -magnitude,
                   (date_word & TIMEDATE_DST_MASK) != 0};
}

std::optional<int> offset_from_zone_number(int zone) {
  const int magnitude = std::abs(zone);
  const int hours = magnitude % 100;
  const int minutes = magnitude / 100;
  if (hours > 14 || (minutes != 0 && minutes != 15 && minutes != 30 && minutes != 45)) return std::nullopt;
  const int seconds = hours * 3600 + minutes * 60;
  return zone > 0 ? -seconds : seconds;
}

bool is_complete_instant(const TIMEDATE& td) {
  if (!has_time(td) || !has_date(td)) return false;
  const DWORD julian = julian_of(td);
  return td.Innards[0] < static_cast<DWORD>(kTicksPerDay) && julian >= kJulianDayOfYear1 &&
         julian <= julian_day(kMaxYear, 12, 31);
}

int64_t instant_ticks(const TIMEDATE& td) {
  return (static_cast<int64_t>(julian_of(td)) - kJulianDayOf1970) * kTicksPerDay + td.Innards[0];
}

std::optional<TIMEDATE> timedate_from_instant(int64_t gmt_ticks, DWORD zone_word_bits) {
  const int64_t days = floor_div(gmt_ticks, kTicksPerDay);
  const int64_t julian = days + kJulianDayOf1970;
  if (julian < kJulianDayOfYear1 || julian > julian_day(kMaxYear, 12, 31)) return std::nullopt;
  TIMEDATE td;
  td.Innards[0] = static_cast<DWORD>(gmt_ticks - days * kTicksPerDay);
  td.Innards[1] = static_cast<DWORD>(julian) | zone_word_bits;
  return td;
}

TIMEDATE timedate_from_unix(int64_t unix_seconds, int hundredths, DWORD zone_word_bits) {
  int64_t days = unix_seconds / 86400;
  int64_t seconds_of_day = unix_seconds % 86400;
  if (seconds_of_day < 0) {
    seconds_of_day += 86400;
    --days;
  }
  TIMEDATE td;
  td.Innards[0] = static_cast<DWORD>(seconds_of_day * TICKS_IN_SECOND + hundredths);
  td.Innards[1] = (static_cast<DWORD>(days + kJulianDayOf1970) & TIMEDATE_JULIAN_MASK) | zone_word_bits;
  return td;
}

}  // namespace tarnwick::rt

using namespace tarnwick::rt;

extern "C" {

void LNPUBLIC OSCurrentTIMEDATE(TIMEDATE* retTimeDate) {
  if (retTimeDate == nullptr) return;
  timeval now{};
  gettimeofday(&now, nullptr);
  const LocalZone zone = local_zone(now.tv_sec);
  *retTimeDate = timedate_from_unix(now.tv_sec, static_cast<int>(now.tv_usec / 10000),
                                    zone_bits(zone.standard_offset_seconds, zone.observes_dst));
}

void LNPUBLIC OSCurrentTimeZone(int* retZone, int* retDST) {
  const LocalZone zone = local_zone(std::time(nullptr));
  if (retZone != nullptr) *retZone = zone_number(zone.standard_offset_seconds);
  if (retDST != nullptr) *retDST = zone.observes_dst ? 1 : 0;
}

}  // extern "C"
