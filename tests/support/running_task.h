// The process ID of a running add-in task, found by its name in the
// server's task list (as `show tasks` lists it).
#pragma once

#include <sys/types.h>

#include <cstring>
#include <optional>

#include "globerr.h"
#include "tasklist.h"

namespace tarnwick::testing {

inline std::optional<pid_t> runningTaskPid(const char* taskName) {
  struct Search {
    const char* name;
    std::optional<pid_t> found;
  } search{taskName, std::nullopt};
  const STATUS status = TaskEnumStatusLines(
      [](void* param, const TASK_STATUS_LINE* line) {
        auto* s = static_cast<Search*>(param);
        if (std::strcmp(line->TaskName, s->name) == 0) s->found = line->ProcessID;
      },
      &search);
  return status == NOERROR ? search.found : std::nullopt;
}

}  // namespace tarnwick::testing
