// Process entry of tarnwick-server: `tarnwick-server =path/notes.ini`.
// Runs the add-in tasks listed in notes.ini's ServerTasks, each as its own
// process on the same notes.ini, until SIGTERM, SIGINT or
// `tarnwick-admin tell server quit`; one server per data directory.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "addin.h"
#include "global.h"
#include "globerr.h"
#include "instance_lock.h"
#include "osenv.h"
#include "osmisc.h"
#include "supervisor.h"
#include "task_list.h"

namespace {

using namespace tarnwick::server;

// The name the server shows in "show tasks" and the log, and answers to in
// "tell server quit".
constexpr const char* kServerTaskName = "Server";
constexpr std::chrono::seconds kDefaultStopTime{30};

void complain(const std::string& text) { std::fprintf(stderr, "tarnwick-server: %s\n", text.c_str()); }

std::string status_text(STATUS status) {
  char text[256] = {0};
  if (OSLoadString(NULLHANDLE, ERR(status), text, sizeof text) == 0) return "error " + std::to_string(ERR(status));
  return text;
}

std::filesystem::path own_folder() {
  std::error_code ec;
  std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::filesystem::path{} : self.parent_path();
}

std::string environment_string(const char* name) {
  char value[1025] = {0};
  return OSGetEnvironmentString(name, value, sizeof value - 1) ? value : "";
}

// The listed tasks whose program is found; the others are logged.
std::vector<SupervisedTask> listed_tasks() {
  const std::string listed = environment_string("ServerTasks");
  const char* path = std::getenv("PATH");
  std::vector<SupervisedTask> tasks;
  for (const std::string& name : parse_server_tasks(listed)) {
    std::filesystem::path program = find_task_program(name, own_folder(), path ? path : "");
    if (program.empty()) {
      log_line("ServerTasks: no program for task " + name + " beside tarnwick-server or on PATH; not started");
      continue;
    }
    tasks.push_back({name, program});
  }
  if (tasks.empty()) log_line("ServerTasks lists no task that can be started");
  return tasks;
}

std::chrono::seconds stop_time() {
  long seconds = OSGetEnvironmentLong("ServerTaskStopSeconds");
  return seconds > 0 ? std::chrono::seconds(seconds) : kDefaultStopTime;
}

// Names this process "Server" in the task list and the log.
void take_server_name() {
  HMODULE module = NULLHANDLE;
  DHANDLE program_line = NULLHANDLE;
  AddInQueryDefaults(&module, &program_line);
  DHANDLE line = AddInCreateStatusLine(kServerTaskName);
  if (line == NULLHANDLE) return;
  AddInSetDefaults(module, line);
  if (program_line != NULLHANDLE) AddInDeleteStatusLine(program_line);
}

int serve(int argc, char** argv) {
  char ini[MAXPATH] = {0};
  char data[MAXPATH] = {0};
  if (OSGetNotesIniPath(ini) == 0 || OSGetDataDirectory(data) == 0) {
    complain("no notes.ini or data directory");
    return 1;
  }
  InstanceLock::Refusal refusal;
  std::optional<InstanceLock> lock = InstanceLock::acquire(data, &refusal);
  if (!lock) {
    complain(refusal.reason);
    return 1;
  }
  if (STATUS status = AddInSDKInit(argc, argv); status != NOERROR) {
    complain("cannot start: " + status_text(status));
    return 1;
  }
  take_server_name();
  log_line(std::string("Server starting on ") + data);
  Supervisor supervisor(listed_tasks(), ini, stop_time(), [] { return AddInShouldTerminate() == TRUE; });
  supervisor.run();
  log_line("Server stopped");
  AddInSDKTerm(NOERROR);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  if (STATUS status = NotesInitExtended(argc, argv); status != NOERROR) {
    complain("cannot initialize the runtime: " + status_text(status));
    return 1;
  }
  int code = serve(argc, argv);
  NotesTerm();
  return code;
}
