// Database files: the SQLite schema of one database, creating and deleting
// files, and the pool of open connections that makes NSFDbOpen cheap.
//
// Schema (version kSchemaVersion, in PRAGMA user_version; the file is marked
// with kApplicationId in PRAGMA application_id):
//   meta(key, value)        replica ID, database ID, build version, class,
//                           info string, ACL
//   notes(note_id, ...)     one row per note: class, flags, UNID, sequence,
//                           sequence time, modified time (raw and as a sortable
//                           moment), added time, deletion mark, profile key,
//                           design title and flags, and the items blob
//                           (item_codec.h)
// Files are in WAL mode with synchronous=FULL: a commit is on disk when it
// returns (unless a database asks for lazy flushing, Database::
// flush_commits_lazily), and a process killed at any moment leaves each
// transaction wholly there or wholly absent.
//
// Pool: opening a SQLite connection costs far more than a query on an open
// one, and closing the last connection of a file checkpoints and removes its
// WAL (so that the next commit grows a new one, a costly sync). Connections
// of closed database handles are therefore kept (up to
// max_idle_connections() in the process) and handed to the next open of the
// same file. A pooled connection is used only if the path still names the
// same file (device and inode). The pool is thread-safe; after fork() the
// child starts with an empty pool (connections must not cross a fork).
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "global.h"
#include "store/sqlite.h"

namespace tarnwick::rt::store {

constexpr int kSchemaVersion = 1;
constexpr int kApplicationId = 0x54574E4B;  // "TWNK"

// How many idle connections the pool keeps: an eighth of the files the
// process may have open (a connection in WAL mode keeps three: database,
// WAL and shared memory), at least 64 and at most 1024, so that a request
// that reads a hundred mail files finds them all pooled.
size_t max_idle_connections();

struct CreateOptions {
  WORD db_class = 0;        // DBCLASS_NOTEFILE or DBCLASS_TEMPLATEFILE
  WORD build_version = 0;   // 0: the runtime's own
  bool keep_replica_id = false;
  DBID replica_id{};        // used when keep_replica_id
};

// Creates the file with an empty schema. Without `overwrite` an existing
// file gives ERR_EXISTS. The file appears whole or not at all.
STATUS create_database_file(const std::filesystem::path& path, const CreateOptions& options, bool overwrite);

// Removes the file and its WAL files; ERR_NOEXIST when it is missing.
STATUS delete_database_file(const std::filesystem::path& path);

// A connection to an existing database file, from the pool or newly opened
// and checked: ERR_NOEXIST for a missing file, ERR_NOT_NSF for a file that is
// not one of our databases (or is damaged). The connection goes back to the
// pool when the last shared_ptr to it is dropped.
STATUS acquire_connection(const std::filesystem::path& path, std::shared_ptr<Connection>* out);

// Drops the pooled connections of a file (before it is deleted or replaced).
void forget_pooled_connections(const std::filesystem::path& path);

}  // namespace tarnwick::rt::store
