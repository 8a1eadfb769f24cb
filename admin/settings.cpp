#include "settings.h"

#include <strings.h>

#include <cstring>

#include "failure.h"
#include "globerr.h"
#include "lmbcs_text.h"
#include "names.h"
#include "nif.h"
#include "nsfdata.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "osenv.h"
#include "osmem.h"

namespace tarnwick::admin {

const std::vector<std::string> kSettingItems = {"serverURL",  "useSSL",     "connectOnStartup", "language",
                                                "AuthMethod", "dateformat", "InstallIOS"};

namespace {

constexpr const char* kSetupDocView = "(Setup Doc)";

// Closes a collection however the lookup ends.
class Collection {
 public:
  Collection(DBHANDLE db, NOTEID view) {
    check(NIFOpenCollection(db, db, view, 0, NULLHANDLE, &handle_, nullptr, nullptr, nullptr, nullptr),
          std::string("cannot open the view ") + kSetupDocView);
  }
  ~Collection() { NIFCloseCollection(handle_); }
  Collection(const Collection&) = delete;
  Collection& operator=(const Collection&) = delete;
  HCOLLECTION handle() const { return handle_; }

 private:
  HCOLLECTION handle_ = NULLHANDLE;
};

NOTEID first_entry(const Collection& collection, COLLECTIONPOSITION& position) {
  DHANDLE buffer = NULLHANDLE;
  WORD length = 0;
  DWORD returned = 0;
  check(NIFReadEntries(collection.handle(), &position, NAVIGATE_CURRENT, 0, NAVIGATE_NEXT, 1, READ_MASK_NOTEID,
                       &buffer, &length, nullptr, &returned, nullptr),
        std::string("cannot read the view ") + kSetupDocView);
  NOTEID id = 0;
  if (buffer != NULLHANDLE) {
    if (returned > 0 && length >= sizeof id) std::memcpy(&id, OSLockObject(buffer), sizeof id);
    OSUnlockObject(buffer);
    OSMemFree(buffer);
  }
  return id;
}

}  // namespace

std::string application_database_path() {
  char directory[MAXENVVALUE + 1] = {};
  OSGetEnvironmentString("OOODirectory", directory, MAXENVVALUE);
  return directory[0] == '\0' ? "OOO.nsf" : to_utf8(directory) + "/OOO.nsf";
}

std::optional<Note> find_settings(const Database& db, const std::string& server) {
  NOTEID view = 0;
  const STATUS status = NIFFindDesignNoteExt(db.handle(), kSetupDocView, NOTE_CLASS_VIEW, DFLAGPAT_VIEWS_AND_FOLDERS,
                                             &view, 0);
  if (ERR(status) == ERR_NOT_FOUND) throw Failure(db.path() + " has no view " + kSetupDocView);
  check(status, std::string("cannot find the view ") + kSetupDocView);

  Collection collection(db.handle(), view);
  COLLECTIONPOSITION position{};
  DWORD matches = 0;
  const std::string name = to_lmbcs(canonical_name(server));
  const STATUS found = NIFFindByName(collection.handle(), name.c_str(), FIND_CASE_INSENSITIVE, &position, &matches);
  if (ERR(found) == ERR_NOT_FOUND) return std::nullopt;
  check(found, "cannot look up " + server + " in " + kSetupDocView);
  const NOTEID id = first_entry(collection, position);
  if (id == 0) return std::nullopt;
  return Note::open(db, id);
}

Note create_settings(const Database& db, const std::string& server) {
  Note note = Note::create(db);
  note.set_text("Form", "Setup");
  note.set_text("Server", canonical_name(server));
  // The editors form an Authors item: a text list marked as names that may
  // edit the document.
  const std::vector<std::string> editors = {"LocalDomainServers", "[SysAdmin]"};
  std::string value(sizeof(LIST) + editors.size() * sizeof(USHORT), '\0');
  const LIST header{static_cast<USHORT>(editors.size())};
  std::memcpy(value.data(), &header, sizeof header);
  for (size_t i = 0; i < editors.size(); ++i) {
    const auto length = static_cast<USHORT>(editors[i].size());
    std::memcpy(value.data() + sizeof(LIST) + i * sizeof(USHORT), &length, sizeof length);
  }
  for (const std::string& editor : editors) value += editor;
  check(NSFItemAppend(note.handle(), ITEM_SUMMARY | ITEM_READWRITERS | ITEM_NAMES, "DocAuthor", 9, TYPE_TEXT_LIST,
                      value.data(), value.size()),
        "cannot set item DocAuthor");
  return note;
}

std::string setting_item(const std::string& name) {
  for (const std::string& item : kSettingItems) {
    if (::strcasecmp(item.c_str(), name.c_str()) == 0) return item;
  }
  std::string known;
  for (const std::string& item : kSettingItems) known += (known.empty() ? "" : ", ") + item;
  throw UsageError("\"" + name + "\" is not a setting (settings: " + known + ")");
}

void set_settings(Note& settings, const std::vector<std::pair<std::string, std::string>>& values) {
  for (const auto& [item, value] : values) {
    if (value.empty()) {
      settings.remove(item);
    } else {
      if (settings.has(item)) settings.remove(item);
      settings.set_text(item, value);
    }
  }
  settings.update();
}

}  // namespace tarnwick::admin
