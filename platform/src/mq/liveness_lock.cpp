#include "mq/liveness_lock.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <mutex>
#include <unordered_set>

#include "core/private_files.h"
#include "mq/whole_file_lock.h"

namespace tarnwick::rt {
namespace {

// Every lock this process holds, so that a forked child can drop its copies.
struct LockSet {
  std::mutex mutex;
  std::unordered_set<int*> fds;  // guarded by mutex: the fd_ members of live locks
  std::string tag;               // guarded by mutex: process_instance_tag()
};

LockSet& lock_set();

std::string new_instance_tag() {
  unsigned long long random = 0;
  if (::getrandom(&random, sizeof random, 0) != sizeof random) {
    random = static_cast<unsigned long long>(::time(nullptr)) ^ reinterpret_cast<uintptr_t>(&random);
  }
  char tag[64];
  std::snprintf(tag, sizeof tag, "%d-%016llx", static_cast<int>(::getpid()), random);
  return tag;
}

void before_fork() { lock_set().mutex.lock(); }
void after_fork_in_parent() { lock_set().mutex.unlock(); }
void after_fork_in_child() {
  LockSet& set = lock_set();
  for (int* fd : set.fds) {
    ::close(*fd);  // the parent's lock stays: it is on the parent's open description too
    *fd = -1;
  }
  set.fds.clear();
  set.tag = new_instance_tag();
  set.mutex.unlock();
}

LockSet& lock_set() {
  static LockSet* set = [] {
    auto* s = new LockSet;  // never destroyed: fork handlers may run until the end
    s->tag = new_instance_tag();
    ::pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
    return s;
  }();
  return *set;
}

}  // namespace

// The file is locked under a hidden name first and then renamed into place,
// so whoever finds it under its own name finds it locked: a file there that
// is not locked belongs to a dead process and may be removed.
std::unique_ptr<LivenessLock> LivenessLock::acquire(const std::filesystem::path& path) {
  if (is_held_by_live_process(path)) return nullptr;
  LockSet& set = lock_set();
  std::lock_guard guard(set.mutex);
  std::filesystem::path hidden = path.parent_path() / ("." + path.filename().string() + "." + set.tag);
  int fd = open_private_file(hidden, O_RDWR | O_CREAT | O_TRUNC);
  if (fd < 0) return nullptr;
  struct flock lock = whole_file_lock(F_WRLCK);
  if (::fcntl(fd, F_OFD_SETLK, &lock) != 0 || ::rename(hidden.c_str(), path.c_str()) != 0) {
    ::unlink(hidden.c_str());
    ::close(fd);
    return nullptr;
  }
  std::unique_ptr<LivenessLock> result(new LivenessLock(path, fd));
  set.fds.insert(&result->fd_);
  return result;
}

LivenessLock::~LivenessLock() {
  LockSet& set = lock_set();
  std::lock_guard guard(set.mutex);
  if (fd_ < 0) return;  // inherited through fork or released: not ours to remove
  set.fds.erase(&fd_);
  ::unlink(path_.c_str());
  ::close(fd_);
}

void LivenessLock::release_keeping_file() {
  LockSet& set = lock_set();
  std::lock_guard guard(set.mutex);
  if (fd_ < 0) return;
  set.fds.erase(&fd_);
  ::close(fd_);
  fd_ = -1;
}

bool is_held_by_live_process(const std::filesystem::path& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  struct flock probe = whole_file_lock(F_WRLCK);
  bool held = ::fcntl(fd, F_OFD_GETLK, &probe) == 0 && probe.l_type != F_UNLCK;
  ::close(fd);
  return held;
}

std::string process_instance_tag() {
  LockSet& set = lock_set();
  std::lock_guard guard(set.mutex);
  return set.tag;
}

}  // namespace tarnwick::rt
