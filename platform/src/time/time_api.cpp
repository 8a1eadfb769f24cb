// The platform's Time* functions: conversion between TIMEDATE and broken-down
// TIME, comparison and arithmetic.
//
// Date-only values ({ALLDAY, Julian day}) and time-only values ({ticks,
// ANYDAY}) carry no zone: they hold a calendar date or a wall-clock time as
// it was read, and every function leaves that part as it is rather than
// converting it.
#include <algorithm>
#include <cmath>
#include <limits>

#include "core/api_guard.h"
#include "globerr.h"
#include "ostime.h"
#include "time/timedate.h"
#include "time/zone_rules.h"

namespace tarnwick::rt {
namespace {

int64_t now_seconds() { return static_cast<int64_t>(std::time(nullptr)); }

void fill_date(TIME& t, DWORD julian) {
  civil_from_julian(julian, t.year, t.month, t.day);
  t.weekday = weekday_of_julian(julian);
}

void fill_clock(TIME& t, DWORD ticks) {
  t.hundredth = static_cast<int>(ticks % 100);
  ticks /= 100;
  t.second = static_cast<int>(ticks % 60);
  ticks /= 60;
  t.minute = static_cast<int>(ticks % 60);
  t.hour = static_cast<int>(ticks / 60);
}

// Breaks down t.GM as the clocks of `rules` show it. Date-only and time-only
// values are broken down as they are; the missing fields become 0.
// Returns TRUE (failure) for the full wildcard and for values out of range.
BOOL break_down(TIME& t, const ZoneRules& rules) {
  const TIMEDATE td = t.GM;
  if (!has_date(td) && !has_time(td)) return TRUE;
  if (!has_time(td)) {
    const DWORD julian = julian_of(td);
    if (julian < kJulianDayOfYear1 || julian > julian_day(kMaxYear, 12, 31)) return TRUE;
    fill_date(t, julian);
    t.hour = t.minute = t.second = t.hundredth = 0;
    return FALSE;
  }
  if (!has_date(td)) {
    if (td.Innards[0] >= static_cast<DWORD>(kTicksPerDay)) return TRUE;
    t.year = t.month = t.day = t.weekday = 0;
    fill_clock(t, td.Innards[0]);
    return FALSE;
  }
  if (!is_complete_instant(td)) return TRUE;
  const int64_t gmt = instant_ticks(td);
  const int offset = rules.offset_at(floor_div(gmt, kTicksPerSecond));
  const int64_t local = gmt + offset * kTicksPerSecond;
  const int64_t days = floor_div(local, kTicksPerDay);
  const int64_t julian = days + kJulianDayOf1970;
  if (julian < kJulianDayOfYear1 || julian > julian_day(kMaxYear, 12, 31)) return TRUE;
  fill_date(t, static_cast<DWORD>(julian));
  fill_clock(t, static_cast<DWORD>(local - days * kTicksPerDay));
  return FALSE;
}

// The instant whose wall clock in `rules` shows `local_ticks`.
int64_t gmt_ticks_from_local(const ZoneRules& rules, int64_t local_ticks) {
  const int64_t seconds = floor_div(local_ticks, kTicksPerSecond);
  return rules.gmt_from_local(seconds) * kTicksPerSecond + (local_ticks - seconds * kTicksPerSecond);
}

ZoneRules local_rules() { return ZoneRules::operating_system(); }

// Adds days, then months, then years to a date, keeping the day of the month
// where the target month has it and using the month's last day otherwise
// (31 January + 1 month = 28 or 29 February). nullopt out of range.
std::optional<DWORD> shift_date(DWORD julian, int days, int months, int years) {
  const int64_t shifted = static_cast<int64_t>(julian) + days;
  if (shifted < kJulianDayOfYear1 || shifted > julian_day(kMaxYear, 12, 31)) return std::nullopt;
  int year, month, day;
  civil_from_julian(static_cast<DWORD>(shifted), year, month, day);
  auto clamp_to = [&](int64_t y, int64_t m) -> bool {
    if (y < 1 || y > kMaxYear) return false;
    year = static_cast<int>(y);
    month = static_cast<int>(m);
    day = std::min(day, days_in_month(year, month));
    return true;
  };
  const int64_t month_index = static_cast<int64_t>(year) * 12 + (month - 1) + months;
  if (!clamp_to(floor_div(month_index, 12), floor_mod(month_index, 12) + 1)) return std::nullopt;
  if (!clamp_to(static_cast<int64_t>(year) + years, month)) return std::nullopt;
  return julian_day(year, month, day);
}

}  // namespace
}  // namespace tarnwick::rt

using namespace tarnwick::rt;

extern "C" {

// The calls that consult zone rules run guarded (reading the rules can
// allocate); the arithmetic below them works on the values alone and
// cannot fail that way.
BOOL LNPUBLIC TimeLocalToGM(TIME* Time) {
  return guarded_value<BOOL>(TRUE, [&]() -> BOOL {
    if (Time == nullptr) return TRUE;
    const CivilTime civil{Time->year, Time->month, Time->day, Time->hour, Time->minute, Time->second, Time->hundredth};
    const auto offset = offset_from_zone_number(Time->zone);
    if (!is_valid_civil(civil) || !offset) return TRUE;
    const int64_t local = ticks_from_civil(civil);
    const ZoneRules rules = ZoneRules::for_zone(*offset, Time->dst != 0, floor_div(local, kTicksPerSecond) - *offset);
    const auto gm = timedate_from_instant(gmt_ticks_from_local(rules, local), zone_bits(*offset, Time->dst != 0));
    if (!gm) return TRUE;
    Time->GM = *gm;
    return FALSE;
  });
}

BOOL LNPUBLIC TimeGMToLocal(TIME* Time) {
  return guarded_value<BOOL>(TRUE, [&]() -> BOOL {
    if (Time == nullptr) return TRUE;
    const int64_t around =
        is_complete_instant(Time->GM) ? floor_div(instant_ticks(Time->GM), kTicksPerSecond) : now_seconds();
    if (break_down(*Time, local_rules())) return TRUE;
    const LocalZone zone = local_zone(static_cast<std::time_t>(around));
    Time->zone = zone_number(zone.standard_offset_seconds);
    Time->dst = zone.observes_dst ? TRUE : FALSE;
    return FALSE;
  });
}

BOOL LNPUBLIC TimeGMToLocalZone(TIME* Time) {
  return guarded_value<BOOL>(TRUE, [&]() -> BOOL {
    if (Time == nullptr) return TRUE;
    const auto offset = offset_from_zone_number(Time->zone);
    if (!offset) return TRUE;
    const int64_t around =
        is_complete_instant(Time->GM) ? floor_div(instant_ticks(Time->GM), kTicksPerSecond) : now_seconds();
    return break_down(*Time, ZoneRules::for_zone(*offset, Time->dst != 0, around));
  });
}

void LNPUBLIC TimeExtractLocal(const TIMEDATE* Time, BOOL fTime, TIMEDATE* retTime) {
  guarded_void([&] {
    if (Time == nullptr || retTime == nullptr) return;
    TIMEDATE result{{ALLDAY, ANYDAY}};
    if (is_complete_instant(*Time)) {
      TIME t{};
      t.GM = *Time;
      break_down(t, local_rules());
      if (fTime) {
        result.Innards[0] =
            static_cast<DWORD>(((t.hour * 60 + t.minute) * 60 + t.second) * kTicksPerSecond + t.hundredth);
      } else {
        result.Innards[1] = julian_day(t.year, t.month, t.day);
      }
    } else if (fTime && has_time(*Time) && !has_date(*Time)) {
      result.Innards[0] = Time->Innards[0];
    } else if (!fTime && has_date(*Time) && !has_time(*Time)) {
      result.Innards[1] = julian_of(*Time);
    }
    *retTime = result;
  });
}

// Seconds, minutes and hours are spans of elapsed time. Days, months and
// years are counted on the local calendar (the operating system's zone) and
// keep the local wall-clock time: one day after 9:00 on the day before
// clocks go forward is 9:00 the next day, 23 hours later. A result that
// falls into the hour the clocks skip is read as ZoneRules::gmt_from_local
// says. Date-only values ignore the clock units, time-only values the
// calendar units (and wrap around midnight). The zone bits stay as they
// were. TRUE (failure, value unchanged) when the result leaves years
// 1..32767.
BOOL LNPUBLIC TimeDateAdjust(TIMEDATE* Time, int seconds, int minutes, int hours, int days, int months, int years) {
  return guarded_value<BOOL>(TRUE, [&]() -> BOOL {
    if (Time == nullptr) return TRUE;
    const int64_t clock_ticks =
        (static_cast<int64_t>(seconds) + static_cast<int64_t>(minutes) * 60 + static_cast<int64_t>(hours) * 3600) *
        kTicksPerSecond;
    if (!has_date(*Time) && !has_time(*Time)) return FALSE;
    if (!has_date(*Time)) {
      if (Time->Innards[0] >= static_cast<DWORD>(kTicksPerDay)) return TRUE;
      Time->Innards[0] =
          static_cast<DWORD>(floor_mod(static_cast<int64_t>(Time->Innards[0]) + clock_ticks, kTicksPerDay));
      return FALSE;
    }
    if (!has_time(*Time)) {
      const auto julian = shift_date(julian_of(*Time), days, months, years);
      if (!julian) return TRUE;
      Time->Innards[1] = *julian;
      return FALSE;
    }
    if (!is_complete_instant(*Time)) return TRUE;
    const DWORD bits = Time->Innards[1] & ~TIMEDATE_JULIAN_MASK;
    auto moved = timedate_from_instant(instant_ticks(*Time) + clock_ticks, bits);
    if (!moved) return TRUE;
    if (days != 0 || months != 0 || years != 0) {
      const ZoneRules rules = local_rules();
      const int64_t gmt = instant_ticks(*moved);
      const int64_t local = gmt + rules.offset_at(floor_div(gmt, kTicksPerSecond)) * kTicksPerSecond;
      const int64_t local_day = floor_div(local, kTicksPerDay);
      const auto julian = shift_date(static_cast<DWORD>(local_day + kJulianDayOf1970), days, months, years);
      if (!julian) return TRUE;
      const int64_t shifted_local =
          (static_cast<int64_t>(*julian) - kJulianDayOf1970) * kTicksPerDay + (local - local_day * kTicksPerDay);
      moved = timedate_from_instant(gmt_ticks_from_local(rules, shifted_local), bits);
      if (!moved) return TRUE;
    }
    *Time = *moved;
    return FALSE;
  });
}

STATUS LNPUBLIC TimeDateIncrement(TIMEDATE* Time, LONG Interval) {
  if (Time == nullptr) return ERR_TDO_CONV;
  if (!has_time(*Time)) return ERR_TREQ;
  if (Time->Innards[0] >= static_cast<DWORD>(kTicksPerDay)) return ERR_TDO_CONV;
  if (!has_date(*Time)) {
    Time->Innards[0] = static_cast<DWORD>(floor_mod(static_cast<int64_t>(Time->Innards[0]) + Interval, kTicksPerDay));
    return NOERROR;
  }
  const auto moved = timedate_from_instant(instant_ticks(*Time) + Interval, Time->Innards[1] & ~TIMEDATE_JULIAN_MASK);
  if (!moved) return ERR_TDO_CONV;
  *Time = *moved;
  return NOERROR;
}

}  // extern "C"

namespace tarnwick::rt {
namespace {

// t1 - t2 in ticks. A wildcard part on either side leaves that part out:
// two dates compare as days, two times of day as ticks.
int64_t difference_ticks(const TIMEDATE& t1, const TIMEDATE& t2) {
  const bool dates = has_date(t1) && has_date(t2);
  const bool times = has_time(t1) && has_time(t2);
  int64_t ticks = 0;
  if (dates) ticks += (static_cast<int64_t>(julian_of(t1)) - static_cast<int64_t>(julian_of(t2))) * kTicksPerDay;
  if (times) ticks += static_cast<int64_t>(t1.Innards[0]) - static_cast<int64_t>(t2.Innards[0]);
  return ticks;
}

}  // namespace
}  // namespace tarnwick::rt

extern "C" {

LONG LNPUBLIC TimeDateDifference(const TIMEDATE* t1, const TIMEDATE* t2) {
  if (t1 == nullptr || t2 == nullptr) return 0;
  const int64_t seconds = difference_ticks(*t1, *t2) / kTicksPerSecond;
  return static_cast<LONG>(
      std::clamp<int64_t>(seconds, std::numeric_limits<LONG>::min(), std::numeric_limits<LONG>::max()));
}

void LNPUBLIC TimeDateDifferenceFloat(const TIMEDATE* t1, const TIMEDATE* t2, NUMBER* retDifference) {
  if (retDifference == nullptr) return;
  *retDifference = (t1 == nullptr || t2 == nullptr)
                       ? 0.0
                       : static_cast<NUMBER>(difference_ticks(*t1, *t2)) / static_cast<NUMBER>(kTicksPerSecond);
}

int LNPUBLIC TimeDateCompare(const TIMEDATE* t1, const TIMEDATE* t2) {
  if (t1 == nullptr || t2 == nullptr) return 0;
  const int64_t ticks = difference_ticks(*t1, *t2);
  return ticks < 0 ? -1 : (ticks > 0 ? 1 : 0);
}

BOOL LNPUBLIC TimeDateEqual(const TIMEDATE* t1, const TIMEDATE* t2) {
  return TimeDateCompare(t1, t2) == 0 ? TRUE : FALSE;
}

void LNPUBLIC TimeConstant(WORD TimeConstantType, TIMEDATE* td) {
  if (td == nullptr) return;
  switch (TimeConstantType) {
    case TIMEDATE_MAXIMUM:
      *td = TIMEDATE{{0, TIMEDATE_JULIAN_MASK}};
      break;
    case TIMEDATE_WILDCARD:
      *td = TIMEDATE{{ALLDAY, ANYDAY}};
      break;
    default:
      *td = TIMEDATE{{0, 0}};
      break;
  }
}

void LNPUBLIC TimeDateClear(TIMEDATE* Time) {
  if (Time != nullptr) *Time = TIMEDATE{{0, 0}};
}

void LNPUBLIC TimeConstruct(DWORD Date, DWORD Time, TIMEDATE* retTimeDate) {
  if (retTimeDate != nullptr) *retTimeDate = TIMEDATE{{Time, Date == ANYDAY ? ANYDAY : (Date & TIMEDATE_JULIAN_MASK)}};
}

DWORD LNPUBLIC TimeExtractTicks(const TIMEDATE* Time) { return Time == nullptr ? 0 : Time->Innards[0]; }

DWORD LNPUBLIC TimeExtractDate(const TIMEDATE* Time) { return Time == nullptr ? 0 : Time->Innards[1]; }

DWORD LNPUBLIC TimeExtractJulianDate(const TIMEDATE* Time) {
  if (Time == nullptr) return 0;
  return has_date(*Time) ? julian_of(*Time) : ANYDAY;
}

}  // extern "C"
