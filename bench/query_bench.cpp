// Out-of-office queries per second, end to end: a real tarnwick process on a
// data directory provisioned by the real tarnwick-admin (five persons, agent
// and service mode, each with a mail database from the mail template), asked
// by client threads of this process as a front end asks. One query is the
// whole trip: the request file written, its path put on "MQ$OutOfOffice",
// the reply taken from the client's reply queue and the reply document read
// back from the file the task wrote it over. A reply other than "OK" or a
// document that is not the asked user's OOOReadObject stops the case with an
// error, so a broken task never reports a speed.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "globerr.h"
#include "mq.h"
#include "mqlist.h"
#include "osenv.h"
#include "tests/support/processes.h"

extern char** environ;

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr char kMailServer[] = "CN=Mail1/O=Acme";
constexpr char kRequestQueue[] = "MQ$OutOfOffice";
constexpr DWORD kReplyWaitMs = 30000;

struct Person {
  const char* fullName;   // as given to tarnwick-admin
  const char* shortName;  // the mail file is mail/<shortName>.nsf
  const char* mode;       // agent or service
  const char* canonical;  // the request's user name
  const char* common;     // the reply's User text
  const char* taskType;   // the reply's TaskType: 1 agent, 2 service
};

constexpr Person kPersons[] = {
    {"Jane Doe/Acme", "jdoe", "agent", "CN=Jane Doe/O=Acme", "Jane Doe", "1"},
    {"John Smith/Acme", "jsmith", "service", "CN=John Smith/O=Acme", "John Smith", "2"},
    {"Maria Garcia/Acme", "mgarcia", "agent", "CN=Maria Garcia/O=Acme", "Maria Garcia", "1"},
    {"Wei Chen/Acme", "wchen", "service", "CN=Wei Chen/O=Acme", "Wei Chen", "2"},
    {"Olga Petrova/Acme", "opetrova", "agent", "CN=Olga Petrova/O=Acme", "Olga Petrova", "1"},
};
constexpr int kPersonCount = static_cast<int>(std::size(kPersons));

using tarnwick::testing::readFile;
using tarnwick::testing::runAndWait;

// The data directory of the whole run, provisioned on first use and removed
// when the program ends. This process is initialised on its notes.ini.
class DataDirectory {
 public:
  static DataDirectory& instance() {
    static DataDirectory directory;
    return directory;
  }

  // The shared state folder of the data directory (queues, task status) is
  // removed with it: no process of it runs any more.
  ~DataDirectory() {
    if (initialised_) {
      std::error_code ignored;
      char shared[MAXPATH];
      if (MQGetSharedStateDirectory(shared) > 0) fs::remove_all(shared, ignored);
    }
    fs::remove_all(root_);
  }

  // Empty when the directory is ready, else what went wrong.
  const std::string& failure() const { return failure_; }
  fs::path root() const { return root_; }
  fs::path data() const { return root_ / "data"; }
  std::string iniArgument() const { return std::string("=").append((data() / "notes.ini").string()); }

 private:
  DataDirectory() {
    root_ = fs::temp_directory_path() / ("tarnwick_query_bench_" + std::to_string(::getpid()));
    fs::remove_all(root_);
    fs::create_directories(root_);
    if (!admin({"init", data().string(), "--server", "Mail1/Acme", "--cluster", "AcmeCluster"})) return;
    for (const Person& person : kPersons) {
      if (!admin({"--data", data().string(), "person", "add", person.fullName, "--short", person.shortName,
                  "--create-mailfile", "--mode", person.mode})) {
        return;
      }
    }
    std::string ini = iniArgument();
    char* argv[] = {const_cast<char*>("query_bench"), ini.data()};
    initialised_ = NotesInitExtended(2, argv) == NOERROR;
    if (!initialised_) failure_ = "cannot initialise on " + ini.substr(1);
  }

  bool admin(std::vector<std::string> args) {
    args.insert(args.begin(), TARNWICK_ADMIN_BINARY);
    const fs::path log = root_ / "admin.log";
    if (runAndWait(args, log) == 0) return true;
    failure_ = "tarnwick-admin " + args[1] + " failed: " + readFile(log);
    return false;
  }

  fs::path root_;
  bool initialised_ = false;
  std::string failure_;
};

// One running task for one benchmark case, its console in console.txt.
class RunningTask {
 public:
  // workers: the OOOWorkers value; 0 leaves it empty (the paced loop).
  explicit RunningTask(long workers) : directory_(DataDirectory::instance()) {
    if (!directory_.failure().empty()) {
      failure_ = directory_.failure();
      return;
    }
    OSSetEnvironmentVariable("OOOWorkers", workers > 0 ? std::to_string(workers).c_str() : "");
    console_ = directory_.root() / "console.txt";
    std::string binary = TARNWICK_TASK_BINARY;
    std::string ini = directory_.iniArgument();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, console_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    char* argv[] = {binary.data(), ini.data(), nullptr};
    const int spawned = posix_spawn(&pid_, binary.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
      pid_ = -1;
      failure_ = "cannot start " + binary;
      return;
    }
    // Up when its request queue exists.
    const auto until = Clock::now() + 60s;
    MQHANDLE probe = NULLHANDLE;
    while (MQOpen(kRequestQueue, 0, &probe) != NOERROR) {
      if (Clock::now() > until || ::waitpid(pid_, nullptr, WNOHANG) == pid_) {
        failure_ = "the task did not start: " + readFile(console_);
        return;
      }
      std::this_thread::sleep_for(10ms);
    }
    MQClose(probe, 0);
  }

  // The task ends before the next case starts its own. The quit state cuts
  // short the loop's wait on the request queue, which a signal alone does
  // not (that wait is up to ten seconds).
  ~RunningTask() {
    if (pid_ > 0) {
      MQHANDLE requests = NULLHANDLE;
      if (MQOpen(kRequestQueue, 0, &requests) == NOERROR) {
        MQPutQuitMsg(requests);
        MQClose(requests, 0);
      }
      ::kill(pid_, SIGTERM);
      ::waitpid(pid_, nullptr, 0);
    }
  }

  RunningTask(const RunningTask&) = delete;
  RunningTask& operator=(const RunningTask&) = delete;

  const std::string& failure() const { return failure_; }
  fs::path root() const { return directory_.root(); }
  fs::path data() const { return directory_.data(); }

 private:
  DataDirectory& directory_;
  fs::path console_;
  pid_t pid_ = -1;
  std::string failure_;
};

// A front end with one request in flight: its own request file, its own
// handle on the request queue, its own reply queue.
class Client {
 public:
  Client(const fs::path& folder, int index)
      : replyQueue_("MQ$OOOServletList_bench" + std::to_string(index)),
        requestFile_(folder / ("query_" + std::to_string(index) + ".xml")),
        requestPath_(requestFile_.string()),
        buffer_(MQ_MAX_MSGSIZE) {
    if (MQOpen(kRequestQueue, 0, &requests_) != NOERROR) failure_ = std::string("cannot open ") + kRequestQueue;
    if (MQOpen(replyQueue_.c_str(), MQ_OPEN_CREATE, &replies_) != NOERROR) failure_ = "cannot make " + replyQueue_;
  }

  ~Client() {
    if (requests_ != NULLHANDLE) MQClose(requests_, 0);
    if (replies_ != NULLHANDLE) MQClose(replies_, 0);
  }

  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // One query of person; false with failure() set when the request could
  // not be made or its answer is wrong. Records the latency from the put to
  // the reply document read back.
  bool ask(const Person& person) {
    {
      std::ofstream request(requestFile_, std::ios::binary | std::ios::trunc);
      request << "<Username MQName='" << replyQueue_ << "' Action='1' MailServer='" << kMailServer << "' MailBox='mail/"
              << person.shortName << ".nsf'>" << person.canonical << "</Username>";
      if (!request.flush()) return fail("cannot write " + requestPath_);
    }
    const auto start = Clock::now();
    if (MQPut(requests_, 0, requestPath_.data(), static_cast<WORD>(requestPath_.size()), 0) != NOERROR) {
      return fail(std::string("cannot put on ") + kRequestQueue);
    }
    WORD length = 0;
    const STATUS got = MQGet(replies_, buffer_.data(), static_cast<WORD>(buffer_.size()), 0, kReplyWaitMs, &length);
    if (got != NOERROR) return fail("no reply on " + replyQueue_ + " for " + person.fullName);
    const std::string reply(buffer_.data(), length);
    const std::string document = readFile(requestFile_);
    latenciesUs_.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());

    if (reply != "OK") return fail(std::string("query of ") + person.fullName + " answered \"" + reply + "\"");
    const bool isReadObject = document.find("<OOOReadObject>") != std::string::npos;
    const bool isPerson = document.find(std::string(">") + person.common + "</User>") != std::string::npos;
    const bool hasMode = document.find(std::string("TaskType=\"") + person.taskType + "\"") != std::string::npos;
    if (!isReadObject || !isPerson || !hasMode) {
      return fail(std::string("reply document of ") + person.fullName + " is not its OOOReadObject: " + document);
    }
    return true;
  }

  const std::string& failure() const { return failure_; }
  std::vector<double>& latenciesUs() { return latenciesUs_; }

 private:
  bool fail(std::string text) {
    failure_ = std::move(text);
    return false;
  }

  std::string replyQueue_;
  fs::path requestFile_;
  std::string requestPath_;
  MQHANDLE requests_ = NULLHANDLE;
  MQHANDLE replies_ = NULLHANDLE;
  std::vector<char> buffer_;
  std::vector<double> latenciesUs_;
  std::string failure_;
};

double percentile(std::vector<double> values, double fraction) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const size_t at = static_cast<size_t>(fraction * static_cast<double>(values.size() - 1) + 0.5);
  return values[std::min(at, values.size() - 1)];
}

// Runs the clients side by side, each asking perClient queries of the
// persons in turn (client i starts at person i). The first failure stops
// every client at its next query; it is returned, empty when none.
std::string runClients(std::vector<std::unique_ptr<Client>>& clients, int perClient) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (size_t index = 0; index < clients.size(); ++index) {
    threads.emplace_back([&, index] {
      Client& client = *clients[index];
      for (int k = 0; k < perClient && !stop.load(); ++k) {
        if (!client.ask(kPersons[(index + static_cast<size_t>(k)) % kPersonCount])) stop = true;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (const auto& client : clients) {
    if (!client->failure().empty()) return client->failure();
  }
  return {};
}

// The case: a task with OOOWorkers=workers (0: paced), clientCount clients
// with one query in flight each, perClient queries per client per
// iteration after one unmeasured query of every person per client.
void runCase(benchmark::State& state, long workers, int clientCount, int perClient, int warmUpPerClient) {
  RunningTask task(workers);
  if (!task.failure().empty()) {
    state.SkipWithError(task.failure().c_str());
    return;
  }
  const fs::path folder = task.data() / "spool";  // the folder the task takes requests from
  fs::create_directories(folder);
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < clientCount; ++i) {
    clients.push_back(std::make_unique<Client>(folder, i));
    if (!clients.back()->failure().empty()) {
      state.SkipWithError(clients.back()->failure().c_str());
      return;
    }
  }
  std::string failure = runClients(clients, warmUpPerClient);
  for (auto& client : clients) client->latenciesUs().clear();

  for (auto _ : state) {
    if (failure.empty()) failure = runClients(clients, perClient);
    if (!failure.empty()) {
      state.SkipWithError(failure.c_str());
      break;
    }
  }
  std::vector<double> latencies;
  for (auto& client : clients) {
    latencies.insert(latencies.end(), client->latenciesUs().begin(), client->latenciesUs().end());
  }
  state.SetItemsProcessed(static_cast<int64_t>(latencies.size()));
  state.counters["p50_us"] = percentile(latencies, 0.50);
  state.counters["p99_us"] = percentile(latencies, 0.99);
  state.counters["max_us"] = percentile(latencies, 1.0);
}

// The worker pool: about 1000 queries per iteration whatever the number of
// clients.
void BM_QueryWorkerPool(benchmark::State& state) {
  const int clients = static_cast<int>(state.range(1));
  runCase(state, state.range(0), clients, 1000 / clients, kPersonCount);
}

// The default paced loop answers about one message a second: a handful.
void BM_QueryPaced(benchmark::State& state) { runCase(state, 0, 1, 4, 1); }

BENCHMARK(BM_QueryWorkerPool)
    ->ArgNames({"workers", "clients"})
    ->Args({4, 1})
    ->Args({4, 16})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_QueryPaced)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
