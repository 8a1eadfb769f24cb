// Small helpers for reading and replacing the text items of profile and
// design notes, shared by the engine and the status queries. They wrap the
// platform's item calls without adding policy: callers decide what a failure
// means.
#ifndef TARNWICK_ENGINE_PROFILEITEMS_H
#define TARNWICK_ENGINE_PROFILEITEMS_H

#include <strings.h>

#include <cstring>
#include <string>

#include "global.h"
#include "nsfnote.h"

namespace tarnwick::engine {

// The text of an item cut to bufferSize-1 bytes; "" when it is missing.
inline std::string itemText(NOTEHANDLE note, const char* name, WORD bufferSize = 1024) {
  std::string buffer(bufferSize, '\0');
  const WORD length = NSFItemGetText(note, name, buffer.data(), bufferSize);
  buffer.resize(length < bufferSize ? length : bufferSize - 1);
  return buffer;
}

inline BOOL hasItem(NOTEHANDLE note, const char* name) {
  return NSFItemIsPresent(note, name, static_cast<WORD>(std::strlen(name)));
}

// Deletes the item when present; NOERROR when it was absent.
inline STATUS deleteIfPresent(NOTEHANDLE note, const char* name) {
  if (!hasItem(note, name)) return NOERROR;
  return NSFItemDelete(note, name, static_cast<WORD>(std::strlen(name)));
}

// Replaces the item by one text item holding text.
inline STATUS replaceText(NOTEHANDLE note, const char* name, const std::string& text) {
  if (STATUS status = deleteIfPresent(note, name)) return status;
  return NSFItemSetText(note, name, text.c_str(), static_cast<WORD>(text.size()));
}

// Whether an item name begins with "Notified_" (case-insensitive).
inline bool isNotifiedItem(const char* name) { return strncasecmp(name, "Notified_", 9) == 0; }

}  // namespace tarnwick::engine

#endif  // TARNWICK_ENGINE_PROFILEITEMS_H
