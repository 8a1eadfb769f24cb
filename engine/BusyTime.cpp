// The calendar entry that marks an out-of-office period as busy time.
//
// While a user is away, the mail database carries at most one "Out Of Office"
// appointment made by the task; the profile's "CalendarEntryUNID" names it by
// the text form of its universal note identifier. Booking creates the entry
// or moves the known one to the profile's dates; removing turns it into free
// time and forgets it (the entry stays in the calendar). The profile itself
// is changed in memory only: the caller saves it.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "engine/ProfileItems.h"
#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "request/IPOOO.h"

using tarnwick::engine::calendarOwner;
using tarnwick::engine::deleteIfPresent;
using tarnwick::engine::itemText;
using tarnwick::engine::replaceText;
using tarnwick::engine::replaceTime;
using tarnwick::engine::setText;

namespace {

constexpr char kEntryItem[] = "CalendarEntryUNID";
constexpr char kEntryOwnerItem[] = "OwnerOfCalendarEntry";
constexpr NUMBER kOutOfOfficeIcon = 9;

// Closes a calendar entry note on every path out of an operation.
class EntryNote {
 public:
  EntryNote() = default;
  EntryNote(const EntryNote&) = delete;
  EntryNote& operator=(const EntryNote&) = delete;
  ~EntryNote() {
    if (handle != NULLHANDLE) NSFNoteClose(handle);
  }
  NOTEHANDLE handle = NULLHANDLE;
};

// The entry's start and end items, dates and date-times alike.
STATUS replacePeriod(NOTEHANDLE note, const TIMEDATE& leave, const TIMEDATE& back) {
  STATUS status = replaceTime(note, "StartDate", leave);
  if (status == NOERROR) status = replaceTime(note, "StartDateTime", leave);
  if (status == NOERROR) status = replaceTime(note, "EndDate", back);
  if (status == NOERROR) status = replaceTime(note, "EndDateTime", back);
  return status;
}

// The identifier text of a note: file high, file low, note high, note low.
std::string identifierText(const UNIVERSALNOTEID& unid) {
  char text[33] = {0};
  std::snprintf(text, sizeof text, "%.8X%.8X%.8X%.8X", unid.File.Innards[1], unid.File.Innards[0], unid.Note.Innards[1],
                unid.Note.Innards[0]);
  return text;
}

}  // namespace

void IPOOO::ConvertStringToHex(const char* text, unsigned int& value) {
  const size_t length = std::strlen(text);
  // Characters left of the eighth from the right count in multiples of
  // 16^8, which a 32-bit value does not hold: they add nothing.
  const size_t places = length < 8 ? length : 8;
  uint32_t sum = 0;
  for (size_t place = 0; place < places; ++place) {
    const char character = text[length - 1 - place];
    int digit = character - '0';
    if (character >= 'A' && character <= 'F') digit = character - 'A' + 10;
    if (character >= 'a' && character <= 'f') digit = character - 'a' + 10;
    const auto power = static_cast<uint32_t>(std::pow(16.0, static_cast<double>(place)));
    sum += static_cast<uint32_t>(digit) * power;  // modulo 2^32, as the stored value
  }
  value = sum;
}

void IPOOO::ConvertStringToUNID(const char* text, UNIVERSALNOTEID* unid) {
  const size_t length = std::strlen(text);
  DWORD* const words[] = {&unid->File.Innards[1], &unid->File.Innards[0], &unid->Note.Innards[1],
                          &unid->Note.Innards[0]};
  for (size_t piece = 0; piece < 4; ++piece) {
    char digits[9] = {0};
    const size_t start = piece * 8;
    if (start < length) std::strncpy(digits, text + start, 8);
    unsigned int word = 0;
    ConvertStringToHex(digits, word);
    *words[piece] = word;
  }
}

DWORD IPOOO::BookBusyTime() {
  if (hMailDb == NULLHANDLE) return 0;
  const std::string identifier = itemText(hProfile, kEntryItem, 256);
  EntryNote entry;
  STATUS status = NOERROR;

  if (identifier.empty()) {
    const std::string owner = calendarOwner(hMailDb, Username);
    status = NSFNoteCreate(hMailDb, &entry.handle);
    const NOTEHANDLE note = entry.handle;
    if (status == NOERROR) status = setText(note, "Form", "Appointment");
    if (status == NOERROR) {
      GetUITimes();
      status = NSFItemSetTime(note, "StartDate", &profileLeaveDate);
    }
    if (status == NOERROR) status = NSFItemSetTime(note, "StartDateTime", &profileLeaveDate);
    if (status == NOERROR) status = NSFItemSetTime(note, "EndDate", &profileReturnDate);
    if (status == NOERROR) status = NSFItemSetTime(note, "EndDateTime", &profileReturnDate);
    if (status == NOERROR) status = setText(note, "From", owner);
    if (status == NOERROR) status = setText(note, "PRINCIPAL", owner);
    if (status == NOERROR) status = setText(note, "$BusyName", owner);
    if (status == NOERROR) status = setText(note, "$BusyPriority", "1");
    if (status == NOERROR) status = setText(note, "BookFreeTime", "");
    if (status == NOERROR) status = setText(note, "$PublicAccess", "1");
    if (status == NOERROR) status = setText(note, "AppointmentType", "2");
    if (status == NOERROR) status = setText(note, "ExcludeFromView", "D");
    if (status == NOERROR) status = setText(note, "Subject", "Out Of Office");
    if (status == NOERROR) status = NSFItemSetNumber(note, "_ViewIcon", &kOutOfOfficeIcon);
    if (status == NOERROR) status = setText(note, "CreatedByAgent", "1");
    if (status == NOERROR) status = NSFNoteUpdate(note, 0);
    std::string created;
    if (status == NOERROR) {
      OID oid{};
      NSFNoteGetInfo(note, _NOTE_OID, &oid);
      created = identifierText(UNIVERSALNOTEID{oid.File, oid.Note});
      status = setText(note, "ApptUNID", created);
    }
    if (status == NOERROR) status = NSFNoteUpdate(note, 0);
    if (status == NOERROR) status = replaceText(hProfile, kEntryItem, created);
    if (status != NOERROR) throw IPException("BookBusyTime", getErrorMsg(status).c_str());
    SetOptionField(kEntryOwnerItem, kOptionDelete);
    return 1;
  }

  UNIVERSALNOTEID unid{};
  ConvertStringToUNID(identifier.c_str(), &unid);
  status = NSFNoteOpenByUNID(hMailDb, &unid, 0, &entry.handle);
  if (status != NOERROR) throw IPException("BookBusyTime", getErrorMsg(status).c_str());
  const NOTEHANDLE note = entry.handle;
  GetUITimes();
  status = replacePeriod(note, profileLeaveDate, profileReturnDate);
  if (status == NOERROR) status = deleteIfPresent(note, "$BusyPriority");
  const bool busy = itemText(hProfile, "BookBusyTime", 256).rfind('1', 0) == 0;
  if (status == NOERROR) status = replaceText(note, "$BusyPriority", busy ? "1" : "2");
  if (status == NOERROR) status = replaceText(note, "BookFreeTime", busy ? "" : "1");
  if (status == NOERROR) status = NSFNoteUpdate(note, 0);
  if (status != NOERROR) throw IPException("BookBusyTime", getErrorMsg(status).c_str());
  return 1;
}

DWORD IPOOO::RemoveBusyTime() {
  const std::string identifier = itemText(hProfile, kEntryItem, 256);
  if (identifier.empty()) return 0;
  UNIVERSALNOTEID unid{};
  ConvertStringToUNID(identifier.c_str(), &unid);
  EntryNote entry;
  STATUS status = NSFNoteOpenByUNID(hMailDb, &unid, 0, &entry.handle);
  if (status != NOERROR) throw IPException("RemoveBusyTime", getErrorMsg(status).c_str());
  const NOTEHANDLE note = entry.handle;
  GetUITimes();
  status = replacePeriod(note, profileLeaveDate, profileReturnDate);
  if (status == NOERROR) status = replaceText(note, "$BusyPriority", "2");
  if (status == NOERROR) status = replaceText(note, "BookFreeTime", "1");
  if (status == NOERROR) status = NSFNoteUpdate(note, 0);
  if (status != NOERROR) throw IPException("RemoveBusyTime", getErrorMsg(status).c_str());
  SetOptionField(kEntryOwnerItem, kOptionDelete);
  SetOptionField(kEntryItem, kOptionDelete);
  return 1;
}
