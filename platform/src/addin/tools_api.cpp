// The calls of serverlog.h and tasklist.h: the server log and the task list
// as the server's tools read them, over server_log.h and task_registry.h.
#include <string>
#include <vector>

#include "addin/server_log.h"
#include "addin/task_registry.h"
#include "core/api_guard.h"
#include "globerr.h"
#include "serverlog.h"
#include "tasklist.h"

using namespace tarnwick::rt;

extern "C" {

STATUS LNPUBLIC ServerLogEnumLines(DWORD MostLines, SERVERLOGENUMFUNC Callback, void* Param) {
  if (Callback == nullptr) return ERR_BAD_PARAM;
  return guarded([&]() -> STATUS {
    std::vector<ServerLogLine> lines;
    if (STATUS status = read_server_log(MostLines, &lines)) return status;
    for (const ServerLogLine& line : lines) {
      const std::string console = console_line(line);
      const SERVER_LOG_LINE entry{line.unix_seconds, static_cast<WORD>(line.hundredths), line.task_name.c_str(),
                                  line.text.c_str(), console.c_str()};
      Callback(Param, &entry);
    }
    return NOERROR;
  });
}

STATUS LNPUBLIC TaskEnumStatusLines(TASKSTATUSENUMFUNC Callback, void* Param) {
  if (Callback == nullptr) return ERR_BAD_PARAM;
  return guarded([&]() -> STATUS {
    for (const TaskStatusLine& line : list_status_lines()) {
      const TASK_STATUS_LINE entry{static_cast<DWORD>(line.process_id), line.task_name.c_str(),
                                   line.status_text.c_str()};
      Callback(Param, &entry);
    }
    return NOERROR;
  });
}

STATUS LNPUBLIC TaskRequestQuit(const char* TaskName, DWORD* retProcesses) {
  if (retProcesses != nullptr) *retProcesses = 0;
  if (TaskName == nullptr || *TaskName == '\0') return ERR_BAD_PARAM;
  return guarded([&]() -> STATUS {
    const int asked = request_task_quit(TaskName);
    if (retProcesses != nullptr) *retProcesses = static_cast<DWORD>(asked);
    return NOERROR;
  });
}

}  // extern "C"
