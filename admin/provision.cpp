#include "provision.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>

#include "directory.h"
#include "failure.h"
#include "handles.h"
#include "kfm.h"
#include "lmbcs_text.h"
#include "names.h"
#include "nsfdb.h"
#include "session.h"
#include "templates.h"

namespace tarnwick::admin {
namespace {

constexpr const char* kLogFile = "log.nsf";
constexpr const char* kServerIdFile = "server.id";
constexpr const char* kDirectoryTemplate = "names.ntf";

bool is_empty_directory(const std::filesystem::path& directory) {
  std::error_code error;
  return !std::filesystem::exists(directory, error) || std::filesystem::is_empty(directory, error);
}

void write_file_atomically(const std::filesystem::path& file, const std::string& content) {
  const std::filesystem::path temp = file.string() + ".tmp";
  {
    std::ofstream out(temp, std::ios::trunc);
    out << content;
    if (!out.flush()) throw Failure("cannot write " + temp.string());
  }
  std::error_code error;
  std::filesystem::rename(temp, file, error);
  if (error) throw Failure("cannot write " + file.string() + ": " + error.message());
}

void replace_database(const std::string& path) {
  if (std::filesystem::exists(data_directory() / path)) check(NSFDbDelete(path.c_str()), "cannot replace " + path);
}

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

}  // namespace

std::vector<std::string> init_data_directory(const InitRequest& request) {
  const std::filesystem::path directory = std::filesystem::absolute(request.directory).lexically_normal();
  if (!request.force && !is_empty_directory(directory)) {
    throw Failure(request.directory.string() + " is not empty (use --force to provision it anyway)");
  }
  const std::filesystem::path designs =
      request.design_directory.empty() ? default_design_directory() : request.design_directory;
  check_design_directory(designs);
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) throw Failure("cannot create " + request.directory.string() + ": " + error.message());

  // The runtime needs a notes.ini before it can canonicalize names: write
  // the file in two steps.
  const std::filesystem::path ini = directory / "notes.ini";
  std::string dir_text = directory.string();
  if (dir_text.size() > 1 && dir_text.back() == '/') dir_text.pop_back();
  write_file_atomically(ini, "[Notes]\nDirectory=" + dir_text + "\n");
  start_runtime_at(ini);
  const std::string server = canonical_name(request.server);
  write_file_atomically(ini, "[Notes]\nDirectory=" + dir_text + "\nServerName=" + to_lmbcs(server) +
                                 "\nKeyFilename=" + kServerIdFile + "\n");
  start_runtime_at(ini);

  std::vector<std::string> made;
  made.push_back("notes.ini: Directory=" + dir_text + ", ServerName=" + server + ", KeyFilename=" + kServerIdFile);

  check(TarnwickCreateServerID(kServerIdFile, to_lmbcs(server).c_str(), request.force ? TRUE : FALSE),
        std::string("cannot create ") + kServerIdFile);
  made.push_back(std::string(kServerIdFile) + ": the server's identity and signing key");

  const std::vector<std::string> templates = install_shipped_templates(designs, request.force);
  made.insert(made.end(), templates.begin(), templates.end());

  if (request.force) replace_database(kDirectoryFile);
  create_from_template(kDirectoryTemplate, kDirectoryFile);
  Database names = Database::open(kDirectoryFile);
  names.set_title("Directory");
  put_server_document(names, server, request.cluster);
  made.push_back(std::string(kDirectoryFile) + ": the directory, with the Server document of " +
                 abbreviated_name(server) + (request.cluster.empty() ? "" : " (cluster " + request.cluster + ")"));

  if (request.force) replace_database(kLogFile);
  Database log = Database::create(kLogFile);
  log.set_title("Server Log");
  made.push_back(std::string(kLogFile) + ": the server log");
  return made;
}

void put_servers_ini_entry(const std::string& server, const std::string& directory, bool down) {
  const std::filesystem::path file = data_directory() / "servers.ini";
  std::string section = canonical_name(server);
  section.insert(section.begin(), '[');
  section += ']';
  std::string kept;
  if (std::ifstream in(file); in) {
    std::string line;
    bool in_replaced_section = false;
    while (std::getline(in, line)) {
      if (!line.empty() && line.front() == '[') in_replaced_section = lower(line) == lower(section);
      if (!in_replaced_section) kept += line + "\n";
    }
  }
  if (!kept.empty() && kept.find_last_not_of('\n') != std::string::npos &&
      kept.size() >= 2 && kept.substr(kept.size() - 2) != "\n\n") {
    kept += "\n";
  }
  kept += section + "\n";
  if (!directory.empty()) kept += "Directory=" + std::filesystem::absolute(directory).lexically_normal().string() + "\n";
  if (down) kept += "State=down\n";
  write_file_atomically(file, kept);
}

}  // namespace tarnwick::admin
