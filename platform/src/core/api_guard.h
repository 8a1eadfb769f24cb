// The boundary between the C API and the runtime's C++: no exception crosses
// it. Every call body runs inside one of these guards, which map a failure
// the same way everywhere: an allocation failure becomes ERR_MEMORY and any
// other exception ERR_UNKNOWN; calls that return a value rather than a
// STATUS return the given fallback, and calls that return nothing return.
#pragma once

#include <new>

#include "global.h"
#include "globerr.h"

namespace tarnwick::rt {

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

template <class Body>
void guarded_void(Body&& body) noexcept {
  try {
    body();
  } catch (...) {
  }
}

}  // namespace tarnwick::rt
