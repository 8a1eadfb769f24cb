// Mail database and profile access: opening the user's mail database (with
// fail-over over the mail server's cluster), the out-of-office profiles, the
// agent/service mode decision, and writing profile switches back.
#include <cstring>
#include <string>
#include <vector>

#include "engine/ProfileItems.h"
#include "globerr.h"
#include "lookup.h"
#include "netpath.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "oooapi.h"
#include "osenv.h"
#include "osmem.h"
#include "request/IPOOO.h"

using tarnwick::engine::deleteIfPresent;
using tarnwick::engine::hasItem;
using tarnwick::engine::itemText;

namespace {

constexpr char kProfileName[] = "OutOfOfficeProfile";
constexpr char kServiceProfileName[] = "OOServiceProfile";
// NSFDbOpen's status for a server that cannot be reached: the one case in
// which the other servers of the cluster are tried.
constexpr STATUS kServerUnreachable = ERR_SESSION_CLOSED;

// Opens both profiles of an open mail database. The service profile is
// optional: only the out-of-office profile's status counts.
STATUS openProfiles(DBHANDLE db, NOTEHANDLE* profile, NOTEHANDLE* serviceProfile) {
  STATUS status = NSFProfileOpen(db, kProfileName, 18, nullptr, 0, TRUE, profile);
  if (status == NOERROR) NSFProfileOpen(db, kServiceProfileName, 16, nullptr, 0, TRUE, serviceProfile);
  return status;
}

// Copies a text value found in a lookup (type word first) into a string;
// false for any other type.
bool lookupText(void* match, WORD item, std::string* out) {
  WORD type = 0;
  WORD size = 0;
  const char* value = static_cast<const char*>(NAMELocateItem2(match, item, &type, &size));
  if (value == nullptr || type != TYPE_TEXT || size < sizeof(WORD)) return false;
  size_t length = size - sizeof(WORD);
  if (length > 512) length = 512;
  out->assign(value + sizeof(WORD), length);
  return true;
}

// Visits every match of the first name looked up.
template <typename Visit>
void forEachMatch(void* lookup, Visit visit) {
  DWORD matches = 0;
  void* name = NAMELocateNextName2(lookup, nullptr, &matches);
  if (name == nullptr) return;
  void* match = nullptr;
  for (DWORD i = 0; i < matches; ++i) {
    match = NAMELocateNextMatch2(lookup, name, match);
    if (match == nullptr) break;
    visit(match);
  }
}

}  // namespace

STATUS IPOOO::getOOOProfile(int raiseOnFailure) {
  const STATUS status = openMailDatabase(true);
  if (status != NOERROR && raiseOnFailure != 0) throw IPException("getOOOProfile", getErrorMsg(status).c_str());
  return status;
}

STATUS IPOOO::openMailDatabase(bool withProfiles) {
  char path[MAXPATH] = {0};
  STATUS status = OSPathNetConstruct(nullptr, MailServer.c_str(), MailBox.c_str(), path);
  if (status == NOERROR) {
    status = NSFDbOpen(path, &hMailDb);
    if (status == NOERROR) {
      if (withProfiles) status = openProfiles(hMailDb, &hProfile, &hServiceProfile);
    } else if (status == kServerUnreachable) {
      hMailDb = NULLHANDLE;
      std::vector<std::string> cluster;
      get_server_cluster(MailServer.c_str(), cluster);
      for (size_t i = 0; i < cluster.size() && status != NOERROR; ++i) {
        const std::string& server = cluster[i];
        // The mail server itself (a prefix comparison over the entry's length).
        if (std::strncmp(server.c_str(), MailServer.c_str(), server.size()) == 0) continue;
        DBHANDLE db = NULLHANDLE;
        if (OSPathNetConstruct(nullptr, server.c_str(), MailBox.c_str(), path) != NOERROR ||
            NSFDbOpen(path, &db) != NOERROR) {
          status = kServerUnreachable;
          continue;
        }
        hMailDb = db;
        MailServer = server;
        // A server of the cluster stands in only when its profiles open.
        status = openProfiles(hMailDb, &hProfile, &hServiceProfile);
        if (status != NOERROR) {
          NSFDbClose(hMailDb);
          hMailDb = NULLHANDLE;
        }
      }
    }
  }
  return status;
}

WORD IPOOO::get_server_cluster(const char* serverName, std::vector<std::string>& servers) {
  servers.clear();
  std::string clusterName;
  DHANDLE buffer = NULLHANDLE;
  const char serverItems[] = "ServerName\0ClusterName";
  if (NAMELookup2(nullptr, 0, 1, "($Servers)", 1, serverName, 2, serverItems, &buffer) == NOERROR) {
    void* lookup = OSLockObject(buffer);
    // The last text value of all matches wins.
    forEachMatch(lookup, [&](void* match) { lookupText(match, 1, &clusterName); });
    OSUnlockObject(buffer);
    OSMemFree(buffer);
  }
  if (clusterName.empty()) return 0;
  buffer = NULLHANDLE;
  if (NAMELookup2(nullptr, 0, 1, "($Clusters)", 1, clusterName.c_str(), 1, "ServerName", &buffer) == NOERROR) {
    void* lookup = OSLockObject(buffer);
    forEachMatch(lookup, [&](void* match) {
      std::string server;
      if (lookupText(match, 0, &server)) servers.push_back(server);
    });
    OSUnlockObject(buffer);
    OSMemFree(buffer);
  }
  return static_cast<WORD>(servers.size());
}

int IPOOO::getOOOType() {
  agentMode = 1;
  if (OSGetEnvironmentLong("OOOUseOOOAPI") != 1) useAPI = 0;

  auto taskTypeRule = [this] {
    if (hasItem(hProfile, "TaskType")) {
      const std::string taskType = itemText(hProfile, "TaskType");
      if (!taskType.empty() && taskType[0] == '2') agentMode = 0;
    }
  };

  STATUS failure = NOERROR;
  bool answered = false;
  if (useAPI != 0 && hasItem(hProfile, "TaskState") && itemText(hProfile, "TaskState").rfind('0', 0) == 0) {
    failure = OOOInit();
    if (failure == NOERROR) {
      OOOCTXHANDLE context = NULLHANDLE;
      OOOCTXPTR* contextPtr = nullptr;
      failure = OOOStartOperation(Username.c_str(), MailServer.c_str(), TRUE, hMailDb, &context, &contextPtr);
      if (failure == NOERROR) {
        WORD version = 0;
        failure = OOOGetState(contextPtr, &version, nullptr);
        if (failure == NOERROR) {
          agentMode = version == 1 ? 1 : 0;
          answered = true;
        }
        STATUS ended = OOOEndOperation(context, contextPtr);
        if (failure == NOERROR) failure = ended;
      }
      STATUS ended = OOOTerm();
      if (failure == NOERROR) failure = ended;
    }
  }
  if (!answered) taskTypeRule();
  if (failure != NOERROR) throw IPException("getOOOType", getErrorMsg(failure).c_str());
  return agentMode;
}

int IPOOO::SetOptionField(const char* itemName, WORD option) {
  if (hProfile == NULLHANDLE) return 0;
  STATUS status = NOERROR;
  switch (option) {
    case kOptionZero:
    case kOptionOne: {
      const char* text = option == kOptionOne ? "1" : "0";
      status = deleteIfPresent(hProfile, itemName);
      if (status == NOERROR) status = NSFItemSetText(hProfile, itemName, text, 1);
      break;
    }
    case kOptionDelete:
      status = deleteIfPresent(hProfile, itemName);
      break;
    case kOptionEmpty:
      status = deleteIfPresent(hProfile, itemName);
      if (status == NOERROR) status = NSFItemSetText(hProfile, itemName, "", 0);
      break;
    default:
      break;
  }
  if (status != NOERROR) throw IPException("SetOptionField", getErrorMsg(status).c_str());
  return 1;
}

int IPOOO::SaveOOOProfile(int deleteForm) {
  STATUS status = NOERROR;
  // The owner's mail server, kept in "OwnerMailFile" (the server, not the
  // file path, is what readers of this item expect).
  if (!itemText(hProfile, "$MachineName", 256).empty()) {
    status = deleteIfPresent(hProfile, "OwnerMailFile");
    if (status == NOERROR) {
      status = NSFItemSetText(hProfile, "OwnerMailFile", MailServer.c_str(), static_cast<WORD>(MailServer.size()));
    }
  }
  if (status == NOERROR && deleteForm != 0) SetOptionField("Form", kOptionDelete);
  if (status == NOERROR && !hasItem(hProfile, "Form")) {
    status = NSFItemSetText(hProfile, "Form", "OutofOfficeProfile", 18);
  }
  if (status == NOERROR) NSFNoteComputeWithForm(hProfile, NULLHANDLE, 0, &IPOOO::CWFCallback, this);
  if (status == NOERROR) status = deleteIfPresent(hProfile, "AppendSubjectDate");
  if (status == NOERROR) {
    status = NSFItemSetText(hProfile, "AppendSubjectDate", AppendSubjectDate.c_str(),
                            static_cast<WORD>(AppendSubjectDate.size()));
  }
  if (status == NOERROR) status = deleteIfPresent(hProfile, "DaysOut");
  if (status == NOERROR) status = deleteIfPresent(hProfile, "DaysOutDisplay");
  if (status == NOERROR) {
    status = NSFItemSetText(hProfile, "DaysOut", DaysOut.c_str(), static_cast<WORD>(DaysOut.size()));
  }
  if (status == NOERROR) status = NSFNoteUpdate(hProfile, 0);
  if (status != NOERROR) throw IPException("SaveOOOProfile", getErrorMsg(status).c_str());
  return 1;
}

int IPOOO::SetSaveOptions(double value) {
  if (hProfile == NULLHANDLE) return 0;
  const NUMBER number = value;
  if (STATUS status = NSFItemSetNumber(hProfile, "SaveOptions", &number)) {
    throw IPException("SetSaveOptions", getErrorMsg(status).c_str());
  }
  return 1;
}

DWORD IPOOO::IsServiceEnabled() {
  NOTEHANDLE icon = NULLHANDLE;
  const STATUS status = NSFNoteOpen(hMailDb, NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &icon);
  // A failed open is not raised: its non-zero status is the result, which
  // callers read as "enabled".
  if (status != NOERROR) return status;
  const std::string flags = itemText(icon, "$Flags", 256);
  NSFNoteClose(icon);
  return flags.find('O') != std::string::npos ? 1 : 0;
}

int IPOOO::PostOpen() {
  if (agentMode == 0) {
    if (itemText(hProfile, "ShowHours").rfind('1', 0) == 0) SetOptionField("ShowHours", kOptionOne);
    if (!OOOEnable) itemText(hProfile, "UpdateSettings");  // read, not used
  }
  SetSaveOptions(0);
  if (!OOOEnable) {
    SetOptionField("CurrentStatus", kOptionZero);
    SetOptionField("NotificationConfirmation", kOptionZero);
  } else {
    SetOptionField("CurrentStatus", kOptionOne);
  }
  SetOptionField("AdminP_Counter", kOptionZero);
  SetOptionField("AdminP_Status", kOptionEmpty);
  return 0;
}
