// Running the product's programs from tests and benchmarks: a program run to
// its end with its output in a log file, and whole files read back.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace tarnwick::testing {

// How a started program's output file is opened.
enum class LogMode { Truncate, Append };

// Starts args[0] with args, stdout and stderr going to log, in the given
// environment (this process's by default). Returns its pid; -1 when it did
// not start.
inline pid_t spawnLogged(const std::vector<std::string>& args, const std::filesystem::path& log,
                         LogMode mode = LogMode::Truncate, char* const* environment = environ) {
  std::vector<std::string> copy = args;
  std::vector<char*> argv;
  for (auto& arg : copy) argv.push_back(arg.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const int flags = O_WRONLY | O_CREAT | (mode == LogMode::Append ? O_APPEND : O_TRUNC);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log.c_str(), flags, 0644);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  pid_t pid = -1;
  if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environment) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

// Runs args[0] with args to its end, stdout and stderr appended to log.
// Returns its exit code; -1 when it did not run or did not exit.
inline int runAndWait(const std::vector<std::string>& args, const std::filesystem::path& log) {
  const pid_t pid = spawnLogged(args, log, LogMode::Append);
  int status = -1;
  if (pid > 0) ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A whole file's bytes; "" when it cannot be read.
inline std::string readFile(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace tarnwick::testing
