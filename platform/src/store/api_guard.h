// The boundary between the C API and the store's C++: no exception crosses
// it. A call body runs inside guarded(); an allocation failure becomes
// ERR_MEMORY and any other exception ERR_UNKNOWN (or the given fallback for
// calls that return a value rather than a STATUS).
#pragma once

#include <new>

#include "global.h"
#include "globerr.h"

namespace tarnwick::rt::store {

template <class Body>
STATUS guarded(Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return ERR_MEMORY;
  } catch (...) {
    return ERR_UNKNOWN;
  }
}

template <class Result, class Body>
Result guarded_value(Result fallback, Body&& body) noexcept {
  try {
    return body();
  } catch (...) {
    return fallback;
  }
}

}  // namespace tarnwick::rt::store
