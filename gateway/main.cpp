// tarnwick-http: the web front end of the out-of-office task.
//
//   tarnwick-http --data DIR [--listen HOST] [--port N] [--timeout MS]
//   tarnwick-http =PATH/notes.ini      (as the server process starts it)
//
// Settings come from the data directory's notes.ini, and the command line
// wins over them:
//   TarnwickHTTPAddress      address to listen on (default 127.0.0.1)
//   TarnwickHTTPPort         port (default 8080; 0 picks a free one)
//   TarnwickHTTPCertificate  PEM certificate; with TarnwickHTTPKey: HTTPS
//   TarnwickHTTPKey          PEM private key (paths relative to the data directory)
//   TarnwickHTTPTimeout      milliseconds to wait for the task (default 15000)
//   TarnwickHTTPProbeUser    person whose state /healthz queries
// It prints "tarnwick-http: listening on URL" once it serves, and ends on
// SIGINT/SIGTERM or `tarnwick-admin tell tarnwick-http quit`.
#include <atomic>
#include <filesystem>
#include <iostream>
#include <thread>

#include <CLI/CLI.hpp>

#include "addin.h"
#include "failure.h"
#include "osenv.h"
#include "reply_json.h"
#include "server.h"
#include "session.h"

namespace {

using tarnwick::gateway::GatewayOptions;

std::string environment_text(const char* name) {
  char value[MAXENVVALUE + 1] = {};
  if (!OSGetEnvironmentString(name, value, MAXENVVALUE)) return {};
  return value;
}

std::string in_data_directory(const std::string& path) {
  if (path.empty() || std::filesystem::path(path).is_absolute()) return path;
  return (tarnwick::client::data_directory() / path).string();
}

// Fills what the command line left open from notes.ini.
void apply_settings(GatewayOptions& options, bool host_given, bool port_given, bool timeout_given) {
  if (!host_given) {
    if (auto host = environment_text("TarnwickHTTPAddress"); !host.empty()) options.host = host;
  }
  if (!port_given && !environment_text("TarnwickHTTPPort").empty()) {
    options.port = static_cast<int>(OSGetEnvironmentLong("TarnwickHTTPPort"));
  }
  if (!timeout_given && OSGetEnvironmentLong("TarnwickHTTPTimeout") > 0) {
    options.task_timeout_ms = OSGetEnvironmentLong("TarnwickHTTPTimeout");
  }
  options.certificate = in_data_directory(environment_text("TarnwickHTTPCertificate"));
  options.private_key = in_data_directory(environment_text("TarnwickHTTPKey"));
  options.probe_user = environment_text("TarnwickHTTPProbeUser");
}

int serve(GatewayOptions options) {
  tarnwick::gateway::XmlToolkit xml;
  tarnwick::gateway::Gateway gateway(options);
  const int port = gateway.bind();
  const std::string url = std::string(gateway.tls() ? "https" : "http") + "://" + options.host + ":" +
                          std::to_string(port) + "/";
  AddInSetStatusText(("Listening on " + url).c_str());
  AddInLogMessageText("tarnwick-http: listening on %s", NOERROR, url.c_str());
  std::cout << "tarnwick-http: listening on " << url << std::endl;

  std::atomic<bool> served{false};
  std::thread watcher([&] {
    while (!served.load() && !AddInIdle()) {
    }
    gateway.stop();
  });
  const bool ok = gateway.serve();
  served.store(true);
  watcher.join();
  AddInLogMessageText("tarnwick-http: stopped", NOERROR);
  return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("tarnwick-http: the web front end of the out-of-office task", "tarnwick-http");
  tarnwick::client::Location location;
  GatewayOptions options;
  app.add_option("--data", location.data, "the server's data directory (its notes.ini)");
  app.add_option("--ini", location.ini, "the notes.ini to use");
  auto* host = app.add_option("--listen", options.host, "address to listen on (default 127.0.0.1)");
  auto* port = app.add_option("--port", options.port, "port (0: any free port)")->check(CLI::Range(0, 65535));
  auto* timeout = app.add_option("--timeout", options.task_timeout_ms, "milliseconds to wait for the task")
                      ->check(CLI::Range(1LL, 3600LL * 1000));
  app.add_option("--threads", options.threads, "requests served at once")->check(CLI::Range(1, 256));
  // The server process starts every task with "=PATH/notes.ini".
  std::string server_ini;
  app.add_option("notes.ini", server_ini, "=PATH/notes.ini, as the server process passes it")
      ->check([](const std::string& value) { return value.starts_with("=") ? "" : "expected =PATH/notes.ini"; });
  CLI11_PARSE(app, argc, argv);
  if (!server_ini.empty() && location.ini.empty() && location.data.empty()) location.ini = server_ini.substr(1);

  try {
    tarnwick::client::start_runtime(location);
    if (STATUS status = AddInSDKInit(argc, argv); status != NOERROR) {
      std::cerr << "tarnwick-http: " << tarnwick::client::status_text(status) << "\n";
      return 1;
    }
    apply_settings(options, host->count() > 0, port->count() > 0, timeout->count() > 0);
    const int code = serve(options);
    AddInSDKTerm(NOERROR);
    NotesTerm();
    return code;
  } catch (const std::exception& failure) {
    std::cerr << "tarnwick-http: " << failure.what() << "\n";
    return 1;
  }
}
