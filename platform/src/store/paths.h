// Where the file of a database path given to the API is.
//
// "mail\jdoe.nsf" and "mail/jdoe.nsf" are relative to the data directory,
// "/abs/x.nsf" must name a file inside the data directory, and "server!!file" names the file on a
// server (see netpath.h): the local server's files are in the data
// directory; another server's in the data directory servers.ini gives it.
#pragma once

#include <filesystem>
#include <string_view>

#include "global.h"

namespace tarnwick::rt::store {

// ERR_INV_FILE_NAME for an empty or over-long path; ERR_SESSION_CLOSED for
// a server that is unknown or marked down; ERR_NOEXIST for a path that
// leads out of the server's data directory (by "..", an absolute path or a
// link), so that no request reaches a file of another directory.
STATUS resolve_database_path(const char* api_path, std::filesystem::path* file);

}  // namespace tarnwick::rt::store
