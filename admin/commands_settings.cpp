// settings show|set: the per-server settings document of the application
// database, which the task reads at every request.
#include <iostream>

#include "commands.h"
#include "failure.h"
#include "names.h"
#include "session.h"
#include "settings.h"

namespace tarnwick::admin {

namespace {

struct SettingsCommand {
  std::string server;                    // empty: this server
  std::vector<std::string> assignments;  // ITEM=VALUE
};

std::string server_of(const SettingsCommand& command) {
  const std::string server = command.server.empty() ? server_name() : command.server;
  if (server.empty()) throw UsageError("notes.ini names no server; give --server NAME");
  return canonical_name(server);
}

std::string joined(const std::vector<std::string>& entries, const char* separator) {
  std::string text;
  for (size_t i = 0; i < entries.size(); ++i) text += (i ? separator : "") + entries[i];
  return text;
}

void print_settings(const Note& settings) {
  std::cout << "Server: " << settings.text("Server") << "\n";
  for (const std::string& item : kSettingItems) {
    std::cout << item << "=";
    // The lines of a text of several lines are entries of a list.
    if (settings.has(item)) std::cout << joined(settings.text_list(item), "\n");
    std::cout << "\n";
  }
  std::cout << "DocAuthor=" << joined(settings.text_list("DocAuthor"), ", ") << "\n";
}

std::vector<std::pair<std::string, std::string>> parse_assignments(const std::vector<std::string>& assignments) {
  std::vector<std::pair<std::string, std::string>> values;
  for (const std::string& assignment : assignments) {
    const size_t equals = assignment.find('=');
    if (equals == std::string::npos) throw UsageError("\"" + assignment + "\" is not ITEM=VALUE");
    values.emplace_back(setting_item(assignment.substr(0, equals)), assignment.substr(equals + 1));
  }
  return values;
}

}  // namespace

void add_settings_commands(Cli& cli) {
  auto* settings = cli.app.add_subcommand("settings", "the server's settings document in the application database");
  settings->require_subcommand(1);
  settings->footer(
      "The task reads its server's settings at every request and fills in the defaults of settings that are "
      "missing or empty (useSSL and connectOnStartup 1, language and AuthMethod -No preference-, the iOS "
      "installation text); an edit takes effect with the next request.");
  auto state = std::make_shared<SettingsCommand>();

  auto* show = settings->add_subcommand("show", "print a server's settings");
  show->add_option("--server", state->server, "the server (default: this server, notes.ini's ServerName)");
  cli.on_data(show, [state] {
    const std::string server = server_of(*state);
    const Database db = Database::open(application_database_path());
    const auto found = find_settings(db, server);
    if (!found) throw Failure("no settings document for " + server + " in " + db.path());
    print_settings(*found);
  });

  auto* set = settings->add_subcommand("set", "change settings (ITEM= removes one, so its default applies)");
  set->add_option("--server", state->server, "the server (default: this server, notes.ini's ServerName)");
  set->add_option("ITEM=VALUE", state->assignments, "serverURL, useSSL, connectOnStartup, language, AuthMethod, "
                                                    "dateformat or InstallIOS, with its new value")
      ->required();
  cli.on_data(set, [state] {
    const auto values = parse_assignments(state->assignments);
    const std::string server = server_of(*state);
    const Database db = Database::open(application_database_path());
    auto found = find_settings(db, server);
    Note settings = found ? std::move(*found) : create_settings(db, server);
    set_settings(settings, values);
    print_settings(settings);
  });
}

}  // namespace tarnwick::admin
