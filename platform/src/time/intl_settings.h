// The runtime's international settings (INTLFORMAT) from notes.ini.
//
// Variables, all optional (US-style defaults in brackets):
//   DateOrder=MDY|DMY|YMD [MDY]      DateSeparator [/]     TimeSeparator [:]
//   ClockType=12_HOUR|24_HOUR [12]   AMString [AM]         PMString [PM]
//   FourDigitYear=1|0 [1]            DecimalSymbol [.]     ThousandsSeparator [,]
//   CurrencySymbol [$]               CurrencyDigits [2]    CurrencyPosition=PREFIX|SUFFIX [PREFIX]
//   CurrencySpace=1|0 [0]            TodayString, YesterdayString, TomorrowString [Today, ...]
// Texts longer than their field are cut; empty values mean the default.
// TimeZone and the DAYLIGHT_SAVINGS flag come from the operating system's
// zone. Read afresh on every call (notes.ini may change); thread-safe.
#pragma once

#include "intl.h"

namespace tarnwick::rt {

INTLFORMAT current_intl_settings();

}  // namespace tarnwick::rt
