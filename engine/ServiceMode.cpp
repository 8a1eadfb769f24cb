// Service mode: the server's own out-of-office service sends the replies.
// Switching it on for a mail database marks the database's icon note ("O" in
// "$Flags", with the profile's sequence beside it so that the service sees
// the profile as changed) and the profile; switching it off only rewrites
// the profile. A database once marked stays marked.
#include <string>

#include "engine/ProfileItems.h"
#include "globerr.h"
#include "nsfdata.h"
#include "nsfnote.h"
#include "ostime.h"
#include "request/IPOOO.h"

using tarnwick::engine::deleteIfPresent;
using tarnwick::engine::deleteNotifiedItems;
using tarnwick::engine::itemText;
using tarnwick::engine::replaceText;
using tarnwick::engine::replaceTime;

namespace {

// Closes the icon note on every path out of EnableService.
class IconNote {
 public:
  IconNote() = default;
  IconNote(const IconNote&) = delete;
  IconNote& operator=(const IconNote&) = delete;
  ~IconNote() { close(); }
  void close() {
    if (handle != NULLHANDLE) NSFNoteClose(handle);
    handle = NULLHANDLE;
  }
  NOTEHANDLE handle = NULLHANDLE;
};

}  // namespace

DWORD IPOOO::EnableService() {
  SaveOOOProfile(0);
  IconNote icon;
  STATUS status = NSFNoteOpen(hMailDb, NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &icon.handle);
  if (status != NOERROR) throw IPException("EnableService", getErrorMsg(status).c_str());

  bool walked = false;
  if (IsServiceEnabled() == 0) {
    std::string flags = itemText(icon.handle, "$Flags", 256);
    if (flags.find('O') == std::string::npos) flags += 'O';
    status = replaceText(icon.handle, "$Flags", flags);
    if (status == NOERROR && hProfile != NULLHANDLE) {
      // The profile's sequence as saved just now, one step back.
      OID oid{};
      NSFNoteGetInfo(hProfile, _NOTE_OID, &oid);
      const NUMBER sequence = static_cast<NUMBER>(static_cast<LONG>(oid.Sequence)) - 1;
      TIMEDATE sequenceTime = oid.SequenceTime;
      TimeDateAdjust(&sequenceTime, -1, 0, 0, 0, 0, 0);
      status = deleteIfPresent(icon.handle, "$OOOProfSeqNum");
      if (status == NOERROR) status = NSFItemSetNumber(icon.handle, "$OOOProfSeqNum", &sequence);
      if (status == NOERROR) status = replaceTime(icon.handle, "$OOOProfSeqTime", sequenceTime);
    }
    if (status == NOERROR) status = NSFNoteSign(icon.handle);
    if (status == NOERROR) status = NSFNoteUpdate(icon.handle, 0);
    if (status != NOERROR) throw IPException("EnableService", getErrorMsg(status).c_str());
    icon.close();

    // The correspondents the service answered before are answered afresh.
    if (hServiceProfile != NULLHANDLE) {
      bool deleted = false;
      status = deleteNotifiedItems(hServiceProfile, &deleted);
      walked = true;
      if (deleted) {
        status = NSFNoteUpdate(hServiceProfile, 0);
        if (status != NOERROR) throw IPException("EnableService", getErrorMsg(status).c_str());
      }
    }
  }

  // A walk that deleted nothing ends on its last (non-zero) status: the
  // profile switches below are then skipped and that status is the result,
  // which the caller does not count as a failure.
  if (status == NOERROR && IsServiceEnabled() != 0) {
    if (itemText(hProfile, "BookBusyTime").rfind('1', 0) == 0) BookBusyTime();
    SetOptionField("CurrentStatus", kOptionOne);
    SetTaskType(2);
    SetTaskState(1);
    SetOptionField("Notified", kOptionDelete);
    SaveOOOProfile(0);
    return 1;
  }
  return walked ? status : 0;
}

int IPOOO::DisableService() {
  RemoveBusyTime();
  SetOptionField("CurrentStatus", kOptionZero);
  SetTaskType(2);
  SetTaskState(0);
  if (alreadyOff == 0) ResetDateTime(kResetEndNow);
  return 1;
}
