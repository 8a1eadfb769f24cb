// Internal arithmetic of the TIMEDATE encoding shared by the time functions:
// Julian day numbers, civil dates and times, the zone bits of the date word,
// and the local zone of the operating system (TZ).
//
// Moments are counted in "ticks" (hundredths of a second) since 1970-01-01
// 00:00 of some clock: GMT for instants, a zone's wall clock for local times.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>

#include "global.h"

namespace tarnwick::rt {

constexpr DWORD kJulianDayOf1970 = 2440588;
constexpr DWORD kJulianDayOfYear1 = 1721426;  // 1 January of year 1
constexpr int kMaxYear = 32767;
constexpr int64_t kTicksPerSecond = 100;
constexpr int64_t kTicksPerDay = 8640000;
constexpr int64_t kSecondsPerDay = 86400;

// Julian day number of a proleptic Gregorian date.
DWORD julian_day(int year, int month, int day);
void civil_from_julian(DWORD julian, int& year, int& month, int& day);
bool is_leap_year(int year);
int days_in_month(int year, int month);
// 1 = Sunday ... 7 = Saturday.
int weekday_of_julian(DWORD julian);

// A calendar date and clock time without any zone.
struct CivilTime {
  int year = 1;
  int month = 1;
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int hundredth = 0;
};
// Whether every field is in range (years 1..kMaxYear).
bool is_valid_civil(const CivilTime& civil);
int64_t ticks_from_civil(const CivilTime& civil);
CivilTime civil_from_ticks(int64_t ticks);

// Floor division and modulo for negative tick counts.
inline int64_t floor_div(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }
inline int64_t floor_mod(int64_t a, int64_t b) { return a - floor_div(a, b) * b; }

struct LocalZone {
  int standard_offset_seconds;  // east of GMT positive, without daylight saving
  bool observes_dst;            // the zone has daylight saving at some time of the year
};
// The operating system's zone around the given moment.
LocalZone local_zone(std::time_t around);

// The zone and DST bits of a date word for a zone.
DWORD zone_bits(int standard_offset_seconds, bool observes_dst);
// The zone a date word records.
LocalZone zone_from_bits(DWORD date_word);
// The platform's zone number (west positive; -3005 = 5:30 east).
int zone_number(int standard_offset_seconds);
// The offset (east positive) of a zone number; nullopt when it is not one
// (hours above 14, minutes other than 0, 15, 30 or 45).
std::optional<int> offset_from_zone_number(int zone);

// The parts of a TIMEDATE.
inline bool has_time(const TIMEDATE& td) { return td.Innards[0] != 0xFFFFFFFFu; }
inline bool has_date(const TIMEDATE& td) { return td.Innards[1] != 0xFFFFFFFFu; }
inline DWORD julian_of(const TIMEDATE& td) { return td.Innards[1] & 0x00FFFFFFu; }

// A value with both parts whose time word is a real time of day and whose
// date lies in years 1..kMaxYear.
bool is_complete_instant(const TIMEDATE& td);
// GMT ticks since 1970 of a value with both parts.
int64_t instant_ticks(const TIMEDATE& td);
// The value for GMT ticks since 1970 carrying the given zone bits; nullopt
// outside years 1..kMaxYear.
std::optional<TIMEDATE> timedate_from_instant(int64_t gmt_ticks, DWORD zone_word_bits);

// A TIMEDATE for a moment given as Unix seconds plus hundredths, carrying
// the given zone bits.
TIMEDATE timedate_from_unix(int64_t unix_seconds, int hundredths, DWORD zone_word_bits);

}  // namespace tarnwick::rt
