// Process entry of the tarnwick executable: `tarnwick =path/notes.ini`.
// main initialises the runtime and hands over to NotesMain, which runs the
// add-in task (AddInMain) between the add-in service's start and end.
#include <cstdio>

#include "addin.h"
#include "notessdkmain.h"
#include "osenv.h"
#include "task/NDAgent.h"

namespace {

void Msg(const char* text) { std::printf("\r\n%s\r\n\r\n", text); }

}  // namespace

STATUS LNPUBLIC NotesMain(int argc, char** argv) {
  STATUS status = AddInSDKInit(argc, argv);
  if (status != NOERROR) return status;
  HMODULE module = NULLHANDLE;
  NotesInitModule(&module, 0, 0);
  return AddInSDKTerm(AddInMain(module, argc, argv));
}

int main(int argc, char** argv) {
  char text[256] = {0};
  STATUS status = NotesInitExtended(argc, argv);
  if (status != NOERROR) {
    if ((NotesSDKMAINInitError(status, text, 255) & STS_DISPLAYED) == 0) Msg(text);
    return -1;
  }
  NotesSDKMAINCommandLineBegin();
  NotesSDKMAINInit(main, argc, argv);
  status = NotesMain(argc, argv);
  if (status != NOERROR) {
    NotesSDKMAINError(status, text, 255);
    Msg(text);
  }
  NotesSDKMAINCommandLineEnd();
  NotesTerm();
  return status == NOERROR ? 0 : -1;
}
