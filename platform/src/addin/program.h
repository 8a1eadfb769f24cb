// The running program as the add-in services know it.
#pragma once

namespace tarnwick::rt {

// Remembers the program's name (from argv[0], without its folder, cut to
// the 20 bytes a default task name holds): it names the task in the log
// until the task has a status line, and names the default status line.
void remember_program_name(const char* argv0);

}  // namespace tarnwick::rt
