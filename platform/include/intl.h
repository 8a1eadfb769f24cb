/* International settings: date order and separators, AM/PM strings, 12 or 24
 * hour clock, currency and number punctuation, the local zone.
 *
 * Values come from notes.ini (DateOrder=MDY|DMY|YMD, DateSeparator,
 * TimeSeparator, ClockType=12_HOUR|24_HOUR, AMString, PMString,
 * FourDigitYear, DecimalSymbol, ThousandsSeparator, CurrencySymbol,
 * CurrencyDigits, CurrencyPosition=PREFIX|SUFFIX, CurrencySpace,
 * TodayString, YesterdayString, TomorrowString) with US-style defaults;
 * TimeZone and DAYLIGHT_SAVINGS come from the operating system's zone.
 * OSGetIntlSettings copies at most BufferSize bytes and sets Length to that
 * size. Thread-safe. */
#ifndef TARNWICK_INTL_H
#define TARNWICK_INTL_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

#define ISTRMAX 5
#define YTSTRMAX 32

#define CURRENCY_SUFFIX 0x0001
#define CURRENCY_SPACE 0x0002
#define NUMBER_LEADING_ZERO 0x0004
#define CLOCK_24_HOUR 0x0008
#define DAYLIGHT_SAVINGS 0x0010
#define DATE_MDY 0x0020
#define DATE_DMY 0x0040
#define DATE_YMD 0x0080
#define DATE_4DIGIT_YEAR 0x0100
#define TIME_AMPM_PREFIX 0x0400
#define DATE_ABBREV 0x0800

typedef struct {
  WORD Flags;
  BYTE CurrencyDigits;
  BYTE Length; /* size of the structure */
  int TimeZone; /* hours added to local time to get GMT (EST = 5) */
  char AMString[ISTRMAX];
  char PMString[ISTRMAX];
  char CurrencyString[ISTRMAX];
  char ThousandString[ISTRMAX];
  char DecimalString[ISTRMAX];
  char DateString[ISTRMAX];
  char TimeString[ISTRMAX];
  char YesterdayString[YTSTRMAX];
  char TodayString[YTSTRMAX];
  char TomorrowString[YTSTRMAX];
} INTLFORMAT;

void LNPUBLIC OSGetIntlSettings(INTLFORMAT *retIntlFormat, WORD BufferSize);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_INTL_H */
