// A real tarnwick process on a test's data directory: started with its
// console in a file, killed hard (SIGKILL) when the test ends or asks.
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

class TaskProcess {
 public:
  TaskProcess() = default;
  TaskProcess(const TaskProcess&) = delete;
  TaskProcess& operator=(const TaskProcess&) = delete;
  ~TaskProcess() { kill(); }

  // Starts the task on the notes.ini in dataDir, its console appended to
  // console; true once it takes requests (its request queue exists).
  bool start(const std::filesystem::path& dataDir, const std::filesystem::path& console) {
    std::string binary = TARNWICK_TASK_BINARY;
    std::string ini = "=" + (dataDir / "notes.ini").string();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, console.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    char* argv[] = {binary.data(), ini.data(), nullptr};
    const int spawned = posix_spawn(&pid_, binary.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
      pid_ = -1;
      return false;
    }
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    MQHANDLE queue = NULLHANDLE;
    while (MQOpen("MQ$OutOfOffice", 0, &queue) != NOERROR) {
      if (std::chrono::steady_clock::now() > until) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    MQClose(queue, 0);
    return true;
  }

  bool running() const { return pid_ > 0; }

  // SIGKILL: the process gets no chance to finish anything.
  void kill() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
};

}  // namespace tarnwick::testing
