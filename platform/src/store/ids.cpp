// Identifiers and unique timestamps of the store (see ids.h).
#include "store/ids.h"

#include <sys/random.h>

#include <atomic>
#include <algorithm>
#include <mutex>
#include <random>

#include "core/fork_generation.h"
#include "ostime.h"

namespace tarnwick::rt::store {

namespace {

uint64_t system_random64() {
  uint64_t value = 0;
  if (getrandom(&value, sizeof(value), 0) == static_cast<ssize_t>(sizeof(value))) return value;
  std::random_device device;
  return (static_cast<uint64_t>(device()) << 32) ^ device();
}

}  // namespace

// A generator per thread, seeded from the system's once (a system call per
// value showed in every note written). A forked child seeds its own: it must
// not repeat its parent's values.
uint64_t random64() {
  struct Generator {
    std::mt19937_64 engine;
    unsigned generation = 0;
    bool seeded = false;
  };
  thread_local Generator generator;
  if (!generator.seeded || generator.generation != fork_generation()) {
    const uint64_t a = system_random64(), b = system_random64();
    std::seed_seq seed{static_cast<uint32_t>(a), static_cast<uint32_t>(a >> 32), static_cast<uint32_t>(b),
                       static_cast<uint32_t>(b >> 32)};
    generator.engine.seed(seed);
    generator.generation = fork_generation();
    generator.seeded = true;
  }
  return generator.engine();
}

int64_t pack_timedate(const TIMEDATE& td) {
  return static_cast<int64_t>((static_cast<uint64_t>(td.Innards[1]) << 32) | td.Innards[0]);
}

TIMEDATE unpack_timedate(int64_t packed) {
  const auto bits = static_cast<uint64_t>(packed);
  TIMEDATE td;
  td.Innards[0] = static_cast<DWORD>(bits & 0xFFFFFFFFu);
  td.Innards[1] = static_cast<DWORD>(bits >> 32);
  return td;
}

int64_t moment_of(const TIMEDATE& td) {
  if (td.Innards[0] == ALLDAY || td.Innards[1] == ANYDAY) return 0;
  return static_cast<int64_t>(td.Innards[1] & TIMEDATE_JULIAN_MASK) * TICKS_IN_DAY + td.Innards[0];
}

TIMEDATE unique_now() { return unique_now_after(0); }

TIMEDATE unique_now_after(int64_t moment) {
  static std::mutex mutex;
  static int64_t last_moment = 0;
  // The clock is read under the lock too: one reader at a time keeps the
  // C library's time-zone state (which it guards with a lock the thread
  // sanitizer cannot see) out of reach of concurrent store calls.
  std::lock_guard lock(mutex);
  TIMEDATE now;
  OSCurrentTIMEDATE(&now);
  const int64_t floor = std::max(last_moment, moment);
  if (moment_of(now) <= floor) {
    // Step to the next hundredth after the floor.
    const int64_t next = floor + 1;
    now.Innards[1] = (now.Innards[1] & ~TIMEDATE_JULIAN_MASK) | static_cast<DWORD>(next / TICKS_IN_DAY);
    now.Innards[0] = static_cast<DWORD>(next % TICKS_IN_DAY);
  }
  last_moment = moment_of(now);
  return now;
}

UNIVERSALNOTEID new_unid() {
  UNIVERSALNOTEID unid;
  const uint64_t file = random64();
  unid.File.Innards[0] = static_cast<DWORD>(file);
  unid.File.Innards[1] = static_cast<DWORD>(file >> 32);
  unid.Note = unique_now();
  return unid;
}

}  // namespace tarnwick::rt::store
