// Where the processes of one data directory keep the state they share only
// while they run: message queues, task status lines, quit requests.
//
// None of it outlives the processes that made it, so it is kept in
// memory-backed files, /dev/shm/tarnwick-<hash of the data directory's
// canonical path>, where creating and removing a file costs microseconds
// rather than a journaling disk's milliseconds; without /dev/shm it is
// <data>/run. Every process of the same data directory finds the same folder.
// A folder records the data directory it belongs to; once a data directory
// is gone, the next process that starts removes its folder.
//
// Thread-safe.
#pragma once

#include <filesystem>

namespace tarnwick::rt {

// The folder for the current data directory, made if missing.
std::filesystem::path shared_state_root();

// Removes the shared-memory folders whose data directory no longer exists;
// returns how many. Each process runs it once, on its first use of the
// shared state.
int collect_orphaned_shared_state();

}  // namespace tarnwick::rt
