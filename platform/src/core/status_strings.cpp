// OSLoadString over the status table.
#include <cstring>

#include "core/status_table.h"
#include "osmisc.h"

using namespace tarnwick::rt;

extern "C" WORD LNPUBLIC OSLoadString(HMODULE /*hModule*/, STATUS StringCode, char* retBuffer, WORD BufferLength) {
  if (retBuffer == nullptr || BufferLength == 0) return 0;
  retBuffer[0] = '\0';
  const char* text = status_text(StringCode);
  if (text == nullptr) return 0;
  size_t length = std::strlen(text);
  if (length > static_cast<size_t>(BufferLength - 1)) length = BufferLength - 1;
  std::memcpy(retBuffer, text, length);
  retBuffer[length] = '\0';
  return static_cast<WORD>(length);
}
