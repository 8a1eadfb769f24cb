// A new server data directory: notes.ini (Directory, ServerName,
// KeyFilename), the server's ID file server.id, the templates built from the
// shipped designs (mail.ntf, OOO.ntf, OOOEx.ntf, names.ntf) and OOO.xml, the
// directory names.nsf made from names.ntf with the server's Server document,
// and the server log log.nsf.
#pragma once

#include "client.h"

#include <filesystem>
#include <string>
#include <vector>

namespace tarnwick::admin {

struct InitRequest {
  std::filesystem::path directory;
  std::string server;   // any name form; stored canonical
  std::string cluster;  // optional
  bool force = false;   // provision a non-empty directory, replacing what init writes
  std::filesystem::path design_directory;  // empty: the source tree's design folder
};

// Provisions the directory and starts the runtime on it. Returns one line
// per file made, for the command's output.
std::vector<std::string> init_data_directory(const InitRequest& request);

// Adds or replaces the entry of a server in the data directory's
// servers.ini: a section named by the server's canonical name with
// "Directory=<data directory serving it>" (absolute) and, for a server that
// does not answer, "State=down". Either may be left out, not both.
void put_servers_ini_entry(const std::string& server, const std::string& directory, bool down);

}  // namespace tarnwick::admin
