#include "supervisor.h"

#include <signal.h>
#include <sys/wait.h>
#include <time.h>

#include <thread>

#include "addin.h"
#include "globerr.h"
#include "task_spawn.h"

namespace tarnwick::server {
namespace {

// How often the supervisor looks for ended tasks and quit requests.
constexpr std::chrono::milliseconds kRound{20};

std::string process_text(pid_t pid) { return "(process " + std::to_string(pid) + ")"; }

void pause_one_round() {
  timespec pause{0, std::chrono::duration_cast<std::chrono::nanoseconds>(kRound).count()};
  ::nanosleep(&pause, nullptr);  // a signal cuts it short
}

}  // namespace

void log_line(const std::string& text) { AddInLogMessageText("%s", NOERROR, text.c_str()); }

Supervisor::Supervisor(std::vector<SupervisedTask> tasks, std::filesystem::path notes_ini,
                       std::chrono::seconds stop_time, std::function<bool()> should_end)
    : notes_ini_(std::move(notes_ini)), stop_time_(stop_time), should_end_(std::move(should_end)) {
  for (auto& task : tasks) {
    Task& added = tasks_.emplace_back();
    added.what = std::move(task);
  }
}

void Supervisor::run() {
  for (Task& task : tasks_) start(task);
  show_status();
  while (!should_end_()) {
    reap_ended();
    start_due();
    pause_one_round();
  }
  stop_all();
}

void Supervisor::start(Task& task) {
  task.restart_at.reset();
  task.pid = start_task_process(task.what.program, notes_ini_);
  task.started = Clock::now();
  if (task.pid < 0) {
    // No process could be made (the machine is out of them): try again
    // later, as after an abnormal end.
    auto delay = task.backoff.after_abnormal_end(RestartBackoff::Duration::zero());
    task.restart_at = Clock::now() + delay;
    log_line("Cannot start task " + task.what.name + "; trying again in " + std::to_string(delay.count()) + " ms");
    return;
  }
  log_line("Started task " + task.what.name + " " + process_text(task.pid) + ": " + task.what.program.string());
}

void Supervisor::reap_ended() {
  bool changed = false;
  for (Task& task : tasks_) {
    if (task.pid <= 0) continue;
    int status = 0;
    if (::waitpid(task.pid, &status, WNOHANG) != task.pid) continue;
    on_end(task, status);
    changed = true;
  }
  if (changed) show_status();
}

void Supervisor::on_end(Task& task, int wait_status) {
  const pid_t pid = task.pid;
  task.pid = -1;
  if (!ended_abnormally(wait_status)) {
    log_line("Task " + task.what.name + " " + process_text(pid) + " ended");
    return;
  }
  auto ran = std::chrono::duration_cast<RestartBackoff::Duration>(Clock::now() - task.started);
  auto delay = task.backoff.after_abnormal_end(ran);
  task.restart_at = Clock::now() + delay;
  log_line("Task " + task.what.name + " " + process_text(pid) + " ended abnormally with " +
           describe_end(wait_status) + "; restarting it in " + std::to_string(delay.count()) + " ms");
}

void Supervisor::start_due() {
  bool changed = false;
  for (Task& task : tasks_) {
    if (task.restart_at && Clock::now() >= *task.restart_at) {
      start(task);
      changed = true;
    }
  }
  if (changed) show_status();
}

void Supervisor::stop_all() {
  log_line("Server shutting down: stopping " + std::to_string(tasks_.size()) + " tasks");
  for (auto task = tasks_.rbegin(); task != tasks_.rend(); ++task) {
    task->restart_at.reset();
    if (task->pid > 0) stop(*task);
  }
  show_status();
}

void Supervisor::stop(Task& task) {
  const pid_t pid = task.pid;
  log_line("Stopping task " + task.what.name + " " + process_text(pid));
  ::kill(pid, SIGTERM);
  const auto give_up = Clock::now() + stop_time_;
  int status = 0;
  pid_t ended = 0;
  while ((ended = ::waitpid(pid, &status, WNOHANG)) == 0 && Clock::now() < give_up) pause_one_round();
  if (ended == 0) {
    log_line("Task " + task.what.name + " " + process_text(pid) + " did not end within " +
             std::to_string(stop_time_.count()) + " s; killing it");
    ::kill(pid, SIGKILL);
    ended = ::waitpid(pid, &status, 0);
  }
  task.pid = -1;
  if (ended == pid) {
    log_line("Task " + task.what.name + " " + process_text(pid) + " ended with " + describe_end(status));
  }
}

void Supervisor::show_status() {
  size_t running = 0;
  for (const Task& task : tasks_) running += task.pid > 0 ? 1 : 0;
  std::string text = "Running " + std::to_string(running) + " of " + std::to_string(tasks_.size()) + " tasks";
  AddInSetStatusText(text.c_str());
}

}  // namespace tarnwick::server
