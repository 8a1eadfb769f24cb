// The tasks a server runs: the names listed in notes.ini's ServerTasks and
// the program each name stands for.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwick::server {

// The task names of a ServerTasks value ("tarnwick,tarnwick-http"), in
// order, without blanks around them; empty entries and repeats (matched
// without case) are dropped.
std::vector<std::string> parse_server_tasks(std::string_view value);

// The program for a task name: the executable file of that name (or of its
// lower-case form) in own_folder, else in the first folder of search_path
// (colon-separated, like PATH) that has one. Empty when there is none.
std::filesystem::path find_task_program(const std::string& task_name, const std::filesystem::path& own_folder,
                                        std::string_view search_path);

}  // namespace tarnwick::server
