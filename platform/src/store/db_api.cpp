// The database calls of nsfdb.h.
#include <cstring>

#include "acl.h"
#include "core/handle_table.h"
#include "core/memory.h"
#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "store/acl_api.h"
#include "core/api_guard.h"
#include "store/database.h"
#include "store/database_file.h"
#include "store/ids.h"
#include "store/paths.h"

using namespace tarnwick::rt;
using namespace tarnwick::rt::store;

namespace {

WORD class_for(const std::filesystem::path& file, WORD requested) {
  if (requested != DBCLASS_BY_EXTENSION) return requested;
  std::string extension = file.extension().string();
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return extension == ".ntf" ? DBCLASS_TEMPLATEFILE : DBCLASS_NOTEFILE;
}

void copy_path(const std::string& path, char* out) {
  if (out == nullptr) return;
  const size_t length = std::min(path.size(), static_cast<size_t>(MAXPATH - 1));
  std::memcpy(out, path.data(), length);
  out[length] = '\0';
}

}  // namespace

extern "C" {

STATUS LNPUBLIC NSFDbOpen(const char* PathName, DBHANDLE* rethDB) {
  return NSFDbOpenExtended(PathName, 0, NULLHANDLE, nullptr, rethDB, nullptr, nullptr);
}

STATUS LNPUBLIC NSFDbOpenExtended(const char* PathName, WORD /*Options*/, DHANDLE hNames,
                                  const TIMEDATE* /*ModifiedTime*/, DBHANDLE* rethDB, TIMEDATE* retDataModified,
                                  TIMEDATE* retNonDataModified) {
  return guarded([&]() -> STATUS {
    if (rethDB == nullptr) return ERR_BAD_PARAM;
    *rethDB = NULLHANDLE;
    std::filesystem::path file;
    if (STATUS error = resolve_database_path(PathName, &file)) return error;
    std::shared_ptr<Database> database;
    if (STATUS error = Database::open_file(file, PathName, &database)) return error;
    if (hNames != NULLHANDLE) {
      // The ACL decides what this handle may do; no access means no handle.
      std::vector<std::string> names = names_of(block_bytes(hNames));
      if (names.empty()) return ERR_BAD_PARAM;
      Acl acl;
      if (STATUS error = read_database_acl(*database, &acl)) return error;
      const Access access = lookup_access(acl, names);
      if (access.level == ACL_LEVEL_NOACCESS) return ERR_NOACCESS;
      database->access_level = access.level;
      database->access_flags = access.flags;
      std::memcpy(database->privileges, access.privileges.BitMask, sizeof(database->privileges));
      database->names = std::move(names);
    }
    if (retDataModified != nullptr || retNonDataModified != nullptr) {
      if (STATUS error = database->modified_times(retDataModified, retNonDataModified)) return error;
    }
    *rethDB = add_database_handle(std::move(database));
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFDbClose(DBHANDLE hDB) {
  if (hDB == NULLHANDLE) return NOERROR;
  return handles().remove(hDB, HandleKind::kDatabase) ? NOERROR : ERR_DB_NOT_OPEN;
}

STATUS LNPUBLIC NSFTransactionBegin(DBHANDLE hDB, DWORD flags) {
  return guarded([&]() -> STATUS {
    if (flags != 0) return ERR_BAD_PARAM;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    return database->begin_transaction();
  });
}

STATUS LNPUBLIC NSFTransactionCommit(DBHANDLE hDB, DWORD flags) {
  return guarded([&]() -> STATUS {
    if (flags != 0) return ERR_BAD_PARAM;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    return database->commit_transaction();
  });
}

STATUS LNPUBLIC NSFTransactionRollback(DBHANDLE hDB) {
  return guarded([&]() -> STATUS {
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    return database->rollback_transaction();
  });
}

STATUS LNPUBLIC NSFDbCreate(const char* PathName, WORD DbClass, BOOL ForceCreation) {
  return guarded([&]() -> STATUS {
    std::filesystem::path file;
    if (STATUS error = resolve_database_path(PathName, &file)) return error;
    CreateOptions options;
    options.db_class = class_for(file, DbClass);
    return create_database_file(file, options, ForceCreation != FALSE);
  });
}

STATUS LNPUBLIC NSFDbDelete(const char* PathName) {
  return guarded([&]() -> STATUS {
    std::filesystem::path file;
    if (STATUS error = resolve_database_path(PathName, &file)) return error;
    return delete_database_file(file);
  });
}

STATUS LNPUBLIC NSFDbGetBuildVersion(DBHANDLE hDB, WORD* retVersion) {
  return guarded([&]() -> STATUS {
    if (retVersion == nullptr) return ERR_BAD_PARAM;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    int64_t build = 0;
    if (STATUS error = database->meta_int("build_version", &build)) return error;
    *retVersion = static_cast<WORD>(build);
    return NOERROR;
  });
}

STATUS LNPUBLIC TarnwickDbSetBuildVersion(DBHANDLE hDB, WORD BuildVersion) {
  return guarded([&]() -> STATUS {
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    return database->put_meta_int("build_version", BuildVersion);
  });
}

STATUS LNPUBLIC NSFDbIDGet(DBHANDLE hDB, DBID* retDbID) {
  return guarded([&]() -> STATUS {
    if (retDbID == nullptr) return ERR_BAD_PARAM;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    int64_t id = 0;
    if (STATUS error = database->meta_int("database_id", &id)) return error;
    *retDbID = unpack_timedate(id);
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFDbReplicaInfoGet(DBHANDLE hDB, DBREPLICAINFO* retReplicationInfo) {
  return guarded([&]() -> STATUS {
    if (retReplicationInfo == nullptr) return ERR_BAD_PARAM;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    int64_t replica = 0;
    int64_t flags = 0;
    if (STATUS error = database->meta_int("replica_id", &replica)) return error;
    if (STATUS error = database->meta_int("replica_flags", &flags)) return error;
    std::memset(retReplicationInfo, 0, sizeof(*retReplicationInfo));
    retReplicationInfo->ID = unpack_timedate(replica);
    retReplicationInfo->Flags = static_cast<WORD>(flags);
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFDbReplicaInfoSet(DBHANDLE hDB, const DBREPLICAINFO* ReplicationInfo) {
  return guarded([&]() -> STATUS {
    if (ReplicationInfo == nullptr) return ERR_BAD_PARAM;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    if (database->access_level < ACL_LEVEL_MANAGER) return ERR_NOACCESS;
    if (STATUS error = database->put_meta_int("replica_id", pack_timedate(ReplicationInfo->ID))) return error;
    return database->put_meta_int("replica_flags", ReplicationInfo->Flags);
  });
}

STATUS LNPUBLIC NSFDbPathGet(DBHANDLE hDB, char* retCanonicalPathName, char* retExpandedPathName) {
  return guarded([&]() -> STATUS {
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    copy_path(database->api_path(), retCanonicalPathName);
    copy_path(database->file().string(), retExpandedPathName);
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFDbModifiedTime(DBHANDLE hDB, TIMEDATE* retDataModified, TIMEDATE* retNonDataModified) {
  return guarded([&]() -> STATUS {
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    return database->modified_times(retDataModified, retNonDataModified);
  });
}

}  // extern "C"
