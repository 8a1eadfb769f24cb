// The running tasks of one data directory as every process sees them: their
// status lines ("show tasks") and quit requests ("tell <task> quit").
//
// Each task process keeps three files in shared_state_root()/tasks, named by
// its process_instance_tag() (liveness_lock.h):
//
//   <tag>.alive   locked while the process lives (a LivenessLock)
//   <tag>.lines   its status lines, "task name<TAB>status text" per line,
//                 replaced whole (written aside, renamed into place)
//   <tag>.quit    present once another process asked it to end
//
// A reader lists the .alive files and keeps those still locked; the files of
// a dead process are removed by whoever notices first. So a task that died,
// even by SIGKILL, drops out of the list at once.
//
// Thread-safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarnwick::rt {

struct TaskStatusLine {
  long process_id = 0;
  std::string task_name;
  std::string status_text;
};

// Replaces this process's published lines (in the current data directory);
// an empty list withdraws the process from the list.
void publish_status_lines(const std::vector<TaskStatusLine>& lines);

// Every status line of every live task process, by process id, each
// process's lines in the order it made them.
std::vector<TaskStatusLine> list_status_lines();

// Asks every live process that shows a status line with this task name
// (matched without case) to end: its AddInIdle turns TRUE. Like the server's
// "tell <task> quit", it also puts the queue TASK_QUEUE_PREFIX<task> into the
// QUIT state if that queue exists. Returns the number of processes asked.
int request_task_quit(std::string_view task_name);

// True once another process asked this one to end.
bool quit_requested_for_this_process();

}  // namespace tarnwick::rt
