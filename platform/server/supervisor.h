// The server's task supervision: starts every listed task as its own
// process, starts a task again when it ends abnormally (after a growing
// delay, see restart_backoff.h), leaves a task down that ended normally
// (its quit, as "tell <task> quit" asks), and at the server's end stops the
// tasks in the reverse order of the list, each given time to end and then
// killed. Every start and end is a line in the server log.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "restart_backoff.h"

namespace tarnwick::server {

struct SupervisedTask {
  std::string name;
  std::filesystem::path program;
};

class Supervisor {
 public:
  using Clock = std::chrono::steady_clock;

  // should_end is asked between rounds; true makes run() stop the tasks
  // and return.
  Supervisor(std::vector<SupervisedTask> tasks, std::filesystem::path notes_ini, std::chrono::seconds stop_time,
             std::function<bool()> should_end);

  // Runs until should_end, then stops every task.
  void run();

 private:
  struct Task {
    SupervisedTask what;
    pid_t pid = -1;
    Clock::time_point started{};
    std::optional<Clock::time_point> restart_at;  // set while an abnormal end waits for its restart
    RestartBackoff backoff;
  };

  void start(Task& task);
  void reap_ended();
  void on_end(Task& task, int wait_status);
  void start_due();
  void stop_all();
  void stop(Task& task);
  void show_status();

  std::vector<Task> tasks_;
  std::filesystem::path notes_ini_;
  std::chrono::seconds stop_time_;
  std::function<bool()> should_end_;
};

// Writes one line to the server log, under the server's task name.
void log_line(const std::string& text);

}  // namespace tarnwick::server
