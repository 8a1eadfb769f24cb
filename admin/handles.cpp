#include "handles.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "failure.h"
#include "globerr.h"
#include "lmbcs_text.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearch.h"
#include "osmem.h"
#include "textlist.h"

namespace tarnwick::admin {

Database Database::open(const std::string& path) {
  DBHANDLE handle = NULLHANDLE;
  const STATUS status = NSFDbOpen(to_lmbcs(path).c_str(), &handle);
  check(status, "cannot open " + path);
  return Database(handle, path);
}

Database Database::create(const std::string& path) {
  check(NSFDbCreate(to_lmbcs(path).c_str(), DBCLASS_BY_EXTENSION, FALSE), "cannot create " + path);
  return open(path);
}

Database::Database(Database&& other) noexcept : handle_(other.handle_), path_(std::move(other.path_)) {
  other.handle_ = NULLHANDLE;
}

Database& Database::operator=(Database&& other) noexcept {
  if (this != &other) {
    NSFDbClose(handle_);
    handle_ = other.handle_;
    path_ = std::move(other.path_);
    other.handle_ = NULLHANDLE;
  }
  return *this;
}

Database::~Database() { NSFDbClose(handle_); }

std::string Database::title() const {
  char info[NSF_INFO_SIZE] = {};
  check(NSFDbInfoGet(handle_, info), "cannot read the title of " + path_);
  char title[NSF_INFO_SIZE] = {};
  NSFDbInfoParse(info, INFOPARSE_TITLE, title, sizeof title - 1);
  return to_utf8(title);
}

void Database::set_title(const std::string& title) {
  char info[NSF_INFO_SIZE] = {};
  check(NSFDbInfoGet(handle_, info), "cannot read the title of " + path_);
  NSFDbInfoModify(info, INFOPARSE_TITLE, to_lmbcs(title).c_str());
  check(NSFDbInfoSet(handle_, info), "cannot set the title of " + path_);
}

namespace {

STATUS LNCALLBACK collect_note_id(void* param, SEARCH_MATCH* match, ITEM_TABLE*) {
  SEARCH_MATCH copy;
  std::memcpy(&copy, match, sizeof copy);
  if (copy.SERetFlags & SE_FMATCH) static_cast<std::vector<NOTEID>*>(param)->push_back(copy.ID.NoteID);
  return NOERROR;
}

bool equal_ignoring_case(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
  }
  return true;
}

}  // namespace

std::vector<NOTEID> Database::note_ids(WORD class_mask) const {
  std::vector<NOTEID> ids;
  check(NSFSearch(handle_, NULLHANDLE, nullptr, 0, class_mask, nullptr, collect_note_id, &ids, nullptr),
        "cannot list the notes of " + path_);
  return ids;
}

void Database::for_each_document(const std::string& form, const std::function<bool(Note&)>& fn) const {
  for (NOTEID id : note_ids(NOTE_CLASS_DOCUMENT)) {
    Note note = Note::open(*this, id);
    if (!equal_ignoring_case(note.text("Form"), form)) continue;
    if (!fn(note)) return;
  }
}

Note Note::create(const Database& db) {
  NOTEHANDLE handle = NULLHANDLE;
  check(NSFNoteCreate(db.handle(), &handle), "cannot create a note in " + db.path());
  return Note(handle);
}

Note Note::open(const Database& db, NOTEID id) {
  NOTEHANDLE handle = NULLHANDLE;
  char hex[16];
  std::snprintf(hex, sizeof hex, "0x%X", static_cast<unsigned>(id));
  check(NSFNoteOpen(db.handle(), id, 0, &handle), std::string("cannot open note ") + hex + " of " + db.path());
  return Note(handle);
}

Note Note::open_by_unid(const Database& db, const UNID& unid) {
  NOTEHANDLE handle = NULLHANDLE;
  check(NSFNoteOpenByUNID(db.handle(), &unid, 0, &handle), "cannot open note " + unid_text(unid) + " of " + db.path());
  return Note(handle);
}

Note::Note(Note&& other) noexcept : handle_(other.handle_) { other.handle_ = NULLHANDLE; }

Note& Note::operator=(Note&& other) noexcept {
  if (this != &other) {
    NSFNoteClose(handle_);
    handle_ = other.handle_;
    other.handle_ = NULLHANDLE;
  }
  return *this;
}

Note::~Note() { NSFNoteClose(handle_); }

NOTEID Note::id() const {
  NOTEID id = 0;
  NSFNoteGetInfo(handle_, _NOTE_ID, &id);
  return id;
}

OID Note::oid() const {
  OID oid{};
  NSFNoteGetInfo(handle_, _NOTE_OID, &oid);
  return oid;
}

WORD Note::note_class() const {
  WORD note_class = 0;
  NSFNoteGetInfo(handle_, _NOTE_CLASS, &note_class);
  return note_class;
}

bool Note::has(const std::string& item) const {
  const std::string name = to_lmbcs(item);
  return NSFItemIsPresent(handle_, name.c_str(), static_cast<WORD>(name.size())) != FALSE;
}

std::string Note::text(const std::string& item) const {
  std::string joined;
  for (const std::string& entry : text_list(item)) {
    if (!joined.empty()) joined += "; ";
    joined += entry;
  }
  return joined;
}

std::vector<std::string> Note::text_list(const std::string& item) const {
  const std::string name = to_lmbcs(item);
  std::vector<std::string> entries;
  WORD type = 0;
  BLOCKID value = NULLBLOCKID_INIT;
  DWORD length = 0;
  if (NSFItemInfo(handle_, name.c_str(), static_cast<WORD>(name.size()), nullptr, &type, &value, &length) != NOERROR) {
    return entries;
  }
  const char* bytes = OSLockBlock(const char, value) + sizeof(WORD);
  const DWORD size = length - sizeof(WORD);
  if (type == TYPE_TEXT) {
    entries.push_back(to_utf8(std::string_view(bytes, size)));
  } else if (type == TYPE_TEXT_LIST) {
    const WORD count = ListGetNumEntries(bytes, FALSE);
    for (WORD i = 0; i < count; ++i) {
      char* entry = nullptr;
      WORD entry_length = 0;
      if (ListGetText(bytes, FALSE, i, &entry, &entry_length) == NOERROR) {
        entries.push_back(to_utf8(std::string_view(entry, entry_length)));
      }
    }
  }
  OSUnlockBlock(value);
  return entries;
}

void Note::set_text(const std::string& item, const std::string& utf8) {
  const std::string value = to_lmbcs(utf8);
  check(NSFItemSetText(handle_, to_lmbcs(item).c_str(), value.data(), static_cast<WORD>(value.size())),
        "cannot set item " + item);
}

void Note::set_text_list(const std::string& item, const std::vector<std::string>& utf8_entries) {
  const std::string name = to_lmbcs(item);
  if (has(item)) remove(item);
  if (utf8_entries.empty()) {
    // An empty list: a list header with no entries.
    LIST empty{0};
    check(NSFItemAppend(handle_, ITEM_SUMMARY, name.c_str(), static_cast<WORD>(name.size()), TYPE_TEXT_LIST, &empty,
                        sizeof empty),
          "cannot set item " + item);
    return;
  }
  for (const std::string& entry : utf8_entries) {
    const std::string value = to_lmbcs(entry);
    check(NSFItemAppendTextList(handle_, name.c_str(), value.data(), static_cast<WORD>(value.size()), TRUE),
          "cannot set item " + item);
  }
}

void Note::set_number(const std::string& item, double value) {
  check(NSFItemSetNumber(handle_, to_lmbcs(item).c_str(), &value), "cannot set item " + item);
}

void Note::set_time(const std::string& item, const TIMEDATE& value) {
  check(NSFItemSetTime(handle_, to_lmbcs(item).c_str(), &value), "cannot set item " + item);
}

void Note::remove(const std::string& item) {
  const std::string name = to_lmbcs(item);
  const STATUS status = NSFItemDelete(handle_, name.c_str(), static_cast<WORD>(name.size()));
  if (ERR(status) != ERR_ITEM_NOT_FOUND) check(status, "cannot delete item " + item);
}

void Note::update() { check(NSFNoteUpdate(handle_, 0), "cannot save the note"); }

std::string unid_text(const UNID& unid) {
  char text[33];
  std::snprintf(text, sizeof text, "%08X%08X%08X%08X", static_cast<unsigned>(unid.File.Innards[1]),
                static_cast<unsigned>(unid.File.Innards[0]), static_cast<unsigned>(unid.Note.Innards[1]),
                static_cast<unsigned>(unid.Note.Innards[0]));
  return text;
}

std::optional<UNID> parse_unid(const std::string& text) {
  if (text.size() != 32) return std::nullopt;
  DWORD words[4];
  for (int i = 0; i < 4; ++i) {
    DWORD word = 0;
    for (int j = 0; j < 8; ++j) {
      const char c = text[static_cast<size_t>(i * 8 + j)];
      if (!std::isxdigit(static_cast<unsigned char>(c))) return std::nullopt;
      word = word * 16 + static_cast<DWORD>(std::isdigit(static_cast<unsigned char>(c)) ? c - '0'
                                                                                          : std::tolower(c) - 'a' + 10);
    }
    words[i] = word;
  }
  UNID unid{};
  unid.File.Innards[1] = words[0];
  unid.File.Innards[0] = words[1];
  unid.Note.Innards[1] = words[2];
  unid.Note.Innards[0] = words[3];
  return unid;
}

}  // namespace tarnwick::admin
