#include "time/zone_rules.h"

#include <charconv>
#include <string>
#include <vector>

#include "env/environment.h"
#include "time/timedate.h"

namespace tarnwick::rt {
namespace {

// Local standard seconds since 1970 at which a change happens in a year.
int64_t change_moment(const DstChange& change, int year) {
  const int length = days_in_month(year, change.month);
  const int first_weekday = weekday_of_julian(julian_day(year, change.month, 1));
  int day = 1 + (change.weekday - first_weekday + 7) % 7;
  if (change.week < 0 || change.week >= 5) {
    while (day + 7 <= length) day += 7;
  } else {
    day += 7 * (change.week - 1);
  }
  const int64_t days = static_cast<int64_t>(julian_day(year, change.month, day)) - kJulianDayOf1970;
  return days * kSecondsPerDay + change.standard_seconds_of_day;
}

constexpr int kDaylightSaving = 3600;

}  // namespace

std::optional<DstLaw> parse_dst_law(std::string_view text) {
  std::vector<int> numbers;
  size_t i = 0;
  while (i < text.size()) {
    const char c = text[i];
    if (c == ' ' || c == ',' || c == '\t') {
      ++i;
      continue;
    }
    int value = 0;
    const auto [end, error] = std::from_chars(text.data() + i, text.data() + text.size(), value);
    if (error != std::errc() || end == text.data() + i) return std::nullopt;
    numbers.push_back(value);
    i = static_cast<size_t>(end - text.data());
  }
  if (numbers.size() != 6) return std::nullopt;
  auto change = [](int month, int week, int weekday, int seconds) -> std::optional<DstChange> {
    if (month < 1 || month > 12 || weekday < 1 || weekday > 7 || week == 0 || week < -1 || week > 5) {
      return std::nullopt;
    }
    return DstChange{month, week, weekday, seconds};
  };
  // Clocks change at 2:00 wall time: 2:00 standard going forward, 2:00
  // daylight (1:00 standard) going back.
  const auto start = change(numbers[0], numbers[1], numbers[2], 7200);
  const auto end = change(numbers[3], numbers[4], numbers[5], 7200 - kDaylightSaving);
  if (!start || !end) return std::nullopt;
  return DstLaw{*start, *end};
}

DstLaw regional_dst_law(int standard_offset_seconds) {
  if (standard_offset_seconds < 0) {
    // Second Sunday of March to first Sunday of November, 2:00 wall time.
    return DstLaw{{3, 2, 1, 7200}, {11, 1, 1, 7200 - kDaylightSaving}};
  }
  if (standard_offset_seconds < 9 * 3600 + 1800) {
    // Last Sunday of March to last Sunday of October, both at 1:00 GMT.
    const int at = 3600 + standard_offset_seconds;
    return DstLaw{{3, -1, 1, at}, {10, -1, 1, at}};
  }
  // First Sunday of October to first Sunday of April, 2:00 standard time.
  return DstLaw{{10, 1, 1, 7200}, {4, 1, 1, 7200}};
}

ZoneRules ZoneRules::fixed(int offset_seconds) {
  ZoneRules rules;
  rules.kind_ = Kind::kFixed;
  rules.standard_offset_ = offset_seconds;
  return rules;
}

ZoneRules ZoneRules::operating_system() {
  ZoneRules rules;
  rules.kind_ = Kind::kOperatingSystem;
  return rules;
}

ZoneRules ZoneRules::with_law(int standard_offset_seconds, const DstLaw& law) {
  ZoneRules rules;
  rules.kind_ = Kind::kLaw;
  rules.standard_offset_ = standard_offset_seconds;
  rules.law_ = law;
  return rules;
}

ZoneRules ZoneRules::for_zone(int standard_offset_seconds, bool observes_dst, int64_t around_gmt_seconds) {
  if (!observes_dst) return fixed(standard_offset_seconds);
  const LocalZone os = local_zone(static_cast<std::time_t>(around_gmt_seconds));
  if (os.observes_dst && os.standard_offset_seconds == standard_offset_seconds) return operating_system();
  if (const auto configured = get_environment("DSTLaw")) {
    if (const auto law = parse_dst_law(*configured)) return with_law(standard_offset_seconds, *law);
  }
  return with_law(standard_offset_seconds, regional_dst_law(standard_offset_seconds));
}

bool ZoneRules::law_in_effect(int64_t gmt_seconds) const {
  const int64_t local_standard = gmt_seconds + standard_offset_;
  int year, month, day;
  civil_from_julian(static_cast<DWORD>(floor_div(local_standard, kSecondsPerDay) + kJulianDayOf1970), year, month, day);
  const int64_t start = change_moment(law_.start, year);
  const int64_t end = change_moment(law_.end, year);
  if (start < end) return local_standard >= start && local_standard < end;
  return local_standard >= start || local_standard < end;  // southern hemisphere: over the new year
}

int ZoneRules::offset_at(int64_t gmt_seconds) const {
  switch (kind_) {
    case Kind::kFixed:
      return standard_offset_;
    case Kind::kLaw:
      return standard_offset_ + (law_in_effect(gmt_seconds) ? kDaylightSaving : 0);
    case Kind::kOperatingSystem: {
      const std::time_t t = static_cast<std::time_t>(gmt_seconds);
      std::tm local{};
      if (localtime_r(&t, &local) == nullptr) return 0;
      return static_cast<int>(local.tm_gmtoff);
    }
  }
  return 0;
}

int64_t ZoneRules::gmt_from_local(int64_t local_seconds) const {
  if (kind_ == Kind::kFixed) return local_seconds - standard_offset_;
  // Offsets in effect half a day either side of the answer; a zone changes
  // its clocks at most once in such a window.
  const int64_t guess = local_seconds - offset_at(local_seconds);
  const int before = offset_at(guess - kSecondsPerDay / 2);
  const int after = offset_at(guess + kSecondsPerDay / 2);
  const int64_t with_before = local_seconds - before;
  if (before == after || offset_at(with_before) == before) return with_before;
  const int64_t with_after = local_seconds - after;
  if (offset_at(with_after) == after) return with_after;
  return with_before;  // in the gap of clocks going forward
}

}  // namespace tarnwick::rt
