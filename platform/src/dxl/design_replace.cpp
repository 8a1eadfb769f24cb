// DesignReplace (designreplace.h): the template's design notes replace the
// database's, in one transaction.
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "acl.h"
#include "designreplace.h"
#include "dxl/design_match.h"
#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "core/api_guard.h"
#include "store/database.h"
#include "store/ids.h"
#include "store/note.h"

using namespace tarnwick::rt;

namespace {

// The design classes a template hands on (the icon note, the design
// collection and the ACL stay with the database).
constexpr WORD kReplacedClasses =
    NOTE_CLASS_FORM | NOTE_CLASS_VIEW | NOTE_CLASS_FILTER | NOTE_CLASS_FIELD | NOTE_CLASS_INFO | NOTE_CLASS_HELP;

struct DesignNote {
  NOTEID id = 0;
  WORD note_class = 0;
  UNIVERSALNOTEID unid{};
  DWORD sequence = 0;
  dxl::DesignKind kind = dxl::DesignKind::kOther;
  std::vector<std::string> names;
  bool preserved = false;  // "$Flags" holds DESIGN_FLAG_PRESERVE
  bool matched = false;
};

bool same_unid(const UNIVERSALNOTEID& a, const UNIVERSALNOTEID& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

STATUS list_design(store::Database& database, std::vector<DesignNote>* out) {
  std::vector<DesignNote> notes;
  STATUS status = database.design_notes(kReplacedClasses, [&](NOTEID id, WORD note_class, std::string_view title,
                                                              std::string_view flags) {
    if (note_class & NOTE_CLASS_PRIVATE) return STATUS{NOERROR};  // private design belongs to its owner
    DesignNote note;
    note.id = id;
    note.note_class = note_class;
    note.kind = dxl::design_kind(note_class, flags);
    note.names = dxl::title_names(title);
    note.preserved = flags.find(DESIGN_FLAG_PRESERVE) != std::string_view::npos;
    notes.push_back(std::move(note));
    return STATUS{NOERROR};
  });
  if (status) return status;
  for (DesignNote& note : notes) {
    store::NoteRecord record;
    if (STATUS error = database.record_of(note.id, &record)) return error;
    note.unid = record.unid;
    note.sequence = record.sequence;
  }
  *out = std::move(notes);
  return NOERROR;
}

// The database note a template note replaces, or nullptr.
DesignNote* counterpart(const DesignNote& from_template, std::vector<DesignNote>& database_notes) {
  for (DesignNote& note : database_notes) {
    if (!note.matched && same_unid(note.unid, from_template.unid)) return &note;
  }
  const WORD single_instance = from_template.note_class & (NOTE_CLASS_INFO | NOTE_CLASS_HELP);
  for (DesignNote& note : database_notes) {
    if (note.matched) continue;
    if (single_instance != 0 && (note.note_class & single_instance) != 0) return &note;
    if (note.kind == from_template.kind && from_template.kind != dxl::DesignKind::kOther &&
        dxl::names_overlap(note.names, from_template.names)) {
      return &note;
    }
  }
  return nullptr;
}

// The database's information string with the "inherit from" field set to
// the template's name; nullopt when the template has none.
STATUS inherited_info(store::Database& template_db, store::Database& database, std::optional<std::string>* out) {
  std::string template_info, info;
  if (STATUS error = template_db.meta_bytes("info", &template_info)) return error;
  if (STATUS error = database.meta_bytes("info", &info)) return error;
  char name[NSF_INFO_SIZE] = {};
  NSFDbInfoParse(template_info.c_str(), INFOPARSE_CLASS, name, sizeof(name) - 1);
  if (name[0] == '\0') return NOERROR;
  char buffer[NSF_INFO_SIZE] = {};
  std::memcpy(buffer, info.data(), std::min(info.size(), sizeof(buffer) - 1));
  NSFDbInfoModify(buffer, INFOPARSE_DESIGN_CLASS, name);
  *out = std::string(buffer);
  return NOERROR;
}

STATUS replace_design(store::Database& template_db, store::Database& database, DWORD flags, DWORD options,
                      ABORTCHECKPROC abort_check) {
  if (database.access_level < ACL_LEVEL_DESIGNER) return ERR_NOACCESS;
  std::vector<DesignNote> template_notes, database_notes;
  if (STATUS error = list_design(template_db, &template_notes)) return error;
  if (STATUS error = list_design(database, &database_notes)) return error;
  const bool force = (flags & DESIGNREPLACE_FORCE) != 0;

  std::vector<std::unique_ptr<store::Note>> notes;
  store::Database::Batch batch;
  for (const DesignNote& source : template_notes) {
    DesignNote* target = counterpart(source, database_notes);
    if (target != nullptr) {
      target->matched = true;
      if (target->preserved && !force) continue;
    }
    auto note = std::make_unique<store::Note>();
    if (STATUS error = template_db.read_note(source.id, 0, note.get())) return error;
    note->id = 0;
    note->stored = false;
    note->stored_sequence = 0;
    note->oid.Sequence = 0;
    note->added = TIMEDATE{};
    if (target != nullptr) {
      note->id = target->id;
      note->stored = true;
      note->stored_sequence = target->sequence;
      note->oid.File = target->unid.File;
      note->oid.Note = target->unid.Note;
    } else {
      // A new design note keeps the template's UNID unless the database
      // already uses it for something else.
      NOTEID clash = 0;
      if (database.note_id_of(source.unid, &clash) == NOERROR) {
        store::NoteRecord record;
        if (database.record_of(clash, &record) == NOERROR && !record.deleted) {
          const UNIVERSALNOTEID fresh = store::new_unid();
          note->oid.File = fresh.File;
          note->oid.Note = fresh.Note;
        }
      }
    }
    batch.writes.push_back(note.get());
    notes.push_back(std::move(note));
  }
  for (const DesignNote& note : database_notes) {
    if (!note.matched && !(note.preserved && !force)) batch.deletions.push_back(note.id);
  }

  // The icon note records which template the design came from.
  NOTEID icon_id = 0;
  STATUS status = database.special_note_id(NOTE_CLASS_ICON, &icon_id);
  auto icon = std::make_unique<store::Note>();
  if (status == NOERROR) {
    if (STATUS error = database.read_note(icon_id, 0, icon.get())) return error;
  } else if (status == ERR_SPECIAL_ID) {
    icon->note_class = NOTE_CLASS_ICON;
    const UNIVERSALNOTEID unid = store::new_unid();
    icon->oid.File = unid.File;
    icon->oid.Note = unid.Note;
  } else {
    return status;
  }
  icon->set_text("$TemplateFileName", template_db.file().filename().string());
  batch.writes.push_back(icon.get());

  if (options & DESIGNREPLACE_INHERIT) {
    std::optional<std::string> info;
    if (STATUS error = inherited_info(template_db, database, &info)) return error;
    if (info) batch.meta.emplace_back("info", *info);
  }
  if (abort_check != nullptr) {
    if (STATUS stop = abort_check()) return stop;
  }
  return database.write_batch(batch, UPDATE_FORCE);
}

}  // namespace

extern "C" STATUS LNPUBLIC DesignReplace(DBHANDLE hTemplateDB, DBHANDLE hDestDB, DWORD dwFlags, DWORD dwOptions,
                                         ABORTCHECKPROC AbortCheck) {
  return guarded([&]() -> STATUS {
    auto template_db = store::find_database(hTemplateDB);
    auto database = store::find_database(hDestDB);
    if (!template_db || !database) return ERR_DB_NOT_OPEN;
    if (template_db->file() == database->file()) return ERR_BAD_PARAM;
    return replace_design(*template_db, *database, dwFlags, dwOptions, AbortCheck);
  });
}
