// Text forms of TIMEDATE values, shaped by an INTLFORMAT (date order and
// separators, 12/24-hour clock, AM/PM and Today/Yesterday/Tomorrow texts) and
// a TFMT (which parts to show).
//
// Printed forms (US settings): "03/09/2021 10:37:00 AM"; date-only values
// print only the date, time-only values only the time. Full values show the
// operating system's local time unless the zone format asks to show them in
// the zone they were made in, with the zone's name after the time ("EST",
// "CEST", or "ZE5B" = 5:30 east, "ZW3BDT" = 3:30 west in daylight saving).
//
// The reader accepts what the printer writes and common variants: one or two
// digit fields, any of the separators "/", "-", "." (and the configured one)
// in dates, ISO "2026-01-02" and "2026-01-02T10:00:00", years of two digits
// (below 50: 20xx), a missing year (this year), English month names ("Jan 2,
// 2026", "2-Feb-1996"), "10 PM", a lone hour after a
// date ("Today 12"), hundredths after the seconds, a zone name. Text with
// only a date gives a date-only value, only a time a time-only value.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "intl.h"
#include "ostime.h"

namespace tarnwick::rt {

// NOERROR, ERR_TFMT (bad TFMT) or ERR_TDO_CONV (not a valid value).
STATUS format_timedate(const INTLFORMAT& intl, const TFMT& format, const TIMEDATE& value, std::string& text);

struct ParsedTimeDate {
  STATUS status = NOERROR;
  TIMEDATE value{};
  size_t consumed = 0;  // bytes up to the end of the last part read
};
// Reads one value from the start of `text`; text after it must not start
// with a letter or digit. ERR_TFMT or ERR_TDO_CONV on failure.
ParsedTimeDate parse_timedate(const INTLFORMAT& intl, const TFMT& format, std::string_view text);

}  // namespace tarnwick::rt
