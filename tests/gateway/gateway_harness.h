// A whole server for the front end's tests: a data directory made with the
// real tarnwick-admin, the real task and the real tarnwick-http on a free
// loopback port, and an HTTP client. Processes are ended when the harness
// goes.
#pragma once

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>
// The resolver's headers that httplib pulls in name two macros as the
// runtime's headers do; the runtime's meaning is the one used here.
#undef STATUS
#undef NOERROR
#include <nlohmann/json.hpp>

#include "../support/processes.h"

namespace tarnwick::gateway::testing {

using namespace std::chrono_literals;
using Json = nlohmann::json;

inline const std::string kPassword = "s3cret-Pass";

// One running program; killed and reaped at scope end.
class Process {
 public:
  Process() = default;
  Process(const std::vector<std::string>& args, const std::filesystem::path& log)
      : pid_(::tarnwick::testing::spawnLogged(args, log)) {}
  Process(Process&& other) noexcept : pid_(other.pid_) { other.pid_ = -1; }
  Process& operator=(Process&& other) noexcept {
    stop();
    pid_ = other.pid_;
    other.pid_ = -1;
    return *this;
  }
  ~Process() { stop(); }
  bool running() const { return pid_ > 0; }
  // SIGTERM, then SIGKILL after a while.
  void stop() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    for (int i = 0; i < 250; ++i) {
      if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
        pid_ = -1;
        return;
      }
      std::this_thread::sleep_for(20ms);
    }
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
};

class Server {
 public:
  explicit Server(const std::string& name) {
    root_ = std::filesystem::temp_directory_path() / ("tarnwick-http-" + std::to_string(::getpid()) + "-" + name);
    std::filesystem::remove_all(root_);
    std::filesystem::create_directories(root_);
    data_ = root_ / "data";
  }
  ~Server() {
    gateway_.stop();
    task_.stop();
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }

  const std::filesystem::path& root() const { return root_; }
  const std::filesystem::path& data() const { return data_; }

  // Runs tarnwick-admin on the data directory; its output.
  std::string admin(std::vector<std::string> args, int* code = nullptr) const {
    std::vector<std::string> all = {TARNWICK_ADMIN_BINARY, "--data", data_.string()};
    if (!args.empty() && args[0] == "init") all = {TARNWICK_ADMIN_BINARY};
    all.insert(all.end(), args.begin(), args.end());
    const auto log = root_ / "admin.txt";
    std::filesystem::remove(log);
    const int result = tarnwick::testing::runAndWait(all, log);
    if (code != nullptr) *code = result;
    return tarnwick::testing::readFile(log);
  }

  // The server log of a task once it holds `text`: a process stores its
  // lines a few milliseconds after it logs them. The log as it is after
  // 30 s without it.
  std::string log_once_it_has(const std::string& task, const std::string& text) const {
    const auto until = std::chrono::steady_clock::now() + 30s;
    for (;;) {
      std::string log = admin({"log", "--task", task});
      if (log.find(text) != std::string::npos || std::chrono::steady_clock::now() > until) return log;
      std::this_thread::sleep_for(20ms);
    }
  }

  void add_person(const std::string& name, const std::string& short_name, const std::string& mode = "agent") const {
    admin({"person", "add", name, "--short", short_name, "--password", kPassword, "--create-mailfile", "--mode", mode});
  }

  // Starts the task and waits for its request queue.
  bool start_task() {
    task_ = Process({TARNWICK_TASK_BINARY, "=" + (data_ / "notes.ini").string()}, root_ / "task.txt");
    return wait_for_line(root_ / "task.txt", "Initialization Complete", 60s);
  }
  void stop_task() { task_.stop(); }

  // Starts tarnwick-http on a free port; the port, or 0.
  int start_gateway(std::vector<std::string> extra = {}) {
    std::vector<std::string> args = {TARNWICK_HTTP_BINARY, "--data", data_.string(), "--port", "0"};
    args.insert(args.end(), extra.begin(), extra.end());
    gateway_ = Process(args, root_ / "gateway.txt");
    if (!wait_for_line(root_ / "gateway.txt", "listening on http", 60s)) return 0;
    port_ = port_in(tarnwick::testing::readFile(root_ / "gateway.txt"));
    return port_;
  }

  httplib::Client client() const {
    httplib::Client http("127.0.0.1", port_);
    http.set_read_timeout(60, 0);
    http.set_connection_timeout(5, 0);
    return http;
  }

  std::string console(const char* which) const { return tarnwick::testing::readFile(root_ / which); }

 private:
  // The port of "listening on http://HOST:PORT/"; 0 when there is none.
  static int port_in(const std::string& console) {
    const size_t line = console.find("listening on http");
    const size_t colon = line == std::string::npos ? line : console.find(':', console.find("//", line));
    return colon == std::string::npos ? 0 : std::atoi(console.c_str() + colon + 1);
  }

  static bool wait_for_line(const std::filesystem::path& file, const std::string& text, std::chrono::seconds limit) {
    const auto until = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < until) {
      if (tarnwick::testing::readFile(file).find(text) != std::string::npos) return true;
      std::this_thread::sleep_for(20ms);
    }
    return false;
  }

  std::filesystem::path root_, data_;
  Process task_, gateway_;
  int port_ = 0;
};

// A signed-in browser-like client: the session cookie and CSRF token.
struct SignedIn {
  std::string cookie;
  std::string csrf;
  httplib::Headers headers(bool with_csrf = true) const {
    httplib::Headers h = {{"Cookie", cookie}};
    if (with_csrf) h.emplace("X-CSRF-Token", csrf);
    return h;
  }
};

inline Json json_of(const httplib::Result& result) {
  if (!result) return Json();
  return Json::parse(result->body, nullptr, false);
}

inline std::string basic(const std::string& name, const std::string& password) {
  static const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::string in = name + ":" + password;
  std::string out;
  unsigned value = 0;
  int bits = -6;
  for (unsigned char c : in) {
    value = (value << 8) + c;
    bits += 8;
    while (bits >= 0) {
      out += alphabet[(value >> bits) & 0x3F];
      bits -= 6;
    }
  }
  if (bits > -6) out += alphabet[((value << 8) >> (bits + 8)) & 0x3F];
  while (out.size() % 4) out += '=';
  return "Basic " + out;
}

}  // namespace tarnwick::gateway::testing
