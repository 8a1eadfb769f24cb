// The set request: the request's values go into the "OutOfOfficeProfile"
// profile, the dates are checked, the agent (agent mode) or the server's
// out-of-office service (service mode) is switched, the profile is saved, and
// the new state is written as the reply document.
//
// The profile is changed in memory and reaches the disk only when it is
// saved. The agent note, the icon note, the service profile and the
// calendar entry are saved by the operations that change them, one after
// another; all those saves of one request are kept together by a
// transaction on the mail database, so that the request is stored whole or
// not at all and the reply "OK" is sent only once it is on disk. The
// transaction also makes two sets of one mail database follow each other:
// the second reads the profiles only when the first has finished.
#include <string>

#include "engine/ProfileItems.h"
#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "ostime.h"
#include "request/IPOOO.h"

using tarnwick::engine::deleteIfPresent;
using tarnwick::engine::hasItem;
using tarnwick::engine::itemText;
using tarnwick::engine::replaceText;
using tarnwick::engine::replaceTime;

namespace {

// The message body without carriage returns: line ends are stored as LF.
std::string withoutCarriageReturns(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c != '\r') out += c;
  }
  return out;
}

// The local date (fTime FALSE) or clock (TRUE) part of a time.
TIMEDATE localPart(const TIMEDATE& when, BOOL clock) {
  TIMEDATE part{};
  TimeExtractLocal(&when, clock, &part);
  return part;
}

// The transaction over one set request's writes; rolled back unless
// committed.
class SetTransaction {
 public:
  explicit SetTransaction(DBHANDLE db) : db_(db) {}
  SetTransaction(const SetTransaction&) = delete;
  SetTransaction& operator=(const SetTransaction&) = delete;
  ~SetTransaction() {
    if (open_) NSFTransactionRollback(db_);
  }
  STATUS begin() {
    const STATUS status = NSFTransactionBegin(db_, 0);
    open_ = status == NOERROR;
    return status;
  }
  STATUS commit() {
    open_ = false;
    return NSFTransactionCommit(db_, 0);
  }

 private:
  DBHANDLE db_;
  bool open_ = false;
};

// Opens both profiles as stored now, closing any open ones first (the
// service profile is optional: only the out-of-office profile's status
// counts).
STATUS reopenProfiles(DBHANDLE db, NOTEHANDLE* profile, NOTEHANDLE* serviceProfile) {
  if (*profile != NULLHANDLE) NSFNoteClose(*profile);
  if (*serviceProfile != NULLHANDLE) NSFNoteClose(*serviceProfile);
  *profile = NULLHANDLE;
  *serviceProfile = NULLHANDLE;
  const STATUS status = NSFProfileOpen(db, "OutOfOfficeProfile", 18, nullptr, 0, TRUE, profile);
  if (status == NOERROR) NSFProfileOpen(db, "OOServiceProfile", 16, nullptr, 0, TRUE, serviceProfile);
  return status;
}

}  // namespace

std::string& IPOOO::setOOO(std::string& replyPath) {
  errorText = "OK";
  // The profiles are read inside the transaction, as stored when it begins;
  // only a server standing in for the mail server has them open already.
  STATUS status = openMailDatabase(false);
  if (status != NOERROR) throw IPException("getOOOProfile", getErrorMsg(status).c_str());
  SetTransaction transaction(hMailDb);
  status = transaction.begin();
  if (status != NOERROR) throw IPException("setOOO", getErrorMsg(status).c_str());
  const bool firstOpen = hProfile == NULLHANDLE;
  status = reopenProfiles(hMailDb, &hProfile, &hServiceProfile);
  if (status != NOERROR) throw IPException(firstOpen ? "getOOOProfile" : "setOOO", getErrorMsg(status).c_str());
  getOOOType();
  setOOOContent();
  PostOpen();
  if (hasItem(hProfile, "CalendarCategoryRefresh")) SetOptionField("CalendarCategoryRefresh", kOptionDelete);

  // "UpdateSettings" "1" marks a disable of a user who was already off.
  const WORD updateSettings = alreadyOff != 0 ? kOptionOne : kOptionEmpty;
  if (!OOOEnable && agentMode == 0) {
    if (DisableService() == 0) throw IPException("setOOO", kServerNotResponding);
    SetOptionField("UpdateSettings", updateSettings);
    SaveOOOProfile(1);
    SetSaveOptions(-1.0);  // after the save: not stored
  } else if (!OOOEnable) {
    // Without a calendar entry to release the profile is not saved: the
    // agent's own state tells a query that out-of-office is off.
    if (DisableAgent() != 0) {
      SetOptionField("UpdateSettings", updateSettings);
      SetSaveOptions(-1.0);  // before the save: stored
      SaveOOOProfile(1);
    }
  } else if (agentMode == 0) {
    ValidateSettings();
    if (EnableService() == 0) throw IPException("setOOO", kServerNotResponding);
    SetOptionField("UpdateSettings", kOptionEmpty);
    SaveOOOProfile(1);
  } else {
    if (EnableAgent() != 0) SetOptionField("UpdateSettings", kOptionEmpty);
    SaveOOOProfile(1);
  }

  status = transaction.commit();
  if (status != NOERROR) throw IPException("setOOO", getErrorMsg(status).c_str());

  if (errorText == "OK") {
    getOOOContent();
    errorText = getOOOInfo(replyPath);
  }
  return errorText;
}

int IPOOO::setOOOContent() {
  STATUS status = NOERROR;
  if (!OOOEnable && hasItem(hProfile, "TaskState") && itemText(hProfile, "TaskState", 256).rfind('0', 0) == 0) {
    alreadyOff = 1;
  }
  status = replaceText(hProfile, "TaskState", OOOEnable ? "1" : "0");
  if (status == NOERROR) status = replaceText(hProfile, "GeneralSubject", Subject);
  if (status == NOERROR) status = replaceText(hProfile, "GeneralMessage", withoutCarriageReturns(Message));
  if (status == NOERROR) status = replaceTime(hProfile, "dateFirstDayOut", leaveTime);
  if (status == NOERROR) status = replaceTime(hProfile, "FirstDayOut", localPart(leaveTime, FALSE));
  if (status == NOERROR) status = replaceTime(hProfile, "StartTime", localPart(leaveTime, TRUE));
  if (status == NOERROR) status = replaceTime(hProfile, "dateFirstDayBack", returnTime);
  if (status == NOERROR) status = replaceTime(hProfile, "FirstDayBack", localPart(returnTime, FALSE));
  if (status == NOERROR) status = replaceTime(hProfile, "EndTime", localPart(returnTime, TRUE));
  if (status == NOERROR) status = replaceText(hProfile, "ShowHours", ShowHours);
  if (status == NOERROR) status = replaceText(hProfile, "DaysOut", DaysOut);
  if (status == NOERROR && ASDEnable) {
    status = replaceText(hProfile, "AppendSubjectDate", AppendSubjectDate);
    if (status == NOERROR) status = replaceText(hProfile, "AppendSubject", AppendSubject ? "1" : "0");
  }
  if (status == NOERROR) status = replaceText(hProfile, "ExcludeInternetEmail", InternetAddress ? "1" : "0");
  if (status != NOERROR) throw IPException("setOOOContent", getErrorMsg(status).c_str());
  return 0;
}

void IPOOO::getShowHours() { ShowHours = itemText(hProfile, "ShowHours", 256); }
