#include <iostream>

#include "commands.h"
#include "failure.h"

namespace tarnwick::admin {

void Cli::on_data(CLI::App* command, std::function<void()> body) {
  command->callback([this, body = std::move(body)] {
    action = [this, body] {
      start_runtime(location);
      body();
    };
  });
}

void Cli::on(CLI::App* command, std::function<void()> body) {
  command->callback([this, body = std::move(body)] { action = body; });
}

namespace {

// "tarnwick-admin person add" for the deepest subcommand the line reached.
std::string command_path(const CLI::App& app) {
  std::string path = app.get_name();
  const CLI::App* current = &app;
  while (true) {
    const auto selected = current->get_subcommands();
    if (selected.empty()) break;
    current = selected.front();
    path += " " + current->get_name();
  }
  return path;
}

}  // namespace

int run_admin(int argc, char** argv) {
  Cli cli;
  CLI::App& app = cli.app;
  app.fallthrough();
  app.require_subcommand(1);
  auto* data = app.add_option("--data", cli.location.data, "the server's data directory (its notes.ini is used)");
  auto* ini = app.add_option("--ini", cli.location.ini, "the server's notes.ini");
  data->excludes(ini);
  app.footer(
      "Without --data or --ini, the notes.ini named by NOTES_INI, else ./notes.ini, is used.\n"
      "Run 'tarnwick-admin COMMAND --help' for a command's options.\n");
  add_setup_commands(cli);
  add_directory_commands(cli);
  add_inspect_commands(cli);
  add_runtime_commands(cli);
  add_request_commands(cli);
  add_settings_commands(cli);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    std::cout << app.help();
    return 0;
  } catch (const CLI::CallForAllHelp&) {
    std::cout << app.help("", CLI::AppFormatMode::All);
    return 0;
  } catch (const CLI::ParseError& error) {
    std::cerr << "tarnwick-admin: " << error.what() << " (see '" << command_path(app) << " --help')\n";
    return 2;
  } catch (const UsageError& error) {
    std::cerr << "tarnwick-admin: " << error.what() << " (see '" << command_path(app) << " --help')\n";
    return 2;
  }

  try {
    if (cli.action) cli.action();
    return 0;
  } catch (const UsageError& error) {
    std::cerr << "tarnwick-admin: " << error.what() << " (see '" << command_path(app) << " --help')\n";
    return 2;
  } catch (const Failure& error) {
    std::cerr << "tarnwick-admin: " << error.what() << "\n";
    return 1;
  } catch (const std::exception& error) {
    std::cerr << "tarnwick-admin: " << error.what() << "\n";
    return 1;
  } catch (...) {
    std::cerr << "tarnwick-admin: unexpected error\n";
    return 1;
  }
}

}  // namespace tarnwick::admin
