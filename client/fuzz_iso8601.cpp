// Fuzz target: ISO 8601 text as the admin tool reads it (times with an
// offset, dates alone, local date-times of the request options). Whatever
// is accepted prints back and reads again as the same value.
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string_view>

#include "iso8601.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool zone_set = [] {
    setenv("TZ", "Europe/Berlin", 1);  // a zone with clock changes
    tzset();
    return true;
  }();
  (void)zone_set;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (const auto value = tarnwick::client::parse_iso8601(text)) {
    const std::string printed = tarnwick::client::iso8601(*value);
    const auto again = tarnwick::client::parse_iso8601(printed);
    // A value with both parts wild prints as "", which reads as nothing.
    if (!printed.empty() && !again) std::abort();
    if (again && tarnwick::client::iso8601(*again) != printed) std::abort();
  }
  if (const auto local = tarnwick::client::parse_local_date_time(text)) {
    if (local->month < 1 || local->month > 12 || local->day < 1 || local->day > 31 || local->hour > 23 ||
        local->minute > 59 || local->second > 59) {
      std::abort();
    }
  }
  return 0;
}
