// Test helpers for code that spans processes: a throw-away data directory
// with its notes.ini, and child processes made with fork() that report back
// through their exit code.
#pragma once

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "mq/shared_state.h"
#include "testing/temp_data_directory.h"

namespace tarnwick::rt::testing {

// A data directory of its own for one test, loaded as the runtime's
// environment (children made by fork() inherit it); removed afterwards with
// the queues and task lines its processes shared.
class ScratchDataDirectory {
 public:
  ScratchDataDirectory() : shared_(shared_state_root()) {}
  ~ScratchDataDirectory() {
    std::error_code ec;
    std::filesystem::remove_all(shared_, ec);
  }
  const std::filesystem::path& path() const { return data_.path(); }

 private:
  tarnwick::testing::TempDataDirectory data_{"[Notes]\nServerName=CN=Srv1/O=Org\n"};
  std::filesystem::path shared_;  // made after data_, for its data directory
};

// A child process running `body`; its result becomes the exit code (0 = ok).
// The child never returns into the test framework.
class Child {
 public:
  explicit Child(const std::function<int()>& body) {
    pid_ = ::fork();
    if (pid_ == 0) {
      int code = 99;
      try {
        code = body();
      } catch (...) {
      }
      ::_exit(code);
    }
  }
  ~Child() {
    if (pid_ > 0 && !reaped_) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t pid() const { return pid_; }

  // The exit code, or 128+signal when the child was killed.
  int wait() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    reaped_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  void kill_hard() {
    ::kill(pid_, SIGKILL);
    wait();
  }

 private:
  pid_t pid_ = -1;
  bool reaped_ = false;
};

// A one-way signal between processes: one side says ready(), the other
// waits for it.
class Signal {
 public:
  Signal() { (void)!::pipe(fds_); }
  ~Signal() {
    ::close(fds_[0]);
    ::close(fds_[1]);
  }
  void ready() { (void)!::write(fds_[1], "x", 1); }
  // False when nothing came within the time.
  bool wait(std::chrono::milliseconds within = std::chrono::seconds(20)) {
    pollfd pfd{fds_[0], POLLIN, 0};
    if (::poll(&pfd, 1, static_cast<int>(within.count())) != 1) return false;
    char c;
    return ::read(fds_[0], &c, 1) == 1;
  }

 private:
  int fds_[2] = {-1, -1};
};

}  // namespace tarnwick::rt::testing
