// A real tarnwick process on a test's data directory: started on demand,
// killed when the test ends, its console kept in a file the test can read.
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
#include "osenv.h"
#include "tests/support/processes.h"

extern char** environ;

namespace tarnwick::testing {

class RunningTask {
 public:
  RunningTask() = default;
  RunningTask(const RunningTask&) = delete;
  RunningTask& operator=(const RunningTask&) = delete;
  ~RunningTask() { stop(); }

  // Starts the task with a worker pool on the data directory and waits
  // until it takes requests; false when it does not come up in time.
  bool start(const std::filesystem::path& dataDir, const std::filesystem::path& console) {
    using namespace std::chrono_literals;
    console_ = console;
    OSSetEnvironmentVariable("OOOWorkers", "2");
    std::string binary = TARNWICK_TASK_BINARY;
    std::string ini = "=" + (dataDir / "notes.ini").string();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, console.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    char* argv[] = {binary.data(), ini.data(), nullptr};
    const int spawned = posix_spawn(&pid_, binary.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) return false;
    const auto until = std::chrono::steady_clock::now() + 60s;
    while (MQOpen("MQ$OutOfOffice", 0, &requests_) != NOERROR) {
      if (std::chrono::steady_clock::now() > until) return false;
      std::this_thread::sleep_for(20ms);
    }
    return true;
  }

  bool running() const { return pid_ > 0; }
  std::string console() const { return readFile(console_); }

  // Waits until the console shows text; false when it does not in time.
  bool waitForConsole(const std::string& text) const {
    using namespace std::chrono_literals;
    const auto until = std::chrono::steady_clock::now() + 10s;
    while (console().find(text) == std::string::npos) {
      if (std::chrono::steady_clock::now() > until) return false;
      std::this_thread::sleep_for(20ms);
    }
    return true;
  }

  void stop() {
    if (requests_ != NULLHANDLE) MQClose(requests_, 0);
    requests_ = NULLHANDLE;
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
  MQHANDLE requests_ = NULLHANDLE;
  std::filesystem::path console_;
};

}  // namespace tarnwick::testing
