// Internal arithmetic of the TIMEDATE encoding shared by the time functions:
// Julian day numbers, the zone bits of the date word, and the local zone of
// the operating system (TZ).
#pragma once

#include <cstdint>
#include <ctime>

#include "global.h"

namespace tarnwick::rt {

constexpr DWORD kJulianDayOf1970 = 2440588;

// Julian day number of a proleptic Gregorian date.
DWORD julian_day(int year, int month, int day);
void civil_from_julian(DWORD julian, int& year, int& month, int& day);

struct LocalZone {
  int standard_offset_seconds;  // east of GMT positive, without daylight saving
  bool observes_dst;            // the zone has daylight saving at some time of the year
};
// The operating system's zone around the given moment.
LocalZone local_zone(std::time_t around);

// The zone and DST bits of a date word for a zone.
DWORD zone_bits(int standard_offset_seconds, bool observes_dst);
// The platform's zone number (west positive; -3005 = 5:30 east).
int zone_number(int standard_offset_seconds);

// A TIMEDATE for a moment given as Unix seconds plus hundredths, carrying
// the given zone bits.
TIMEDATE timedate_from_unix(int64_t unix_seconds, int hundredths, DWORD zone_word_bits);

}  // namespace tarnwick::rt
