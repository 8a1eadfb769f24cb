// Which server's data directory a command works on, and starting the
// runtime on it.
//
// `--data DIR` means DIR/notes.ini, `--ini PATH` that file; without either,
// the environment variable NOTES_INI, else ./notes.ini. A missing directory
// or notes.ini is a Failure that names it.
#pragma once

#include <filesystem>
#include <string>

namespace tarnwick::client {

struct Location {
  std::string data;  // --data DIR, or empty
  std::string ini;   // --ini PATH, or empty
};

// The notes.ini a location names (it need not exist).
std::filesystem::path ini_of(const Location& location);

// Loads notes.ini and checks that the data directory exists.
void start_runtime(const Location& location);
// Loads the notes.ini at `ini` (used right after init wrote it).
void start_runtime_at(const std::filesystem::path& ini);

// The data directory of the loaded notes.ini, and its server name.
std::filesystem::path data_directory();
std::string server_name();

}  // namespace tarnwick::client
