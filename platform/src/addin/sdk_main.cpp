// The generic main program's helpers (notessdkmain.h).
#include <cstdio>
#include <cstring>

#include "addin/program.h"
#include "core/api_guard.h"
#include "globerr.h"
#include "notessdkmain.h"
#include "osmisc.h"

namespace {

STATUS describe(STATUS error, const char* lead, char* retText, WORD textLength) {
  if (retText == nullptr) return error;
  char standard[256] = "";
  if (OSLoadString(NULLHANDLE, ERR(error), standard, sizeof standard) == 0) {
    std::snprintf(standard, sizeof standard, "Error 0x%04X", ERR(error));
  }
  std::snprintf(retText, static_cast<size_t>(textLength) + 1, "%s%s", lead, standard);
  return error;
}

}  // namespace

extern "C" {

STATUS LNPUBLIC NotesSDKMAINInitError(STATUS error, char* retText, WORD textLength) {
  return describe(error, "Unable to initialize the runtime: ", retText, textLength);
}

STATUS LNPUBLIC NotesSDKMAINError(STATUS error, char* retText, WORD textLength) {
  return describe(error, "", retText, textLength);
}

void LNPUBLIC NotesSDKMAINCommandLineBegin(void) { std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); }

void LNPUBLIC NotesSDKMAINInit(NOTESSDKMAIN_ENTRY /*entry*/, int argc, char** argv) {
  tarnwick::rt::guarded_void([&] {
    if (argc > 0 && argv != nullptr) tarnwick::rt::remember_program_name(argv[0]);
  });
}

void LNPUBLIC NotesSDKMAINCommandLineEnd(void) {
  std::fflush(stdout);
  std::fflush(stderr);
}

}  // extern "C"
