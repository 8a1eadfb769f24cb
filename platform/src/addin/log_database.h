// The server log database: "log.nsf" in the data directory, one document per
// logged line with the items "Time" (time-date), "Task" and "Text".
//
// It is the server log's default store in any process that runs with a
// notes.ini; the database is created on the first line if provisioning has
// not made it. Each call opens the database for itself (the store keeps its
// connections pooled); a batch of lines is one commit. Commits are not
// flushed to disk one by one: a process that dies keeps the lines it
// stored, a power loss may lose the last ones.
#pragma once

#include "addin/server_log.h"

namespace tarnwick::rt {

class LogDatabaseStore : public ServerLogStore {
 public:
  STATUS append(const ServerLogLine& line) override;
  // One open and one commit for the whole batch.
  STATUS append_batch(const std::vector<ServerLogLine>& lines) override;
  STATUS read(size_t most, std::vector<ServerLogLine>* lines) override;

 private:
  static STATUS append_line(DBHANDLE db, const ServerLogLine& line);
};

}  // namespace tarnwick::rt
