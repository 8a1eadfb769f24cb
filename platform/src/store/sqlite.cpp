// SQLite wrappers of the store (see sqlite.h).
#include "store/sqlite.h"

#include <memory>
#include <mutex>

#include "globerr.h"

namespace tarnwick::rt::store {

STATUS status_from_sqlite(int rc) {
  switch (rc & 0xFF) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
      return NOERROR;
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
    case SQLITE_FORMAT:
      return ERR_NOT_NSF;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return ERR_LOCK;
    case SQLITE_NOMEM:
      return ERR_MEMORY;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_FULL:
      return ERR_PROTECTED;
    case SQLITE_CANTOPEN:
      return ERR_NOEXIST;
    case SQLITE_CONSTRAINT:
      return ERR_CONFLICT;
    case SQLITE_TOOBIG:
      return ERR_SEGMENT_TOO_BIG;
    default:
      return ERR_UNKNOWN;
  }
}

Statement::~Statement() {
  if (stmt_ != nullptr) {
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
  }
}

Statement& Statement::bind(int index, int64_t value) {
  sqlite3_bind_int64(stmt_, index, value);
  return *this;
}

Statement& Statement::bind_text(int index, std::string_view value) {
  sqlite3_bind_text(stmt_, index, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
  return *this;
}

Statement& Statement::bind_blob(int index, std::string_view value) {
  // A zero-length blob must still be a blob, not NULL.
  sqlite3_bind_blob(stmt_, index, value.empty() ? "" : value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
  return *this;
}

Statement& Statement::bind_null(int index) {
  sqlite3_bind_null(stmt_, index);
  return *this;
}

int Statement::step() {
  if (stmt_ == nullptr) return prepare_rc_ == SQLITE_OK ? SQLITE_MISUSE : prepare_rc_;
  return sqlite3_step(stmt_);
}

int64_t Statement::column_int(int index) const { return sqlite3_column_int64(stmt_, index); }

bool Statement::column_is_null(int index) const { return sqlite3_column_type(stmt_, index) == SQLITE_NULL; }

std::string_view Statement::column_bytes(int index) const {
  const void* data = sqlite3_column_blob(stmt_, index);
  int size = sqlite3_column_bytes(stmt_, index);
  if (data == nullptr || size <= 0) return {};
  return {static_cast<const char*>(data), static_cast<size_t>(size)};
}

namespace {

// SQLite's memory accounting takes one process-wide lock on every
// allocation of every thread, which request threads working on different
// databases would otherwise wait on. Without it there is no process-wide
// limit on page caches: each connection bounds its own instead (see
// configure() in database_file.cpp), and the pool bounds the connections.
void configure_engine() {
  static std::once_flag once;
  // Refused only once the engine has started, which the first connection
  // does: then the accounting stays on, and only costs time.
  std::call_once(once, [] { (void)sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0); });
}

}  // namespace

STATUS Connection::open(const std::string& path, bool create, std::unique_ptr<Connection>* out) {
  out->reset();
  configure_engine();
  sqlite3* db = nullptr;
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (create ? SQLITE_OPEN_CREATE : 0);
  int rc = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
  if (rc != SQLITE_OK) {
    STATUS status = status_from_sqlite(rc);
    sqlite3_close_v2(db);
    return status;
  }
  sqlite3_extended_result_codes(db, 1);
  out->reset(new Connection(db, path));
  return NOERROR;
}

Connection::~Connection() {
  for (auto& [sql, stmt] : statements_) sqlite3_finalize(stmt);
  sqlite3_close_v2(db_);
}

Statement Connection::prepare(const char* sql) {
  auto found = statements_.find(sql);
  if (found != statements_.end()) return Statement(found->second);
  sqlite3_stmt* stmt = nullptr;
  int rc = sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, &stmt, nullptr);
  if (rc != SQLITE_OK) {
    sqlite3_finalize(stmt);
    return Statement(nullptr, rc);
  }
  statements_.emplace(sql, stmt);
  return Statement(stmt);
}

int Connection::exec(const char* sql) { return sqlite3_exec(db_, sql, nullptr, nullptr, nullptr); }

int Connection::run(const char* sql) {
  Statement statement = prepare(sql);
  const int rc = statement.step();
  return rc == SQLITE_DONE || rc == SQLITE_ROW ? SQLITE_OK : rc;
}

ReadTransaction::ReadTransaction(Connection& connection) : connection_(connection) {
  open_ = sqlite3_get_autocommit(connection_.raw()) != 0 && connection_.run("BEGIN") == SQLITE_OK;
}

// A failed statement may have ended the transaction already; one that is
// still open after its COMMIT failed is rolled back, never left to hold the
// read lock.
ReadTransaction::~ReadTransaction() {
  if (!open_ || sqlite3_get_autocommit(connection_.raw()) != 0) return;
  if (connection_.run("COMMIT") != SQLITE_OK && sqlite3_get_autocommit(connection_.raw()) == 0) {
    connection_.run("ROLLBACK");
  }
}

WriteTransaction::~WriteTransaction() {
  if (!open_) return;
  if (nested_) {
    connection_.run("ROLLBACK TO note_write");
    connection_.run("RELEASE note_write");
  } else {
    connection_.run("ROLLBACK");
  }
}

STATUS WriteTransaction::begin() {
  nested_ = connection_.caller_transaction;
  int rc = connection_.run(nested_ ? "SAVEPOINT note_write" : "BEGIN IMMEDIATE");
  if (rc != SQLITE_OK) return status_from_sqlite(rc);
  open_ = true;
  return NOERROR;
}

STATUS WriteTransaction::commit() {
  int rc = connection_.run(nested_ ? "RELEASE note_write" : "COMMIT");
  if (rc != SQLITE_OK) return status_from_sqlite(rc);
  open_ = false;
  return NOERROR;
}

}  // namespace tarnwick::rt::store
