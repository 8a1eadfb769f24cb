// The dates of an out-of-office period as the profile keeps them: reading
// them back, checking that a period makes sense before out-of-office is
// switched on, moving times to the start of their local day, and rewriting
// the profile's dates when the period is reset.
//
// The profile keeps the leave and return moments ("DateFirstDayOut",
// "DateFirstDayBack", GMT) beside local date and clock parts ("FirstDayOut",
// "StartTime", "FirstDayBack", "EndTime") that the mail template's form shows.

#include "engine/ProfileItems.h"
#include "globerr.h"
#include "nsfnote.h"
#include "ostime.h"
#include "request/IPOOO.h"

using tarnwick::engine::replaceTime;

namespace {

constexpr char kNotInFuture[] = "The return date must be in the future.";
constexpr char kNotAfterLeave[] = "Your return date must be later than the date on which you leave.";
constexpr char kShorterThanAnHour[] =
    "Your Out of Office duration must be at least one hour.  Please check your start and end times.";

// The shortest period accepted when hours are shown, in seconds, less one.
constexpr LONG kLongestRejectedPeriod = 3599;

// The date word written into "StartTime" by the day-long reset.
constexpr DWORD kResetStartDateWord = 0xFFFF7776u;

// 00:00 with no date: the clock part the form shows for a whole-day period.
TIMEDATE midnightWithoutDate() {
  TIMEDATE value{};
  value.Innards[0] = 0;
  value.Innards[1] = ANYDAY;
  return value;
}

}  // namespace

int IPOOO::GetUITimes() {
  if (hProfile == NULLHANDLE) return 0;
  struct Source {
    const char* item;
    TIMEDATE* into;
    const char* missing;
  };
  const Source sources[] = {
      {"DateFirstDayOut", &profileLeaveDate, "No DateFirstDayOut Item"},
      {"DateFirstDayBack", &profileReturnDate, "No DateFirstDayBack Item"},
      {"StartTime", &profileStartTime, "No StartTime Item"},
      {"EndTime", &profileEndTime, "No EndTime Item"},
  };
  for (const Source& source : sources) {
    if (!NSFItemGetTime(hProfile, source.item, source.into)) throw IPException("GetUITimes", source.missing);
  }
  return 1;
}

void IPOOO::setConstantTime(TIMEDATE* source, TIMEDATE* destination) {
  *destination = *source;
  TIME local{};
  local.GM = *destination;
  if (TimeGMToLocal(&local)) return;  // cannot be broken down: an unchanged copy
  TimeDateAdjust(destination, -local.second, -local.minute, -local.hour, 0, 0, 0);
}

int IPOOO::ValidateSettings() {
  TIMEDATE now{};
  OSCurrentTIMEDATE(&now);
  GetUITimes();

  if (TimeDateDifference(&profileReturnDate, &now) < 0) throw IPException("ValidateSettings", kNotInFuture);
  if (TimeDateDifference(&profileReturnDate, &profileLeaveDate) < 0) {
    throw IPException("ValidateSettings", kNotAfterLeave);
  }

  auto writeMidnight = [this](const char* item) {
    const TIMEDATE midnight = midnightWithoutDate();
    if (STATUS status = NSFItemSetTime(hProfile, item, &midnight)) {
      throw IPException("ValidateSettings", getErrorMsg(status).c_str());
    }
  };
  // Whole days: both dates moved to the start of their local day must differ.
  auto requireDifferentDays = [this] {
    setConstantTime(&profileLeaveDate, &profileLeaveDate);
    setConstantTime(&profileReturnDate, &profileReturnDate);
    if (TimeDateEqual(&profileLeaveDate, &profileReturnDate)) throw IPException("ValidateSettings", kNotAfterLeave);
  };

  if (agentMode != 0) {
    requireDifferentDays();
    if (TimeDateDifference(&profileReturnDate, &now) <= 0) return 1;
    writeMidnight("StartTime");
    return 1;
  }
  if (ShowHours == "1") {
    if (TimeDateDifference(&profileReturnDate, &profileLeaveDate) <= kLongestRejectedPeriod) {
      throw IPException("ValidateSettings", kShorterThanAnHour);
    }
    return 1;
  }
  requireDifferentDays();
  writeMidnight("StartTime");
  writeMidnight("EndTime");
  return 1;
}

int IPOOO::ResetDateTime(WORD resetCode) {
  TIMEDATE now{};
  OSCurrentTIMEDATE(&now);
  TIMEDATE tomorrow = now;
  TimeDateAdjust(&tomorrow, 0, 0, 0, 1, 0, 0);

  STATUS status = NOERROR;
  switch (resetCode) {
    case 9:
    case 10: {
      // Out from the start of today until tomorrow at this time.
      TIMEDATE firstDayOut{};
      setConstantTime(&now, &firstDayOut);
      TIMEDATE startTime = now;
      startTime.Innards[1] = kResetStartDateWord;
      TIMEDATE firstDayBack{};
      setConstantTime(&tomorrow, &firstDayBack);
      TIMEDATE endTime{};
      TimeExtractLocal(&tomorrow, TRUE, &endTime);
      status = replaceTime(hProfile, "FirstDayOut", firstDayOut);
      if (status == NOERROR) status = replaceTime(hProfile, "StartTime", startTime);
      if (status == NOERROR) status = replaceTime(hProfile, "FirstDayBack", firstDayBack);
      if (status == NOERROR) status = replaceTime(hProfile, "EndTime", endTime);
      break;
    }
    case kResetEndNow: {
      // Back today, now.
      TIMEDATE today{};
      TimeExtractLocal(&now, FALSE, &today);
      TIMEDATE clock{};
      TimeExtractLocal(&now, TRUE, &clock);
      // The name is given with its terminating zero, which no stored item
      // name carries: the return date is written over, the leave date kept.
      constexpr char kFirstDayOut[] = "FirstDayOut";
      if (NSFItemIsPresent(hProfile, kFirstDayOut, sizeof kFirstDayOut)) {
        status = NSFItemDelete(hProfile, kFirstDayOut, sizeof kFirstDayOut);
      }
      if (status == NOERROR) status = NSFItemSetTime(hProfile, "FirstDayBack", &today);
      if (status == NOERROR) status = replaceTime(hProfile, "EndTime", clock);
      break;
    }
    default:
      return 0;
  }
  if (status != NOERROR) throw IPException("ResetDateTime", getErrorMsg(status).c_str());
  return 1;
}
