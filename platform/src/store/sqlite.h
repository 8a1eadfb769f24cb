// Thin RAII layer over the SQLite C API for the store: a connection that owns
// its cached prepared statements, and a statement wrapper that resets itself.
//
// A Connection is not thread-safe: whoever uses it holds its mutex (the
// store's Database does). SQLite is opened in multi-thread mode, so different
// connections may be used by different threads at the same time.
//
// Every SQLite result code is turned into a STATUS in one place,
// status_from_sqlite().
#pragma once

#include <sqlite3.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "global.h"

namespace tarnwick::rt::store {

// The STATUS for a failed SQLite call: a file that is not a database (or is
// damaged) is ERR_NOT_NSF; a lock that outlived the busy timeout ERR_LOCK; a
// full disk or I/O failure ERR_PROTECTED / ERR_UNKNOWN.
STATUS status_from_sqlite(int rc);

// A prepared statement borrowed from a Connection's cache. Resets and clears
// its bindings when it goes out of scope so the next user starts clean.
class Statement {
 public:
  // A null stmt stands for a statement that failed to prepare with
  // prepare_rc; step() then returns that code.
  explicit Statement(sqlite3_stmt* stmt, int prepare_rc = SQLITE_OK) : stmt_(stmt), prepare_rc_(prepare_rc) {}
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  Statement(Statement&& other) noexcept : stmt_(other.stmt_), prepare_rc_(other.prepare_rc_) {
    other.stmt_ = nullptr;
  }
  ~Statement();

  Statement& bind(int index, int64_t value);
  Statement& bind_text(int index, std::string_view value);
  Statement& bind_blob(int index, std::string_view value);
  Statement& bind_null(int index);

  // SQLITE_ROW, SQLITE_DONE or an error code.
  int step();

  int64_t column_int(int index) const;
  bool column_is_null(int index) const;
  // Bytes of a text or blob column; valid until the next step or reset.
  std::string_view column_bytes(int index) const;

 private:
  sqlite3_stmt* stmt_;
  int prepare_rc_;
};

class Connection {
 public:
  // Opens an existing file (create = false) or a new one. On failure returns
  // a STATUS and leaves *out empty.
  static STATUS open(const std::string& path, bool create, std::unique_ptr<Connection>* out);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // The statement for `sql`, prepared once per connection. `sql` must be a
  // string literal (its address is the cache key).
  Statement prepare(const char* sql);
  // Runs SQL without results (schema, pragmas).
  int exec(const char* sql);
  // Runs one statement without results through the statement cache (`sql`
  // a string literal, as for prepare): for the transaction control of every
  // write, which would otherwise be parsed anew each time. SQLITE_OK when it
  // ran.
  int run(const char* sql);

  sqlite3* raw() const { return db_; }
  const std::string& path() const { return path_; }
  // Identity of the file the connection was opened on; a pooled connection
  // whose path now names another file is stale.
  dev_t device() const { return device_; }
  ino_t inode() const { return inode_; }
  void set_identity(dev_t device, ino_t inode) {
    device_ = device;
    inode_ = inode;
  }

  // Guards every use of the connection and its statements.
  std::mutex mutex;
  // A caller's transaction (NSFTransactionBegin) is open on the connection:
  // WriteTransactions then nest in it as savepoints, and nothing reaches
  // the file before the caller commits. Guarded by mutex.
  bool caller_transaction = false;

 private:
  Connection(sqlite3* db, std::string path) : db_(db), path_(std::move(path)) {}
  sqlite3* db_;
  std::string path_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  std::unordered_map<const char*, sqlite3_stmt*> statements_;
};

// A read transaction over several statements of the caller (who holds the
// connection's mutex): they see one state of the file, and the file's read
// lock is taken once rather than once per statement. Inside a transaction
// already open on the connection it does nothing. Declare it before the
// statements, so that they are reset before it ends.
class ReadTransaction {
 public:
  explicit ReadTransaction(Connection& connection);
  ~ReadTransaction();
  ReadTransaction(const ReadTransaction&) = delete;
  ReadTransaction& operator=(const ReadTransaction&) = delete;

 private:
  Connection& connection_;
  bool open_ = false;
};

// A write transaction (BEGIN IMMEDIATE) that rolls back unless committed.
// Inside a caller's transaction it is a savepoint instead: a failed write
// is undone whole and the rest of the caller's transaction goes on.
class WriteTransaction {
 public:
  explicit WriteTransaction(Connection& connection) : connection_(connection) {}
  ~WriteTransaction();
  WriteTransaction(const WriteTransaction&) = delete;
  WriteTransaction& operator=(const WriteTransaction&) = delete;

  STATUS begin();
  // Commits; the commit is synced to disk before this returns (inside a
  // caller's transaction: when the caller commits).
  STATUS commit();

 private:
  Connection& connection_;
  bool open_ = false;
  bool nested_ = false;
};

}  // namespace tarnwick::rt::store
