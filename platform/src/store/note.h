// The in-memory note behind a NOTEHANDLE, and the runtime's C++ access to
// notes for other modules (formulas, views, directory lookups, DXL import,
// the log writer, the admin tool).
//
// Typical use from another module:
//
//   auto note = tarnwick::rt::store::find_note(hNote);     // NOTEHANDLE -> Note
//   if (!note) return ERR_BAD_PARAM;
//   std::lock_guard lock(note->mutex);                     // one caller at a time
//   auto subject = note->text("Subject");                  // optional<string>
//   note->set_text("Status", "done");
//   for (const auto& item : note->items) { ... }           // in order, duplicates kept
//
// To walk the notes of a database without opening each one, see
// Database::scan (database.h); to open one, Database::read_note fills a Note.
//
// Invariants:
//  - items are in note order; item ids are unique within the note and grow
//    along the vector (an appended item gets a larger id than every other),
//    so "the item after id N" is well defined even after N was deleted;
//  - an item with value_block != 0 has handed its value out as a memory block
//    [type word][value]; that block is the item's value from then on (a write
//    into it changes the item), and the note frees it when the item is
//    replaced or deleted or the note is closed;
//  - stored_sequence is the sequence of the stored note this copy came from
//    (or last wrote); NSFNoteUpdate compares it with the stored one.
//
// Thread safety: a Note is guarded by its mutex; every C API call holds it
// for the duration of the call. Callers of the C++ API lock it themselves.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "global.h"
#include "nsfdata.h"
#include "nsfnote.h"
#include "store/item_codec.h"

namespace tarnwick::rt::store {

class Database;

// Item names compare without regard to ASCII case.
bool names_equal(std::string_view a, std::string_view b);

// The entries of a TEXT or TEXT_LIST value (a TEXT value is one entry).
// Malformed lists give the entries that are whole.
std::vector<std::string_view> text_entries(WORD type, std::string_view value);
// A TEXT_LIST value (without type word) holding the entries.
std::string make_text_list(const std::vector<std::string_view>& entries);

// The simple form of a one-entry list value (TEXT_LIST -> TEXT,
// NUMBER_RANGE -> NUMBER, TIME_RANGE -> TIME); false when the value has no
// simpler form. What NSFNoteContract does to each item.
bool contract_value(WORD* type, std::string* value);

class Note {
 public:
  Note() = default;
  Note(const Note&) = delete;
  Note& operator=(const Note&) = delete;
  ~Note();

  // Header
  std::shared_ptr<Database> db;  // the database the note belongs to
  DBHANDLE db_handle = NULLHANDLE;
  NOTEID id = 0;  // 0 until first stored
  WORD note_class = NOTE_CLASS_DOCUMENT;
  WORD flags = 0;
  ORIGINATORID oid{};
  TIMEDATE modified{};
  TIMEDATE added{};
  TIMEDATE accessed{};
  NOTEID parent = 0;
  bool stored = false;  // read from or written to the database
  DWORD stored_sequence = 0;

  std::vector<Item> items;
  std::mutex mutex;

  // Item lookup (first item of that name, without case).
  Item* find(std::string_view name);
  const Item* find(std::string_view name) const;
  Item* find_by_id(WORD item_id);
  bool has(std::string_view name) const { return find(name) != nullptr; }

  // The value bytes of an item (from its value block when it has one).
  std::string_view value_of(const Item& item) const;

  // Adds an item at the end.
  Item& append(std::string_view name, WORD item_flags, WORD type, std::string value);
  // Replaces every item of that name by one item, kept at the position of
  // the first (or appended when there was none).
  Item& replace(std::string_view name, WORD item_flags, WORD type, std::string value);
  // Removes every item of that name; returns how many.
  size_t remove_all(std::string_view name);
  bool remove_by_id(WORD item_id);

  // Typed reads. text() gives a TEXT value or the entries of a TEXT_LIST
  // joined with `list_separator`.
  std::optional<std::string> text(std::string_view name, char list_separator = '\0') const;
  std::vector<std::string> text_list(std::string_view name) const;
  std::optional<NUMBER> number(std::string_view name) const;
  std::optional<TIMEDATE> time(std::string_view name) const;

  // Typed writes (replace every item of that name; summary by default).
  void set_text(std::string_view name, std::string_view value, WORD item_flags = ITEM_SUMMARY);
  void set_text_list(std::string_view name, const std::vector<std::string_view>& entries,
                     WORD item_flags = ITEM_SUMMARY);
  void set_number(std::string_view name, NUMBER value, WORD item_flags = ITEM_SUMMARY);
  void set_time(std::string_view name, const TIMEDATE& value, WORD item_flags = ITEM_SUMMARY);

  // The memory block [type word][value] of an item, made on first request.
  STATUS value_block(Item& item, DHANDLE* block);
  // Copies values written through value blocks back into the items.
  void sync_value_blocks();
  // The note frees this block when it closes (NSFItemAppendByBLOCKID).
  void adopt_block(DHANDLE block) { adopted_blocks_.push_back(block); }

  // OPEN_EXPAND / NSFNoteContract conversions of all items.
  void expand_items();
  void contract_items();

  // Total size the summary items take in a summary buffer.
  size_t summary_size() const;

  // Renumbers items 1..n (used after loading).
  void number_items();

 private:
  void release_block(Item& item);
  WORD next_item_id_ = 1;
  std::vector<DHANDLE> adopted_blocks_;
};

// The note behind a handle, or nullptr.
std::shared_ptr<Note> find_note(NOTEHANDLE handle);
// Registers a note and returns its new handle.
NOTEHANDLE add_note_handle(std::shared_ptr<Note> note);

}  // namespace tarnwick::rt::store
