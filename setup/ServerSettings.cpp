#include "setup/ServerSettings.h"

#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "nif.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "osmem.h"
#include "setup/AppParameters.h"

namespace {

// Settings values are read up to this many bytes; the installation text up
// to kInstallTextLimit.
constexpr WORD kValueLimit = 512;
constexpr WORD kInstallTextLimit = 16384;
constexpr WORD kAuthorsFlags = ITEM_SUMMARY | ITEM_READWRITERS | ITEM_NAMES;

struct Default {
  const char* item;
  const char* value;
};

// In the order they are filled in.
const Default kDefaults[] = {
    {"useSSL", "1"},
    {"connectOnStartup", "1"},
    {"language", kNoPreference},
    {"AuthMethod", kNoPreference},
    {"InstallIOS", nullptr},  // kDefaultInstallIOSText
};

WORD nameLength(const char* name) { return static_cast<WORD>(std::strlen(name)); }

std::string itemText(NOTEHANDLE note, const char* item) {
  char buffer[kValueLimit + 1] = {0};
  const WORD length = NSFItemGetText(note, item, buffer, sizeof buffer);
  return std::string(buffer, length);
}

// Appends entries as one more Authors item of that name, beside any there.
STATUS appendAuthors(NOTEHANDLE note, const char* item, const std::vector<std::string>& entries) {
  std::vector<char> value(sizeof(LIST) + entries.size() * sizeof(USHORT));
  LIST header{static_cast<USHORT>(entries.size())};
  std::memcpy(value.data(), &header, sizeof header);
  for (size_t i = 0; i < entries.size(); ++i) {
    const auto length = static_cast<USHORT>(entries[i].size());
    std::memcpy(value.data() + sizeof(LIST) + i * sizeof(USHORT), &length, sizeof length);
  }
  for (const std::string& entry : entries) value.insert(value.end(), entry.begin(), entry.end());
  return NSFItemAppend(note, kAuthorsFlags, item, nameLength(item), TYPE_TEXT_LIST, value.data(), value.size());
}

// The note ID of the first entry of the view that matches name without
// regard to case; 0 when the view cannot be opened or nothing matches.
NOTEID findByName(DBHANDLE db, NOTEID viewId, const char* name) {
  HCOLLECTION collection = NULLHANDLE;
  if (NIFOpenCollection(db, db, viewId, 0, NULLHANDLE, &collection, nullptr, nullptr, nullptr, nullptr) != NOERROR) {
    return 0;
  }
  NOTEID found = 0;
  COLLECTIONPOSITION position{};
  DWORD matches = 0;
  if (NIFFindByName(collection, name, FIND_CASE_INSENSITIVE, &position, &matches) == NOERROR) {
    DHANDLE buffer = NULLHANDLE;
    WORD bufferLength = 0;
    DWORD returned = 0;
    if (NIFReadEntries(collection, &position, NAVIGATE_CURRENT, 0, NAVIGATE_NEXT, 1, READ_MASK_NOTEID, &buffer,
                       &bufferLength, nullptr, &returned, nullptr) == NOERROR &&
        buffer != NULLHANDLE) {
      if (returned > 0 && bufferLength >= sizeof(NOTEID)) {
        std::memcpy(&found, OSLockObject(buffer), sizeof found);
        OSUnlockObject(buffer);
      }
      OSMemFree(buffer);
    }
  }
  NIFCloseCollection(collection);
  return found;
}

// A new settings document of serverName, not yet saved.
NOTEHANDLE createSettingsDocument(DBHANDLE db, const char* serverName) {
  NOTEHANDLE note = NULLHANDLE;
  if (NSFNoteCreate(db, &note) != NOERROR) return NULLHANDLE;
  NSFItemSetText(note, "Form", kSettingsFormName, MAXWORD);
  NSFItemSetText(note, "Server", serverName, MAXWORD);
  appendAuthors(note, "DocAuthor", {"LocalDomainServers", "[SysAdmin]"});
  return note;
}

void fillDefaults(NOTEHANDLE note, int* changed) {
  for (const Default& setting : kDefaults) {
    if (!itemText(note, setting.item).empty()) continue;
    update_field(note, setting.item, setting.value ? setting.value : kDefaultInstallIOSText, changed);
  }
}

// Moves the editors of an older document's "DocReader" into a further
// "DocAuthor" item, leaving out empty entries.
void migrateDocReader(NOTEHANDLE note, int* changed) {
  static constexpr const char* kDocReader = "DocReader";
  if (!NSFItemIsPresent(note, kDocReader, nameLength(kDocReader))) return;
  const WORD count = NSFItemGetTextListEntries(note, kDocReader);
  if (count > 0) {
    std::vector<std::string> editors;
    for (WORD i = 0; i < count; ++i) {
      char entry[kValueLimit + 1] = {0};
      const WORD length = NSFItemGetTextListEntry(note, kDocReader, i, entry, kValueLimit);
      if (length > 0) editors.emplace_back(entry, length);
    }
    appendAuthors(note, "DocAuthor", editors);
  }
  NSFItemDelete(note, kDocReader, nameLength(kDocReader));
  *changed = 1;
}

std::string applicationDatabasePath(const char* directory) {
  if (directory == nullptr || directory[0] == '\0') return kApplicationDatabase;
  // The platform separates folders by a backslash on every system.
  return std::string(directory) + "\\" + kApplicationDatabase;
}

AppSettingValues appSettingValues(NOTEHANDLE note) {
  return {itemText(note, "useSSL"), itemText(note, "connectOnStartup"), itemText(note, "language"),
          itemText(note, "AuthMethod"), itemText(note, "dateformat")};
}

// "InstallIOS" as one text: a text of several lines comes back with NULs
// between its lines, which become line feeds. The default text when empty.
std::string installText(NOTEHANDLE note, char* buffer, size_t bufferSize) {
  const WORD length = NSFItemGetText(note, "InstallIOS", buffer, static_cast<WORD>(bufferSize));
  if (length == 0) return kDefaultInstallIOSText;
  std::string text(buffer, length);
  for (char& c : text) {
    if (c == '\0') c = '\n';
  }
  return text;
}

}  // namespace

STATUS update_field(NOTEHANDLE note, const char* itemName, const char* value, int* changed) {
  const WORD length = nameLength(itemName);
  if (!NSFItemIsPresent(note, itemName, length)) {
    *changed = 1;
    return NSFItemSetText(note, itemName, value, MAXWORD);
  }
  const std::string current = itemText(note, itemName);
  if (current.empty() && value[0] == '\0') return NOERROR;
  if (!current.empty() && current == value) return NOERROR;
  NSFItemDelete(note, itemName, length);
  *changed = 1;
  return NSFItemSetText(note, itemName, value, MAXWORD);
}

NOTEHANDLE _get_setup_document(DBHANDLE db, const char* serverName) {
  NOTEID viewId = 0;
  if (NIFFindDesignNoteExt(db, kSetupDocView, NOTE_CLASS_VIEW, DFLAGPAT_VIEWS_AND_FOLDERS, &viewId, 0) != NOERROR) {
    return NULLHANDLE;
  }
  int changed = 0;
  NOTEHANDLE note = NULLHANDLE;
  const NOTEID found = findByName(db, viewId, serverName);
  if (found != 0) {
    if (NSFNoteOpen(db, found, 0, &note) != NOERROR) return NULLHANDLE;
  } else {
    note = createSettingsDocument(db, serverName);
    if (note == NULLHANDLE) return NULLHANDLE;
    changed = 1;
  }
  fillDefaults(note, &changed);
  migrateDocReader(note, &changed);
  if (changed) NSFNoteUpdate(note, 0);
  return note;
}

namespace {

// The three settings from the settings document of serverName in the open
// application database; false when the document cannot be had.
bool readSettings(DBHANDLE db, const std::string& serverName, std::string& serverURL, std::string& installIOSText,
                  std::string& connectParams) {
  const size_t bufferSize = kInstallTextLimit + 1;
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[bufferSize]());
  if (!buffer) return false;
  NOTEHANDLE note = _get_setup_document(db, serverName.c_str());
  if (note == NULLHANDLE) return false;
  serverURL = itemText(note, "serverURL");
  connectParams = appParameterString(appSettingValues(note));
  installIOSText = installIOSWithLinks(installText(note, buffer.get(), bufferSize), connectParams);
  NSFNoteClose(note);
  return true;
}

bool sameTime(const TIMEDATE& a, const TIMEDATE& b) { return a.Innards[0] == b.Innards[0] && a.Innards[1] == b.Innards[1]; }

}  // namespace

void _get_server_setting(const std::string& serverName, const char* directory, std::string& serverURL,
                         std::string& installIOSText, std::string& connectParams) {
  DBHANDLE db = NULLHANDLE;
  if (NSFDbOpen(applicationDatabasePath(directory).c_str(), &db) != NOERROR) return;
  readSettings(db, serverName, serverURL, installIOSText, connectParams);
  NSFDbClose(db);
}

bool ServerSettingsCache::Stamp::operator==(const Stamp& other) const {
  return sameTime(data, other.data) && sameTime(nonData, other.nonData);
}

void ServerSettingsCache::read(const std::string& serverName, const char* directory, std::string& serverURL,
                               std::string& installIOSText, std::string& connectParams) {
  const std::string path = applicationDatabasePath(directory);
  DBHANDLE db = NULLHANDLE;
  if (NSFDbOpen(path.c_str(), &db) != NOERROR) {
    valid_ = false;
    return;
  }
  Stamp before;
  const bool stamped = NSFDbModifiedTime(db, &before.data, &before.nonData) == NOERROR;
  if (stamped && valid_ && path == path_ && serverName == serverName_ && before == stamp_) {
    serverURL = serverURL_;
    installIOSText = installIOSText_;
    connectParams = connectParams_;
    NSFDbClose(db);
    return;
  }
  valid_ = false;
  const bool read = readSettings(db, serverName, serverURL, installIOSText, connectParams);
  // Kept only when nothing changed the database while it was read (this
  // read's own completion of the document included): every change after
  // the stamp then gives the database a later one.
  Stamp after;
  if (read && stamped && NSFDbModifiedTime(db, &after.data, &after.nonData) == NOERROR && after == before) {
    valid_ = true;
    stamp_ = before;
    path_ = path;
    serverName_ = serverName;
    serverURL_ = serverURL;
    installIOSText_ = installIOSText;
    connectParams_ = connectParams;
  }
  NSFDbClose(db);
}
