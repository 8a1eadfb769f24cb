// The command line of tarnwick-admin: one CLI11 application whose
// subcommands are registered by area. A subcommand's callback only chooses
// the action; run_admin starts the runtime and runs it after the whole line
// has been parsed, so global options may stand anywhere.
#pragma once

#include "client.h"

#include <functional>
#include <memory>

#include <CLI/CLI.hpp>

#include "session.h"

namespace tarnwick::admin {

struct Cli {
  CLI::App app{"tarnwick-admin: set up a Tarnwick server's data directory, look inside its databases and send "
               "requests as a front end would.",
               "tarnwick-admin"};
  Location location;
  std::function<void()> action;

  // Makes `command` choose `body` as the action, run with the runtime
  // started on the data directory of the global options.
  void on_data(CLI::App* command, std::function<void()> body);
  // As on_data, for commands that start the runtime themselves (init).
  void on(CLI::App* command, std::function<void()> body);
};

void add_setup_commands(Cli& cli);      // init, env, server
void add_directory_commands(Cli& cli);  // person, group, mailfile
void add_inspect_commands(Cli& cli);    // note, design, acl, verify
void add_runtime_commands(Cli& cli);    // mq, log, show tasks, tell
void add_request_commands(Cli& cli);    // request
void add_settings_commands(Cli& cli);   // settings

// Runs one command line; returns the process exit code (0 done, 1 failure,
// 2 bad usage). Errors are one line on stderr.
int run_admin(int argc, char** argv);

}  // namespace tarnwick::admin
