// The dates of an out-of-office period and the calendar busy-time entry, on
// mail databases made by tarnwick-admin from our mail template: the date
// checks made before out-of-office is switched on, the profile date resets,
// booking, moving and releasing the "Out Of Office" entry, and the agent
// switches doing both end to end.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "globerr.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "nsfsearch.h"
#include "osenv.h"
#include "ostime.h"
#include "request/IPOOO.h"
#include "tests/task/mail_database_fixture.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

using tarnwick::testing::kJane;
using tarnwick::testing::kJaneMail;

TIMEDATE now() {
  TIMEDATE value{};
  OSCurrentTIMEDATE(&value);
  return value;
}

// Today's local date, days ahead, at hour:minute local time.
TIMEDATE localAt(int days, int hour, int minute = 0) {
  TIME t{};
  t.GM = now();
  EXPECT_FALSE(TimeGMToLocal(&t));
  t.hour = hour;
  t.minute = minute;
  t.second = 0;
  t.hundredth = 0;
  EXPECT_FALSE(TimeLocalToGM(&t));
  TimeDateAdjust(&t.GM, 0, 0, 0, days, 0, 0);
  return t.GM;
}

TIME brokenDown(const TIMEDATE& value) {
  TIME t{};
  t.GM = value;
  EXPECT_FALSE(TimeGMToLocal(&t));
  return t;
}

bool same(const TIMEDATE& a, const TIMEDATE& b) { return TimeDateEqual(&a, &b) != FALSE; }

bool sameLocalDay(const TIME& a, const TIME& b) { return a.year == b.year && a.month == b.month && a.day == b.day; }

// The identifier text of a note, read independently of the task's code.
std::string identifierOf(const ORIGINATORID& oid) {
  char text[33] = {0};
  std::snprintf(text, sizeof text, "%.8X%.8X%.8X%.8X", oid.File.Innards[1], oid.File.Innards[0], oid.Note.Innards[1],
                oid.Note.Innards[0]);
  return text;
}

std::string text(NOTEHANDLE note, const char* name) {
  if (!NSFItemIsPresent(note, name, static_cast<WORD>(std::strlen(name)))) return "<missing>";
  char buffer[512] = {0};
  return std::string(buffer, NSFItemGetText(note, name, buffer, sizeof buffer));
}

int itemCount(NOTEHANDLE note, const char* name) {
  const WORD length = static_cast<WORD>(std::strlen(name));
  int count = 0;
  BLOCKID item{};
  for (STATUS status = NSFItemInfo(note, name, length, &item, nullptr, nullptr, nullptr); status == NOERROR;
       status = NSFItemInfoNext(note, item, name, length, &item, nullptr, nullptr, nullptr)) {
    ++count;
  }
  return count;
}

TIMEDATE timeItem(NOTEHANDLE note, const char* name) {
  TIMEDATE value{};
  EXPECT_TRUE(NSFItemGetTime(note, name, &value)) << name;
  return value;
}

// The message an operation raised, "" when it raised none.
template <typename Operation>
std::string raised(Operation operation) {
  try {
    operation();
  } catch (const IPException& e) {
    return e.show();
  }
  return "";
}

class BusyTime : public tarnwick::testing::MailDatabaseTest {
 protected:
  void SetUp() override {
    MailDatabaseTest::SetUp();
    addJane("agent");
  }

  static void open(IPOOO& context) { openJane(context); }

  // Puts a period into the open profile as the set flow leaves it.
  static void setPeriod(IPOOO& context, const TIMEDATE& leave, const TIMEDATE& back) {
    ASSERT_EQ(NSFItemSetTime(context.hProfile, "dateFirstDayOut", &leave), NOERROR);
    ASSERT_EQ(NSFItemSetTime(context.hProfile, "StartTime", &leave), NOERROR);
    ASSERT_EQ(NSFItemSetTime(context.hProfile, "dateFirstDayBack", &back), NOERROR);
    ASSERT_EQ(NSFItemSetTime(context.hProfile, "EndTime", &back), NOERROR);
  }

  // Identifier texts of the stored documents made from the "Appointment"
  // form, in note order.
  std::vector<std::string> appointments() {
    DBHANDLE db = NULLHANDLE;
    EXPECT_EQ(NSFDbOpen(kJaneMail, &db), NOERROR);
    struct Visit {
      DBHANDLE db;
      std::vector<std::string> found;
    } visit{db, {}};
    auto routine = [](void* parameter, SEARCH_MATCH* match, ITEM_TABLE*) -> STATUS {
      auto* v = static_cast<Visit*>(parameter);
      SEARCH_MATCH copy{};
      std::memcpy(&copy, match, sizeof copy);
      NOTEHANDLE note = NULLHANDLE;
      if (NSFNoteOpen(v->db, copy.ID.NoteID, 0, &note) != NOERROR) return NOERROR;
      if (text(note, "Form") == "Appointment") v->found.push_back(identifierOf(copy.OriginatorID));
      NSFNoteClose(note);
      return NOERROR;
    };
    EXPECT_EQ(NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, routine, &visit, nullptr), NOERROR);
    NSFDbClose(db);
    return visit.found;
  }

  // Runs check on the stored entry named by an identifier text.
  template <typename Check>
  void withEntry(const std::string& identifier, Check check) {
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(kJaneMail, &db), NOERROR);
    UNIVERSALNOTEID unid{};
    ASSERT_EQ(identifier.size(), 32u);
    unid.File.Innards[1] = std::stoul(identifier.substr(0, 8), nullptr, 16);
    unid.File.Innards[0] = std::stoul(identifier.substr(8, 8), nullptr, 16);
    unid.Note.Innards[1] = std::stoul(identifier.substr(16, 8), nullptr, 16);
    unid.Note.Innards[0] = std::stoul(identifier.substr(24, 8), nullptr, 16);
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpenByUNID(db, &unid, 0, &note), NOERROR) << identifier;
    check(note);
    NSFNoteClose(note);
    NSFDbClose(db);
  }
};

TEST_F(BusyTime, AgentModeRejectsPeriodsThatAreNotWholeFutureDays) {
  IPOOO context;
  open(context);
  ASSERT_EQ(context.agentMode, 1);
  auto validate = [&] { return raised([&] { context.ValidateSettings(); }); };

  // A return one minute ago fails first, even with a later leave date.
  TIMEDATE minuteAgo = now();
  TimeDateAdjust(&minuteAgo, 0, -1, 0, 0, 0, 0);
  setPeriod(context, localAt(1, 9), minuteAgo);
  EXPECT_EQ(validate(), "ValidateSettings:The return date must be in the future.");

  const std::string notLater = "ValidateSettings:Your return date must be later than the date on which you leave.";
  setPeriod(context, localAt(5, 9), localAt(3, 9));
  EXPECT_EQ(validate(), notLater);
  // One calendar day, different hours: no whole day away.
  setPeriod(context, localAt(2, 9), localAt(2, 17));
  EXPECT_EQ(validate(), notLater);

  // Two days: accepted; the leave clock becomes a bare 00:00 and the
  // profile dates read back move to the start of their local day.
  setPeriod(context, localAt(1, 9, 30), localAt(3, 17));
  EXPECT_EQ(context.ValidateSettings(), 1);
  const TIMEDATE start = timeItem(context.hProfile, "StartTime");
  EXPECT_EQ(start.Innards[0], 0u);
  EXPECT_EQ(start.Innards[1], ANYDAY);
  EXPECT_TRUE(same(context.profileLeaveDate, localAt(1, 0)));
  EXPECT_TRUE(same(context.profileReturnDate, localAt(3, 0)));
  EXPECT_TRUE(same(timeItem(context.hProfile, "EndTime"), localAt(3, 17)));  // left as it was

  // Returning today (later than now, but today's midnight is past): the
  // period is accepted and "StartTime" is left as it was.
  TIMEDATE inAMinute = now();
  TimeDateAdjust(&inAMinute, 0, 1, 0, 0, 0, 0);
  if (sameLocalDay(brokenDown(inAMinute), brokenDown(now()))) {
    setPeriod(context, localAt(-2, 9), inAMinute);
    EXPECT_EQ(context.ValidateSettings(), 1);
    EXPECT_TRUE(same(timeItem(context.hProfile, "StartTime"), localAt(-2, 9)));
  }

  // Every date item must be there.
  ASSERT_EQ(NSFItemDelete(context.hProfile, "EndTime", 7), NOERROR);
  EXPECT_EQ(validate(), "GetUITimes:No EndTime Item");
  ASSERT_EQ(NSFItemDelete(context.hProfile, "dateFirstDayOut", 15), NOERROR);
  EXPECT_EQ(validate(), "GetUITimes:No DateFirstDayOut Item");
  IPOOO closed;
  EXPECT_EQ(closed.GetUITimes(), 0);
}

TEST_F(BusyTime, ServiceModeChecksAnHourWhenHoursAreShownElseWholeDays) {
  IPOOO context;
  open(context);
  context.agentMode = 0;
  context.ShowHours = "1";
  auto validate = [&] { return raised([&] { context.ValidateSettings(); }); };

  const TIMEDATE leave = localAt(2, 9);
  TIMEDATE hour = leave;
  TimeDateAdjust(&hour, 0, 0, 1, 0, 0, 0);
  setPeriod(context, leave, hour);
  EXPECT_EQ(context.ValidateSettings(), 1);
  const TIMEDATE start = timeItem(context.hProfile, "StartTime");
  EXPECT_TRUE(TimeDateEqual(&start, &leave));  // hours are kept

  TIMEDATE shortOfAnHour = leave;
  TimeDateAdjust(&shortOfAnHour, 3599, 0, 0, 0, 0, 0);
  setPeriod(context, leave, shortOfAnHour);
  EXPECT_EQ(validate(),
            "ValidateSettings:Your Out of Office duration must be at least one hour.  Please check your start and "
            "end times.");

  // Without hours: whole days, both clocks become a bare 00:00.
  context.ShowHours = "0";
  setPeriod(context, leave, localAt(2, 18));
  EXPECT_EQ(validate(), "ValidateSettings:Your return date must be later than the date on which you leave.");
  setPeriod(context, leave, localAt(4, 18));
  EXPECT_EQ(context.ValidateSettings(), 1);
  for (const char* item : {"StartTime", "EndTime"}) {
    const TIMEDATE value = timeItem(context.hProfile, item);
    EXPECT_EQ(value.Innards[0], 0u) << item;
    EXPECT_EQ(value.Innards[1], ANYDAY) << item;
  }
}

TEST_F(BusyTime, ConstantTimeAndResetCodesRewriteTheProfileDates) {
  IPOOO context;
  open(context);

  // The start of the local day, hundredths kept; in place too.
  TIMEDATE afternoon = localAt(0, 15, 42);
  TimeDateAdjust(&afternoon, 7, 0, 0, 0, 0, 0);
  afternoon.Innards[0] += 35;  // 15:42:07.35
  TIMEDATE midnight{};
  context.setConstantTime(&afternoon, &midnight);
  TIME t = brokenDown(midnight);
  EXPECT_EQ(t.hour * 10000 + t.minute * 100 + t.second, 0);
  EXPECT_EQ(t.hundredth, 35);
  EXPECT_TRUE(sameLocalDay(t, brokenDown(afternoon)));
  context.setConstantTime(&afternoon, &afternoon);
  EXPECT_TRUE(TimeDateEqual(&afternoon, &midnight));

  const TIMEDATE oldOut = localAt(-3, 9);
  const TIMEDATE oldBack = localAt(-1, 9);
  auto resetProfile = [&] {
    ASSERT_EQ(NSFItemSetTime(context.hProfile, "FirstDayOut", &oldOut), NOERROR);
    ASSERT_EQ(NSFItemSetTime(context.hProfile, "FirstDayBack", &oldBack), NOERROR);
    ASSERT_EQ(NSFItemSetTime(context.hProfile, "StartTime", &oldOut), NOERROR);
    ASSERT_EQ(NSFItemSetTime(context.hProfile, "EndTime", &oldBack), NOERROR);
  };

  // 11: back today, now; the leave date stays.
  resetProfile();
  const TIME before = brokenDown(now());
  EXPECT_EQ(context.ResetDateTime(11), 1);
  const TIME after = brokenDown(now());
  const TIMEDATE out = timeItem(context.hProfile, "FirstDayOut");
  EXPECT_TRUE(TimeDateEqual(&out, &oldOut));
  const TIMEDATE back = timeItem(context.hProfile, "FirstDayBack");
  EXPECT_EQ(back.Innards[0], ALLDAY);  // a date without a clock
  TIMEDATE todayBefore{}, todayAfter{};
  TimeExtractLocal(&before.GM, FALSE, &todayBefore);
  TimeExtractLocal(&after.GM, FALSE, &todayAfter);
  EXPECT_TRUE(TimeDateEqual(&back, &todayBefore) || TimeDateEqual(&back, &todayAfter));
  const TIMEDATE endClock = timeItem(context.hProfile, "EndTime");
  EXPECT_EQ(endClock.Innards[1], ANYDAY);  // a clock without a date
  TIMEDATE clockBefore{}, clockAfter{};
  TimeExtractLocal(&before.GM, TRUE, &clockBefore);
  TimeExtractLocal(&after.GM, TRUE, &clockAfter);
  if (clockBefore.Innards[0] <= clockAfter.Innards[0]) {
    EXPECT_GE(endClock.Innards[0], clockBefore.Innards[0]);
    EXPECT_LE(endClock.Innards[0], clockAfter.Innards[0]);
  }

  // 9 and 10: from the start of today until tomorrow at this time.
  for (WORD code : {WORD{9}, WORD{10}}) {
    resetProfile();
    const TIMEDATE start = now();
    EXPECT_EQ(context.ResetDateTime(code), 1);
    const TIMEDATE end = now();
    const TIME firstOut = brokenDown(timeItem(context.hProfile, "FirstDayOut"));
    EXPECT_EQ(firstOut.hour * 10000 + firstOut.minute * 100 + firstOut.second, 0) << code;
    EXPECT_TRUE(sameLocalDay(firstOut, brokenDown(start)) || sameLocalDay(firstOut, brokenDown(end))) << code;
    const TIMEDATE startTime = timeItem(context.hProfile, "StartTime");
    EXPECT_EQ(startTime.Innards[1], 0xFFFF7776u) << code;
    if (start.Innards[0] <= end.Innards[0]) {  // the GMT clock of now, unless midnight passed meanwhile
      EXPECT_GE(startTime.Innards[0], start.Innards[0]) << code;
      EXPECT_LE(startTime.Innards[0], end.Innards[0]) << code;
    }
    const TIME firstBack = brokenDown(timeItem(context.hProfile, "FirstDayBack"));
    EXPECT_EQ(firstBack.hour * 10000 + firstBack.minute * 100 + firstBack.second, 0) << code;
    TIMEDATE tomorrow = start;
    TimeDateAdjust(&tomorrow, 0, 0, 0, 1, 0, 0);
    TIMEDATE tomorrowEnd = end;
    TimeDateAdjust(&tomorrowEnd, 0, 0, 0, 1, 0, 0);
    EXPECT_TRUE(sameLocalDay(firstBack, brokenDown(tomorrow)) || sameLocalDay(firstBack, brokenDown(tomorrowEnd)));
    EXPECT_EQ(timeItem(context.hProfile, "EndTime").Innards[1], ANYDAY) << code;
  }

  // Unknown codes change nothing.
  resetProfile();
  EXPECT_EQ(context.ResetDateTime(0), 0);
  EXPECT_EQ(context.ResetDateTime(12), 0);
  for (const char* item : {"FirstDayOut", "StartTime"}) {
    const TIMEDATE value = timeItem(context.hProfile, item);
    EXPECT_TRUE(TimeDateEqual(&value, &oldOut)) << item;
  }
}

TEST_F(BusyTime, IdentifierTextsConvertInEitherCase) {
  unsigned int value = 1;
  IPOOO::ConvertStringToHex("FFFFFFFF", value);
  EXPECT_EQ(value, 0xFFFFFFFFu);
  IPOOO::ConvertStringToHex("10", value);
  EXPECT_EQ(value, 16u);
  IPOOO::ConvertStringToHex("", value);
  EXPECT_EQ(value, 0u);
  IPOOO::ConvertStringToHex("0000c0DE", value);
  EXPECT_EQ(value, 0xC0DEu);

  UNIVERSALNOTEID upper{}, lower{};
  IPOOO::ConvertStringToUNID("0123456789ABCDEFFEDCBA9876543210", &upper);
  EXPECT_EQ(upper.File.Innards[1], 0x01234567u);
  EXPECT_EQ(upper.File.Innards[0], 0x89ABCDEFu);
  EXPECT_EQ(upper.Note.Innards[1], 0xFEDCBA98u);
  EXPECT_EQ(upper.Note.Innards[0], 0x76543210u);
  IPOOO::ConvertStringToUNID("0123456789abcdeffedcba9876543210", &lower);
  EXPECT_EQ(std::memcmp(&upper, &lower, sizeof upper), 0);
  UNIVERSALNOTEID shortText{};
  IPOOO::ConvertStringToUNID("000000010000000A", &shortText);
  EXPECT_EQ(shortText.File.Innards[1], 1u);
  EXPECT_EQ(shortText.File.Innards[0], 10u);
  EXPECT_EQ(shortText.Note.Innards[1], 0u);
  EXPECT_EQ(shortText.Note.Innards[0], 0u);
}

TEST_F(BusyTime, BookingCreatesOneEntryAndMovesItAfterwards) {
  // The calendar owner: the first of two names.
  editProfile([](NOTEHANDLE note) { setList(note, "Owner", {"CN=Joe Roe/O=Acme", kJane}); }, "CalendarProfile");
  IPOOO withoutDatabase;
  EXPECT_EQ(withoutDatabase.BookBusyTime(), 0u);

  IPOOO context;
  open(context);
  const TIMEDATE leave = localAt(2, 8);
  const TIMEDATE back = localAt(6, 8);
  setPeriod(context, leave, back);
  ASSERT_EQ(NSFItemSetText(context.hProfile, "OwnerOfCalendarEntry", "x", 1), NOERROR);
  EXPECT_EQ(context.BookBusyTime(), 1u);

  const std::vector<std::string> stored = appointments();
  ASSERT_EQ(stored.size(), 1u);
  const std::string identifier = text(context.hProfile, "CalendarEntryUNID");
  EXPECT_EQ(identifier, stored[0]);
  EXPECT_EQ(identifier.find_first_not_of("0123456789ABCDEF"), std::string::npos) << identifier;
  EXPECT_FALSE(NSFItemIsPresent(context.hProfile, "OwnerOfCalendarEntry", 20));
  withEntry(identifier, [&](NOTEHANDLE entry) {
    EXPECT_EQ(text(entry, "Form"), "Appointment");
    for (const char* item : {"StartDate", "StartDateTime"}) {
      const TIMEDATE value = timeItem(entry, item);
      EXPECT_TRUE(TimeDateEqual(&value, &leave)) << item;
    }
    for (const char* item : {"EndDate", "EndDateTime"}) {
      const TIMEDATE value = timeItem(entry, item);
      EXPECT_TRUE(TimeDateEqual(&value, &back)) << item;
    }
    for (const char* item : {"From", "PRINCIPAL", "$BusyName"}) EXPECT_EQ(text(entry, item), "CN=Joe Roe/O=Acme");
    EXPECT_EQ(text(entry, "$BusyPriority"), "1");
    EXPECT_EQ(text(entry, "BookFreeTime"), "");
    EXPECT_EQ(text(entry, "$PublicAccess"), "1");
    EXPECT_EQ(text(entry, "AppointmentType"), "2");
    EXPECT_EQ(text(entry, "ExcludeFromView"), "D");
    EXPECT_EQ(text(entry, "Subject"), "Out Of Office");
    NUMBER icon = 0;
    EXPECT_TRUE(NSFItemGetNumber(entry, "_ViewIcon", &icon));
    EXPECT_EQ(icon, 9);
    EXPECT_EQ(text(entry, "CreatedByAgent"), "1");
    EXPECT_EQ(text(entry, "ApptUNID"), identifier);
  });

  // Booking again moves the same entry; a profile that does not book busy
  // time makes it free time.
  const TIMEDATE laterBack = localAt(9, 8);
  setPeriod(context, leave, laterBack);
  ASSERT_EQ(NSFItemSetText(context.hProfile, "BookBusyTime", "0", 1), NOERROR);
  EXPECT_EQ(context.BookBusyTime(), 1u);
  EXPECT_EQ(appointments(), stored);
  EXPECT_EQ(text(context.hProfile, "CalendarEntryUNID"), identifier);
  withEntry(identifier, [&](NOTEHANDLE entry) {
    const TIMEDATE end = timeItem(entry, "EndDateTime");
    EXPECT_TRUE(TimeDateEqual(&end, &laterBack));
    for (const char* item : {"StartDate", "StartDateTime", "EndDate", "EndDateTime", "$BusyPriority"}) {
      EXPECT_EQ(itemCount(entry, item), 1) << item;  // replaced, not added
    }
    EXPECT_EQ(text(entry, "$BusyPriority"), "2");
    EXPECT_EQ(text(entry, "BookFreeTime"), "1");
  });
  ASSERT_EQ(NSFItemSetText(context.hProfile, "BookBusyTime", "1", 1), NOERROR);
  EXPECT_EQ(context.BookBusyTime(), 1u);
  withEntry(identifier, [&](NOTEHANDLE entry) {
    EXPECT_EQ(text(entry, "$BusyPriority"), "1");
    EXPECT_EQ(text(entry, "BookFreeTime"), "");
  });

  // Missing dates leave no half-made entry behind.
  IPOOO fresh;
  open(fresh);
  ASSERT_EQ(NSFItemDelete(fresh.hProfile, "CalendarEntryUNID", 17), ERR_ITEM_NOT_FOUND);  // never saved
  EXPECT_EQ(raised([&] { fresh.BookBusyTime(); }), "GetUITimes:No DateFirstDayOut Item");
  EXPECT_EQ(appointments(), stored);
}

TEST_F(BusyTime, RemovingReleasesTheEntryAndForgetsIt) {
  IPOOO context;
  open(context);
  EXPECT_EQ(context.RemoveBusyTime(), 0u);  // nothing booked
  setPeriod(context, localAt(1, 8), localAt(4, 8));
  ASSERT_EQ(context.BookBusyTime(), 1u);
  const std::string identifier = text(context.hProfile, "CalendarEntryUNID");

  const TIMEDATE earlierBack = localAt(2, 8);
  setPeriod(context, localAt(1, 8), earlierBack);
  ASSERT_EQ(NSFItemSetText(context.hProfile, "OwnerOfCalendarEntry", "x", 1), NOERROR);
  EXPECT_EQ(context.RemoveBusyTime(), 1u);
  EXPECT_FALSE(NSFItemIsPresent(context.hProfile, "CalendarEntryUNID", 17));
  EXPECT_FALSE(NSFItemIsPresent(context.hProfile, "OwnerOfCalendarEntry", 20));
  withEntry(identifier, [&](NOTEHANDLE entry) {
    EXPECT_EQ(text(entry, "$BusyPriority"), "2");
    EXPECT_EQ(text(entry, "BookFreeTime"), "1");
    const TIMEDATE end = timeItem(entry, "EndDate");
    EXPECT_TRUE(TimeDateEqual(&end, &earlierBack));
  });
  EXPECT_EQ(context.RemoveBusyTime(), 0u);

  // The released entry stays; the next booking makes a new one.
  EXPECT_EQ(context.BookBusyTime(), 1u);
  const std::string second = text(context.hProfile, "CalendarEntryUNID");
  EXPECT_NE(second, identifier);
  EXPECT_EQ(appointments(), (std::vector<std::string>{identifier, second}));

  // An entry deleted by the user: both raise the open's error text and the
  // profile keeps the identifier.
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen(kJaneMail, &db), NOERROR);
  UNIVERSALNOTEID unid{};
  IPOOO::ConvertStringToUNID(second.c_str(), &unid);
  NOTEID noteId = 0;
  NOTEHANDLE note = NULLHANDLE;
  ASSERT_EQ(NSFNoteOpenByUNID(db, &unid, 0, &note), NOERROR);
  NSFNoteGetInfo(note, _NOTE_ID, &noteId);
  NSFNoteClose(note);
  ASSERT_EQ(NSFNoteDelete(db, noteId, 0), NOERROR);
  NSFDbClose(db);
  const STATUS openFailure = NSFNoteOpenByUNID(context.hMailDb, &unid, 0, &note);
  ASSERT_NE(openFailure, NOERROR);
  EXPECT_EQ(raised([&] { context.BookBusyTime(); }), "BookBusyTime:" + context.getErrorMsg(openFailure));
  EXPECT_EQ(raised([&] { context.RemoveBusyTime(); }), "RemoveBusyTime:" + context.getErrorMsg(openFailure));
  EXPECT_EQ(text(context.hProfile, "CalendarEntryUNID"), second);
}

TEST_F(BusyTime, AgentSwitchesBookAndReleaseBusyTime) {
  const TIMEDATE leave = localAt(1, 9);
  const TIMEDATE back = localAt(5, 9);
  std::string identifier;
  {
    IPOOO context;
    open(context);
    // Dates the validation refuses keep the agent off.
    setPeriod(context, localAt(3, 9), localAt(3, 12));
    EXPECT_EQ(raised([&] { context.EnableAgent(); }),
              "ValidateSettings:Your return date must be later than the date on which you leave.");
    EXPECT_EQ(context.isAgentEnable(1), 0);

    setPeriod(context, leave, back);
    ASSERT_EQ(NSFItemSetText(context.hProfile, "BookBusyTime", "1", 1), NOERROR);
    EXPECT_EQ(context.EnableAgent(), 1);
    EXPECT_EQ(context.isAgentEnable(1), 1);
    identifier = text(context.hProfile, "CalendarEntryUNID");
    EXPECT_EQ(appointments(), std::vector<std::string>{identifier});
    EXPECT_EQ(context.SaveOOOProfile(1), 1);
  }
  withEntry(identifier, [&](NOTEHANDLE entry) { EXPECT_EQ(text(entry, "$BusyPriority"), "1"); });

  {
    IPOOO context;
    open(context);
    EXPECT_EQ(text(context.hProfile, "CalendarEntryUNID"), identifier);
    EXPECT_EQ(context.DisableAgent(), 1);  // an entry was released
    EXPECT_EQ(context.isAgentEnable(1), 0);
    EXPECT_FALSE(NSFItemIsPresent(context.hProfile, "CalendarEntryUNID", 17));
    // The period now ends today.
    const TIMEDATE firstDayBack = timeItem(context.hProfile, "FirstDayBack");
    TIMEDATE today{};
    const TIMEDATE current = now();
    TimeExtractLocal(&current, FALSE, &today);
    EXPECT_TRUE(TimeDateEqual(&firstDayBack, &today));
    EXPECT_EQ(context.SaveOOOProfile(1), 1);
  }
  withEntry(identifier, [&](NOTEHANDLE entry) {
    EXPECT_EQ(text(entry, "$BusyPriority"), "2");
    EXPECT_EQ(text(entry, "BookFreeTime"), "1");
  });

  // Without busy time booked, switching on books nothing and switching off
  // releases nothing.
  IPOOO context;
  open(context);
  setPeriod(context, leave, back);
  ASSERT_EQ(NSFItemSetText(context.hProfile, "BookBusyTime", "0", 1), NOERROR);
  EXPECT_EQ(context.EnableAgent(), 1);
  EXPECT_FALSE(NSFItemIsPresent(context.hProfile, "CalendarEntryUNID", 17));
  EXPECT_EQ(context.isAgentEnable(1), 1);
  EXPECT_EQ(context.DisableAgent(), 0);
  EXPECT_EQ(appointments(), std::vector<std::string>{identifier});
}

}  // namespace
