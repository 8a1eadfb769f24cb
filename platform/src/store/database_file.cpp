// Database files: schema, creation, deletion and the connection pool (see
// database_file.h).
#include "store/database_file.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <system_error>
#include <unordered_map>
#include <vector>

#include "core/private_files.h"
#include "globerr.h"
#include "nsfdb.h"
#include "ostime.h"
#include "store/ids.h"

namespace tarnwick::rt::store {
namespace {

constexpr const char* kSchema = R"sql(
CREATE TABLE meta(key TEXT PRIMARY KEY, value) WITHOUT ROWID;
CREATE TABLE notes(
  note_id INTEGER PRIMARY KEY,
  note_class INTEGER NOT NULL,
  note_flags INTEGER NOT NULL DEFAULT 0,
  unid_file INTEGER NOT NULL,
  unid_note INTEGER NOT NULL,
  sequence INTEGER NOT NULL,
  sequence_time INTEGER NOT NULL,
  modified INTEGER NOT NULL,
  modified_moment INTEGER NOT NULL,
  added INTEGER NOT NULL,
  parent INTEGER NOT NULL DEFAULT 0,
  deleted INTEGER NOT NULL DEFAULT 0,
  profile_key TEXT,
  title TEXT,
  design_flags TEXT,
  items BLOB NOT NULL
);
CREATE UNIQUE INDEX notes_by_unid ON notes(unid_file, unid_note);
CREATE UNIQUE INDEX notes_by_profile ON notes(profile_key) WHERE profile_key IS NOT NULL;
CREATE INDEX notes_by_moment ON notes(modified_moment);
CREATE INDEX notes_by_class ON notes(note_class);
)sql";

STATUS status_from_errno(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return ERR_NOEXIST;
    case EEXIST:
      return ERR_EXISTS;
    case EACCES:
    case EPERM:
    case EROFS:
      return ERR_PROTECTED;
    case ENAMETOOLONG:
      return ERR_INV_FILE_NAME;
    case ENOMEM:
      return ERR_MEMORY;
    default:
      return ERR_UNKNOWN;
  }
}

std::string sidecar(const std::filesystem::path& path, const char* suffix) { return path.string() + suffix; }

void remove_sidecars(const std::filesystem::path& path) {
  ::unlink(sidecar(path, "-wal").c_str());
  ::unlink(sidecar(path, "-shm").c_str());
  ::unlink(sidecar(path, "-journal").c_str());
}

// Holds a folder's lock while databases in it are made, so that one
// creator's check, clean-up and link are one step for every other process.
class FolderLock {
 public:
  explicit FolderLock(const std::filesystem::path& directory)
      : fd_(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (fd_ >= 0) {
      while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
      }
    }
  }
  ~FolderLock() {
    if (fd_ >= 0) ::close(fd_);  // closing releases the lock
  }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int fd_;
};

void sync_directory(const std::filesystem::path& directory) {
  int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

// Settings every connection needs; the journal mode is stored in the file.
// A server keeps dozens of connections to files that grow for as long as it
// runs (the log, mail files with years of calendar entries), so each one
// keeps at most 64 KiB of clean pages; more come from the system's file
// cache. Changed pages stay until the commit (writing them to the log
// before it would write them twice) unless a write changes more than 4,096.
STATUS configure(Connection& connection) {
  sqlite3_busy_timeout(connection.raw(), 10000);
  if (int rc = connection.exec("PRAGMA synchronous=FULL; PRAGMA cache_size=-64; PRAGMA cache_spill=4096");
      rc != SQLITE_OK) {
    return status_from_sqlite(rc);
  }
  return NOERROR;
}

// Reads a one-value pragma; a non-database file fails here.
STATUS pragma_int(Connection& connection, const char* sql, int64_t* value) {
  Statement statement = connection.prepare(sql);
  int rc = statement.step();
  if (rc != SQLITE_ROW) return rc == SQLITE_DONE ? ERR_NOT_NSF : status_from_sqlite(rc);
  *value = statement.column_int(0);
  return NOERROR;
}

STATUS check_schema(Connection& connection) {
  int64_t application_id = 0;
  int64_t version = 0;
  if (STATUS error = pragma_int(connection, "PRAGMA application_id", &application_id)) return error;
  if (application_id != kApplicationId) return ERR_NOT_NSF;
  if (STATUS error = pragma_int(connection, "PRAGMA user_version", &version)) return error;
  if (version != kSchemaVersion) return ERR_NSF_VERSION;
  return NOERROR;
}

STATUS put_meta(Connection& connection, const char* key, int64_t value) {
  Statement statement = connection.prepare("INSERT OR REPLACE INTO meta(key, value) VALUES(?, ?)");
  statement.bind_text(1, key).bind(2, value);
  int rc = statement.step();
  return rc == SQLITE_DONE ? NOERROR : status_from_sqlite(rc);
}

STATUS write_schema(Connection& connection, const CreateOptions& options) {
  if (int rc = connection.exec("BEGIN"); rc != SQLITE_OK) return status_from_sqlite(rc);
  if (int rc = connection.exec(kSchema); rc != SQLITE_OK) return status_from_sqlite(rc);
  TIMEDATE created = unique_now();
  DBID replica = options.keep_replica_id ? options.replica_id : created;
  if (!options.keep_replica_id) {
    // Replica IDs are random so that two databases made in the same moment differ.
    const uint64_t bits = random64();
    replica.Innards[0] = static_cast<DWORD>(bits);
    replica.Innards[1] = static_cast<DWORD>(bits >> 32);
  }
  const WORD build = options.build_version != 0 ? options.build_version : TARNWICK_DB_BUILD_VERSION;
  if (STATUS error = put_meta(connection, "database_id", pack_timedate(created))) return error;
  if (STATUS error = put_meta(connection, "replica_id", pack_timedate(replica))) return error;
  if (STATUS error = put_meta(connection, "build_version", build)) return error;
  if (STATUS error = put_meta(connection, "db_class", options.db_class)) return error;
  char pragmas[128];
  std::snprintf(pragmas, sizeof(pragmas), "PRAGMA application_id=%d; PRAGMA user_version=%d", kApplicationId,
                kSchemaVersion);
  if (int rc = connection.exec(pragmas); rc != SQLITE_OK) return status_from_sqlite(rc);
  if (int rc = connection.exec("COMMIT"); rc != SQLITE_OK) return status_from_sqlite(rc);
  if (int rc = connection.exec("PRAGMA journal_mode=WAL"); rc != SQLITE_OK) return status_from_sqlite(rc);
  return NOERROR;
}

}  // namespace

size_t max_idle_connections() {
  static const size_t limit = [] {
    constexpr size_t kFewest = 64;
    constexpr size_t kMost = 1024;
    rlimit files{};
    if (::getrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur == RLIM_INFINITY) return kFewest;
    return std::clamp<size_t>(static_cast<size_t>(files.rlim_cur / 8), kFewest, kMost);
  }();
  return limit;
}

namespace {

class ConnectionPool {
 public:
  // A pooled connection for the file with this identity, or nullptr.
  std::unique_ptr<Connection> take(const std::string& path, dev_t device, ino_t inode) {
    std::vector<std::unique_ptr<Connection>> stale;
    std::unique_ptr<Connection> found;
    {
      std::lock_guard lock(mutex_);
      auto it = idle_.find(path);
      if (it == idle_.end()) return nullptr;
      auto& list = it->second;
      while (!list.empty() && !found) {
        std::unique_ptr<Connection> candidate = std::move(list.back().connection);
        list.pop_back();
        --idle_count_;
        if (candidate->device() == device && candidate->inode() == inode) {
          found = std::move(candidate);
        } else {
          stale.push_back(std::move(candidate));
        }
      }
      if (list.empty()) idle_.erase(it);
    }
    return found;  // stale connections close here, outside the lock
  }

  void give_back(std::unique_ptr<Connection> connection) {
    std::unique_ptr<Connection> evicted;
    {
      std::lock_guard lock(mutex_);
      idle_[connection->path()].push_back(Idle{std::move(connection), ++clock_});
      ++idle_count_;
      if (idle_count_ > max_idle_connections()) evicted = evict_oldest_locked();
    }
  }

  void forget(const std::string& path) {
    std::vector<Idle> dropped;
    {
      std::lock_guard lock(mutex_);
      auto it = idle_.find(path);
      if (it == idle_.end()) return;
      dropped = std::move(it->second);
      idle_count_ -= dropped.size();
      idle_.erase(it);
    }
  }

 private:
  struct Idle {
    std::unique_ptr<Connection> connection;
    uint64_t last_used;
  };

  std::unique_ptr<Connection> evict_oldest_locked() {
    auto oldest_list = idle_.end();
    size_t oldest_index = 0;
    uint64_t oldest = UINT64_MAX;
    for (auto it = idle_.begin(); it != idle_.end(); ++it) {
      for (size_t i = 0; i < it->second.size(); ++i) {
        if (it->second[i].last_used < oldest) {
          oldest = it->second[i].last_used;
          oldest_list = it;
          oldest_index = i;
        }
      }
    }
    if (oldest_list == idle_.end()) return nullptr;
    std::unique_ptr<Connection> evicted = std::move(oldest_list->second[oldest_index].connection);
    oldest_list->second.erase(oldest_list->second.begin() + static_cast<std::ptrdiff_t>(oldest_index));
    if (oldest_list->second.empty()) idle_.erase(oldest_list);
    --idle_count_;
    return evicted;
  }

  std::mutex mutex_;
  std::unordered_map<std::string, std::vector<Idle>> idle_;  // guarded by mutex_
  size_t idle_count_ = 0;                                    // guarded by mutex_
  uint64_t clock_ = 0;                                       // guarded by mutex_
};

std::atomic<ConnectionPool*> the_pool{nullptr};

// The child of a fork must not use (or close) the parent's connections: it
// abandons the pool it inherited and starts a new one.
void reset_pool_in_child() { the_pool.store(new ConnectionPool); }

ConnectionPool& pool() {
  static std::once_flag once;
  std::call_once(once, [] {
    the_pool.store(new ConnectionPool);  // never destroyed: handles may be closed during exit
    pthread_atfork(nullptr, nullptr, reset_pool_in_child);
  });
  return *the_pool.load();
}

}  // namespace

STATUS create_database_file(const std::filesystem::path& path, const CreateOptions& options, bool overwrite) {
  std::error_code ec;
  const std::filesystem::path directory = path.parent_path();
  if (!directory.empty()) std::filesystem::create_directories(directory, ec);
  if (ec) return status_from_errno(ec.value());
  struct stat existing {};
  if (!overwrite && ::stat(path.c_str(), &existing) == 0) return ERR_EXISTS;

  static std::atomic<unsigned> counter{0};
  std::string temporary_name = ".";
  temporary_name.append(path.filename().string());
  temporary_name.append(".new-");
  temporary_name.append(std::to_string(::getpid()));
  temporary_name.push_back('-');
  temporary_name.append(std::to_string(counter.fetch_add(1)));
  const std::filesystem::path temporary = directory / temporary_name;
  ::unlink(temporary.c_str());
  remove_sidecars(temporary);
  // Made empty with its final mode first: the database engine keeps the
  // mode of a file it finds and gives its journal files the same.
  int fd = open_private_file(temporary, O_RDWR | O_CREAT | O_EXCL);
  if (fd < 0) return status_from_errno(errno);
  ::close(fd);
  {
    std::unique_ptr<Connection> connection;
    if (STATUS error = Connection::open(temporary.string(), true, &connection)) return error;
    STATUS error = configure(*connection);
    if (!error) error = write_schema(*connection, options);
    if (error) {
      connection.reset();
      ::unlink(temporary.c_str());
      remove_sidecars(temporary);
      return error;
    }
  }  // closing the last connection checkpoints and removes the WAL files
  remove_sidecars(temporary);

  STATUS status = NOERROR;
  if (overwrite) {
    forget_pooled_connections(path);
    remove_sidecars(path);
    if (::rename(temporary.c_str(), path.c_str()) != 0) status = status_from_errno(errno);
  } else {
    // Creators in other processes may have won meanwhile and be writing
    // already: the journal files are only stale while the name is free.
    FolderLock lock(directory.empty() ? std::filesystem::path(".") : directory);
    struct stat winner {};
    if (::stat(path.c_str(), &winner) == 0) {
      status = ERR_EXISTS;
    } else {
      remove_sidecars(path);  // left over from a database deleted by hand
      if (::link(temporary.c_str(), path.c_str()) != 0) status = status_from_errno(errno);
    }
    ::unlink(temporary.c_str());
  }
  if (status) {
    ::unlink(temporary.c_str());
    return status;
  }
  sync_directory(directory.empty() ? std::filesystem::path(".") : directory);
  return NOERROR;
}

STATUS delete_database_file(const std::filesystem::path& path) {
  forget_pooled_connections(path);
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return status_from_errno(errno);
  if (S_ISDIR(st.st_mode)) return ERR_DIRECTORY;
  if (::unlink(path.c_str()) != 0) return status_from_errno(errno);
  remove_sidecars(path);
  return NOERROR;
}

STATUS acquire_connection(const std::filesystem::path& path, std::shared_ptr<Connection>* out) {
  out->reset();
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return status_from_errno(errno);
  if (S_ISDIR(st.st_mode)) return ERR_DIRECTORY;
  const std::string key = path.string();

  std::unique_ptr<Connection> connection = pool().take(key, st.st_dev, st.st_ino);
  if (!connection) {
    // Files made before databases were private are made private on first use.
    if (st.st_uid == ::geteuid() && (st.st_mode & 077) != 0) ::chmod(path.c_str(), kPrivateFileMode);
    if (STATUS error = Connection::open(key, false, &connection)) return error;
    if (STATUS error = configure(*connection)) return error;
    if (STATUS error = check_schema(*connection)) return error;
    connection->set_identity(st.st_dev, st.st_ino);
  }
  Connection* raw = connection.release();
  *out = std::shared_ptr<Connection>(raw, [](Connection* returned) {
    std::unique_ptr<Connection> owned(returned);
    // A connection left inside a transaction (a caller died mid-way) is not reused.
    if (sqlite3_get_autocommit(owned->raw()) == 0) return;
    pool().give_back(std::move(owned));
  });
  return NOERROR;
}

void forget_pooled_connections(const std::filesystem::path& path) { pool().forget(path.string()); }

}  // namespace tarnwick::rt::store
