/* Time and date: TIMEDATE arithmetic, local/GMT conversion and text forms.
 *
 * A TIMEDATE is kept in GMT; its date word also records the zone and whether
 * the zone observes daylight saving where the value was made. Local time
 * comes from the operating system's zone (TZ). Zones are counted as the
 * platform does: positive west of GMT (EST = 5), negative east (CET = -1);
 * half and quarter hours use four digits, minutes in the high two
 * (-3005 = 5:30 east). The Time* conversions return FALSE on success and TRUE
 * on failure, as on the platform. A date-only value {ALLDAY, Julian day} and
 * a time-only value {ticks, ANYDAY} carry no zone: they keep the calendar
 * date or wall-clock time they were made with. Comparisons treat a wildcard
 * part as matching. All calls are thread-safe. */
#ifndef TARNWICK_OSTIME_H
#define TARNWICK_OSTIME_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

#define TICKS_IN_SECOND 100
#define TICKS_IN_MINUTE 6000
#define TICKS_IN_HOUR 360000
#define TICKS_IN_DAY 8640000

#define ALLDAY 0xFFFFFFFFu /* Innards[0] wildcard: date only */
#define ANYDAY 0xFFFFFFFFu /* Innards[1] wildcard: time only */

#define TIMEDATE_MINIMUM 0
#define TIMEDATE_MAXIMUM 1
#define TIMEDATE_WILDCARD 2

/* Bits of the date word */
#define TIMEDATE_DST_MASK 0x80000000u
#define TIMEDATE_EAST_MASK 0x40000000u
#define TIMEDATE_QUARTERS_MASK 0x30000000u
#define TIMEDATE_HOURS_MASK 0x0F000000u
#define TIMEDATE_JULIAN_MASK 0x00FFFFFFu

/* A broken-down time. zone and dst describe the zone of the components. */
typedef struct {
  int year;      /* 1-32767 */
  int month;     /* 1-12 */
  int day;       /* 1-31 */
  int weekday;   /* 1-7, Sunday = 1 */
  int hour;      /* 0-23 */
  int minute;    /* 0-59 */
  int second;    /* 0-59 */
  int hundredth; /* 0-99 */
  int dst;       /* the zone observes daylight saving */
  int zone;      /* see the zone convention above */
  TIMEDATE GM;
} TIME;

void LNPUBLIC OSCurrentTIMEDATE(TIMEDATE *retTimeDate);
void LNPUBLIC OSCurrentTimeZone(int *retZone, int *retDST);

BOOL LNPUBLIC TimeLocalToGM(TIME *Time);
BOOL LNPUBLIC TimeGMToLocal(TIME *Time);
BOOL LNPUBLIC TimeGMToLocalZone(TIME *Time);
void LNPUBLIC TimeExtractLocal(const TIMEDATE *Time, BOOL fTime, TIMEDATE *retTime);

/* Seconds, minutes and hours are elapsed time; days, months and years move
 * along the local calendar keeping the local clock time (across a daylight
 * saving change too); 31 January + 1 month = the last day of February. */
BOOL LNPUBLIC TimeDateAdjust(TIMEDATE *Time, int seconds, int minutes, int hours, int days, int months, int years);
STATUS LNPUBLIC TimeDateIncrement(TIMEDATE *Time, LONG Interval);
LONG LNPUBLIC TimeDateDifference(const TIMEDATE *t1, const TIMEDATE *t2);
void LNPUBLIC TimeDateDifferenceFloat(const TIMEDATE *t1, const TIMEDATE *t2, NUMBER *retDifference);
int LNPUBLIC TimeDateCompare(const TIMEDATE *t1, const TIMEDATE *t2);
BOOL LNPUBLIC TimeDateEqual(const TIMEDATE *t1, const TIMEDATE *t2);
void LNPUBLIC TimeConstant(WORD TimeConstantType, TIMEDATE *td);
void LNPUBLIC TimeDateClear(TIMEDATE *Time);
void LNPUBLIC TimeConstruct(DWORD Date, DWORD Time, TIMEDATE *retTimeDate);
DWORD LNPUBLIC TimeExtractTicks(const TIMEDATE *Time);
DWORD LNPUBLIC TimeExtractDate(const TIMEDATE *Time);
DWORD LNPUBLIC TimeExtractJulianDate(const TIMEDATE *Time);

/* Text formats */
#define TDFMT_FULL 0
#define TDFMT_CPARTIAL 1
#define TDFMT_PARTIAL 2
#define TDFMT_DPARTIAL 3
#define TDFMT_FULL4 4
#define TDFMT_CPARTIAL4 5
#define TDFMT_DPARTIAL4 6
#define TTFMT_FULL 0
#define TTFMT_PARTIAL 1
#define TTFMT_HOUR 2
#define TTFMT_FULL_MAX 3
#define TZFMT_NEVER 0
#define TZFMT_SOMETIMES 1
#define TZFMT_ALWAYS 2
#define TSFMT_DATE 0
#define TSFMT_TIME 1
#define TSFMT_DATETIME 2
#define TSFMT_CDATETIME 3
#define TSFMT_CDATE 4

typedef struct {
  BYTE Date;
  BYTE Time;
  BYTE Zone;
  BYTE Structure;
} TFMT;

/* IntlFormat NULL = current settings (intl.h); TextFormat NULL = full date and
 * time. The text is not NUL-terminated; at most TextBufferLength bytes. */
STATUS LNPUBLIC ConvertTIMEDATEToText(const void *IntlFormat, const TFMT *TextFormat, const TIMEDATE *InputTime,
                                      char *retTextBuffer, WORD TextBufferLength, WORD *retTextLength);
/* Parses at most MaxLength bytes at *ppTextString and advances the pointer
 * past what was read. */
STATUS LNPUBLIC ConvertTextToTIMEDATE(const void *IntlFormat, const TFMT *TextFormat, char **ppTextString,
                                      WORD MaxLength, TIMEDATE *retTIMEDATE);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_OSTIME_H */
