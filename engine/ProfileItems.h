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
#include "nsfdata.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "osmem.h"
#include "textlist.h"

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

// Writes a text item with the text's exact length.
inline STATUS setText(NOTEHANDLE note, const char* name, const std::string& text) {
  return NSFItemSetText(note, name, text.c_str(), static_cast<WORD>(text.size()));
}

// Replaces the item by one text item holding text.
inline STATUS replaceText(NOTEHANDLE note, const char* name, const std::string& text) {
  if (STATUS status = deleteIfPresent(note, name)) return status;
  return setText(note, name, text);
}

// Replaces the item by one time item.
inline STATUS replaceTime(NOTEHANDLE note, const char* name, const TIMEDATE& value) {
  if (STATUS status = deleteIfPresent(note, name)) return status;
  return NSFItemSetTime(note, name, &value);
}

// Whether an item name begins with "Notified_" (case-insensitive).
inline bool isNotifiedItem(const char* name) { return strncasecmp(name, "Notified_", 9) == 0; }

// Deletes every "Notified_..." item of a note (in memory), so that the
// correspondents already answered are answered afresh. Returns the status
// that ended the walk over the items (non-zero: the walk ends when no item
// is left); *deleted tells whether anything went.
inline STATUS deleteNotifiedItems(NOTEHANDLE note, bool* deleted) {
  *deleted = false;
  BLOCKID item{};
  STATUS walk = NSFItemInfo(note, nullptr, 0, &item, nullptr, nullptr, nullptr);
  while (walk == NOERROR) {
    char name[256] = {0};
    WORD nameLength = 0;
    NSFItemQuery(note, item, name, sizeof name, &nameLength, nullptr, nullptr, nullptr, nullptr);
    const BLOCKID current = item;
    walk = NSFItemInfoNext(note, current, nullptr, 0, &item, nullptr, nullptr, nullptr);
    if (isNotifiedItem(name)) {
      NSFItemDeleteByBLOCKID(note, current);
      *deleted = true;
    }
  }
  return walk;
}

// The owner named by the mail database's "CalendarProfile" field "Owner" (a
// text, or the first entry of a text list); fallback when it names none.
inline std::string calendarOwner(DBHANDLE db, const std::string& fallback) {
  WORD type = 0;
  BLOCKID value{};
  DWORD length = 0;
  if (NSFProfileGetField(db, "CalendarProfile", 15, nullptr, 0, "Owner", 5, &type, &value, &length) != NOERROR) {
    return fallback;
  }
  const char* bytes = OSLockBlock(const char, value);
  std::string owner = fallback;
  if (type == TYPE_TEXT && length >= sizeof(WORD)) {
    owner.assign(bytes + sizeof(WORD), length - sizeof(WORD));
  } else if (type == TYPE_TEXT_LIST && ListGetNumEntries(bytes, TRUE) > 0) {
    char* text = nullptr;
    WORD textLength = 0;
    if (ListGetText(bytes, TRUE, 0, &text, &textLength) == NOERROR) owner.assign(text, textLength);
  }
  OSUnlockObject(value.pool);
  return owner;
}

}  // namespace tarnwick::engine

#endif  // TARNWICK_ENGINE_PROFILEITEMS_H
