// The process environment of the runtime: where notes.ini is, its variables,
// and the data directory that relative database paths are resolved against.
//
// notes.ini holds KEY=VALUE lines; keys match without case; other lines
// (comments, a "[Notes]" header) are kept as they are. Every change is
// written at once to a temporary file that is renamed over notes.ini, so a
// reader in another process sees either the old or the new file, never a
// mix; a read notices when another process changed the file and reloads it.
// The parsed file is kept: a read learns of changes from an inotify watch on
// the folder of notes.ini (one non-blocking read of the watch, no look at the
// file), so a change another process made before it put a message on a queue
// is seen by the request that message starts. Thread-safe.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "global.h"

namespace tarnwick::rt {

// Loads the environment from notes.ini at `ini_path`; the previous one, if
// any, is replaced. ERR_NOEXIST when the file is missing.
STATUS load_environment(const std::filesystem::path& ini_path);

// The notes.ini in use (empty when none was loaded and none was found).
std::filesystem::path ini_path();

// The data directory: notes.ini's "Directory" (relative to the folder of
// notes.ini), else that folder; the current directory without notes.ini.
std::filesystem::path data_directory();

// A path given to the API as the platform gives it ("mail\jdoe.nsf",
// "/abs/x.nsf"): separators normalised, relative paths under the data
// directory.
std::filesystem::path resolve_data_path(std::string_view api_path);
// The same against a data directory the caller has read already.
std::filesystem::path resolve_data_path(std::string_view api_path, const std::filesystem::path& data_directory);

std::optional<std::string> get_environment(std::string_view name);

using EnvironmentLines = std::vector<std::string>;

// The variable `name` of the KEY=VALUE lines (keys without case, values
// trimmed).
std::optional<std::string> find_in(const EnvironmentLines& lines, std::string_view name);

// notes.ini as it is when the snapshot is made: for a caller that reads
// many variables at once (one look for changes instead of one per variable,
// and one version of the file for all of them).
class EnvironmentSnapshot {
 public:
  EnvironmentSnapshot();
  std::optional<std::string> get(std::string_view name) const;
  // Whether both were taken from the same reading of notes.ini: false once
  // the file has been read again (it changed, or another one was loaded).
  bool same_as(const EnvironmentSnapshot& other) const { return lines_ == other.lines_; }

 private:
  std::shared_ptr<const EnvironmentLines> lines_;
};
// Sets (or adds) a variable and writes notes.ini. Returns false when the file
// could not be written.
bool set_environment(std::string_view name, std::string_view value);

}  // namespace tarnwick::rt
