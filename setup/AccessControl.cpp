// The access control policy of the application database and its templates.
#include "setup/AccessControl.h"

#include <strings.h>

#include <cstring>
#include <vector>

#include "dname.h"
#include "kfm.h"
#include "nameslist.h"
#include "nif.h"
#include "nsfdb.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "osmem.h"

namespace {

constexpr const char* kDirectoryFile = "names.nsf";
constexpr const char* kServersView = "($Servers)";
constexpr const char* kAdminRole = "[Admin]";
constexpr const char* kSysAdminRole = "[SysAdmin]";
constexpr WORD kDirectoryEntryLimit = 256;

// The canonical form of name; false when it has none.
STATUS canonicalize(const char* name, std::string& canonical) {
  char out[MAXUSERNAME + 1] = {0};
  WORD length = 0;
  const STATUS status = DNCanonicalize(0, nullptr, name, out, sizeof out - 1, &length);
  if (status == NOERROR) canonical.assign(out, length);
  return status;
}

// Reads the database's access list, lets edit change it (edit may set the
// status) and stores it when edit says so; the list is freed in every case.
template <class Edit>
STATUS editStoredACL(DBHANDLE hDb, Edit&& edit) {
  DHANDLE hACL = NULLHANDLE;
  STATUS status = NSFDbReadACL(hDb, &hACL);
  if (status != NOERROR) return status;
  if (edit(hACL, status)) status = NSFDbStoreACL(hDb, hACL, 0, ACL_STORE_UPDATE);
  OSMemFree(hACL);
  return status;
}

std::string bracketed(const std::string& name) { return "[" + name + "]"; }

bool isAdministratorRole(const char* privilegeName) {
  return strncasecmp(privilegeName, kAdminRole, std::strlen(kAdminRole)) == 0 ||
         strncasecmp(privilegeName, kSysAdminRole, std::strlen(kSysAdminRole)) == 0;
}

ACL_PRIVILEGES administratorRoles(DHANDLE hACL) {
  ACL_PRIVILEGES privileges;
  std::memset(&privileges, 0, sizeof privileges);
  for (WORD number = 0; number < ACL_PRIVCOUNT; ++number) {
    char name[ACL_PRIVSTRINGMAX + 1] = {0};
    if (ACLGetPrivName(hACL, number, name) == NOERROR && isAdministratorRole(name)) ACLSetPriv(privileges, number);
  }
  return privileges;
}

// One row of the default policy: written under its canonical name and under
// that name in brackets. A name without a canonical form is skipped.
void setDoubledEntry(DHANDLE hACL, const char* name, WORD level, WORD flags, BOOL adminRoles) {
  std::string canonical;
  if (canonicalize(name, canonical) != NOERROR) return;
  _set_acl(hACL, canonical.c_str(), level, flags, adminRoles);
  _set_acl(hACL, bracketed(canonical).c_str(), level, flags, adminRoles);
}

// The note ID of the Server document of serverName; 0 when there is none.
NOTEID serverDocumentID(DBHANDLE directory, const char* serverName) {
  NOTEID viewID = 0;
  if (NIFFindDesignNoteExt(directory, kServersView, NOTE_CLASS_VIEW, DFLAGPAT_VIEWS_AND_FOLDERS, &viewID, 0) !=
      NOERROR) {
    return 0;
  }
  HCOLLECTION collection = NULLHANDLE;
  if (NIFOpenCollection(directory, directory, viewID, 0, NULLHANDLE, &collection, nullptr, nullptr, nullptr,
                        nullptr) != NOERROR) {
    return 0;
  }
  NOTEID documentID = 0;
  COLLECTIONPOSITION position;
  std::memset(&position, 0, sizeof position);
  DWORD matches = 0;
  if (NIFFindByName(collection, serverName, FIND_CASE_INSENSITIVE | FIND_FIRST_EQUAL, &position, &matches) ==
      NOERROR) {
    DHANDLE buffer = NULLHANDLE;
    DWORD returned = 0;
    if (NIFReadEntries(collection, &position, NAVIGATE_CURRENT, 0, NAVIGATE_NEXT, 1, READ_MASK_NOTEID, &buffer,
                       nullptr, nullptr, &returned, nullptr) == NOERROR &&
        buffer != NULLHANDLE) {
      if (returned > 0) std::memcpy(&documentID, OSLockObject(buffer), sizeof documentID);
      OSUnlockObject(buffer);
      OSMemFree(buffer);
    }
  }
  NIFCloseCollection(collection);
  return documentID;
}

// Appends the canonical form of every non-empty entry of item (the entry
// as it stands when it has none).
void appendNames(NOTEHANDLE note, const char* item, std::deque<std::string>& names) {
  const WORD entries = NSFItemGetTextListEntries(note, item);
  for (WORD i = 0; i < entries; ++i) {
    char entry[kDirectoryEntryLimit + 1] = {0};
    if (NSFItemGetTextListEntry(note, item, i, entry, kDirectoryEntryLimit) == 0) continue;
    std::string canonical;
    names.push_back(canonicalize(entry, canonical) == NOERROR ? canonical : std::string(entry));
  }
}

std::deque<std::string> entryNames(DHANDLE hACL, STATUS& status) {
  std::deque<std::string> names;
  status = ACLEnumEntries(hACL, EnumACLReadEntry, &names);
  return names;
}

// A names list holding the one name, laid out as ACLLookupAccess reads it.
std::vector<char> singleNameList(const std::string& name) {
  std::vector<char> block(sizeof(NAMES_LIST) + name.size() + 1, 0);
  NAMES_LIST header;
  std::memset(&header, 0, sizeof header);
  header.NumNames = 1;
  std::memcpy(block.data(), &header, sizeof header);
  std::memcpy(block.data() + sizeof header, name.c_str(), name.size() + 1);
  return block;
}

bool isDefaultEntry(const std::string& name) {
  return std::strncmp(name.c_str(), ACL_DEFAULT_NAME, std::strlen(ACL_DEFAULT_NAME)) == 0;
}

// Gives one reader or author entry the right to write public documents;
// true when the entry was changed.
bool upgradeEntry(DHANDLE hACL, const std::string& name) {
  std::vector<char> namesList = singleNameList(name);
  WORD level = 0;
  WORD flags = 0;
  ACL_PRIVILEGES privileges;
  std::memset(&privileges, 0, sizeof privileges);
  if (ACLLookupAccess(hACL, reinterpret_cast<NAMES_LIST*>(namesList.data()), &level, &privileges, &flags,
                      nullptr) != NOERROR) {
    return false;
  }
  if ((level != ACL_LEVEL_READER && level != ACL_LEVEL_AUTHOR) || (flags & ACL_FLAG_PUBLICWRITER) != 0) return false;
  const WORD upgraded = static_cast<WORD>(flags | ACL_FLAG_PUBLICWRITER);
  if (isDefaultEntry(name)) {
    ACLUpdateEntry(hACL, nullptr, ACL_UPDATE_LEVEL | ACL_UPDATE_FLAGS, nullptr, level, nullptr, upgraded);
  } else {
    ACLDeleteEntry(hACL, name.c_str());
    ACLAddEntry(hACL, name.c_str(), level, &privileges, upgraded);
  }
  return true;
}

}  // namespace

STATUS _set_acl(DHANDLE hACL, const char* name, WORD level, WORD flags, BOOL adminRoles) {
  ACL_PRIVILEGES privileges;
  std::memset(&privileges, 0, sizeof privileges);
  if (adminRoles) privileges = administratorRoles(hACL);
  if (name == nullptr) {
    return ACLUpdateEntry(hACL, nullptr, ACL_UPDATE_LEVEL | ACL_UPDATE_FLAGS, nullptr, level, nullptr, flags);
  }
  ACLDeleteEntry(hACL, name);
  return ACLAddEntry(hACL, name, level, &privileges, flags);
}

void _get_server_admin(const char* serverName, std::deque<std::string>& admins) {
  DBHANDLE directory = NULLHANDLE;
  if (NSFDbOpen(kDirectoryFile, &directory) != NOERROR) return;
  const NOTEID documentID = serverDocumentID(directory, serverName);
  NOTEHANDLE document = NULLHANDLE;
  if (documentID != 0 && NSFNoteOpen(directory, documentID, 0, &document) == NOERROR) {
    std::deque<std::string> found;
    appendNames(document, "Administrator", found);
    if (found.empty()) appendNames(document, "FullAdmin", found);
    admins.insert(admins.end(), found.begin(), found.end());
    NSFNoteClose(document);
  }
  NSFDbClose(directory);
}

void LNCALLBACK EnumACLReadEntry(void* names, char* name, WORD /*level*/, ACL_PRIVILEGES* /*privileges*/,
                                 WORD /*flags*/) {
  static_cast<std::deque<std::string>*>(names)->push_back(name);
}

STATUS Set_Default_ACL(DBHANDLE hDb) {
  if (hDb == NULLHANDLE) return NOERROR;
  char serverName[MAXUSERNAME + 1] = {0};
  STATUS status = SECKFMGetUserName(serverName);
  if (status != NOERROR) return status;
  std::string server;
  status = canonicalize(serverName, server);
  if (status != NOERROR) return status;

  return editStoredACL(hDb, [&](DHANDLE hACL, STATUS& readStatus) {
    for (const std::string& name : entryNames(hACL, readStatus)) {
      if (name != ACL_DEFAULT_NAME) ACLDeleteEntry(hACL, name.c_str());
    }

    std::deque<std::string> admins;
    _get_server_admin(server.c_str(), admins);
    setDoubledEntry(hACL, server.c_str(), ACL_LEVEL_MANAGER, ACL_FLAG_SERVER, FALSE);
    setDoubledEntry(hACL, "Anonymous", ACL_LEVEL_NOACCESS, ACL_FLAG_PUBLICREADER, FALSE);
    setDoubledEntry(hACL, "LocalDomainServers", ACL_LEVEL_MANAGER, ACL_FLAG_SERVER | ACL_FLAG_GROUP, FALSE);
    setDoubledEntry(hACL, "OtherDomainServers", ACL_LEVEL_NOACCESS, ACL_FLAG_SERVER | ACL_FLAG_GROUP, FALSE);
    setDoubledEntry(hACL, ACL_DEFAULT_NAME, ACL_LEVEL_READER, ACL_FLAG_PUBLICWRITER, FALSE);
    for (const std::string& admin : admins) setDoubledEntry(hACL, admin.c_str(), ACL_LEVEL_MANAGER, 0, TRUE);
    return true;
  });
}

STATUS Set_Default_ACL_ANONYMOUS(DBHANDLE hDb) {
  if (hDb == NULLHANDLE) return NOERROR;
  return editStoredACL(hDb, [](DHANDLE hACL, STATUS&) {
    std::string anonymous;
    if (canonicalize("Anonymous", anonymous) == NOERROR) {
      _set_acl(hACL, anonymous.c_str(), ACL_LEVEL_NOACCESS, ACL_FLAG_PUBLICREADER, FALSE);
    }
    return true;
  });
}

STATUS Upgrade_ACL(DBHANDLE hDb) {
  if (hDb == NULLHANDLE) return NOERROR;
  return editStoredACL(hDb, [](DHANDLE hACL, STATUS& status) {
    bool upgraded = false;
    for (const std::string& name : entryNames(hACL, status)) {
      if (upgradeEntry(hACL, name)) upgraded = true;
    }
    return upgraded;
  });
}
