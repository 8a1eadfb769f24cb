// Out-of-office queries and sets per second through tarnwick-http (HTTP/1.1
// keep-alive, 16 clients, each signed in as one of the persons) against the
// same requests sent straight to the task's queues by 16 threads of this
// process through the front-end client library (request file, borrowed
// reply queue, path on the request queue). One real task (OOOWorkers 8) and
// one real front end serve every case. A paced case asks at half the
// measured HTTP rate and reports its p99. An answer other than 200 / "OK"
// stops a case with an error, so a broken path never reports a speed.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>
// The resolver's headers that httplib pulls in name two macros as the
// runtime's headers do; the runtime's meaning is the one used here.
#undef STATUS
#undef NOERROR
#include <nlohmann/json.hpp>

#include "failure.h"
#include "mq.h"
#include "mqlist.h"
#include "osenv.h"
#include "request.h"
#include "tests/support/processes.h"

extern char** environ;

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using Json = nlohmann::json;

constexpr int kClients = 16;
constexpr int kPerClient = 100;
constexpr const char* kPassword = "bench-Pass1";

struct Person {
  const char* full_name;
  const char* short_name;
  const char* mode;
};
constexpr Person kPersons[] = {{"Jane Doe/Acme", "jdoe", "agent"},         {"John Smith/Acme", "jsmith", "service"},
                               {"Maria Garcia/Acme", "mgarcia", "agent"}, {"Wei Chen/Acme", "wchen", "service"},
                               {"Olga Petrova/Acme", "opetrova", "agent"}};
constexpr int kPersonCount = static_cast<int>(std::size(kPersons));

pid_t spawn(const std::vector<std::string>& args, const fs::path& log) {
  return tarnwick::testing::spawnLogged(args, log);
}

bool wait_for(const fs::path& log, const std::string& text) {
  const auto until = Clock::now() + 60s;
  while (Clock::now() < until) {
    if (tarnwick::testing::readFile(log).find(text) != std::string::npos) return true;
    std::this_thread::sleep_for(20ms);
  }
  return false;
}

// The provisioned data directory, the task and the front end, for the run.
class Server {
 public:
  static Server& instance() {
    static Server server;
    return server;
  }
  ~Server() {
    for (pid_t pid : {http_, task_}) {
      if (pid > 0) {
        ::kill(pid, SIGTERM);
        ::waitpid(pid, nullptr, 0);
      }
    }
    if (initialised_) {
      std::error_code ignored;
      char shared[MAXPATH];
      if (MQGetSharedStateDirectory(shared) > 0) fs::remove_all(shared, ignored);
    }
    fs::remove_all(root_);
  }
  const std::string& failure() const { return failure_; }
  int port() const { return port_; }

 private:
  Server() {
    root_ = fs::temp_directory_path() / ("tarnwick_gateway_bench_" + std::to_string(::getpid()));
    fs::remove_all(root_);
    fs::create_directories(root_);
    const fs::path data = root_ / "data";
    if (!admin({"init", data.string(), "--server", "Mail1/Acme"})) return;
    for (const Person& p : kPersons) {
      if (!admin({"--data", data.string(), "person", "add", p.full_name, "--short", p.short_name, "--password",
                  kPassword, "--create-mailfile", "--mode", p.mode})) {
        return;
      }
    }
    if (!admin({"--data", data.string(), "env", "set", "OOOWorkers", "8"})) return;
    task_ = spawn({TARNWICK_TASK_BINARY, "=" + (data / "notes.ini").string()}, root_ / "task.txt");
    if (task_ < 0 || !wait_for(root_ / "task.txt", "Initialization Complete")) {
      failure_ = "the task did not start: " + tarnwick::testing::readFile(root_ / "task.txt");
      return;
    }
    http_ = spawn({TARNWICK_HTTP_BINARY, "--data", data.string(), "--port", "0", "--threads", "32"},
                  root_ / "http.txt");
    if (http_ < 0 || !wait_for(root_ / "http.txt", "listening on")) {
      failure_ = "tarnwick-http did not start: " + tarnwick::testing::readFile(root_ / "http.txt");
      return;
    }
    const std::string console = tarnwick::testing::readFile(root_ / "http.txt");
    const size_t line = console.find("listening on http");
    const size_t colon = line == std::string::npos ? line : console.find(':', console.find("//", line));
    if (colon != std::string::npos) port_ = std::atoi(console.c_str() + colon + 1);
    std::string ini = "=" + (data / "notes.ini").string();
    char* argv[] = {const_cast<char*>("gateway_bench"), ini.data(), nullptr};
    initialised_ = NotesInitExtended(2, argv) == NOERROR;
    if (!initialised_) failure_ = "cannot initialise on " + ini;
  }

  bool admin(std::vector<std::string> args) {
    args.insert(args.begin(), TARNWICK_ADMIN_BINARY);
    if (tarnwick::testing::runAndWait(args, root_ / "admin.txt") == 0) return true;
    failure_ = "tarnwick-admin failed: " + tarnwick::testing::readFile(root_ / "admin.txt");
    return false;
  }

  fs::path root_;
  pid_t task_ = -1, http_ = -1;
  int port_ = 0;
  bool initialised_ = false;
  std::string failure_;
};

double percentile(std::vector<double> values, double fraction) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[std::min(values.size() - 1, static_cast<size_t>(fraction * static_cast<double>(values.size() - 1)))];
}

// One client of the front end: a keep-alive connection and a session.
class HttpClient {
 public:
  explicit HttpClient(const Person& person) : http_("127.0.0.1", Server::instance().port()) {
    http_.set_keep_alive(true);
    http_.set_read_timeout(30, 0);
    const auto signed_in = http_.Post("/api/v1/session", Json{{"name", person.short_name}, {"password", kPassword}}.dump(),
                                      "application/json");
    if (!signed_in || signed_in->status != 200) return;
    const std::string cookie = signed_in->get_header_value("Set-Cookie");
    headers_ = {{"Cookie", cookie.substr(0, cookie.find(';'))},
                {"X-CSRF-Token", Json::parse(signed_in->body)["csrf"].get<std::string>()}};
  }
  bool ready() const { return !headers_.empty(); }
  std::string query() {
    auto result = http_.Get("/api/v1/users/me/ooo", headers_);
    return !result ? "no answer" : result->status == 200 ? "" : result->body;
  }
  std::string set(int round) {
    const std::string body = Json{{"OOOEnable", "0"}, {"Subject", "Bench round " + std::to_string(round)}}.dump();
    auto result = http_.Put("/api/v1/users/me/ooo", headers_, body, "application/json");
    return !result ? "no answer" : result->status == 200 ? "" : result->body;
  }

 private:
  httplib::Client http_;
  httplib::Headers headers_;
};

// The direct path: the client library alone.
std::string direct(const Person& person, bool set, int round) {
  using namespace tarnwick::client;
  RequestOptions options;
  options.kind = set ? RequestKind::set : RequestKind::query;
  options.values.user = person.full_name;
  options.values.mail_server = "CN=Mail1/O=Acme";
  options.values.mail_box = std::string("mail/") + person.short_name + ".nsf";
  if (set) {
    options.values.enable = "0";
    options.values.subject = "Bench round " + std::to_string(round);
  }
  try {
    const RequestOutcome outcome = send_request(options);
    return outcome.reply == "OK" ? "" : outcome.reply.value_or("no reply");
  } catch (const Failure& failure) {
    return failure.what();
  }
}

enum class Path { http, direct };

// kClients threads, kPerClient requests each; latencies in µs. A non-empty
// result is the first failure. interval > 0 paces each client.
std::string run(Path path, bool set, std::vector<double>& latencies, Clock::duration interval = {}) {
  std::mutex mutex;
  std::string failure;
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int c = 0; c < kClients; ++c) {
    threads.emplace_back([&, c] {
      const Person& person = kPersons[c % kPersonCount];
      std::unique_ptr<HttpClient> http;
      if (path == Path::http) {
        http = std::make_unique<HttpClient>(person);
        if (!http->ready()) {
          std::lock_guard guard(mutex);
          failure = "cannot sign in as " + std::string(person.short_name);
          stop = true;
          return;
        }
      }
      std::vector<double> mine;
      auto next = Clock::now() + interval * c / kClients;
      for (int k = 0; k < kPerClient && !stop; ++k) {
        if (interval.count() > 0) {
          std::this_thread::sleep_until(next);
          next += interval;
        }
        const auto start = Clock::now();
        const std::string error = path == Path::http ? (set ? http->set(k) : http->query()) : direct(person, set, k);
        mine.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
        if (!error.empty()) {
          std::lock_guard guard(mutex);
          if (failure.empty()) failure = error;
          stop = true;
        }
      }
      std::lock_guard guard(mutex);
      latencies.insert(latencies.end(), mine.begin(), mine.end());
    });
  }
  for (auto& thread : threads) thread.join();
  return failure;
}

void report(benchmark::State& state, const std::vector<double>& latencies) {
  state.SetItemsProcessed(static_cast<int64_t>(latencies.size()));
  state.counters["p50_us"] = percentile(latencies, 0.50);
  state.counters["p99_us"] = percentile(latencies, 0.99);
}

void BM_Requests(benchmark::State& state, Path path, bool set) {
  if (!Server::instance().failure().empty()) {
    state.SkipWithError(Server::instance().failure().c_str());
    return;
  }
  std::vector<double> warm;
  if (std::string failure = run(path, set, warm); !failure.empty()) {
    state.SkipWithError(failure.c_str());
    return;
  }
  std::vector<double> latencies;
  for (auto _ : state) {
    if (std::string failure = run(path, set, latencies); !failure.empty()) {
      state.SkipWithError(failure.c_str());
      return;
    }
  }
  report(state, latencies);
}

// Queries through HTTP at a fixed total rate (requests per second).
void BM_HttpQueriesPaced(benchmark::State& state) {
  if (!Server::instance().failure().empty()) {
    state.SkipWithError(Server::instance().failure().c_str());
    return;
  }
  const auto interval = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
      static_cast<double>(kClients) / static_cast<double>(state.range(0))));
  std::vector<double> latencies;
  for (auto _ : state) {
    if (std::string failure = run(Path::http, false, latencies, interval); !failure.empty()) {
      state.SkipWithError(failure.c_str());
      return;
    }
  }
  report(state, latencies);
}

BENCHMARK_CAPTURE(BM_Requests, DirectQueries, Path::direct, false)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Requests, HttpQueries, Path::http, false)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Requests, DirectSets, Path::direct, true)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Requests, HttpSets, Path::http, true)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HttpQueriesPaced)->ArgName("per_second")->Arg(750)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
