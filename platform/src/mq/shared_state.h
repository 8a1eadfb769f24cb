// Where the processes of one data directory keep the state they share only
// while they run: message queues, task status lines, quit requests.
//
// None of it outlives the processes that made it, so it is kept in
// memory-backed files, /dev/shm/tarnwick-<hash of the data directory's
// canonical path>, where creating and removing a file costs microseconds
// rather than a journaling disk's milliseconds; without /dev/shm it is
// <data>/run. Every process of the same data directory finds the same folder.
// A folder records the data directory it belongs to; once a data directory
// is gone and none of the processes that used its folder runs any more, the
// next process that starts removes the folder.
//
// The folder is made with mode 0700 and its files 0600. A folder already in
// place is used only when it belongs to this process's user and others cannot
// write to it; otherwise it is refused (logged once) and every operation on
// the shared state fails, since another local user could read or feed it.
//
// Thread-safe.
#pragma once

#include <filesystem>

namespace tarnwick::rt {

// The folder for the current data directory, made if missing; empty when
// the folder in place must not be used.
std::filesystem::path shared_state_root();

// The shared-memory folder of a data directory (its canonical path).
std::filesystem::path shared_state_folder_of(const std::filesystem::path& data_directory);

// Removes the shared-memory folders of this user whose data directory no
// longer exists and whose processes have all ended; returns how many. Each process runs it once, on its first use of the
// shared state.
int collect_orphaned_shared_state();

}  // namespace tarnwick::rt
