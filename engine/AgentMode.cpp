// Agent mode: the mail database's "OutOfOffice" agent sends the replies.
// Switching out-of-office on enables that agent (run on the mail server on
// behalf of the mail file's owner) and marks the profile; switching it off
// disables the agent and resets the profile's state items. The agent's
// design note is changed directly, signed with the server's ID and saved.
#include <cstdio>
#include <cstring>
#include <string>

#include "agents.h"
#include "engine/ProfileItems.h"
#include "globerr.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "ods.h"
#include "osmem.h"
#include "request/IPOOO.h"
#include "textlist.h"

using tarnwick::engine::calendarOwner;
using tarnwick::engine::deleteIfPresent;
using tarnwick::engine::deleteNotifiedItems;
using tarnwick::engine::hasItem;
using tarnwick::engine::itemText;

namespace {

constexpr char kAgentName[] = "OutOfOffice";
constexpr WORD kSummarySigned = ITEM_SUMMARY | ITEM_SIGN;

WORD nameLength(const char* name) { return static_cast<WORD>(std::strlen(name)); }

STATUS appendText(NOTEHANDLE note, WORD flags, const char* name, const std::string& text) {
  return NSFItemAppend(note, flags, name, nameLength(name), TYPE_TEXT, text.data(), text.size());
}

STATUS openAgentNote(DBHANDLE db, NOTEHANDLE* note) {
  NOTEID noteId = 0;
  STATUS status = NIFFindDesignNote(db, kAgentName, NOTE_CLASS_FILTER, &noteId);
  if (status == NOERROR) status = NSFNoteOpen(db, noteId, 0, note);
  return status;
}

// Drops the run-on items and takes the assistant flags out of the note
// (empty when it has none), to be written back changed.
STATUS takeAssistFlags(NOTEHANDLE note, std::string& flags) {
  if (STATUS status = deleteIfPresent(note, "$UpdatedBy")) return status;
  if (STATUS status = deleteIfPresent(note, FILTER_MACHINE_ITEM)) return status;
  if (!hasItem(note, ASSIST_FLAGS_ITEM)) return NOERROR;
  flags = itemText(note, ASSIST_FLAGS_ITEM, 256);
  return deleteIfPresent(note, ASSIST_FLAGS_ITEM);
}

// The agent runs on, and is updated by, the mail server.
STATUS runOnServer(NOTEHANDLE note, const std::string& server) {
  if (STATUS status = appendText(note, kSummarySigned, FILTER_MACHINE_ITEM, server)) return status;
  return appendText(note, ITEM_SUMMARY, "$UpdatedBy", server);
}

// Signs the note with the server's ID and saves it.
STATUS signAndSave(NOTEHANDLE note) {
  if (STATUS status = NSFNoteSign(note)) return status;
  return NSFNoteUpdate(note, UPDATE_FORCE);
}

STATUS disableOnNote(NOTEHANDLE note, std::string flags) {
  const size_t enabled = flags.find(ASSIST_FLAG_ENABLED);
  if (enabled != std::string::npos) flags.erase(enabled, 1);
  if (STATUS status = appendText(note, kSummarySigned, ASSIST_FLAGS_ITEM, flags)) return status;
  return signAndSave(note);
}

// The schedule record: versions before 2 are rewritten as version 2. Any
// value longer than its type word counts; a value too short to hold the
// whole record is read as far as it goes and the rest of the record is
// taken as zero, so nothing is read past the stored bytes.
STATUS upgradeScheduleRecord(NOTEHANDLE note) {
  BLOCKID item{};
  BLOCKID value{};
  WORD type = 0;
  DWORD length = 0;
  if (NSFItemInfo(note, ASSIST_INFO_ITEM, nameLength(ASSIST_INFO_ITEM), &item, &type, &value, &length) != NOERROR ||
      length <= 1 || type != TYPE_ASSISTANT_INFO) {
    return NOERROR;
  }
  const DWORD recordLength = ODSLength(_ODS_ASSISTSTRUCT);
  std::string raw(recordLength, '\0');
  const DWORD stored = length - sizeof(WORD);
  std::memcpy(raw.data(), OSLockBlock(char, value) + sizeof(WORD), stored < recordLength ? stored : recordLength);
  OSUnlockObject(value.pool);
  ODS_ASSISTSTRUCT info{};
  const void* source = raw.data();
  ODSReadMemory(&source, _ODS_ASSISTSTRUCT, &info, 1);
  if (info.wVersion >= 2) return NOERROR;

  info.wVersion = 2;
  const DWORD newLength = ODSLength(_ODS_ASSISTSTRUCT) + sizeof(WORD);
  DHANDLE block = NULLHANDLE;
  STATUS status = OSMemAlloc(BLK_MEM_ALLOC, newLength, &block);
  if (status == NOERROR) status = NSFItemDeleteByBLOCKID(note, item);
  if (status == NOERROR) {
    void* out = OSLockObject(block);
    const WORD typeWord = TYPE_ASSISTANT_INFO;
    std::memcpy(out, &typeWord, sizeof typeWord);
    void* record = static_cast<char*>(out) + sizeof typeWord;
    ODSWriteMemory(&record, _ODS_ASSISTSTRUCT, &info, 1);
    OSUnlockObject(block);
    const BLOCKID newValue{block, 0};
    status = NSFItemAppendByBLOCKID(note, ITEM_SIGN, ASSIST_INFO_ITEM, nameLength(ASSIST_INFO_ITEM), newValue,
                                    newLength, nullptr);
    block = NULLHANDLE;  // the note owns it now
  }
  if (block != NULLHANDLE) OSMemFree(block);
  return status;
}

// The agent runs on behalf of the mail file's owner, else of the user.
STATUS runOnBehalfOfOwner(NOTEHANDLE note, DBHANDLE db, const std::string& userName) {
  const std::string owner = calendarOwner(db, userName);
  if (STATUS status = deleteIfPresent(note, "$OnBehalfOf")) return status;
  return appendText(note, kSummarySigned, "$OnBehalfOf", owner);
}

// "$FlagsExt" gains the activation letter "a"; a missing one is created empty.
STATUS markActivation(NOTEHANDLE note) {
  if (!hasItem(note, "$FlagsExt")) return appendText(note, kSummarySigned, "$FlagsExt", "");
  const std::string flagsExt = itemText(note, "$FlagsExt", 256);
  if (flagsExt.find('a') != std::string::npos) return NOERROR;
  if (STATUS status = deleteIfPresent(note, "$FlagsExt")) return status;
  return appendText(note, kSummarySigned, "$FlagsExt", flagsExt + "a");
}

// "$Restricted" becomes 0.
STATUS clearRestriction(NOTEHANDLE note) {
  NUMBER restricted = 0;
  const NUMBER zero = 0;
  if (NSFItemGetNumber(note, "$Restricted", &restricted)) {
    if (restricted == 0) return NOERROR;
    if (STATUS status = deleteIfPresent(note, "$Restricted")) return status;
  }
  return NSFItemAppend(note, kSummarySigned, "$Restricted", 11, TYPE_NUMBER, &zero, sizeof zero);
}

STATUS enableOnNote(NOTEHANDLE note, std::string flags, DBHANDLE db, const std::string& userName) {
  if (STATUS status = upgradeScheduleRecord(note)) return status;
  if (flags.find(ASSIST_FLAG_ENABLED) == std::string::npos) flags += ASSIST_FLAG_ENABLED;
  if (STATUS status = appendText(note, kSummarySigned, ASSIST_FLAGS_ITEM, flags)) return status;
  if (STATUS status = runOnBehalfOfOwner(note, db, userName)) return status;
  if (STATUS status = markActivation(note)) return status;
  if (STATUS status = clearRestriction(note)) return status;
  if (STATUS status = deleteIfPresent(note, "$AssistFlags2")) return status;
  return signAndSave(note);
}

}  // namespace

int IPOOO::getAgent(int reopen) {
  if (reopen != 0 && hAgent != NULLHANDLE) {
    AgentClose(hAgent);
    hAgent = NULLHANDLE;
  }
  if (hAgent != NULLHANDLE || hMailDb == NULLHANDLE) return 0;
  NOTEID noteId = 0;
  STATUS status = NIFFindDesignNote(hMailDb, kAgentName, NOTE_CLASS_FILTER, &noteId);
  if (status == NOERROR) status = AgentOpen(hMailDb, noteId, &hAgent);
  if (status != NOERROR) {
    hAgent = NULLHANDLE;
    throw IPException("getAgent", getErrorMsg(status).c_str());
  }
  return 1;
}

int IPOOO::isAgentEnable(int reopen) {
  getAgent(reopen);
  if (hAgent == NULLHANDLE) return 1;
  return AgentIsEnabled(hAgent) ? 1 : 0;
}

int IPOOO::isAgentActivation() {
  if (hAgent != NULLHANDLE) return 0;
  NOTEID noteId = 0;
  NOTEHANDLE note = NULLHANDLE;
  STATUS status = NIFFindDesignNote(hMailDb, kAgentName, NOTE_CLASS_FILTER, &noteId);
  if (status == NOERROR) status = NSFNoteOpen(hMailDb, noteId, 0, &note);
  if (status != NOERROR) throw IPException("isAgentActivation", getErrorMsg(status).c_str());
  const bool activated = itemText(note, "$FlagsExt", 256).find('a') != std::string::npos;
  NSFNoteClose(note);
  return activated ? 1 : 0;
}

int IPOOO::SetTaskState(WORD value) {
  if (hProfile == NULLHANDLE) return 0;
  char text[16];
  std::snprintf(text, sizeof text, "%d", value);
  STATUS status = deleteIfPresent(hProfile, "TaskState");
  if (status == NOERROR) status = NSFItemSetText(hProfile, "TaskState", text, nameLength(text));
  if (status != NOERROR) throw IPException("SetTaskState", getErrorMsg(status).c_str());
  return 1;
}

int IPOOO::SetTaskType(WORD value) {
  if (hProfile == NULLHANDLE) return 0;
  char text[16];
  std::snprintf(text, sizeof text, "%d", value);
  STATUS status = deleteIfPresent(hProfile, "TaskType");
  if (status == NOERROR) status = NSFItemSetText(hProfile, "TaskType", text, nameLength(text));
  if (status != NOERROR) throw IPException("SetTaskType", getErrorMsg(status).c_str());
  return 1;
}

int IPOOO::setAgentEnable(int enable) {
  if (hMailDb == NULLHANDLE) return 0;
  NOTEHANDLE note = NULLHANDLE;
  std::string flags;
  STATUS status = openAgentNote(hMailDb, &note);
  if (status == NOERROR) status = takeAssistFlags(note, flags);
  if (status == NOERROR) status = runOnServer(note, MailServer);
  if (status == NOERROR) {
    status = enable == 0 ? disableOnNote(note, flags) : enableOnNote(note, flags, hMailDb, Username);
  }
  if (note != NULLHANDLE) NSFNoteClose(note);
  if (status != NOERROR) throw IPException("setAgentEnable", getErrorMsg(status).c_str());
  return 1;
}

int IPOOO::EnableAgent() {
  if (isAgentEnable(0) != 0) {
    SetTaskType(1);
    SetTaskState(0);  // kept at 0 although the agent stays on
    return 1;
  }
  ValidateSettings();
  SetOptionField("UserDefineProhibitDesignUpdate", kOptionOne);
  setAgentEnable(1);
  SetTaskType(1);
  SetTaskState(1);

  // Correspondents already answered by the service start afresh.
  STATUS walkStatus = NOERROR;
  if (hServiceProfile != NULLHANDLE) {
    bool deleted = false;
    walkStatus = deleteNotifiedItems(hServiceProfile, &deleted);
    if (deleted) NSFNoteUpdate(hServiceProfile, 0);
  }

  if (isAgentEnable(1) != 0) {
    if (itemText(hProfile, "BookBusyTime").rfind('1', 0) == 0) BookBusyTime();
    SetOptionField("AgentLastRun", kOptionDelete);
    SetOptionField("CurrentStatus", kOptionOne);
    SetOptionField("AdminP_Status", kOptionEmpty);
    SetOptionField("Notified", kOptionEmpty);
    SetOptionField("NotificationReport", kOptionEmpty);
    SetTaskType(1);
    SetTaskState(1);
    return 1;
  }
  return walkStatus;
}

int IPOOO::DisableAgent() {
  if (isAgentEnable(0) == 0) {
    SetTaskType(1);
    SetTaskState(1);  // kept at 1 although the agent is off
    return 1;
  }
  setAgentEnable(0);
  SetOptionField("CurrentStatus", kOptionZero);
  SetOptionField("AdminP_Status", kOptionEmpty);
  SetOptionField("Notified", kOptionEmpty);
  SetOptionField("NotificationReport", kOptionEmpty);
  SetTaskType(1);
  SetTaskState(0);
  const int removed = RemoveBusyTime() != 0 ? 1 : 0;
  if (alreadyOff == 0) ResetDateTime(kResetEndNow);
  return removed;
}
