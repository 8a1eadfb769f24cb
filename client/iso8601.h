// TIMEDATE values as ISO 8601 text, the form the tool reads and prints.
//
// Output is in the operating system's zone (TZ) with its numeric offset:
// "2026-03-02T09:30:00+01:00" (hundredths added when not zero); a date-only
// value prints as "2026-03-02", a time-only value as "09:30:00", a value
// with both parts wild as "". Input needs a numeric offset ("Z", "+01:00" or
// "+0100") unless it is a date alone.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "global.h"

namespace tarnwick::client {

std::string iso8601(const TIMEDATE& value);

// nullopt for text that is not such a time. A parsed instant carries the
// zone bits of the operating system's zone, as a value made here would.
std::optional<TIMEDATE> parse_iso8601(std::string_view text);

// A local date and time without zone ("2026-03-02T09:30" or with ":SS"), as
// the request options take them.
struct LocalDateTime {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};
std::optional<LocalDateTime> parse_local_date_time(std::string_view text);

}  // namespace tarnwick::client
