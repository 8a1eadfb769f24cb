// Offsets of a zone from GMT at any instant, daylight saving included.
//
// A TIMEDATE or TIME names its zone only by a standard offset and a flag
// "observes daylight saving"; when that flag is set, the dates on which
// daylight saving is in effect come from:
//   1. the operating system's zone (TZ), when it has the same standard
//      offset and observes daylight saving itself;
//   2. otherwise notes.ini's DSTLaw ("3 2 1 11 1 1": start month, week,
//      weekday, end month, week, weekday; week -1 = last, weekday 1 = Sunday;
//      clocks change at 2:00 local time), when set;
//   3. otherwise the usual law of the region of that offset: North American
//      rules west of GMT, European rules from GMT to 9 hours east, south-east
//      Australian rules from 9:30 east on.
// Daylight saving always adds one hour, except as the operating system says.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tarnwick::rt {

// One change of clocks: the given weekday (1 = Sunday) of the given week of
// the month (1..4, 5 or -1 = last) at a time of day counted in local
// standard time.
struct DstChange {
  int month = 1;
  int week = 1;
  int weekday = 1;
  int standard_seconds_of_day = 7200;
};

struct DstLaw {
  DstChange start;  // clocks go forward
  DstChange end;    // clocks go back
};

// Parses a DSTLaw value; nullopt when it is not six valid numbers.
std::optional<DstLaw> parse_dst_law(std::string_view text);
// The law a region with this standard offset usually follows.
DstLaw regional_dst_law(int standard_offset_seconds);

class ZoneRules {
 public:
  // A zone without daylight saving.
  static ZoneRules fixed(int offset_seconds);
  // The operating system's zone (TZ).
  static ZoneRules operating_system();
  static ZoneRules with_law(int standard_offset_seconds, const DstLaw& law);
  // The rules of a zone as the TIMEDATE encoding describes it (see above).
  static ZoneRules for_zone(int standard_offset_seconds, bool observes_dst, int64_t around_gmt_seconds);

  // Seconds east of GMT in effect at the instant.
  int offset_at(int64_t gmt_seconds) const;
  // The instant at which the zone's clocks show the given local time. A
  // local time that occurs twice (clocks going back) is read with the offset
  // in effect before the change, i.e. the earlier instant; one that does not
  // occur (clocks going forward) also with the offset before the change,
  // which lands as far after the change as the time lies in the gap.
  int64_t gmt_from_local(int64_t local_seconds) const;

 private:
  enum class Kind { kFixed, kOperatingSystem, kLaw };
  bool law_in_effect(int64_t gmt_seconds) const;

  Kind kind_ = Kind::kFixed;
  int standard_offset_ = 0;
  DstLaw law_{};
};

}  // namespace tarnwick::rt
