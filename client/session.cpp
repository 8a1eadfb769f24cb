#include "session.h"

#include <cstdlib>
#include <vector>

#include "failure.h"
#include "osenv.h"

namespace tarnwick::client {

std::filesystem::path ini_of(const Location& location) {
  if (!location.data.empty()) return std::filesystem::path(location.data) / "notes.ini";
  if (!location.ini.empty()) return location.ini;
  const char* from_env = std::getenv("NOTES_INI");
  return (from_env != nullptr && *from_env != '\0') ? from_env : "notes.ini";
}

void start_runtime(const Location& location) {
  if (!location.data.empty()) {
    std::error_code error;
    if (!std::filesystem::is_directory(location.data, error)) {
      throw Failure("data directory " + location.data + " does not exist");
    }
    if (!std::filesystem::exists(ini_of(location), error)) {
      throw Failure("no notes.ini in data directory " + location.data +
                    " (make one with: tarnwick-admin init " + location.data + " --server NAME)");
    }
  } else if (!location.ini.empty()) {
    if (!std::filesystem::exists(location.ini)) throw Failure("notes.ini " + location.ini + " does not exist");
  } else if (!std::filesystem::exists(ini_of(location))) {
    throw Failure("no notes.ini: give --data DIR or --ini PATH, or set NOTES_INI (looked for " +
                  ini_of(location).string() + ")");
  }
  start_runtime_at(ini_of(location));
}

void start_runtime_at(const std::filesystem::path& ini) {
  std::string argument = std::filesystem::absolute(ini).string();
  argument.insert(argument.begin(), '=');
  std::vector<char*> argv = {const_cast<char*>("tarnwick-admin"), argument.data(), nullptr};
  check(NotesInitExtended(2, argv.data()), "cannot load " + ini.string());
  const std::filesystem::path directory = data_directory();
  std::error_code error;
  if (!std::filesystem::is_directory(directory, error)) {
    throw Failure("data directory " + directory.string() + " (Directory in " + ini.string() + ") does not exist");
  }
}

std::filesystem::path data_directory() {
  char path[MAXPATH] = {};
  OSGetDataDirectory(path);
  return path;
}

std::string server_name() {
  char name[MAXENVVALUE + 1] = {};
  OSGetEnvironmentString("ServerName", name, MAXENVVALUE);
  return name;
}

}  // namespace tarnwick::client
