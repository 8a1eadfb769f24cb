// The open database behind a DBHANDLE, and the runtime's C++ access to the
// notes of a database for other modules.
//
//   auto db = tarnwick::rt::store::find_database(hDB);      // DBHANDLE -> Database
//   db->scan(NOTE_CLASS_DOCUMENT, nullptr, ScanOptions{}, [](const NoteRecord& r, std::string_view items) {
//     std::vector<Item> decoded; decode_items(items, false, &decoded); ... return NOERROR; });
//   Note note; db->read_note(id, 0, &note);                  // a full in-memory copy
//
// A Database owns one SQLite connection (from the pool, database_file.h) for
// its lifetime; notes opened from it hold a shared_ptr to it, so the
// connection outlives NSFDbClose until the last such note is closed. All
// members are thread-safe: each call holds the connection's mutex while it
// talks to SQLite, and never while it runs a caller's callback.
//
// The access fields say what the handle may do: without a names list the
// handle has the server's own (manager) access; NSFDbOpenExtended with a
// names list sets them from the ACL.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "global.h"
#include "store/note.h"
#include "store/sqlite.h"

namespace tarnwick::rt::store {

// One stored note without its items. Profile notes carry NOTE_FLAG_GHOST in
// `flags`: searches and views leave them out.
struct NoteRecord {
  NOTEID id = 0;
  WORD note_class = 0;
  WORD flags = 0;
  UNIVERSALNOTEID unid{};
  DWORD sequence = 0;
  TIMEDATE sequence_time{};
  TIMEDATE modified{};
  TIMEDATE added{};
  NOTEID parent = 0;
  bool deleted = false;
};

struct ScanOptions {
  const TIMEDATE* since = nullptr;  // only notes modified after this moment
  bool include_deleted = false;     // deletion stubs too
  bool with_items = false;          // pass the items blob (else empty)
};

// Callback of Database::scan: a non-zero status stops the scan and is
// returned by it. `items` is the stored blob (item_codec.h).
using ScanFunction = std::function<STATUS(const NoteRecord& record, std::string_view items)>;

// Callback of Database::design_notes: `title` is the $TITLE text (list
// entries joined with '|'), `flags` the $Flags text.
using DesignFunction =
    std::function<STATUS(NOTEID id, WORD note_class, std::string_view title, std::string_view flags)>;

class Database {
 public:
  // Opens the database file (see acquire_connection for the errors).
  static STATUS open_file(const std::filesystem::path& file, std::string api_path, std::shared_ptr<Database>* out);

  const std::filesystem::path& file() const { return file_; }
  const std::string& api_path() const { return api_path_; }

  // Fills `note` with the stored note: ERR_INVALID_NOTE when there is none,
  // ERR_NOTE_DELETED for a deletion stub. open_flags: OPEN_SUMMARY,
  // OPEN_EXPAND. Does not set note->db / db_handle.
  STATUS read_note(NOTEID id, DWORD open_flags, Note* note);
  // ERR_NOT_FOUND when no note has the UNID.
  STATUS note_id_of(const UNIVERSALNOTEID& unid, NOTEID* id);
  STATUS record_of(NOTEID id, NoteRecord* record);
  // The profile note with the given key (see profile_key_of), or ERR_NOT_FOUND.
  STATUS profile_note_id(std::string_view key, NOTEID* id);
  // Fills `note` with that profile note as read_note does; ERR_NOT_FOUND
  // when there is none.
  STATUS read_profile_note(std::string_view key, DWORD open_flags, Note* note);

  // Stores the note in one transaction (see NSFNoteUpdate) and updates its
  // header (note ID, sequence, times) when that succeeds.
  STATUS write_note(Note& note, DWORD update_flags);
  // Stores a new profile note unless one with that key exists; either way
  // *id names the stored one.
  STATUS insert_profile_if_missing(Note& note, std::string_view key, NOTEID* id);
  // Replaces the note by a deletion stub.
  STATUS delete_note(NOTEID id, WORD update_flags);

  // Changes stored together in one transaction: all of them or none (used
  // by imports and design replacement, which must not leave half a design).
  struct Batch {
    std::vector<Note*> writes;       // stored as by write_note, in order
    std::vector<NOTEID> deletions;   // replaced by deletion stubs (before the writes)
    std::vector<std::pair<std::string, std::string>> meta;  // meta table entries to set
  };
  // On success every written note's header is updated as by write_note.
  STATUS write_batch(Batch& batch, DWORD update_flags);

  // The special note of a class (icon, about, using, design collection,
  // default form or view): ERR_SPECIAL_ID when there is none.
  STATUS special_note_id(WORD note_class, NOTEID* id);

  // Notes whose class has a bit of class_mask, in note ID order.
  STATUS scan(WORD class_mask, const ScanOptions& options, const ScanFunction& function);
  // Live non-data notes of the classes in class_mask with their titles.
  STATUS design_notes(WORD class_mask, const DesignFunction& function);

  // Database properties kept in the meta table.
  STATUS meta_int(const char* key, int64_t* value);
  STATUS meta_bytes(const char* key, std::string* value);  // empty when absent
  STATUS put_meta_int(const char* key, int64_t value);
  STATUS put_meta_bytes(const char* key, std::string_view value);

  // Latest modification moments of data notes and of the other notes.
  STATUS modified_times(TIMEDATE* data, TIMEDATE* non_data);

  // Profile notes: (note ID, $Name) pairs in note ID order.
  STATUS profile_notes(std::vector<std::pair<NOTEID, std::string>>* out);

  // A caller's transaction over every write through this database object
  // (NSFTransactionBegin): it takes the file's write lock at once, so that
  // writers of one file follow each other, and stores all writes made until
  // commit_transaction together (rollback_transaction, or the database
  // object going away, drops them). ERR_TRANSACTION_OPEN when one is open
  // already, ERR_NO_TRANSACTION for a commit or rollback without one. After
  // a rollback, notes written meanwhile carry sequences that were never
  // stored: their next update is refused as a conflict.
  STATUS begin_transaction();
  STATUS commit_transaction();
  STATUS rollback_transaction();

  // Commits through this database's connection are no longer flushed to
  // disk one by one, only at WAL checkpoints. A process that dies keeps
  // them (they are in the operating system's cache); a machine that loses
  // power may lose the last ones; the file stays consistent either way. For
  // data whose last moments may be lost, like the server log. The setting
  // stays with the connection, which the pool hands only to this file.
  STATUS flush_commits_lazily();

  // Keeps a memory block handed out on behalf of this database until the
  // database object goes away (NSFProfileGetField values).
  void own_block(DHANDLE block);
  ~Database();

  // Access of this handle (ACL levels, acl.h). Set once at open.
  WORD access_level = 6;  // ACL_LEVEL_MANAGER
  WORD access_flags = 0;
  BYTE privileges[10] = {};
  std::vector<std::string> names;  // the names list (user first); empty: the server itself

 private:
  Database(std::filesystem::path file, std::string api_path, std::shared_ptr<Connection> connection)
      : file_(std::move(file)), api_path_(std::move(api_path)), connection_(std::move(connection)) {}

  // The note of the first row of `select` (columns as for read_note, its
  // parameters set by `bind`); `none` when there is no row.
  STATUS read_note_where(const char* select, const std::function<void(Statement&)>& bind, STATUS none,
                         DWORD open_flags, Note* note);
  STATUS write_note_locked(Note& note, DWORD update_flags, const TIMEDATE& now, NOTEID* id, DWORD* sequence);
  // A modification time later than every one stored (see database.cpp).
  STATUS stamp_locked(TIMEDATE* now);

  std::filesystem::path file_;
  std::string api_path_;
  std::shared_ptr<Connection> connection_;
  std::mutex blocks_mutex_;
  std::vector<DHANDLE> owned_blocks_;  // guarded by blocks_mutex_
};

// The profile key stored for a note whose "$Name" is a profile name
// ("$profile_NNNname_user"), or empty. Keys compare as stored (lower case).
std::string profile_key_of(const Note& note);
std::string profile_key(std::string_view profile_name, std::string_view user_name);
// The "$Name" text of a profile note.
std::string profile_name_item(std::string_view profile_name, std::string_view user_name);
// Splits a "$Name" text into profile name (lower case) and user name;
// false when it is not a profile name.
bool parse_profile_name_item(std::string_view text, std::string* profile_name, std::string* user_name);

std::shared_ptr<Database> find_database(DBHANDLE handle);
DBHANDLE add_database_handle(std::shared_ptr<Database> database);

}  // namespace tarnwick::rt::store
