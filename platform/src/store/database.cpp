// Open databases: reading and writing notes in the notes table (see
// database.h and, for the schema, database_file.h).
#include "store/database.h"

#include <algorithm>
#include <vector>

#include "core/handle_table.h"
#include "globerr.h"
#include "nsfnote.h"
#include "osmem.h"
#include "store/database_file.h"
#include "store/ids.h"

namespace tarnwick::rt::store {
namespace {

constexpr const char* kSelectNote =
    "SELECT note_id, note_class, note_flags, unid_file, unid_note, sequence, sequence_time, modified, added, "
    "parent, deleted, items FROM notes WHERE note_id = ?";
constexpr const char* kSelectProfileNote =
    "SELECT note_id, note_class, note_flags, unid_file, unid_note, sequence, sequence_time, modified, added, "
    "parent, deleted, items FROM notes WHERE profile_key = ?";
constexpr const char* kSelectRecord =
    "SELECT note_id, note_class, note_flags, unid_file, unid_note, sequence, sequence_time, modified, added, "
    "parent, deleted FROM notes WHERE note_id = ?";
constexpr const char* kScan =
    "SELECT note_id, note_class, note_flags, unid_file, unid_note, sequence, sequence_time, modified, added, "
    "parent, deleted, CASE WHEN ?1 THEN items ELSE x'' END FROM notes "
    "WHERE (note_class & ?2) != 0 AND (deleted = 0 OR ?3) AND modified_moment > ?4 ORDER BY note_id";
// The same for the notes changed since a moment: "+note_id" keeps the
// planner from walking the whole table in note ID order, so that it reads
// only the changed notes through the modified_moment index.
constexpr const char* kScanSince =
    "SELECT note_id, note_class, note_flags, unid_file, unid_note, sequence, sequence_time, modified, added, "
    "parent, deleted, CASE WHEN ?1 THEN items ELSE x'' END FROM notes "
    "WHERE (note_class & ?2) != 0 AND (deleted = 0 OR ?3) AND modified_moment > ?4 ORDER BY +note_id";
constexpr const char* kInsertNote =
    "INSERT INTO notes(note_id, note_class, note_flags, unid_file, unid_note, sequence, sequence_time, modified, "
    "modified_moment, added, parent, deleted, profile_key, title, design_flags, items) "
    "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, 0, ?12, ?13, ?14, ?15)";
constexpr const char* kUpdateNote =
    "UPDATE notes SET note_class = ?2, note_flags = ?3, unid_file = ?4, unid_note = ?5, sequence = ?6, "
    "sequence_time = ?7, modified = ?8, modified_moment = ?9, added = ?10, parent = ?11, deleted = 0, "
    "profile_key = ?12, title = ?13, design_flags = ?14, items = ?15 WHERE note_id = ?1";
// The same for a stored note whose indexed columns (class, UNID, profile
// key) keep their values: columns left out of the SET list leave their
// indexes untouched, so the commit writes fewer pages.
constexpr const char* kUpdateNoteContent =
    "UPDATE notes SET note_flags = ?3, sequence = ?6, sequence_time = ?7, modified = ?8, modified_moment = ?9, "
    "added = ?10, parent = ?11, deleted = 0, title = ?13, design_flags = ?14, items = ?15 WHERE note_id = ?1";
constexpr const char* kStubNote =
    "UPDATE notes SET deleted = 1, items = x'', profile_key = NULL, title = NULL, design_flags = NULL, "
    "sequence = sequence + 1, sequence_time = ?2, modified = ?2, modified_moment = ?3 WHERE note_id = ?1";

char ascii_lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

std::string lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = ascii_lower(c);
  return out;
}

UNIVERSALNOTEID unid_from(int64_t file, int64_t note) { return UNIVERSALNOTEID{unpack_timedate(file), unpack_timedate(note)}; }

void record_from(const Statement& row, NoteRecord* record) {
  record->id = static_cast<NOTEID>(row.column_int(0));
  record->note_class = static_cast<WORD>(row.column_int(1));
  record->flags = static_cast<WORD>(row.column_int(2));
  record->unid = unid_from(row.column_int(3), row.column_int(4));
  record->sequence = static_cast<DWORD>(row.column_int(5));
  record->sequence_time = unpack_timedate(row.column_int(6));
  record->modified = unpack_timedate(row.column_int(7));
  record->added = unpack_timedate(row.column_int(8));
  record->parent = static_cast<NOTEID>(row.column_int(9));
  record->deleted = row.column_int(10) != 0;
}

STATUS done_or_error(int rc) { return rc == SQLITE_DONE ? NOERROR : status_from_sqlite(rc); }

// The $TITLE of a design note, list entries joined with '|'.
std::string design_title(const Note& note) { return note.text("$TITLE", '|').value_or(std::string()); }

}  // namespace

std::string profile_name_item(std::string_view profile_name, std::string_view user_name) {
  char digits[8];
  std::snprintf(digits, sizeof(digits), "%03u", static_cast<unsigned>(profile_name.size() % 1000));
  std::string text = "$profile_";
  text += digits;
  text += lower(profile_name);
  text += '_';
  text += user_name;
  return text;
}

std::string profile_key(std::string_view profile_name, std::string_view user_name) {
  return lower(profile_name_item(profile_name, user_name));
}

bool parse_profile_name_item(std::string_view text, std::string* profile_name, std::string* user_name) {
  constexpr std::string_view prefix = "$profile_";
  if (text.size() < prefix.size() + 4 || lower(text.substr(0, prefix.size())) != prefix) return false;
  text.remove_prefix(prefix.size());
  size_t length = 0;
  for (int i = 0; i < 3; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    length = length * 10 + static_cast<size_t>(text[i] - '0');
  }
  text.remove_prefix(3);
  if (text.size() < length + 1 || text[length] != '_') return false;
  profile_name->assign(text.substr(0, length));
  user_name->assign(text.substr(length + 1));
  return true;
}

std::string profile_key_of(const Note& note) {
  const Item* name = note.find("$Name");
  if (name == nullptr || name->type != TYPE_TEXT) return {};
  std::string key = lower(note.value_of(*name));
  if (key.rfind("$profile_", 0) != 0) return {};
  return key;
}

STATUS Database::open_file(const std::filesystem::path& file, std::string api_path, std::shared_ptr<Database>* out) {
  std::shared_ptr<Connection> connection;
  if (STATUS error = acquire_connection(file, &connection)) return error;
  out->reset(new Database(file, std::move(api_path), std::move(connection)));
  return NOERROR;
}

STATUS Database::read_note(NOTEID id, DWORD open_flags, Note* note) {
  return read_note_where(kSelectNote, [id](Statement& row) { row.bind(1, id); }, ERR_INVALID_NOTE, open_flags, note);
}

STATUS Database::read_profile_note(std::string_view key, DWORD open_flags, Note* note) {
  return read_note_where(
      kSelectProfileNote, [key](Statement& row) { row.bind_text(1, key); }, ERR_NOT_FOUND, open_flags, note);
}

// One statement, so one read of the file's state for the whole note.
STATUS Database::read_note_where(const char* select, const std::function<void(Statement&)>& bind, STATUS none,
                                 DWORD open_flags, Note* note) {
  std::vector<Item> items;
  NoteRecord record;
  {
    std::lock_guard lock(connection_->mutex);
    Statement row = connection_->prepare(select);
    bind(row);
    int rc = row.step();
    if (rc == SQLITE_DONE) return none;
    if (rc != SQLITE_ROW) return status_from_sqlite(rc);
    record_from(row, &record);
    if (record.deleted) return ERR_NOTE_DELETED;
    if (STATUS error = decode_items(row.column_bytes(11), (open_flags & OPEN_SUMMARY) != 0, &items)) return error;
  }
  note->id = record.id;
  note->note_class = record.note_class;
  note->flags = record.flags;
  note->oid = ORIGINATORID{record.unid.File, record.unid.Note, record.sequence, record.sequence_time};
  note->modified = record.modified;
  note->added = record.added;
  note->accessed = record.modified;
  note->parent = record.parent;
  note->stored = true;
  note->stored_sequence = record.sequence;
  note->items = std::move(items);
  note->number_items();
  if (open_flags & OPEN_EXPAND) note->expand_items();
  return NOERROR;
}

STATUS Database::record_of(NOTEID id, NoteRecord* record) {
  std::lock_guard lock(connection_->mutex);
  Statement row = connection_->prepare(kSelectRecord);
  row.bind(1, id);
  int rc = row.step();
  if (rc == SQLITE_DONE) return ERR_INVALID_NOTE;
  if (rc != SQLITE_ROW) return status_from_sqlite(rc);
  record_from(row, record);
  return NOERROR;
}

STATUS Database::note_id_of(const UNIVERSALNOTEID& unid, NOTEID* id) {
  std::lock_guard lock(connection_->mutex);
  Statement row = connection_->prepare("SELECT note_id FROM notes WHERE unid_file = ? AND unid_note = ?");
  row.bind(1, pack_timedate(unid.File)).bind(2, pack_timedate(unid.Note));
  int rc = row.step();
  if (rc == SQLITE_DONE) return ERR_NOT_FOUND;
  if (rc != SQLITE_ROW) return status_from_sqlite(rc);
  *id = static_cast<NOTEID>(row.column_int(0));
  return NOERROR;
}

STATUS Database::profile_note_id(std::string_view key, NOTEID* id) {
  std::lock_guard lock(connection_->mutex);
  Statement row = connection_->prepare("SELECT note_id FROM notes WHERE profile_key = ?");
  row.bind_text(1, key);
  int rc = row.step();
  if (rc == SQLITE_DONE) return ERR_NOT_FOUND;
  if (rc != SQLITE_ROW) return status_from_sqlite(rc);
  *id = static_cast<NOTEID>(row.column_int(0));
  return NOERROR;
}

// The modification time of a write, taken inside its transaction: later
// than every time already stored in the database, so that times follow the
// order of commits, across threads and processes. A search for the notes
// changed since the latest time it saw then misses none.
STATUS Database::stamp_locked(TIMEDATE* now) {
  Statement latest = connection_->prepare("SELECT max(modified_moment) FROM notes");
  const int rc = latest.step();
  if (rc != SQLITE_ROW) return status_from_sqlite(rc);
  *now = unique_now_after(latest.column_int(0));
  return NOERROR;
}

STATUS Database::write_note(Note& note, DWORD update_flags) {
  note.sync_value_blocks();
  if (note.summary_size() > MAXSUMMARYSIZE) return ERR_SUMMARY_TOO_BIG;
  TIMEDATE now;
  NOTEID id = 0;
  DWORD sequence = 0;
  {
    std::lock_guard lock(connection_->mutex);
    WriteTransaction transaction(*connection_);
    if (STATUS error = transaction.begin()) return error;
    if (STATUS error = stamp_locked(&now)) return error;
    if (STATUS error = write_note_locked(note, update_flags, now, &id, &sequence)) return error;
    if (STATUS error = transaction.commit()) return error;
  }
  note.id = id;
  note.stored = true;
  note.stored_sequence = sequence;
  note.oid.Sequence = sequence;
  note.oid.SequenceTime = now;
  note.modified = now;
  if (note.added.Innards[0] == 0 && note.added.Innards[1] == 0) note.added = now;
  return NOERROR;
}

STATUS Database::write_note_locked(Note& note, DWORD update_flags, const TIMEDATE& now, NOTEID* id,
                                   DWORD* sequence) {
  const bool force = (update_flags & UPDATE_FORCE) != 0;
  const UNIVERSALNOTEID unid{note.oid.File, note.oid.Note};
  const std::string key = profile_key_of(note);
  bool exists = false;
  bool same_index_keys = false;  // class, UNID and profile key as stored
  DWORD stored_sequence = 0;
  *id = (note.stored && note.id != 0) ? note.id : 0;

  if (*id != 0) {
    Statement row = connection_->prepare(
        "SELECT sequence, deleted, note_class, unid_file, unid_note, profile_key FROM notes WHERE note_id = ?");
    row.bind(1, *id);
    int rc = row.step();
    if (rc == SQLITE_ROW) {
      exists = true;
      stored_sequence = static_cast<DWORD>(row.column_int(0));
      if (row.column_int(1) != 0 && !force) return ERR_NOTE_DELETED;
      if (stored_sequence != note.stored_sequence && !force) return ERR_CONFLICT;
      same_index_keys = row.column_int(2) == note.note_class && row.column_int(3) == pack_timedate(unid.File) &&
                        row.column_int(4) == pack_timedate(unid.Note) && row.column_is_null(5) == key.empty() &&
                        row.column_bytes(5) == key;
    } else if (rc != SQLITE_DONE) {
      return status_from_sqlite(rc);
    } else if (!force) {
      return ERR_NOTE_DELETED;  // the stored note was removed meanwhile
    }
  } else {
    // A new note whose UNID is already stored replaces it only when forced.
    Statement row = connection_->prepare("SELECT note_id, sequence, deleted FROM notes WHERE unid_file = ? AND unid_note = ?");
    row.bind(1, pack_timedate(unid.File)).bind(2, pack_timedate(unid.Note));
    int rc = row.step();
    if (rc == SQLITE_ROW) {
      if (row.column_int(2) == 0 && !force) return ERR_DUPLICATE_UNID;
      exists = true;
      *id = static_cast<NOTEID>(row.column_int(0));
      stored_sequence = static_cast<DWORD>(row.column_int(1));
    } else if (rc != SQLITE_DONE) {
      return status_from_sqlite(rc);
    }
  }
  if (*id == 0) {
    Statement next = connection_->prepare("SELECT coalesce(max(note_id), 0) FROM notes");
    int rc = next.step();
    if (rc != SQLITE_ROW) return status_from_sqlite(rc);
    const int64_t highest = next.column_int(0);
    if (highest >= 0x7FFFFFF0) return ERR_NOT_SUPPORTED;  // note IDs are spent
    *id = static_cast<NOTEID>(highest + 4);
  }

  if ((note.note_class & NOTE_CLASS_SINGLE_INSTANCE) != 0) {
    // A database holds one note of each single-instance class: the new one replaces the old.
    Statement stub = connection_->prepare(
        "UPDATE notes SET deleted = 1, items = x'', profile_key = NULL, title = NULL, design_flags = NULL, "
        "sequence = sequence + 1, sequence_time = ?2, modified = ?2, modified_moment = ?3 "
        "WHERE (note_class & 32767) = ?1 AND deleted = 0 AND note_id != ?4");
    stub.bind(1, note.note_class & NOTE_CLASS_ALL).bind(2, pack_timedate(now)).bind(3, moment_of(now)).bind(4, *id);
    if (STATUS error = done_or_error(stub.step())) return error;
  }

  *sequence = std::max(stored_sequence, note.oid.Sequence) + 1;
  const TIMEDATE added = (note.added.Innards[0] == 0 && note.added.Innards[1] == 0) ? now : note.added;
  const bool design = (note.note_class & NOTE_CLASS_DOCUMENT) == 0;
  // Parameters a statement does not use (the lean update's ?2, ?4, ?5,
  // ?12) are bound all the same: unused numbers in between are allowed.
  Statement write =
      connection_->prepare(exists ? (same_index_keys ? kUpdateNoteContent : kUpdateNote) : kInsertNote);
  write.bind(1, *id)
      .bind(2, note.note_class)
      .bind(3, note.flags & ~NOTE_FLAG_READONLY)
      .bind(4, pack_timedate(unid.File))
      .bind(5, pack_timedate(unid.Note))
      .bind(6, *sequence)
      .bind(7, pack_timedate(now))
      .bind(8, pack_timedate(now))
      .bind(9, moment_of(now))
      .bind(10, pack_timedate(added))
      .bind(11, note.parent);
  if (key.empty()) {
    write.bind_null(12);
  } else {
    write.bind_text(12, key);
  }
  if (design) {
    write.bind_text(13, design_title(note));
    write.bind_text(14, note.text("$Flags").value_or(std::string()));
  } else {
    write.bind_null(13).bind_null(14);
  }
  write.bind_blob(15, encode_items(note.items));
  return done_or_error(write.step());
}

STATUS Database::insert_profile_if_missing(Note& note, std::string_view key, NOTEID* id) {
  TIMEDATE now;
  DWORD sequence = 0;
  {
    std::lock_guard lock(connection_->mutex);
    WriteTransaction transaction(*connection_);
    if (STATUS error = transaction.begin()) return error;
    if (STATUS error = stamp_locked(&now)) return error;
    Statement row = connection_->prepare("SELECT note_id FROM notes WHERE profile_key = ?");
    row.bind_text(1, key);
    int rc = row.step();
    if (rc == SQLITE_ROW) {
      *id = static_cast<NOTEID>(row.column_int(0));
      return NOERROR;  // someone else made it first; the transaction rolls back
    }
    if (rc != SQLITE_DONE) return status_from_sqlite(rc);
    if (STATUS error = write_note_locked(note, 0, now, id, &sequence)) return error;
    if (STATUS error = transaction.commit()) return error;
  }
  note.id = *id;
  note.stored = true;
  note.stored_sequence = sequence;
  note.oid.Sequence = sequence;
  note.oid.SequenceTime = now;
  note.modified = now;
  note.added = now;
  return NOERROR;
}

STATUS Database::delete_note(NOTEID id, WORD /*update_flags*/) {
  TIMEDATE now;
  std::lock_guard lock(connection_->mutex);
  WriteTransaction transaction(*connection_);
  if (STATUS error = transaction.begin()) return error;
  if (STATUS error = stamp_locked(&now)) return error;
  {
    Statement row = connection_->prepare("SELECT deleted FROM notes WHERE note_id = ?");
    row.bind(1, id);
    int rc = row.step();
    if (rc == SQLITE_DONE) return ERR_INVALID_NOTE;
    if (rc != SQLITE_ROW) return status_from_sqlite(rc);
    if (row.column_int(0) != 0) return ERR_NOTE_DELETED;
  }
  Statement stub = connection_->prepare(kStubNote);
  stub.bind(1, id).bind(2, pack_timedate(now)).bind(3, moment_of(now));
  if (STATUS error = done_or_error(stub.step())) return error;
  return transaction.commit();
}

STATUS Database::write_batch(Batch& batch, DWORD update_flags) {
  for (Note* note : batch.writes) {
    note->sync_value_blocks();
    if (note->summary_size() > MAXSUMMARYSIZE) return ERR_SUMMARY_TOO_BIG;
  }
  struct Written {
    NOTEID id;
    DWORD sequence;
    TIMEDATE when;
  };
  std::vector<Written> written;
  written.reserve(batch.writes.size());
  {
    std::lock_guard lock(connection_->mutex);
    WriteTransaction transaction(*connection_);
    if (STATUS error = transaction.begin()) return error;
    TIMEDATE first;
    if (STATUS error = stamp_locked(&first)) return error;  // later writes of the batch come after it
    for (NOTEID id : batch.deletions) {
      const TIMEDATE now = unique_now();
      Statement stub = connection_->prepare(kStubNote);
      stub.bind(1, id).bind(2, pack_timedate(now)).bind(3, moment_of(now));
      if (STATUS error = done_or_error(stub.step())) return error;
    }
    for (Note* note : batch.writes) {
      Written entry{0, 0, unique_now()};
      if (STATUS error = write_note_locked(*note, update_flags, entry.when, &entry.id, &entry.sequence)) return error;
      written.push_back(entry);
    }
    for (const auto& [key, value] : batch.meta) {
      Statement row = connection_->prepare("INSERT OR REPLACE INTO meta(key, value) VALUES(?, ?)");
      row.bind_text(1, key).bind_blob(2, value);
      if (STATUS error = done_or_error(row.step())) return error;
    }
    if (STATUS error = transaction.commit()) return error;
  }
  for (size_t i = 0; i < written.size(); ++i) {
    Note& note = *batch.writes[i];
    note.id = written[i].id;
    note.stored = true;
    note.stored_sequence = written[i].sequence;
    note.oid.Sequence = written[i].sequence;
    note.oid.SequenceTime = written[i].when;
    note.modified = written[i].when;
    if (note.added.Innards[0] == 0 && note.added.Innards[1] == 0) note.added = written[i].when;
  }
  return NOERROR;
}

STATUS Database::special_note_id(WORD note_class, NOTEID* id) {
  note_class &= NOTE_CLASS_ALL;
  // Forms and views: the default one; the other classes have one note each.
  const bool default_kind = note_class == NOTE_CLASS_FORM || note_class == NOTE_CLASS_VIEW;
  const int64_t wanted = default_kind ? (note_class | NOTE_CLASS_DEFAULT) : note_class;
  std::lock_guard lock(connection_->mutex);
  Statement row = connection_->prepare(
      "SELECT note_id FROM notes WHERE note_class = ?1 AND deleted = 0 ORDER BY note_id LIMIT 1");
  row.bind(1, wanted);
  int rc = row.step();
  if (rc == SQLITE_DONE) return ERR_SPECIAL_ID;
  if (rc != SQLITE_ROW) return status_from_sqlite(rc);
  *id = static_cast<NOTEID>(row.column_int(0));
  return NOERROR;
}

STATUS Database::scan(WORD class_mask, const ScanOptions& options, const ScanFunction& function) {
  struct Row {
    NoteRecord record;
    std::string items;
  };
  std::vector<Row> rows;
  {
    std::lock_guard lock(connection_->mutex);
    Statement query = connection_->prepare(options.since != nullptr ? kScanSince : kScan);
    query.bind(1, options.with_items ? 1 : 0)
        .bind(2, class_mask)
        .bind(3, options.include_deleted ? 1 : 0)
        .bind(4, options.since != nullptr ? moment_of(*options.since) : -1);
    int rc;
    while ((rc = query.step()) == SQLITE_ROW) {
      Row row;
      record_from(query, &row.record);
      row.items.assign(query.column_bytes(11));
      rows.push_back(std::move(row));
    }
    if (rc != SQLITE_DONE) return status_from_sqlite(rc);
  }
  // Callbacks run without the lock: they may open and update notes of this database.
  for (const auto& row : rows) {
    if (STATUS status = function(row.record, row.items)) return status;
  }
  return NOERROR;
}

STATUS Database::design_notes(WORD class_mask, const DesignFunction& function) {
  struct Row {
    NOTEID id;
    WORD note_class;
    std::string title;
    std::string flags;
  };
  std::vector<Row> rows;
  {
    std::lock_guard lock(connection_->mutex);
    // Design notes are a handful among what may be many thousands of
    // documents (class 1): the range on the class index skips them all.
    Statement query = connection_->prepare(
        "SELECT note_id, note_class, title, design_flags FROM notes "
        "WHERE note_class >= 2 AND deleted = 0 AND (note_class & ?1) != 0 AND (note_class & 1) = 0");
    query.bind(1, class_mask);
    int rc;
    while ((rc = query.step()) == SQLITE_ROW) {
      rows.push_back(Row{static_cast<NOTEID>(query.column_int(0)), static_cast<WORD>(query.column_int(1)),
                         std::string(query.column_bytes(2)), std::string(query.column_bytes(3))});
    }
    if (rc != SQLITE_DONE) return status_from_sqlite(rc);
  }
  std::sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.id < b.id; });
  for (const auto& row : rows) {
    if (STATUS status = function(row.id, row.note_class, row.title, row.flags)) return status;
  }
  return NOERROR;
}

STATUS Database::meta_int(const char* key, int64_t* value) {
  std::lock_guard lock(connection_->mutex);
  Statement row = connection_->prepare("SELECT value FROM meta WHERE key = ?");
  row.bind_text(1, key);
  int rc = row.step();
  if (rc == SQLITE_DONE) {
    *value = 0;
    return NOERROR;
  }
  if (rc != SQLITE_ROW) return status_from_sqlite(rc);
  *value = row.column_int(0);
  return NOERROR;
}

STATUS Database::meta_bytes(const char* key, std::string* value) {
  std::lock_guard lock(connection_->mutex);
  Statement row = connection_->prepare("SELECT value FROM meta WHERE key = ?");
  row.bind_text(1, key);
  int rc = row.step();
  value->clear();
  if (rc == SQLITE_DONE) return NOERROR;
  if (rc != SQLITE_ROW) return status_from_sqlite(rc);
  value->assign(row.column_bytes(0));
  return NOERROR;
}

STATUS Database::put_meta_int(const char* key, int64_t value) {
  std::lock_guard lock(connection_->mutex);
  Statement row = connection_->prepare("INSERT OR REPLACE INTO meta(key, value) VALUES(?, ?)");
  row.bind_text(1, key).bind(2, value);
  return done_or_error(row.step());
}

STATUS Database::put_meta_bytes(const char* key, std::string_view value) {
  std::lock_guard lock(connection_->mutex);
  Statement row = connection_->prepare("INSERT OR REPLACE INTO meta(key, value) VALUES(?, ?)");
  row.bind_text(1, key).bind_blob(2, value);
  return done_or_error(row.step());
}

STATUS Database::modified_times(TIMEDATE* data, TIMEDATE* non_data) {
  std::lock_guard lock(connection_->mutex);
  ReadTransaction both(*connection_);  // both times of one state of the file
  for (int data_kind = 0; data_kind < 2; ++data_kind) {
    // The newest notes are mostly documents: design notes are found through
    // the class index rather than by walking back past every document.
    Statement row = connection_->prepare(
        data_kind == 1
            ? "SELECT modified FROM notes WHERE (note_class & 1) = 1 ORDER BY modified_moment DESC LIMIT 1"
            : "SELECT modified FROM notes WHERE note_class >= 2 AND (note_class & 1) = 0 "
              "ORDER BY modified_moment DESC LIMIT 1");
    int rc = row.step();
    TIMEDATE when{};
    if (rc == SQLITE_ROW) {
      when = unpack_timedate(row.column_int(0));
    } else if (rc != SQLITE_DONE) {
      return status_from_sqlite(rc);
    }
    TIMEDATE* target = data_kind == 1 ? data : non_data;
    if (target != nullptr) *target = when;
  }
  return NOERROR;
}

STATUS Database::profile_notes(std::vector<std::pair<NOTEID, std::string>>* out) {
  std::vector<NOTEID> ids;
  {
    std::lock_guard lock(connection_->mutex);
    Statement query = connection_->prepare(
        "SELECT note_id FROM notes WHERE profile_key IS NOT NULL AND deleted = 0 ORDER BY note_id");
    int rc;
    while ((rc = query.step()) == SQLITE_ROW) ids.push_back(static_cast<NOTEID>(query.column_int(0)));
    if (rc != SQLITE_DONE) return status_from_sqlite(rc);
  }
  out->clear();
  for (NOTEID id : ids) {
    Note note;
    if (read_note(id, OPEN_SUMMARY, &note) != NOERROR) continue;  // deleted meanwhile
    if (auto name = note.text("$Name")) out->emplace_back(id, std::move(*name));
  }
  return NOERROR;
}

STATUS Database::flush_commits_lazily() {
  std::lock_guard lock(connection_->mutex);
  const int rc = connection_->exec("PRAGMA synchronous=NORMAL");
  return rc == SQLITE_OK ? NOERROR : status_from_sqlite(rc);
}

void Database::own_block(DHANDLE block) {
  std::lock_guard lock(blocks_mutex_);
  owned_blocks_.push_back(block);
}

STATUS Database::begin_transaction() {
  std::lock_guard lock(connection_->mutex);
  if (connection_->caller_transaction) return ERR_TRANSACTION_OPEN;
  const int rc = connection_->run("BEGIN IMMEDIATE");
  if (rc != SQLITE_OK) return status_from_sqlite(rc);
  connection_->caller_transaction = true;
  return NOERROR;
}

STATUS Database::commit_transaction() {
  std::lock_guard lock(connection_->mutex);
  if (!connection_->caller_transaction) return ERR_NO_TRANSACTION;
  const int rc = connection_->run("COMMIT");
  if (rc != SQLITE_OK) {
    // A commit that fails leaves nothing of the transaction behind.
    connection_->run("ROLLBACK");
    connection_->caller_transaction = false;
    return status_from_sqlite(rc);
  }
  connection_->caller_transaction = false;
  return NOERROR;
}

STATUS Database::rollback_transaction() {
  std::lock_guard lock(connection_->mutex);
  if (!connection_->caller_transaction) return ERR_NO_TRANSACTION;
  connection_->caller_transaction = false;
  const int rc = connection_->run("ROLLBACK");
  return rc == SQLITE_OK ? NOERROR : status_from_sqlite(rc);
}

Database::~Database() {
  // The connection goes back to the pool: a transaction left open ends here.
  if (connection_ && connection_->caller_transaction) {
    std::lock_guard lock(connection_->mutex);
    connection_->run("ROLLBACK");
    connection_->caller_transaction = false;
  }
  for (DHANDLE block : owned_blocks_) OSMemFree(block);
}

std::shared_ptr<Database> find_database(DBHANDLE handle) {
  return handles().find_as<Database>(handle, HandleKind::kDatabase);
}

DBHANDLE add_database_handle(std::shared_ptr<Database> database) {
  return handles().add(HandleKind::kDatabase, std::move(database));
}

}  // namespace tarnwick::rt::store
