// One server per data directory: the server holds an exclusive lock
// (flock) on the file tarnwick-server.lock in the data directory for as
// long as it runs, with its process id written in it. The lock goes with
// the process however it ends, so a server killed hard leaves nothing that
// stops the next start. Tasks do not inherit it.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

namespace tarnwick::server {

class InstanceLock {
 public:
  struct Refusal {
    std::string reason;  // why the lock was not taken
  };

  // Takes the lock of the data directory; nullopt and refusal->reason when
  // another process holds it or the file cannot be used.
  static std::optional<InstanceLock> acquire(const std::filesystem::path& data_directory, Refusal* refusal);

  InstanceLock(InstanceLock&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  InstanceLock& operator=(InstanceLock&&) = delete;
  InstanceLock(const InstanceLock&) = delete;
  ~InstanceLock();

 private:
  explicit InstanceLock(int fd) : fd_(fd) {}
  int fd_;
};

}  // namespace tarnwick::server
