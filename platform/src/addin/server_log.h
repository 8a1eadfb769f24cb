// The server log: every line a task logs goes to the console (standard
// output, after the local date and time) and to the log database, one entry
// per line with its time, task name and text; the admin tool reads the
// entries back ("log").
//
// The log database is reached through a ServerLogStore: by default the
// log.nsf of the data directory (addin/log_database.h). Tests may install
// another, or none (nullptr): then lines reach only the console and
// read_server_log reports ERR_NOT_SUPPORTED.
//
// The console line is written at once; lines reach the store through one
// background writer that gathers them for up to 10 ms and stores each
// gathered batch together (for the log database: one commit), in the order
// they were logged. A process that dies may lose the lines of its last
// 10 ms or so; at exit (and before a read or a store change in this
// process) every waiting line is stored.
//
// Thread-safe: lines from several threads never mix on the console.
#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "global.h"

namespace tarnwick::rt {

struct ServerLogLine {
  int64_t unix_seconds = 0;  // when it was logged
  int hundredths = 0;
  std::string task_name;
  std::string text;
};

class ServerLogStore {
 public:
  virtual ~ServerLogStore() = default;
  virtual STATUS append(const ServerLogLine& line) = 0;
  // Several lines, oldest first; by default one append each.
  virtual STATUS append_batch(const std::vector<ServerLogLine>& lines);
  // The newest `most` lines (all when 0), oldest first.
  virtual STATUS read(size_t most, std::vector<ServerLogLine>* lines) = 0;
};

// Installs the store (nullptr: none); returns the one it replaces.
std::shared_ptr<ServerLogStore> install_server_log_store(std::shared_ptr<ServerLogStore> store);

// Logs one line: the console now, the store soon.
void write_server_log(const std::string& task_name, const std::string& text);

// Returns once every line logged before the call is in the store.
void flush_server_log();

STATUS read_server_log(size_t most, std::vector<ServerLogLine>* lines);

// The console form of a line: "MM/DD/YYYY HH:MM:SS AM  text" in local time.
std::string console_line(const ServerLogLine& line);

}  // namespace tarnwick::rt
