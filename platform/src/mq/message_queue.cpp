#include "mq/message_queue.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <unordered_map>
#include <vector>

#include "globerr.h"
#include "core/fork_generation.h"
#include "core/private_files.h"
#include "mq.h"
#include "mq/liveness_lock.h"
#include "mq/shared_state.h"
#include "mq/whole_file_lock.h"

namespace tarnwick::rt {
namespace fs = std::filesystem;

namespace {

constexpr size_t kMaxKeyLength = 200;
// The quota is counted exactly again after this many puts of one handle.
constexpr size_t kPutsBetweenCounts = 1024;

// Calls `visit(name)` for every committed message file of a folder.
template <class Visit>
bool for_each_message(const fs::path& folder, Visit visit) {
  DIR* dir = ::opendir(folder.c_str());
  if (dir == nullptr) return false;
  while (dirent* entry = ::readdir(dir)) {
    if (entry->d_name[0] == '.') continue;  // ".", ".." and messages being written
    visit(entry->d_name);
  }
  ::closedir(dir);
  return true;
}

bool write_all(int fd, const char* bytes, size_t length) {
  while (length > 0) {
    ssize_t n = ::write(fd, bytes, length);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes += n;
    length -= static_cast<size_t>(n);
  }
  return true;
}

// Reads the whole (small, regular) file into `out`, at most `limit` bytes.
// A regular file reads short only at its end, so one read usually does.
ssize_t read_up_to(int fd, char* out, size_t limit) {
  size_t total = 0;
  while (total < limit) {
    ssize_t n = ::read(fd, out + total, limit - total);
    if (n < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    total += static_cast<size_t>(n);
    if (static_cast<size_t>(n) < limit - (total - static_cast<size_t>(n))) break;
  }
  return static_cast<ssize_t>(total);
}

// A short message travels in its file's name, after kInlineMark: putting it
// is one file creation and taking it one removal, with nothing to write or
// read. Bytes outside a safe set are written as %XX. A message whose name
// would pass the file system's name limit goes into the file instead.
constexpr char kInlineMark = '=';
constexpr size_t kMaxNameLength = 255;

bool is_plain_name_byte(unsigned char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
         byte == '.' || byte == '_' || byte == '-' || byte == ',' || byte == ':' || byte == '@' || byte == '+';
}

// Appends the message's bytes to the file name `name` as an inline message;
// false (and `name` unusable) when the name would be too long.
bool append_inline(std::string& name, const char* bytes, size_t length) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  name += kInlineMark;
  for (size_t i = 0; i < length; ++i) {
    const unsigned char byte = static_cast<unsigned char>(bytes[i]);
    if (is_plain_name_byte(byte)) {
      name += static_cast<char>(byte);
    } else {
      name += '%';
      name += kHex[byte >> 4];
      name += kHex[byte & 0x0F];
    }
    if (name.size() > kMaxNameLength) return false;
  }
  return true;
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The message carried by an inline message's name (the text after the mark),
// at most `limit` bytes of it copied to `out`; its whole length, or -1 when
// the text is not one this queue writes.
ssize_t decode_inline(const char* text, char* out, size_t limit) {
  size_t length = 0;
  for (const char* at = text; *at != '\0'; ++at) {
    unsigned char byte = static_cast<unsigned char>(*at);
    if (byte == '%') {
      const int high = hex_digit(at[1]);
      const int low = high < 0 ? -1 : hex_digit(at[2]);
      if (low < 0) return -1;
      byte = static_cast<unsigned char>(high * 16 + low);
      at += 2;
    }
    if (length < limit) out[length] = static_cast<char>(byte);
    ++length;
  }
  return static_cast<ssize_t>(length);
}

uint64_t monotonic_nanoseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000ull + static_cast<uint64_t>(now.tv_nsec);
}

// One inotify instance per thread, kept for the thread's life (closing an
// instance waits for the kernel to retire its watches, which takes
// milliseconds), with watches on msgs/ and the queue folder of the queue the
// thread last waited on. The watches stay between waits, so a thread that
// waits on the same queue again (a task's request loop, a client's reply
// queue) only takes the events queued meanwhile. Events stay per thread:
// no thread takes another's wake-up.
class ThreadWatch {
 public:
  ThreadWatch() = default;
  ~ThreadWatch() { close(); }
  ThreadWatch(const ThreadWatch&) = delete;
  ThreadWatch& operator=(const ThreadWatch&) = delete;

  // The calling thread's instance. A child made by fork() gets its own: an
  // inherited one is shared with the parent, which would take its events.
  static ThreadWatch& current() {
    thread_local ThreadWatch instance;
    if (instance.generation_ != fork_generation()) {
      instance.forget_inherited();
      instance.generation_ = fork_generation();
    }
    return instance;
  }

  // Watches `queue_dir` (instead of any other) and takes the events queued
  // so far. False when no watch can be made.
  bool watch(const fs::path& queue_dir, const fs::path& messages) {
    if (fd_ < 0) fd_ = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (fd_ < 0) return false;
    drain();  // also notices watches the kernel dropped with their folder
    if (messages_watch_ >= 0 && queue_watch_ >= 0 && watched_ == queue_dir.native()) return true;
    remove_watches();
    watched_ = queue_dir.native();
    messages_watch_ = ::inotify_add_watch(fd_, messages.c_str(), IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF);
    queue_watch_ = ::inotify_add_watch(fd_, queue_dir.c_str(), IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF);
    if (messages_watch_ < 0 || queue_watch_ < 0) {
      remove_watches();
      return false;
    }
    return true;
  }

  // Whether the queue folder may have gained a quit flag since note_no_quit().
  bool quit_possible() const { return !no_quit_; }
  // The quit flag was looked for, after the watch was made, and is absent.
  void note_no_quit() { no_quit_ = true; }

  // Waits at most `nanoseconds` (forever when negative) for an event.
  void wait(long long nanoseconds) {
    pollfd pfd{fd_, POLLIN, 0};
    timespec limit{};
    if (nanoseconds >= 0) {
      limit.tv_sec = static_cast<time_t>(nanoseconds / 1000000000);
      limit.tv_nsec = static_cast<long>(nanoseconds % 1000000000);
    }
    if (::ppoll(&pfd, 1, nanoseconds >= 0 ? &limit : nullptr, nullptr) > 0) drain();
  }

 private:
  void drain() {
    alignas(inotify_event) char events[4096];
    for (;;) {
      ssize_t n = ::read(fd_, events, sizeof events);
      if (n <= 0) break;
      for (ssize_t at = 0; at < n;) {
        const auto* event = reinterpret_cast<const inotify_event*>(events + at);
        if (event->wd != messages_watch_ || (event->mask & IN_Q_OVERFLOW) != 0) no_quit_ = false;
        if ((event->mask & IN_IGNORED) != 0) {  // a folder went away, and its watch with it
          if (event->wd == messages_watch_) messages_watch_ = -1;
          if (event->wd == queue_watch_) queue_watch_ = -1;
        }
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
  }

  void remove_watches() {
    if (messages_watch_ >= 0) ::inotify_rm_watch(fd_, messages_watch_);
    if (queue_watch_ >= 0) ::inotify_rm_watch(fd_, queue_watch_);
    messages_watch_ = queue_watch_ = -1;
    watched_.clear();
    no_quit_ = false;
  }

  void forget_inherited() {
    if (fd_ >= 0) ::close(fd_);  // the parent's instance stays open in the parent
    fd_ = -1;
    messages_watch_ = queue_watch_ = -1;
    watched_.clear();
    no_quit_ = false;
  }

  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

  int fd_ = -1;
  unsigned generation_ = fork_generation();
  std::string watched_;  // the queue folder watched, empty for none
  int messages_watch_ = -1;
  int queue_watch_ = -1;
  bool no_quit_ = false;
};

// <root>/.lock, held with flock while a process creates, opens or closes a
// queue. The lock file stays open between transitions (QueueRegistry keeps
// it): opening it is most of a transition's cost.
class TransitionLock {
 public:
  explicit TransitionLock(int fd) : fd_(fd) {
    if (fd_ < 0) return;
    while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  ~TransitionLock() {
    if (fd_ >= 0) ::flock(fd_, LOCK_UN);
  }
  TransitionLock(const TransitionLock&) = delete;
  TransitionLock& operator=(const TransitionLock&) = delete;
  bool locked() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

// The holders file of a queue folder.
fs::path holders_file(const fs::path& queue_dir) { return queue_dir / "holders"; }

// Whether an open description other than `fd`'s holds a lock on its file:
// some other holding, in this process or another. The description's own
// lock is not seen.
bool others_hold(int fd) {
  struct flock probe = whole_file_lock(F_WRLCK);
  return ::fcntl(fd, F_OFD_GETLK, &probe) == 0 && probe.l_type != F_UNLCK;
}

bool set_hold(int fd, bool hold) {
  struct flock lock = whole_file_lock(hold ? F_RDLCK : F_UNLCK);
  return ::fcntl(fd, F_OFD_SETLK, &lock) == 0;
}

// Whether the file open on `fd` is still in its folder: a queue folder that
// was removed (or removed and made anew) has taken its files with it.
bool still_linked(int fd) {
  struct stat info {};
  return ::fstat(fd, &info) == 0 && info.st_nlink > 0;
}

bool has_live_holder(const fs::path& queue_dir) { return is_held_by_live_process(holders_file(queue_dir)); }

DWORD read_quota(const fs::path& queue_dir) {
  std::ifstream in(queue_dir / "quota");
  DWORD quota = 0;
  if (!(in >> quota) || quota == 0) quota = MAXWORD;
  return quota;
}

bool make_queue_dir(const fs::path& queue_dir, std::string_view name, WORD quota) {
  std::error_code ec;
  fs::remove_all(queue_dir, ec);
  if (!make_private_folder(queue_dir).empty() || !make_private_folder(queue_dir / "msgs").empty()) return false;
  write_private_file(queue_dir / "name", name);  // only for listings: the key decides identity
  return write_private_file(queue_dir / "quota", std::to_string(quota == 0 ? MAXWORD : quota) + "\n");
}

// The name a queue was made with; its key when the file is missing.
std::string read_queue_name(const fs::path& queue_dir) {
  std::ifstream in(queue_dir / "name");
  std::string name;
  std::getline(in, name);
  return name.empty() ? queue_dir.filename().string() : name;
}

// This process's holdings, one per queue folder.
//
// A process holds a queue by a shared lock on the queue's holders file,
// taken through an open description of its own; the kernel drops it when
// the process ends, however it ends. A queue is live while anyone holds
// such a lock. When this process's last handle to a queue closes, the lock
// goes but the description is kept (a "resting" holding), so that opening
// the same queue again, as a task does with a front end's reply queue for
// every reply, costs a look at the file and a lock instead of opening it,
// and its quota is already known. A resting holding whose folder has been
// removed meanwhile is noticed by its file's link count and dropped.
class QueueRegistry {
 public:
  QueueRegistry() {
    ::pthread_atfork([] { instance().mutex_.lock(); }, [] { instance().mutex_.unlock(); },
                     [] {
                       instance().forget_inherited();
                       instance().mutex_.unlock();
                     });
  }

  static QueueRegistry& instance() {
    static QueueRegistry* registry = new QueueRegistry;  // never destroyed: fork handlers use it
    return *registry;
  }

  STATUS create(std::string_view name, WORD quota) {
    auto key = queue_key(name);
    if (!key) return ERR_BAD_PARAM;
    fs::path root = queue_root();
    if (root.empty()) return ERR_PROTECTED;
    std::lock_guard guard(mutex_);
    TransitionLock transition(lock_file_locked(root));
    if (!transition.locked()) return ERR_PROTECTED;
    fs::path dir = root / *key;
    if (Holding* holding = current_holding_locked(dir); holding != nullptr && holding->held()) {
      return ERR_DUPLICATE_MQ;
    }
    if (held_by_others_locked(dir)) return ERR_DUPLICATE_MQ;
    forget_locked(dir.native());
    return make_and_hold_locked(dir, name, quota, /*created_unopened=*/true);
  }

  STATUS open(std::string_view name, bool create_if_missing, std::shared_ptr<MessageQueue>* ret_queue) {
    auto key = queue_key(name);
    if (!key) return ERR_BAD_PARAM;
    fs::path root = queue_root();
    if (root.empty()) return ERR_PROTECTED;
    std::lock_guard guard(mutex_);
    TransitionLock transition(lock_file_locked(root));
    if (!transition.locked()) return create_if_missing ? ERR_PROTECTED : ERR_NO_SUCH_MQ;
    fs::path dir = root / *key;
    Holding* holding = current_holding_locked(dir);
    // A queue this process holds is live by that holding; else someone else
    // must hold it.
    const bool live = holding != nullptr ? holding->held() || others_hold(holding->fd) : held_by_others_locked(dir);
    if (!live) {
      forget_locked(dir.native());
      if (!create_if_missing) {
        std::error_code ec;
        fs::remove_all(dir, ec);  // a stale queue of a dead process
        return ERR_NO_SUCH_MQ;
      }
      if (STATUS status = make_and_hold_locked(dir, name, 0, /*created_unopened=*/false)) return status;
    } else if (holding == nullptr && !register_locked(dir)) {
      return ERR_PROTECTED;
    }
    holding = &holdings_.at(dir.native());
    if (!holding->held() && !set_hold(holding->fd, true)) return ERR_PROTECTED;
    holding->created_unopened = false;  // the creation's hold passes to this handle
    ++holding->handles;
    *ret_queue = std::make_shared<MessageQueue>(dir, holding->quota, fork_generation());
    return NOERROR;
  }

  STATUS close(const MessageQueue& queue) {
    std::lock_guard guard(mutex_);
    if (queue.fork_generation() != fork_generation()) return NOERROR;  // inherited: the parent holds it
    auto found = holdings_.find(queue.directory().native());
    if (found == holdings_.end() || !found->second.held()) return NOERROR;
    TransitionLock transition(lock_file_locked(queue.directory().parent_path()));
    Holding& holding = found->second;
    if (--holding.handles > 0 || holding.created_unopened) return NOERROR;
    set_hold(holding.fd, false);
    if (!others_hold(holding.fd)) {
      forget_locked(queue.directory().native());
      std::error_code ec;
      fs::remove_all(queue.directory(), ec);
      return NOERROR;
    }
    rest_locked();
    return NOERROR;
  }

 private:
  struct Holding {
    int fd = -1;  // open on the holders file, for as long as this entry lives
    int handles = 0;
    bool created_unopened = false;
    DWORD quota = MAXWORD;  // read once per queue folder
    bool held() const { return handles > 0 || created_unopened; }
  };

  // The holding of the queue folder, or null when there is none or its
  // folder is gone, even from under open handles (then it is dropped).
  Holding* current_holding_locked(const fs::path& dir) {
    auto found = holdings_.find(dir.native());
    if (found == holdings_.end()) return nullptr;
    if (still_linked(found->second.fd)) return &found->second;
    forget_locked(dir.native());
    return nullptr;
  }

  // Whether some process holds the queue folder, judged without a holding
  // of this process.
  static bool held_by_others_locked(const fs::path& dir) { return has_live_holder(dir); }

  // A resting holding of a live queue this process does not hold yet.
  bool register_locked(const fs::path& dir) {
    int fd = ::open(holders_file(dir).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return false;
    Holding holding;
    holding.fd = fd;
    holding.quota = read_quota(dir);
    holdings_[dir.native()] = holding;
    return true;
  }

  // The holders file is locked under a hidden name and then renamed into
  // place, so that whoever finds it under its own name finds it held.
  STATUS make_and_hold_locked(const fs::path& dir, std::string_view name, WORD quota, bool created_unopened) {
    std::error_code ec;
    const fs::path hidden = dir / ".holders";
    int fd = -1;
    if (make_queue_dir(dir, name, quota)) fd = open_private_file(hidden, O_RDWR | O_CREAT | O_TRUNC);
    if (fd < 0 || !set_hold(fd, true) || ::rename(hidden.c_str(), holders_file(dir).c_str()) != 0) {
      if (fd >= 0) ::close(fd);
      fs::remove_all(dir, ec);
      return ERR_PROTECTED;
    }
    Holding holding;
    holding.fd = fd;
    holding.created_unopened = created_unopened;
    holding.quota = quota == 0 ? MAXWORD : quota;
    holdings_[dir.native()] = holding;
    return NOERROR;
  }

  void forget_locked(const std::string& dir) {
    auto found = holdings_.find(dir);
    if (found == holdings_.end()) return;
    ::close(found->second.fd);  // drops this process's lock, if any
    holdings_.erase(found);
  }

  // Past kMaxHoldings entries, resting holdings whose folder is gone are
  // dropped, and if that is not enough, every resting one.
  void rest_locked() {
    if (holdings_.size() <= kMaxHoldings) return;
    drop_resting_locked([](const Holding& holding) { return !still_linked(holding.fd); });
    if (holdings_.size() <= kMaxHoldings) return;
    drop_resting_locked([](const Holding&) { return true; });
  }

  template <class Predicate>
  void drop_resting_locked(Predicate drop) {
    for (auto it = holdings_.begin(); it != holdings_.end();) {
      if (!it->second.held() && drop(it->second)) {
        ::close(it->second.fd);
        it = holdings_.erase(it);
      } else {
        ++it;
      }
    }
  }

  // <root>/.lock, opened once per root and kept.
  int lock_file_locked(const fs::path& root) {
    if (lock_fd_ >= 0 && lock_root_ == root.native()) return lock_fd_;
    if (lock_fd_ >= 0) ::close(lock_fd_);
    lock_fd_ = open_private_file(root / ".lock", O_RDWR | O_CREAT);
    lock_root_ = lock_fd_ >= 0 ? root.native() : std::string();
    return lock_fd_;
  }

  // In a child made by fork(), at once: the child holds nothing. Its copies
  // of the holders files share the parent's open descriptions (and locks),
  // and would keep the parent's queues alive after the parent ends; its
  // copy of the lock file would share the parent's flock.
  void forget_inherited() {
    for (auto& [dir, holding] : holdings_) ::close(holding.fd);
    holdings_.clear();
    if (lock_fd_ >= 0) ::close(lock_fd_);  // no unlock: that would be the parent's lock
    lock_fd_ = -1;
    lock_root_.clear();
  }

  static constexpr size_t kMaxHoldings = 256;

  std::mutex mutex_;
  std::unordered_map<std::string, Holding> holdings_;  // guarded by mutex_; key: queue folder
  int lock_fd_ = -1;                                   // guarded by mutex_
  std::string lock_root_;                              // guarded by mutex_: the root of lock_fd_
};

}  // namespace

std::optional<std::string> queue_key(std::string_view name) {
  if (name.empty()) return std::nullopt;
  std::string key;
  for (char c : name) {
    unsigned char byte = static_cast<unsigned char>(c);
    if (byte >= 'a' && byte <= 'z') {
      key += static_cast<char>(byte - 'a' + 'A');
    } else if ((byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') || byte == '$' || byte == '_' ||
               byte == '-' || (byte == '.' && !key.empty())) {
      key += c;
    } else {
      char escaped[4];
      std::snprintf(escaped, sizeof escaped, "%%%02X", byte);
      key += escaped;
    }
  }
  if (key.size() > kMaxKeyLength) return std::nullopt;
  return key;
}

fs::path queue_root() {
  const fs::path shared = shared_state_root();
  if (shared.empty()) return shared;
  fs::path root = shared / "mq";
  // Usually there already: one look instead of making it.
  if (untrusted_folder_reason(root).empty()) return root;
  if (!make_private_folder(root).empty()) return {};
  return root;
}

MessageQueue::MessageQueue(fs::path directory, DWORD quota, unsigned fork_generation)
    : directory_(std::move(directory)),
      messages_(directory_ / "msgs"),
      quit_flag_(directory_ / "quit"),
      quota_(quota),
      fork_generation_(fork_generation) {}

bool MessageQueue::quit_pending() const { return ::access(quit_flag_.c_str(), F_OK) == 0; }

void MessageQueue::put_quit() {
  int fd = open_private_file(quit_flag_, O_WRONLY | O_CREAT);
  if (fd >= 0) ::close(fd);
}

size_t MessageQueue::count() const {
  size_t n = 0;
  for_each_message(messages_, [&](const char*) { ++n; });
  return n;
}

// The quota is checked against an upper bound (the last exact count plus this
// handle's puts since), counting exactly only when that bound reaches the
// quota or every kPutsBetweenCounts puts; puts of other processes meanwhile
// may overshoot it by that much.
bool MessageQueue::over_quota() {
  if (counted_ + puts_since_count_ >= quota_ || puts_since_count_ >= kPutsBetweenCounts) {
    counted_ = count();
    puts_since_count_ = 0;
  }
  return counted_ + puts_since_count_ >= quota_;
}

STATUS MessageQueue::put(WORD priority, const char* bytes, size_t length) {
  // The platform copies a message into one memory segment; a longer one
  // fails as that allocation would.
  if (length > MQ_MAX_MSGSIZE) return ERR_SEGMENT_TOO_BIG;
  if (quit_pending()) return ERR_MQ_QUITTING;
  char name[96];
  {
    std::lock_guard guard(put_mutex_);
    if (over_quota()) return ERR_MQ_EXCEEDED_QUOTA;
    ++puts_since_count_;
    std::snprintf(name, sizeof name, "%04x%016llx-%s-%08x", priority,
                  static_cast<unsigned long long>(monotonic_nanoseconds()), process_instance_tag().c_str(),
                  put_sequence_++);
  }
  const std::string& folder = messages_.native();
  if (std::string inline_name = name; append_inline(inline_name, bytes, length)) {
    if (::mknod((folder + '/' + inline_name).c_str(), S_IFREG | kPrivateFileMode, 0) == 0) return NOERROR;
    return errno == ENOENT ? ERR_NO_SUCH_MQ : ERR_PROTECTED;
  }
  const std::string temporary = folder + "/." + name;
  int fd = open_private_file(temporary, O_WRONLY | O_CREAT | O_EXCL);
  if (fd < 0) return errno == ENOENT ? ERR_NO_SUCH_MQ : ERR_PROTECTED;
  bool written = write_all(fd, bytes, length);
  ::close(fd);
  if (!written || ::rename(temporary.c_str(), (folder + '/' + name).c_str()) != 0) {
    ::unlink(temporary.c_str());
    return ERR_PROTECTED;
  }
  return NOERROR;
}

bool MessageQueue::refill_names_locked() {
  std::vector<std::string> names;
  if (!for_each_message(messages_, [&](const char* name) { names.emplace_back(name); })) return false;
  std::sort(names.begin(), names.end());
  listed_.assign(std::make_move_iterator(names.begin()), std::make_move_iterator(names.end()));
  return true;
}

MessageQueue::Take MessageQueue::take_first(char* buffer, WORD buffer_length, WORD* ret_length, bool* truncated) {
  thread_local std::vector<char> scratch(MQ_MAX_MSGSIZE + 1);
  std::lock_guard guard(take_mutex_);
  for (;;) {
    if (listed_.empty()) {
      if (!refill_names_locked()) return Take::kGone;
      if (listed_.empty()) return Take::kEmpty;
    }
    const std::string name = std::move(listed_.front());
    listed_.pop_front();
    const std::string file = messages_.native() + '/' + name;
    ssize_t length = -1;
    if (const size_t mark = name.find(kInlineMark); mark != std::string::npos) {
      length = decode_inline(name.c_str() + mark + 1, scratch.data(), scratch.size());
    } else {
      int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0) continue;  // taken by another getter
      length = read_up_to(fd, scratch.data(), scratch.size());
      ::close(fd);
    }
    if (::unlink(file.c_str()) != 0 || length < 0) continue;  // another getter claimed it first
    size_t copied = std::min<size_t>(static_cast<size_t>(length), buffer_length);
    if (copied > 0) std::memcpy(buffer, scratch.data(), copied);
    *ret_length = static_cast<WORD>(copied);
    *truncated = copied < static_cast<size_t>(length);
    return Take::kTaken;
  }
}

namespace {

std::atomic<bool (*)()> g_wait_interrupt{nullptr};

// How long a wait sleeps between looks at the termination test.
constexpr long long kInterruptCheckNanoseconds = 200'000'000;

}  // namespace

void set_wait_interrupt(bool (*termination_requested)()) { g_wait_interrupt.store(termination_requested); }

STATUS MessageQueue::get(char* buffer, WORD buffer_length, long long timeout_ms, WORD* ret_length) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms > 0 ? timeout_ms : 0);
  // A get that may wait watches before it looks, so that no put is missed;
  // without a watch it sleeps coarsely instead.
  ThreadWatch* watch = nullptr;
  if (timeout_ms != 0) {
    ThreadWatch& current = ThreadWatch::current();
    if (current.watch(directory_, messages_)) watch = &current;
  }
  for (;;) {
    if (watch == nullptr || watch->quit_possible()) {
      if (quit_pending()) return ERR_MQ_QUITTING;
      if (watch != nullptr) watch->note_no_quit();
    }
    bool truncated = false;
    switch (take_first(buffer, buffer_length, ret_length, &truncated)) {
      case Take::kTaken:
        // The message is consumed even when cut: the platform does the same.
        return truncated ? ERR_MQ_BFR_TOO_SMALL : NOERROR;
      case Take::kGone:
        return ERR_NO_SUCH_MQ;
      case Take::kEmpty:
        break;
    }
    if (timeout_ms == 0) return ERR_MQ_EMPTY;
    long long left = -1;
    if (timeout_ms > 0) {
      left = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - Clock::now()).count();
      if (left <= 0) return ERR_MQ_EMPTY;
    }
    if (bool (*interrupt)() = g_wait_interrupt.load(); interrupt != nullptr) {
      if (interrupt()) return ERR_MQ_EMPTY;
      if (left < 0 || left > kInterruptCheckNanoseconds) left = kInterruptCheckNanoseconds;
    }
    if (watch != nullptr) {
      watch->wait(left);
    } else {
      ::usleep(left < 0 || left > 50000000 ? 50000 : static_cast<useconds_t>(left / 1000));
    }
  }
}

STATUS create_queue(std::string_view name, WORD quota) { return QueueRegistry::instance().create(name, quota); }

STATUS open_queue(std::string_view name, bool create_if_missing, std::shared_ptr<MessageQueue>* ret_queue) {
  return QueueRegistry::instance().open(name, create_if_missing, ret_queue);
}

STATUS close_queue(const std::shared_ptr<MessageQueue>& queue) { return QueueRegistry::instance().close(*queue); }

bool put_quit_by_name(std::string_view name) {
  std::shared_ptr<MessageQueue> queue;
  if (open_queue(name, false, &queue) != NOERROR) return false;
  queue->put_quit();
  close_queue(queue);
  return true;
}

std::vector<QueueListing> list_queues() {
  std::vector<QueueListing> queues;
  std::error_code ec;
  const fs::path root = queue_root();
  if (root.empty()) return queues;
  for (fs::directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec)) {
    const fs::path dir = it->path();
    if (!it->is_directory(ec) || !has_live_holder(dir)) continue;
    QueueListing listing;
    listing.name = read_queue_name(dir);
    for_each_message(dir / "msgs", [&](const char*) { ++listing.messages; });
    listing.quitting = ::access((dir / "quit").c_str(), F_OK) == 0;
    queues.push_back(std::move(listing));
  }
  std::sort(queues.begin(), queues.end(), [](const QueueListing& a, const QueueListing& b) { return a.name < b.name; });
  return queues;
}

}  // namespace tarnwick::rt
