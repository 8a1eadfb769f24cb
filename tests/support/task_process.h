// A real tarnwick process on a test's data directory: started with its
// console in a file, holding its request queue open while it serves, and
// killed hard (SIGKILL) when the test ends or asks.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "globerr.h"
#include "mq.h"
#include "tests/support/processes.h"

namespace tarnwick::testing {

// Whether a start begins the console file afresh or adds to what is there.
enum class ConsoleFile { kFresh, kAppend };

class TaskProcess {
 public:
  TaskProcess() = default;
  TaskProcess(const TaskProcess&) = delete;
  TaskProcess& operator=(const TaskProcess&) = delete;
  ~TaskProcess() { kill(); }

  // Starts the task on the notes.ini in dataDir and waits until it takes
  // requests; false when it does not start or come up in time.
  bool start(const std::filesystem::path& dataDir, const std::filesystem::path& console,
             ConsoleFile mode = ConsoleFile::kFresh) {
    return spawn(dataDir, console, mode) && waitUntilServing();
  }

  // Starts the task without waiting for it; false when it does not start.
  bool spawn(const std::filesystem::path& dataDir, const std::filesystem::path& console,
             ConsoleFile mode = ConsoleFile::kFresh) {
    kill();
    console_ = console;
    std::string binary = TARNWICK_TASK_BINARY;
    std::string ini = "=" + (dataDir / "notes.ini").string();
    const int flags = O_WRONLY | O_CREAT | (mode == ConsoleFile::kAppend ? O_APPEND : O_TRUNC);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, console.c_str(), flags, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    char* argv[] = {binary.data(), ini.data(), nullptr};
    const int spawned = posix_spawn(&pid_, binary.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) pid_ = -1;
    return spawned == 0;
  }

  // Waits until the task's request queue exists and keeps it open;
  // false when it does not appear within the limit.
  bool waitUntilServing(std::chrono::seconds limit = std::chrono::seconds(60)) {
    const auto until = std::chrono::steady_clock::now() + limit;
    while (MQOpen("MQ$OutOfOffice", 0, &requests_) != NOERROR) {
      requests_ = NULLHANDLE;
      if (std::chrono::steady_clock::now() > until) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
  }

  bool running() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }
  // The task's request queue once it serves; NULLHANDLE before.
  MQHANDLE requests() const { return requests_; }

  std::string console() const { return readFile(console_); }

  // Waits until the console shows text; false when it does not in time.
  bool waitForConsole(const std::string& text) const {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (console().find(text) == std::string::npos) {
      if (std::chrono::steady_clock::now() > until) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
  }

  // True when the running task has ended by itself (it is then reaped).
  bool ended() {
    int status = 0;
    if (pid_ <= 0 || ::waitpid(pid_, &status, WNOHANG) != pid_) return false;
    forget();
    return true;
  }

  // Waits for the task to end by itself; its wait status, -1 when none runs.
  int waitForExit() { return reap(); }

  // SIGTERM, the server's orderly stop; the wait status, -1 when none runs.
  int terminate() {
    if (pid_ > 0) ::kill(pid_, SIGTERM);
    return reap();
  }

  // SIGKILL: the process gets no chance to finish anything.
  void kill() {
    if (pid_ > 0) ::kill(pid_, SIGKILL);
    reap();
  }

 private:
  int reap() {
    int status = -1;
    if (pid_ > 0 && ::waitpid(pid_, &status, 0) != pid_) status = -1;
    forget();
    return status;
  }

  // The queues of a gone task go with it once no one holds them.
  void forget() {
    pid_ = -1;
    if (requests_ != NULLHANDLE) MQClose(requests_, 0);
    requests_ = NULLHANDLE;
  }

  pid_t pid_ = -1;
  MQHANDLE requests_ = NULLHANDLE;
  std::filesystem::path console_;
};

}  // namespace tarnwick::testing
