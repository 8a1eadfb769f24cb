// The note calls of nsfnote.h: create, open, update, delete, header info.
#include <cstring>

#include "acl.h"
#include "core/handle_table.h"
#include "globerr.h"
#include "nsfnote.h"
#include "core/api_guard.h"
#include "store/database.h"
#include "store/ids.h"

using namespace tarnwick::rt;
using namespace tarnwick::rt::store;

namespace {

// Opens a stored note into a new handle.
STATUS open_note(DBHANDLE hDB, NOTEID id, DWORD open_flags, NOTEHANDLE* rethNote) {
  if (rethNote == nullptr) return ERR_BAD_PARAM;
  *rethNote = NULLHANDLE;
  auto database = find_database(hDB);
  if (!database) return ERR_DB_NOT_OPEN;
  if (database->access_level < ACL_LEVEL_READER) return ERR_NOACCESS;
  if ((id & NOTE_ID_SPECIAL) == NOTE_ID_SPECIAL) {
    if (STATUS error = database->special_note_id(static_cast<WORD>(id & 0xFFFF), &id)) return error;
  }
  auto note = std::make_shared<Note>();
  if (STATUS error = database->read_note(id, open_flags, note.get())) return error;
  note->db = database;
  note->db_handle = hDB;
  *rethNote = add_note_handle(std::move(note));
  return NOERROR;
}

// Whether one of the user's names is in an Authors item of the note.
bool listed_as_author(const Note& note, const std::vector<std::string>& names) {
  for (const auto& item : note.items) {
    if ((item.flags & ITEM_READWRITERS) == 0) continue;
    for (auto entry : text_entries(item.type, note.value_of(item))) {
      for (const auto& name : names) {
        if (names_equal(entry, name)) return true;
      }
    }
  }
  return false;
}

// Whether the handle's access lets it store the note: design needs
// Designer, changing documents Editor (or Author when listed in an Authors
// item), creating documents Depositor or Author.
STATUS check_update_access(const Database& database, const Note& note) {
  const WORD level = database.access_level;
  if (level >= ACL_LEVEL_DESIGNER) return NOERROR;
  if ((note.note_class & NOTE_CLASS_DOCUMENT) == 0) return ERR_NOACCESS;
  if (level >= ACL_LEVEL_EDITOR) return NOERROR;
  if (!note.stored) {
    if (level == ACL_LEVEL_DEPOSITOR) return NOERROR;
    if (level == ACL_LEVEL_AUTHOR && (database.access_flags & ACL_FLAG_AUTHOR_NOCREATE) == 0) return NOERROR;
    return ERR_NOACCESS;
  }
  if (level == ACL_LEVEL_AUTHOR) return listed_as_author(note, database.names) ? NOERROR : ERR_NOT_AUTHOR;
  return ERR_NOACCESS;
}

template <class T>
void put(void* out, const T& value) {
  std::memcpy(out, &value, sizeof(T));
}

template <class T>
T get(const void* in) {
  T value;
  std::memcpy(&value, in, sizeof(T));
  return value;
}

}  // namespace

extern "C" {

STATUS LNPUBLIC NSFNoteCreate(DBHANDLE hDB, NOTEHANDLE* rethNote) {
  return guarded([&]() -> STATUS {
    if (rethNote == nullptr) return ERR_BAD_PARAM;
    *rethNote = NULLHANDLE;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    auto note = std::make_shared<Note>();
    note->db = database;
    note->db_handle = hDB;
    const UNIVERSALNOTEID unid = new_unid();
    note->oid.File = unid.File;
    note->oid.Note = unid.Note;
    *rethNote = add_note_handle(std::move(note));
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFNoteOpen(DBHANDLE hDB, NOTEID NoteID, WORD OpenFlags, NOTEHANDLE* rethNote) {
  return guarded([&] { return open_note(hDB, NoteID, OpenFlags, rethNote); });
}

STATUS LNPUBLIC NSFNoteOpenExt(DBHANDLE hDB, NOTEID NoteID, DWORD OpenFlags, NOTEHANDLE* rethNote) {
  return guarded([&] { return open_note(hDB, NoteID, OpenFlags, rethNote); });
}

STATUS LNPUBLIC NSFNoteOpenByUNID(DBHANDLE hDB, const UNIVERSALNOTEID* pUNID, WORD OpenFlags, NOTEHANDLE* rethNote) {
  return guarded([&]() -> STATUS {
    if (pUNID == nullptr || rethNote == nullptr) return ERR_BAD_PARAM;
    *rethNote = NULLHANDLE;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    NOTEID id = 0;
    if (STATUS error = database->note_id_of(*pUNID, &id)) return error;
    return open_note(hDB, id, OpenFlags, rethNote);
  });
}

STATUS LNPUBLIC NSFNoteClose(NOTEHANDLE hNote) {
  if (hNote == NULLHANDLE) return NOERROR;
  return handles().remove(hNote, HandleKind::kNote) ? NOERROR : ERR_BAD_PARAM;
}

STATUS LNPUBLIC NSFNoteUpdateExtended(NOTEHANDLE hNote, DWORD UpdateFlags) {
  return guarded([&]() -> STATUS {
    auto note = find_note(hNote);
    if (!note) return ERR_BAD_PARAM;
    std::lock_guard lock(note->mutex);
    if (!note->db) return ERR_DB_NOT_OPEN;
    if (STATUS error = check_update_access(*note->db, *note)) return error;
    return note->db->write_note(*note, UpdateFlags);
  });
}

STATUS LNPUBLIC NSFNoteUpdate(NOTEHANDLE hNote, WORD UpdateFlags) { return NSFNoteUpdateExtended(hNote, UpdateFlags); }

STATUS LNPUBLIC NSFNoteDelete(DBHANDLE hDB, NOTEID NoteID, WORD UpdateFlags) {
  return guarded([&]() -> STATUS {
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    if (database->access_level < ACL_LEVEL_EDITOR || (database->access_flags & ACL_FLAG_NODELETE)) return ERR_NOACCESS;
    return database->delete_note(NoteID, UpdateFlags);
  });
}

void LNPUBLIC NSFNoteGetInfo(NOTEHANDLE hNote, WORD Type, void* retValue) {
  if (retValue == nullptr) return;
  auto note = find_note(hNote);
  if (!note) return;
  std::lock_guard lock(note->mutex);
  switch (Type) {
    case _NOTE_DB:
      put(retValue, note->db_handle);
      break;
    case _NOTE_ID:
      put(retValue, note->id);
      break;
    case _NOTE_OID:
      put(retValue, note->oid);
      break;
    case _NOTE_CLASS:
      put(retValue, note->note_class);
      break;
    case _NOTE_MODIFIED:
      put(retValue, note->modified);
      break;
    case _NOTE_FLAGS:
      put(retValue, note->flags);
      break;
    case _NOTE_ACCESSED:
      put(retValue, note->accessed);
      break;
    case _NOTE_PARENT_NOTEID:
      put(retValue, note->parent);
      break;
    case _NOTE_RESPONSE_COUNT:
      put(retValue, DWORD{0});
      break;
    case _NOTE_ADDED_TO_FILE:
      put(retValue, note->added);
      break;
    default:
      break;
  }
}

void LNPUBLIC NSFNoteSetInfo(NOTEHANDLE hNote, WORD Type, const void* Value) {
  auto note = find_note(hNote);
  if (!note) return;
  std::lock_guard lock(note->mutex);
  switch (Type) {
    case _NOTE_DB: {
      // Moving a note to another database makes it a new note there.
      const DBHANDLE hDB = Value != nullptr ? get<DBHANDLE>(Value) : NULLHANDLE;
      auto database = find_database(hDB);
      if (!database) return;
      note->db = std::move(database);
      note->db_handle = hDB;
      note->stored = false;
      note->stored_sequence = 0;
      note->id = 0;
      break;
    }
    case _NOTE_ID:
      note->id = Value != nullptr ? get<NOTEID>(Value) : 0;
      if (note->id == 0) {
        note->stored = false;
        note->stored_sequence = 0;
      }
      break;
    case _NOTE_OID:
      if (Value != nullptr) note->oid = get<ORIGINATORID>(Value);
      break;
    case _NOTE_CLASS:
      if (Value != nullptr) note->note_class = get<WORD>(Value);
      break;
    case _NOTE_MODIFIED:
      if (Value != nullptr) note->modified = get<TIMEDATE>(Value);
      break;
    case _NOTE_FLAGS:
      if (Value != nullptr) note->flags = get<WORD>(Value);
      break;
    case _NOTE_ACCESSED:
      if (Value != nullptr) note->accessed = get<TIMEDATE>(Value);
      break;
    case _NOTE_PARENT_NOTEID:
      if (Value != nullptr) note->parent = get<NOTEID>(Value);
      break;
    case _NOTE_ADDED_TO_FILE:
      if (Value != nullptr) note->added = get<TIMEDATE>(Value);
      break;
    default:
      break;
  }
}

STATUS LNPUBLIC NSFNoteContract(NOTEHANDLE hNote) {
  return guarded([&]() -> STATUS {
    auto note = find_note(hNote);
    if (!note) return ERR_BAD_PARAM;
    std::lock_guard lock(note->mutex);
    note->contract_items();
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFNoteExpand(NOTEHANDLE hNote) {
  return guarded([&]() -> STATUS {
    auto note = find_note(hNote);
    if (!note) return ERR_BAD_PARAM;
    std::lock_guard lock(note->mutex);
    note->expand_items();
    return NOERROR;
  });
}

}  // extern "C"
