// Leave and return dates for requests built by tests and benchmarks: a local
// day some days from now, and the date attributes of a request document for
// 09:00 on that day.
#pragma once

#include <ctime>
#include <string>
#include <utility>

namespace tarnwick::testing {

// Today's local date moved by `days` (month and year ends handled by mktime).
inline std::tm localDayAhead(int days) {
  std::time_t now = std::time(nullptr);
  std::tm day{};
  localtime_r(&now, &day);
  day.tm_mday += days;
  day.tm_isdst = -1;
  std::mktime(&day);
  return day;
}

// " <prefix>Year='..' <prefix>Month='..' ... <prefix>Sec='0'" for local
// 09:00 `days` from today, as a request document's attributes.
inline std::string requestDateAttributes(const char* prefix, int days) {
  const std::tm day = localDayAhead(days);
  const std::pair<const char*, int> parts[] = {{"Year", day.tm_year + 1900}, {"Month", day.tm_mon + 1},
                                               {"Day", day.tm_mday},         {"Hour", 9},
                                               {"Min", 0},                   {"Sec", 0}};
  std::string out;
  for (const auto& [name, value] : parts) out += std::string(" ") + prefix + name + "='" + std::to_string(value) + "'";
  return out;
}

}  // namespace tarnwick::testing
