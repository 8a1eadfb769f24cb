// Files that say "a live process is here": the queue holders and the task
// status lines of other processes are found through them.
//
// A LivenessLock creates a file and holds an open-file-description lock on
// it. The kernel drops the lock when the process ends, however it ends
// (SIGKILL included), so any process can tell a live owner from a dead one
// by testing the lock (is_held_by_live_process), also from inside the owning
// process. The descriptor is close-on-exec, and a child made by fork() drops
// its inherited copies (forget_inherited_locks, run from a fork handler), so
// only the process that took a lock keeps it alive.
//
// Thread-safe.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

namespace tarnwick::rt {

class LivenessLock {
 public:
  // Puts a locked file at `path` (replacing a dead owner's). Null when it
  // cannot be made or a live process holds the one there.
  static std::unique_ptr<LivenessLock> acquire(const std::filesystem::path& path);

  ~LivenessLock();  // unlocks and removes the file
  LivenessLock(const LivenessLock&) = delete;
  LivenessLock& operator=(const LivenessLock&) = delete;

  const std::filesystem::path& path() const { return path_; }

  // Unlocks without removing the file, as a crash would.
  void release_keeping_file();

 private:
  LivenessLock(std::filesystem::path path, int fd) : path_(std::move(path)), fd_(fd) {}
  std::filesystem::path path_;
  int fd_;
};

// True when some live process holds a LivenessLock on the file.
bool is_held_by_live_process(const std::filesystem::path& path);

// A name part unique to this process instance ("<pid>-<random>"), so that a
// new process that reuses a dead one's pid never takes over its files. A
// forked child gets a fresh one.
std::string process_instance_tag();

}  // namespace tarnwick::rt
