// A task for the server's tests whose behaviour notes.ini sets, by the
// name it runs under (its program's file name, e.g. a link named "alpha"):
//   <name>FailTimes=N     the next N starts end at once with exit status 3
//   <name>StopMillis=N    on its quit it takes N ms to end
//   <name>IgnoreQuit=1    it never ends on its own
// It logs "<name> started", "<name> stopping" and "<name> stopped".
#include <unistd.h>

#include <string>

#include "addin.h"
#include "osenv.h"

namespace {

long setting(const std::string& task, const char* what) { return OSGetEnvironmentLong((task + what).c_str()); }

int run_task(const std::string& name) {
  if (long fail = setting(name, "FailTimes"); fail > 0) {
    OSSetEnvironmentInt((name + "FailTimes").c_str(), static_cast<int>(fail - 1));
    AddInLogMessageText("%s failing", NOERROR, name.c_str());
    return 3;
  }
  AddInLogMessageText("%s started", NOERROR, name.c_str());
  while (!AddInIdle()) {
  }
  if (setting(name, "IgnoreQuit") == 1) {
    for (;;) ::pause();
  }
  AddInLogMessageText("%s stopping", NOERROR, name.c_str());
  ::usleep(static_cast<useconds_t>(setting(name, "StopMillis")) * 1000);
  AddInLogMessageText("%s stopped", NOERROR, name.c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (NotesInitExtended(argc, argv) != NOERROR || AddInSDKInit(argc, argv) != NOERROR) return 2;
  std::string name = argv[0];
  name.erase(0, name.find_last_of('/') + 1);
  int code = run_task(name);
  AddInSDKTerm(NOERROR);
  NotesTerm();
  return code;
}
