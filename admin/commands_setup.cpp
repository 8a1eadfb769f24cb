// Commands that set up a server: init, env, server.
#include <iostream>

#include "commands.h"
#include "directory.h"
#include "failure.h"
#include "handles.h"
#include "names.h"
#include "osenv.h"
#include "provision.h"

namespace tarnwick::admin {

namespace {

void add_init(Cli& cli) {
  auto request = std::make_shared<InitRequest>();
  auto* init = cli.app.add_subcommand("init", "make a new server data directory");
  init->add_option("DIR", request->directory, "the directory to provision (created when missing)")->required();
  init->add_option("--server", request->server, "the server's name, e.g. Mail1/Acme")->required();
  init->add_option("--cluster", request->cluster, "the cluster the server belongs to");
  init->add_flag("--force", request->force,
                 "provision a non-empty directory, replacing notes.ini, the templates, names.nsf and log.nsf");
  init->add_option("--design", request->design_directory,
                   "folder of the shipped designs (mail.xml, OOO.xml, names.xml); default: the source tree's")
      ->check(CLI::ExistingDirectory);
  cli.on(init, [request] {
    const auto made = init_data_directory(*request);
    std::cout << "Provisioned " << request->directory.string() << ":\n";
    for (const std::string& line : made) std::cout << "  " << line << "\n";
  });
}

void add_env(Cli& cli) {
  auto* env = cli.app.add_subcommand("env", "read or change a notes.ini variable");
  env->require_subcommand(1);
  auto name = std::make_shared<std::string>();
  auto value = std::make_shared<std::string>();

  auto* get = env->add_subcommand("get", "print a variable's value");
  get->add_option("VAR", *name, "the variable (matched without case)")->required();
  cli.on_data(get, [name] {
    char buffer[MAXENVVALUE + 1] = {};
    if (!OSGetEnvironmentString(name->c_str(), buffer, MAXENVVALUE)) throw Failure(*name + " is not set in notes.ini");
    std::cout << buffer << "\n";
  });

  auto* set = env->add_subcommand("set", "set a variable (written to notes.ini at once)");
  set->add_option("VAR", *name, "the variable")->required();
  set->add_option("VALUE", *value, "its new value (may be empty)")->required();
  cli.on_data(set, [name, value] {
    if (name->empty() || name->find('=') != std::string::npos) {
      throw UsageError("\"" + *name + "\" is not a variable name");
    }
    if (OSSetEnvironmentVariableChecked(name->c_str(), value->c_str()) != NOERROR) {
      char ini[MAXPATH];
      OSGetNotesIniPath(ini);
      throw Failure(std::string("cannot write ") + ini);
    }
    std::cout << *name << "=" << *value << "\n";
  });
}

void add_server(Cli& cli) {
  auto* server = cli.app.add_subcommand("server", "other servers this server knows");
  server->require_subcommand(1);
  struct Options {
    std::string name, cluster, directory;
    bool down = false;
  };
  auto options = std::make_shared<Options>();
  auto* add = server->add_subcommand("add", "add a Server document and the servers.ini entry of a server");
  add->add_option("NAME", options->name, "the server's name, e.g. Mail2/Acme")->required();
  add->add_option("--cluster", options->cluster, "the cluster it belongs to");
  add->add_option("--data", options->directory, "the data directory that serves it on this machine");
  add->add_flag("--down", options->down, "the server is down (opening its databases fails)");
  cli.on_data(add, [options] {
    // The subcommand's --data is the other server's directory; the global
    // one has already chosen this server.
    if (options->directory.empty() && !options->down) {
      throw UsageError("give the other server's data directory (--data DIR) or --down");
    }
    Database names = Database::open(kDirectoryFile);
    put_server_document(names, options->name, options->cluster);
    put_servers_ini_entry(options->name, options->directory, options->down);
    std::cout << "Server " << abbreviated_name(options->name)
              << (options->cluster.empty() ? "" : " (cluster " + options->cluster + ")") << ": "
              << (options->directory.empty() ? "" : "served from " + options->directory)
              << (options->down ? std::string(options->directory.empty() ? "" : ", ") + "down" : "") << "\n";
  });
}

}  // namespace

void add_setup_commands(Cli& cli) {
  add_init(cli);
  add_env(cli);
  add_server(cli);
}

}  // namespace tarnwick::admin
