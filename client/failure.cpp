#include "failure.h"

#include <cstdio>

#include "osmisc.h"

namespace tarnwick::client {

std::string status_text(STATUS status) {
  char text[256];
  const WORD length = OSLoadString(NULLHANDLE, ERR(status), text, sizeof text);
  char code[16];
  std::snprintf(code, sizeof code, "0x%04X", static_cast<unsigned>(ERR(status)));
  if (length == 0) return std::string("status ") + code;
  return std::string(text, length) + " (" + code + ")";
}

void check(STATUS status, const std::string& what) {
  if (ERR(status) != NOERROR) throw Failure(what + ": " + status_text(status));
}

}  // namespace tarnwick::client
