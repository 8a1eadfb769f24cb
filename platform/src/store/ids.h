// Identifiers and timestamps the store hands out: random database and note
// identifiers, and modification times that never repeat within the process.
// Thread-safe.
#pragma once

#include <cstdint>

#include "global.h"

namespace tarnwick::rt::store {

// A random 64-bit value (a generator seeded from the operating system's).
uint64_t random64();

// A new UNID: a random file part and the current time as the note part.
UNIVERSALNOTEID new_unid();

// The current time, later than every time this function returned before in
// this process (so that "modified since" searches never miss an update made
// in the same hundredth of a second).
TIMEDATE unique_now();
// As unique_now(), and later than the given moment (moment_of) as well.
TIMEDATE unique_now_after(int64_t moment);

// A TIMEDATE as one 64-bit value (date word high, time word low) and back,
// for storage.
int64_t pack_timedate(const TIMEDATE& td);
TIMEDATE unpack_timedate(int64_t packed);

// The moment of a TIMEDATE as a number that orders like time (hundredths
// since the start of the Julian calendar; zone bits ignored).
int64_t moment_of(const TIMEDATE& td);

}  // namespace tarnwick::rt::store
