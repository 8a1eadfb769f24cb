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
#include "core/private_files.h"
#include "mq.h"
#include "mq/liveness_lock.h"
#include "mq/shared_state.h"

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

uint64_t monotonic_nanoseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000ull + static_cast<uint64_t>(now.tv_nsec);
}

// One inotify instance per thread, kept for the thread's life: closing an
// instance waits for the kernel to retire its watches, which takes
// milliseconds, while adding and removing watches is cheap.
class ThreadInotify {
 public:
  ThreadInotify() : fd_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {}
  ~ThreadInotify() {
    if (fd_ >= 0) ::close(fd_);
  }
  ThreadInotify(const ThreadInotify&) = delete;
  ThreadInotify& operator=(const ThreadInotify&) = delete;
  int fd() const { return fd_; }

  void drain() const {
    alignas(inotify_event) char events[4096];
    while (::read(fd_, events, sizeof events) > 0) {
    }
  }

  // The calling thread's instance. A child made by fork() gets its own: an
  // inherited one is shared with the parent, which would take its events.
  static ThreadInotify& current() {
    thread_local ThreadInotify instance;
    if (instance.owner_ != ::getpid()) {
      if (instance.fd_ >= 0) ::close(instance.fd_);
      instance.fd_ = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
      instance.owner_ = ::getpid();
    }
    return instance;
  }

 private:
  int fd_;
  pid_t owner_ = ::getpid();
};

// Sleeps until something changes in msgs/ or the queue folder, or the
// deadline passes. Made before the queue is looked at again, so a put
// between the look and the sleep still wakes it.
class ChangeWatch {
 public:
  ChangeWatch(const fs::path& queue_dir, const fs::path& messages) : inotify_(ThreadInotify::current()) {
    if (inotify_.fd() < 0) return;
    inotify_.drain();  // left over from an earlier wait of this thread
    messages_watch_ = ::inotify_add_watch(inotify_.fd(), messages.c_str(), IN_MOVED_TO);
    queue_watch_ = ::inotify_add_watch(inotify_.fd(), queue_dir.c_str(), IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF);
  }
  ~ChangeWatch() {
    if (messages_watch_ >= 0) ::inotify_rm_watch(inotify_.fd(), messages_watch_);
    if (queue_watch_ >= 0) ::inotify_rm_watch(inotify_.fd(), queue_watch_);
  }
  ChangeWatch(const ChangeWatch&) = delete;
  ChangeWatch& operator=(const ChangeWatch&) = delete;

  // Waits at most `nanoseconds` (forever when negative).
  void wait(long long nanoseconds) {
    if (messages_watch_ < 0 || queue_watch_ < 0) {  // no inotify: a coarse sleep rather than a failure
      ::usleep(nanoseconds < 0 || nanoseconds > 50000000 ? 50000 : static_cast<useconds_t>(nanoseconds / 1000));
      return;
    }
    pollfd pfd{inotify_.fd(), POLLIN, 0};
    timespec limit{};
    if (nanoseconds >= 0) {
      limit.tv_sec = static_cast<time_t>(nanoseconds / 1000000000);
      limit.tv_nsec = static_cast<long>(nanoseconds % 1000000000);
    }
    if (::ppoll(&pfd, 1, nanoseconds >= 0 ? &limit : nullptr, nullptr) > 0) inotify_.drain();
  }

 private:
  ThreadInotify& inotify_;
  int messages_watch_ = -1;
  int queue_watch_ = -1;
};

// <root>/.lock, held with flock while a process creates, opens or closes a queue.
class TransitionLock {
 public:
  explicit TransitionLock(const fs::path& root) {
    fd_ = open_private_file(root / ".lock", O_RDWR | O_CREAT);
    if (fd_ < 0) return;
    while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  ~TransitionLock() {
    if (fd_ < 0) return;
    ::flock(fd_, LOCK_UN);  // explicit: a forked child may share the description
    ::close(fd_);
  }
  TransitionLock(const TransitionLock&) = delete;
  TransitionLock& operator=(const TransitionLock&) = delete;
  bool locked() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

bool has_live_holder(const fs::path& queue_dir) {
  bool live = false;
  for_each_message(queue_dir / "holders", [&](const char* name) {
    if (!live && is_held_by_live_process(queue_dir / "holders" / name)) live = true;
  });
  return live;
}

DWORD read_quota(const fs::path& queue_dir) {
  std::ifstream in(queue_dir / "quota");
  DWORD quota = 0;
  if (!(in >> quota) || quota == 0) quota = MAXWORD;
  return quota;
}

bool make_queue_dir(const fs::path& queue_dir, std::string_view name, WORD quota) {
  std::error_code ec;
  fs::remove_all(queue_dir, ec);
  if (!make_private_folder(queue_dir).empty() || !make_private_folder(queue_dir / "msgs").empty() ||
      !make_private_folder(queue_dir / "holders").empty()) {
    return false;
  }
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
class QueueRegistry {
 public:
  QueueRegistry() {
    process_instance_tag();  // registers the lock fork handlers first, so they run inside ours
    ::pthread_atfork([] { instance().mutex_.lock(); }, [] { instance().mutex_.unlock(); },
                     [] { instance().mutex_.unlock(); });
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
    forget_if_forked_locked();
    TransitionLock transition(root);
    if (!transition.locked()) return ERR_PROTECTED;
    fs::path dir = root / *key;
    std::error_code ec;
    if (fs::is_directory(dir, ec)) {
      if (has_live_holder(dir)) return ERR_DUPLICATE_MQ;
      holdings_.erase(dir.string());
    }
    return make_and_hold_locked(dir, name, quota, /*created_unopened=*/true);
  }

  STATUS open(std::string_view name, bool create_if_missing, std::shared_ptr<MessageQueue>* ret_queue) {
    auto key = queue_key(name);
    if (!key) return ERR_BAD_PARAM;
    fs::path root = queue_root();
    if (root.empty()) return ERR_PROTECTED;
    std::lock_guard guard(mutex_);
    forget_if_forked_locked();
    TransitionLock transition(root);
    if (!transition.locked()) return create_if_missing ? ERR_PROTECTED : ERR_NO_SUCH_MQ;
    fs::path dir = root / *key;
    std::error_code ec;
    bool live = fs::is_directory(dir, ec) && has_live_holder(dir);
    if (!live) {
      holdings_.erase(dir.string());
      if (!create_if_missing) {
        fs::remove_all(dir, ec);  // a stale queue of a dead process
        return ERR_NO_SUCH_MQ;
      }
      if (STATUS status = make_and_hold_locked(dir, name, 0, /*created_unopened=*/false)) return status;
    }
    Holding& holding = holdings_[dir.string()];
    if (!holding.lock) {
      holding.lock = LivenessLock::acquire(dir / "holders" / process_instance_tag());
      if (!holding.lock) {
        holdings_.erase(dir.string());
        return ERR_PROTECTED;
      }
    }
    holding.created_unopened = false;  // the creation's hold passes to this handle
    ++holding.handles;
    *ret_queue = std::make_shared<MessageQueue>(dir, read_quota(dir));
    return NOERROR;
  }

  STATUS close(const MessageQueue& queue) {
    std::lock_guard guard(mutex_);
    forget_if_forked_locked();
    if (queue.opened_by() != ::getpid()) return NOERROR;  // inherited through fork: the parent holds it
    auto found = holdings_.find(queue.directory().string());
    if (found == holdings_.end()) return NOERROR;
    TransitionLock transition(queue.directory().parent_path());
    if (--found->second.handles > 0 || found->second.created_unopened) return NOERROR;
    holdings_.erase(found);  // unlocks and removes our holder file
    std::error_code ec;
    if (!has_live_holder(queue.directory())) fs::remove_all(queue.directory(), ec);
    return NOERROR;
  }

 private:
  struct Holding {
    std::unique_ptr<LivenessLock> lock;
    int handles = 0;
    bool created_unopened = false;
  };

  STATUS make_and_hold_locked(const fs::path& dir, std::string_view name, WORD quota, bool created_unopened) {
    std::error_code ec;
    if (!make_queue_dir(dir, name, quota)) {
      fs::remove_all(dir, ec);
      return ERR_PROTECTED;
    }
    Holding holding;
    holding.lock = LivenessLock::acquire(dir / "holders" / process_instance_tag());
    if (!holding.lock) {
      fs::remove_all(dir, ec);
      return ERR_PROTECTED;
    }
    holding.created_unopened = created_unopened;
    holdings_[dir.string()] = std::move(holding);
    return NOERROR;
  }

  // After fork() the child holds nothing: its copies of the parent's locks
  // were dropped by the lock fork handler.
  void forget_if_forked_locked() {
    if (pid_ == ::getpid()) return;
    holdings_.clear();
    pid_ = ::getpid();
  }

  std::mutex mutex_;
  pid_t pid_ = ::getpid();                             // guarded by mutex_
  std::unordered_map<std::string, Holding> holdings_;  // guarded by mutex_; key: queue folder
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
  if (!make_private_folder(root).empty()) return {};
  return root;
}

MessageQueue::MessageQueue(fs::path directory, DWORD quota)
    : directory_(std::move(directory)),
      messages_(directory_ / "msgs"),
      quit_flag_(directory_ / "quit"),
      quota_(quota),
      opened_by_(::getpid()) {}

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
  fs::path temporary = messages_ / (std::string(".") + name);
  int fd = open_private_file(temporary, O_WRONLY | O_CREAT | O_EXCL);
  if (fd < 0) return errno == ENOENT ? ERR_NO_SUCH_MQ : ERR_PROTECTED;
  bool written = write_all(fd, bytes, length);
  ::close(fd);
  if (!written || ::rename(temporary.c_str(), (messages_ / name).c_str()) != 0) {
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
    fs::path file = messages_ / listed_.front();
    listed_.pop_front();
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) continue;  // taken by another getter
    ssize_t length = read_up_to(fd, scratch.data(), scratch.size());
    ::close(fd);
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
  std::unique_ptr<ChangeWatch> watch;
  for (;;) {
    if (quit_pending()) return ERR_MQ_QUITTING;
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
    if (!watch) {  // watch first, then look once more, so no put is missed
      watch = std::make_unique<ChangeWatch>(directory_, messages_);
      continue;
    }
    long long left = -1;
    if (timeout_ms > 0) {
      left = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - Clock::now()).count();
      if (left <= 0) return ERR_MQ_EMPTY;
    }
    if (bool (*interrupt)() = g_wait_interrupt.load(); interrupt != nullptr) {
      if (interrupt()) return ERR_MQ_EMPTY;
      if (left < 0 || left > kInterruptCheckNanoseconds) left = kInterruptCheckNanoseconds;
    }
    watch->wait(left);
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
