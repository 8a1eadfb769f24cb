// Starting a task's program as a child process of the server, and saying in
// words how a child ended.
//
// A task runs in a process group of its own, so a Ctrl-C at the server's
// terminal reaches the server alone, which then stops its tasks in order;
// and it is sent SIGTERM (its quit) should the server die without stopping it.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace tarnwick::server {

// Starts program with the one argument "=<notes_ini>"; the process id, or
// -1 when no process could be made. A program that cannot be run makes a
// child that exits with status 127.
pid_t start_task_process(const std::filesystem::path& program, const std::filesystem::path& notes_ini);

// True when a wait status says the process ended abnormally: by a signal, or
// by exiting with a status other than 0.
bool ended_abnormally(int wait_status);

// "exit status 3", "signal 9 (SIGKILL)".
std::string describe_end(int wait_status);

}  // namespace tarnwick::server
