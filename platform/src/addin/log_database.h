// The server log database: "log.nsf" in the data directory, one document per
// logged line with the items "Time" (time-date), "Task" and "Text".
//
// It is the server log's default store in any process that runs with a
// notes.ini; the database is created on the first line if provisioning has
// not made it. Each call opens the database for itself (the store keeps its
// connections pooled), so any thread may log. Lines are not flushed to disk
// one by one: a process that dies keeps the lines it wrote, a power loss may
// lose the last ones.
#pragma once

#include "addin/server_log.h"

namespace tarnwick::rt {

class LogDatabaseStore : public ServerLogStore {
 public:
  STATUS append(const ServerLogLine& line) override;
  STATUS read(size_t most, std::vector<ServerLogLine>* lines) override;
};

}  // namespace tarnwick::rt
