#include "instance_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

namespace tarnwick::server {
namespace {

constexpr const char* kLockFileName = "tarnwick-server.lock";

// The process id written in the lock file; "" when it cannot be read.
std::string holder_of(int fd) {
  char text[32] = {0};
  ssize_t got = ::pread(fd, text, sizeof text - 1, 0);
  if (got <= 0) return {};
  std::string pid(text, static_cast<size_t>(got));
  while (!pid.empty() && (pid.back() == '\n' || pid.back() == ' ')) pid.pop_back();
  return pid;
}

}  // namespace

std::optional<InstanceLock> InstanceLock::acquire(const std::filesystem::path& data_directory, Refusal* refusal) {
  const std::filesystem::path file = data_directory / kLockFileName;
  int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) {
    refusal->reason = "cannot open " + file.string() + ": " + ::strerror(errno);
    return std::nullopt;
  }
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int error = errno;
    if (error == EWOULDBLOCK) {
      std::string holder = holder_of(fd);
      refusal->reason = "a server is already running on the data directory " + data_directory.string() +
                        (holder.empty() ? "" : " (process " + holder + ")");
    } else {
      refusal->reason = "cannot lock " + file.string() + ": " + ::strerror(error);
    }
    ::close(fd);
    return std::nullopt;
  }
  const std::string pid = std::to_string(::getpid()) + "\n";
  if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
    refusal->reason = "cannot write " + file.string() + ": " + ::strerror(errno);
    ::close(fd);
    return std::nullopt;
  }
  return InstanceLock(fd);
}

InstanceLock::~InstanceLock() {
  if (fd_ >= 0) ::close(fd_);  // closing the last descriptor drops the lock
}

}  // namespace tarnwick::server
