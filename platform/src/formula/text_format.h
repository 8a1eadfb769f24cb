// Text forms of numbers and times for @Text, in the runtime's international
// settings (intl.h).
//
// Number formats combine G (general), F (fixed), S (scientific), C
// (currency), a digit count, ',' (thousands), '%' (percent) and '()'
// (negative numbers in parentheses): "C,2" gives "$1,234.50" with US
// settings; the decimal symbol, thousands separator and currency symbol and
// its position come from the settings.
// Time formats combine one code of each category: D0-D3 (date parts),
// T0-T1 (time parts), Z0-Z2 (zone shown) and S0-S3 (date, time or both);
// they map onto the TFMT of ConvertTIMEDATEToText (Dn -> TDFMT n, Tn ->
// TTFMT n, Zn -> TZFMT n, Sn -> TSFMT n), whose text the result is. The
// default shows what the value has, with seconds.
#pragma once

#include <string>
#include <string_view>

#include "global.h"
#include "intl.h"

namespace tarnwick::rt::formula {

std::string format_number(const INTLFORMAT& intl, double n, std::string_view format);
// ERR_TFMT for an unknown code, ERR_TDO_CONV for a value that is no time.
STATUS format_time(const INTLFORMAT& intl, const TIMEDATE& t, std::string_view format, std::string& out);

}  // namespace tarnwick::rt::formula
