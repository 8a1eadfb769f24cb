#include "env/environment.h"

#include <pthread.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <shared_mutex>
#include <sstream>
#include <vector>

#include "core/api_guard.h"
#include "globerr.h"
#include "osenv.h"

namespace tarnwick::rt {
namespace {

bool equal_no_case(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
  }
  return true;
}

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
  return s;
}

// The key of a KEY=VALUE line, or empty for any other line.
std::string_view key_of(std::string_view line) {
  size_t eq = line.find('=');
  if (eq == std::string_view::npos) return {};
  std::string_view key = trim(line.substr(0, eq));
  if (key.empty() || key.front() == ';' || key.front() == '#' || key.front() == '[') return {};
  return key;
}

}  // namespace

std::optional<std::string> find_in(const EnvironmentLines& lines, std::string_view name) {
  name = trim(name);
  for (const auto& line : lines) {
    std::string_view key = key_of(line);
    if (!key.empty() && equal_no_case(key, name)) {
      return std::string(trim(std::string_view(line).substr(line.find('=') + 1)));
    }
  }
  return std::nullopt;
}

namespace {

struct FileStamp {
  timespec mtime{};
  off_t size = -1;
  ino_t inode = 0;
  bool operator==(const FileStamp& o) const {
    return mtime.tv_sec == o.mtime.tv_sec && mtime.tv_nsec == o.mtime.tv_nsec && size == o.size && inode == o.inode;
  }
};

std::optional<FileStamp> stamp_of(const std::filesystem::path& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return std::nullopt;
  return FileStamp{st.st_mtim, st.st_size, st.st_ino};
}

// Learns of changes to notes.ini without looking at the file on every read:
// inotify watches, read without blocking, on the file itself (its content
// and times) and on its folder (names coming and going: a new file renamed
// into its place). Other files of the folder (databases being written) make
// no events. The kernel queues an event while the other process's write or
// rename runs, so it is there before anything that process does afterwards
// (a message put on a queue) can be seen here. Where no watch can be made (a
// missing folder, notes.ini a link to elsewhere, inotify unavailable) every
// read looks at the file.
class IniWatch {
 public:
  IniWatch() = default;
  ~IniWatch() { close(); }
  IniWatch(const IniWatch&) = delete;
  IniWatch& operator=(const IniWatch&) = delete;

  void start(const std::filesystem::path& file) {
    close();
    file_ = file;
    file_name_ = file.filename().string();
    struct stat st {};
    if (::lstat(file.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) return;  // its content changes elsewhere
    fd_ = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (fd_ < 0) return;
    constexpr uint32_t kFolderMask =
        IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
    folder_watch_ = ::inotify_add_watch(fd_, file.parent_path().c_str(), kFolderMask);
    if (folder_watch_ < 0) close();
  }

  bool active() const { return fd_ >= 0; }

  // Whether events wait to be read; takes none of them, so that several
  // threads may ask at once (true when it cannot tell).
  bool pending() const {
    int waiting = 0;
    return ::ioctl(fd_, FIONREAD, &waiting) != 0 || waiting > 0;
  }

  // Called before the file is read: the watch follows the file now under
  // the name, so that a change made to it while it is read leaves an event.
  void follow_file() {
    if (fd_ < 0) return;
    constexpr uint32_t kFileMask = IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;
    const int watch = ::inotify_add_watch(fd_, file_.c_str(), kFileMask | IN_DONT_FOLLOW);
    if (file_watch_ >= 0 && file_watch_ != watch) ::inotify_rm_watch(fd_, file_watch_);
    file_watch_ = watch;
  }

  // Whether the file may have changed since the last call. Ends the watch
  // when its folder went away (later reads then look at the file).
  bool changed() {
    bool changed = false;
    alignas(inotify_event) char events[4096];
    for (;;) {
      ssize_t n = ::read(fd_, events, sizeof events);
      if (n <= 0) break;
      for (ssize_t at = 0; at < n;) {
        const auto* event = reinterpret_cast<const inotify_event*>(events + at);
        if (event->wd == folder_watch_) {
          if ((event->mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF)) != 0) lost_ = true;
          if (lost_ || (event->len > 0 && file_name_ == event->name)) changed = true;
        } else {
          changed = true;  // the file itself, or a queue overflow
          if (event->wd == file_watch_ && (event->mask & IN_IGNORED) != 0) file_watch_ = -1;
        }
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
    if (lost_) close();
    return changed;
  }

 private:
  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = folder_watch_ = file_watch_ = -1;
    lost_ = false;
  }

  int fd_ = -1;
  int folder_watch_ = -1;
  int file_watch_ = -1;
  bool lost_ = false;
  std::filesystem::path file_;
  std::string file_name_;
};

// Set in a child made by fork(): its copy of the watch descriptor is shared
// with the parent, which would take its events.
std::atomic<bool> g_forked{false};

class Environment {
 public:
  Environment() {
    ::pthread_atfork(nullptr, nullptr, [] { g_forked.store(true); });
  }

  STATUS load(const std::filesystem::path& path) {
    std::unique_lock lock(mutex_);
    path_ = std::filesystem::absolute(path).lexically_normal();
    loaded_ = true;
    watch_.start(path_);
    return read_file_locked() ? NOERROR : ERR_NOEXIST;
  }

  std::filesystem::path path() {
    {
      std::shared_lock lock(mutex_);
      if (loaded_) return path_;
    }
    std::unique_lock lock(mutex_);
    ensure_loaded_locked();
    return path_;
  }

  std::optional<std::string> get(std::string_view name) { return find_in(*snapshot(), name); }

  // Readers that find no change waiting share the lock. Changes are taken
  // from the watch and the file read again only under the exclusive lock,
  // so no reader can miss a change another thread has taken but not yet
  // read.
  std::shared_ptr<const EnvironmentLines> snapshot() {
    {
      std::shared_lock lock(mutex_);
      if (current_locked()) return lines_;
    }
    std::unique_lock lock(mutex_);
    ensure_loaded_locked();
    refresh_locked();
    return lines_;
  }

  bool set(std::string_view name, std::string_view value) {
    std::unique_lock lock(mutex_);
    ensure_loaded_locked();
    refresh_locked();
    std::string new_line = std::string(trim(name)) + "=" + std::string(value);
    bool replaced = false;
    auto lines = std::make_shared<EnvironmentLines>(*lines_);  // snapshots handed out stay as they are
    for (auto& line : *lines) {
      std::string_view key = key_of(line);
      if (!key.empty() && equal_no_case(key, trim(name))) {
        line = new_line;
        replaced = true;
        break;
      }
    }
    if (!replaced) lines->push_back(new_line);
    lines_ = std::move(lines);
    directory_.reset();
    if (path_.empty()) return false;
    return write_file_locked();
  }

  std::filesystem::path data_directory() {
    {
      std::shared_lock lock(mutex_);
      if (current_locked() && !path_.empty() && directory_) return *directory_;
    }
    std::unique_lock lock(mutex_);
    ensure_loaded_locked();
    refresh_locked();
    if (path_.empty()) return data_directory_locked();  // follows the current directory
    if (!directory_) directory_ = data_directory_locked();
    return *directory_;
  }

 private:
  // Without NotesInitExtended (tools, tests), fall back to NOTES_INI or ./notes.ini.
  void ensure_loaded_locked() {
    if (loaded_) return;
    loaded_ = true;
    const char* from_env = std::getenv("NOTES_INI");
    std::filesystem::path candidate = (from_env && *from_env) ? from_env : "notes.ini";
    if (std::filesystem::exists(candidate)) {
      path_ = std::filesystem::absolute(candidate).lexically_normal();
      watch_.start(path_);
      read_file_locked();
    }
  }

  // notes.ini's "Directory" (relative to the folder of notes.ini), else that folder.
  std::filesystem::path data_directory_locked() const {
    auto directory = find_in(*lines_, "Directory");
    std::filesystem::path base = path_.empty() ? std::filesystem::current_path() : path_.parent_path();
    if (!directory || directory->empty()) return base;
    std::filesystem::path dir(*directory);
    return (dir.is_absolute() ? dir : base / dir).lexically_normal();
  }

  // Whether lines_ is up to date without a look at the file (shared lock).
  bool current_locked() const {
    if (!loaded_ || g_forked.load(std::memory_order_relaxed)) return false;
    if (path_.empty()) return true;
    return watch_.active() && !watch_.pending();
  }

  void refresh_locked() {
    if (path_.empty()) return;
    if (g_forked.load(std::memory_order_relaxed) && g_forked.exchange(false)) {
      watch_.start(path_);
      read_file_locked();
      return;
    }
    if (watch_.active()) {
      // Events are taken before the file is read, so a change made while
      // it is read leaves an event for the next call.
      if (watch_.changed()) read_file_locked();
      return;
    }
    auto now = stamp_of(path_);
    if (now && (!stamp_ || !(*now == *stamp_))) read_file_locked();
  }

  bool read_file_locked() {
    directory_.reset();
    watch_.follow_file();
    auto lines = std::make_shared<EnvironmentLines>();
    std::ifstream in(path_);
    if (!in) {
      lines_ = std::move(lines);
      stamp_.reset();
      return false;
    }
    stamp_ = stamp_of(path_);
    std::string line;
    while (std::getline(in, line)) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      lines->push_back(line);
    }
    lines_ = std::move(lines);
    return true;
  }

  bool write_file_locked() {
    std::filesystem::path temp = path_;
    temp += ".tmp." + std::to_string(::getpid());
    {
      std::ofstream out(temp, std::ios::trunc);
      if (!out) return false;
      for (const auto& line : *lines_) out << line << '\n';
      out.flush();
      if (!out) return false;
    }
    std::error_code ec;
    std::filesystem::rename(temp, path_, ec);
    if (ec) {
      std::filesystem::remove(temp, ec);
      return false;
    }
    stamp_ = stamp_of(path_);
    return true;
  }

  std::shared_mutex mutex_;
  bool loaded_ = false;
  std::filesystem::path path_;           // guarded by mutex_
  std::shared_ptr<const EnvironmentLines> lines_ = std::make_shared<EnvironmentLines>();  // guarded by mutex_
  std::optional<FileStamp> stamp_;       // guarded by mutex_: the file as last read or written
  IniWatch watch_;                    // guarded by mutex_
  std::optional<std::filesystem::path> directory_;  // guarded by mutex_: the data directory of lines_
};

Environment& environment() {
  static Environment* env = new Environment;  // never destroyed: used until the last thread ends
  return *env;
}

}  // namespace

STATUS load_environment(const std::filesystem::path& path) { return environment().load(path); }
std::filesystem::path ini_path() { return environment().path(); }
std::filesystem::path data_directory() { return environment().data_directory(); }

std::filesystem::path resolve_data_path(std::string_view api_path) {
  return resolve_data_path(api_path, data_directory());
}

std::filesystem::path resolve_data_path(std::string_view api_path, const std::filesystem::path& data_directory) {
  std::string normalised(api_path);
  for (char& c : normalised) {
    if (c == '\\') c = '/';
  }
  std::filesystem::path path(normalised);
  if (path.is_absolute()) return path.lexically_normal();
  return (data_directory / path).lexically_normal();
}

std::optional<std::string> get_environment(std::string_view name) { return environment().get(name); }

EnvironmentSnapshot::EnvironmentSnapshot() : lines_(environment().snapshot()) {}

std::optional<std::string> EnvironmentSnapshot::get(std::string_view name) const { return find_in(*lines_, name); }
bool set_environment(std::string_view name, std::string_view value) { return environment().set(name, value); }

}  // namespace tarnwick::rt

using namespace tarnwick::rt;

extern "C" {

STATUS LNPUBLIC NotesInitExtended(int argc, char** argv) {
  return guarded([&]() -> STATUS {
    for (int i = 1; i < argc && argv != nullptr; ++i) {
      if (argv[i] != nullptr && argv[i][0] == '=' && argv[i][1] != '\0') return load_environment(argv[i] + 1);
    }
    const char* from_env = std::getenv("NOTES_INI");
    return load_environment((from_env && *from_env) ? from_env : "notes.ini");
  });
}

void LNPUBLIC NotesTerm(void) {}
STATUS LNPUBLIC NotesInitThread(void) { return NOERROR; }
void LNPUBLIC NotesTermThread(void) {}

BOOL LNPUBLIC OSGetEnvironmentString(const char* VariableName, char* retValueBuffer, WORD BufferLength) {
  if (VariableName == nullptr) return FALSE;
  return guarded_value<BOOL>(FALSE, [&]() -> BOOL {
    auto value = get_environment(VariableName);
    if (retValueBuffer != nullptr) {
      size_t length = value ? std::min<size_t>(value->size(), BufferLength) : 0;
      if (value) std::memcpy(retValueBuffer, value->data(), length);
      retValueBuffer[length] = '\0';
    }
    return value ? TRUE : FALSE;
  });
}

long LNPUBLIC OSGetEnvironmentLong(const char* VariableName) {
  if (VariableName == nullptr) return 0;
  return guarded_value<long>(0, [&]() -> long {
    auto value = get_environment(VariableName);
    return value ? std::strtol(value->c_str(), nullptr, 10) : 0;
  });
}

void LNPUBLIC OSSetEnvironmentVariable(const char* VariableName, const char* Value) {
  if (VariableName == nullptr || *VariableName == '\0') return;
  guarded_void([&] {
    set_environment(VariableName, Value ? Value : "");
  });
}

void LNPUBLIC OSSetEnvironmentInt(const char* VariableName, int Value) {
  OSSetEnvironmentVariable(VariableName, std::to_string(Value).c_str());
}

WORD LNPUBLIC OSGetDataDirectory(char* retPath) {
  if (retPath == nullptr) return 0;
  retPath[0] = '\0';
  return guarded_value<WORD>(0, [&]() -> WORD {
    std::string dir = data_directory().string();
    while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
    size_t length = std::min<size_t>(dir.size(), MAXPATH - 1);
    std::memcpy(retPath, dir.data(), length);
    retPath[length] = '\0';
    return static_cast<WORD>(length);
  });
}

}  // extern "C"

extern "C" {

STATUS LNPUBLIC OSSetEnvironmentVariableChecked(const char* VariableName, const char* Value) {
  if (VariableName == nullptr || *VariableName == '\0') return ERR_BAD_PARAM;
  return guarded([&]() -> STATUS {
    return set_environment(VariableName, Value ? Value : "") ? NOERROR : ERR_ACCESS;
  });
}

WORD LNPUBLIC OSGetNotesIniPath(char* retPath) {
  if (retPath == nullptr) return 0;
  retPath[0] = '\0';
  return guarded_value<WORD>(0, [&]() -> WORD {
    const std::string path = ini_path().string();
    if (path.size() >= MAXPATH) return 0;
    std::memcpy(retPath, path.c_str(), path.size() + 1);
    return static_cast<WORD>(path.size());
  });
}

}  // extern "C"
