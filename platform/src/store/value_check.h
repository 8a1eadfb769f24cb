// Checks of item values given to the API before they enter a note: the type
// must be one of the platform's data types, and values of the types the
// runtime reads (numbers, times, text lists, ranges) must be well formed so
// that every later reader can trust them. Other types are kept as given.
#pragma once

#include <string_view>

#include "global.h"

namespace tarnwick::rt::store {

// NOERROR, or ERR_INVALID_ITEMUNK for an unknown type or a malformed value.
STATUS check_item_value(WORD type, std::string_view value);

}  // namespace tarnwick::rt::store
