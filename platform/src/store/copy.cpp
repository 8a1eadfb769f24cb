// NSFDbCreateAndCopy: a new database holding the information string, ACL
// and chosen notes of another.
#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "core/api_guard.h"
#include "store/database.h"
#include "store/database_file.h"
#include "store/paths.h"

using namespace tarnwick::rt;
using namespace tarnwick::rt::store;

namespace {

WORD class_by_extension(const std::filesystem::path& file) {
  std::string extension = file.extension().string();
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return extension == ".ntf" ? DBCLASS_TEMPLATEFILE : DBCLASS_NOTEFILE;
}

STATUS copy_notes(Database& source, Database& target, WORD note_class) {
  return source.scan(note_class, ScanOptions{nullptr, false, true}, [&](const NoteRecord& record, std::string_view blob) {
    if (record.flags & NOTE_FLAG_GHOST) return STATUS{NOERROR};  // profiles stay behind
    Note note;
    if (STATUS error = decode_items(blob, false, &note.items)) return error;
    note.number_items();
    note.note_class = record.note_class;
    note.flags = record.flags;
    note.oid = ORIGINATORID{record.unid.File, record.unid.Note, 0, record.sequence_time};
    note.parent = record.parent;
    return target.write_note(note, 0);
  });
}

}  // namespace

extern "C" {

STATUS LNPUBLIC NSFDbCreateAndCopy(const char* srcDb, const char* dstDb, WORD NoteClass, WORD /*limit*/, DWORD flags,
                                   DBHANDLE* rethDstDb) {
  return guarded([&]() -> STATUS {
    if (rethDstDb != nullptr) *rethDstDb = NULLHANDLE;
    std::filesystem::path source_file;
    std::filesystem::path target_file;
    if (STATUS error = resolve_database_path(srcDb, &source_file)) return error;
    if (STATUS error = resolve_database_path(dstDb, &target_file)) return error;
    std::shared_ptr<Database> source;
    if (STATUS error = Database::open_file(source_file, srcDb, &source)) return error;

    CreateOptions options;
    options.db_class = class_by_extension(target_file);
    if (flags & DBCOPY_REPLICA) {
      int64_t replica = 0;
      if (STATUS error = source->meta_int("replica_id", &replica)) return error;
      options.keep_replica_id = true;
      options.replica_id = DBID{{static_cast<DWORD>(replica), static_cast<DWORD>(static_cast<uint64_t>(replica) >> 32)}};
    }
    if (STATUS error = create_database_file(target_file, options, (flags & DBCOPY_OVERRIDE_DEST) != 0)) return error;
    std::shared_ptr<Database> target;
    STATUS status = Database::open_file(target_file, dstDb, &target);
    for (const char* key : {"info", "acl"}) {
      std::string value;
      if (!status) status = source->meta_bytes(key, &value);
      if (!status && !value.empty()) status = target->put_meta_bytes(key, value);
    }
    if (!status) status = copy_notes(*source, *target, NoteClass);
    if (status) {
      target.reset();
      delete_database_file(target_file);  // no half-copied database is left behind
      return status;
    }
    if (rethDstDb != nullptr) *rethDstDb = add_database_handle(std::move(target));
    return NOERROR;
  });
}

}  // extern "C"
