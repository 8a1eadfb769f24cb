#include "task_list.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>

namespace tarnwick::server {
namespace {

std::string trimmed(std::string_view text) {
  size_t first = 0;
  while (first < text.size() && std::isspace(static_cast<unsigned char>(text[first]))) ++first;
  size_t last = text.size();
  while (last > first && std::isspace(static_cast<unsigned char>(text[last - 1]))) --last;
  return std::string(text.substr(first, last - first));
}

std::string lower_case(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

bool is_program(const std::filesystem::path& file) {
  std::error_code ec;
  return std::filesystem::is_regular_file(file, ec) && ::access(file.c_str(), X_OK) == 0;
}

// The program of either spelling of the name in folder; empty when none.
std::filesystem::path program_in(const std::filesystem::path& folder, const std::string& name) {
  if (folder.empty()) return {};
  for (const std::string& spelling : {name, lower_case(name)}) {
    std::filesystem::path candidate = folder / spelling;
    if (is_program(candidate)) return candidate;
  }
  return {};
}

}  // namespace

std::vector<std::string> parse_server_tasks(std::string_view value) {
  std::vector<std::string> names;
  while (!value.empty()) {
    size_t comma = value.find(',');
    std::string name = trimmed(value.substr(0, comma));
    value = comma == std::string_view::npos ? std::string_view{} : value.substr(comma + 1);
    if (name.empty()) continue;
    bool listed = std::any_of(names.begin(), names.end(),
                              [&](const std::string& known) { return lower_case(known) == lower_case(name); });
    if (!listed) names.push_back(name);
  }
  return names;
}

std::filesystem::path find_task_program(const std::string& task_name, const std::filesystem::path& own_folder,
                                        std::string_view search_path) {
  // A name is a program's file name, never a path into other folders.
  if (task_name.empty() || task_name.find('/') != std::string::npos || task_name == "." || task_name == "..") {
    return {};
  }
  if (auto found = program_in(own_folder, task_name); !found.empty()) return found;
  while (!search_path.empty()) {
    size_t colon = search_path.find(':');
    std::string_view folder = search_path.substr(0, colon);
    search_path = colon == std::string_view::npos ? std::string_view{} : search_path.substr(colon + 1);
    if (folder.empty()) continue;  // the current folder is never searched
    if (auto found = program_in(folder, task_name); !found.empty()) return found;
  }
  return {};
}

}  // namespace tarnwick::server
