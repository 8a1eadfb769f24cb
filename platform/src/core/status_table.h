// Lookup of the standard text of a status code (the table behind OSLoadString).
// The table is sorted by code and immutable: safe from any thread.
#pragma once

#include <span>

#include "global.h"

namespace tarnwick::rt {

struct StatusText {
  STATUS code;
  const char* text;
};

// Every entry, in ascending code order.
std::span<const StatusText> all_status_texts();

// The text of ERR(code), or nullptr when the runtime has none.
const char* status_text(STATUS code);

}  // namespace tarnwick::rt
