// Out-of-office sets per second, end to end: a real tarnwick process with a
// worker pool on a data directory provisioned by the real tarnwick-admin
// (100 persons, half in agent and half in service mode, each with a mail
// database from the mail template and its absences booked as busy time),
// switched on and off by client threads of this process as front ends do.
// One set is the whole trip: the request file written, its path put on
// "MQ$OutOfOffice", the reply taken from the client's reply queue and the
// reply document read back. The task answers "OK" only once the set is
// synced to disk. Each client owns its own persons and switches each one on
// and off in turn; a reply other than "OK", or a document that does not
// show the new state, stops the case with an error.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "globerr.h"
#include "mq.h"
#include "mqlist.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfprofile.h"
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
constexpr int kPersons = 100;

using tarnwick::testing::readFile;
using tarnwick::testing::runAndWait;

std::string mailFile(int person) { return "mail/user" + std::to_string(person) + ".nsf"; }
std::string userName(int person) { return "CN=User " + std::to_string(person) + "/O=Acme"; }

// The date attributes of a request for local midnight some days ahead.
std::string dateAttributes(const char* prefix, int days) {
  std::time_t now = std::time(nullptr);
  std::tm day{};
  localtime_r(&now, &day);
  day.tm_mday += days;
  day.tm_isdst = -1;
  std::mktime(&day);
  std::string out;
  const std::pair<const char*, int> parts[] = {{"Year", day.tm_year + 1900}, {"Month", day.tm_mon + 1},
                                               {"Day", day.tm_mday},         {"Hour", 9},
                                               {"Min", 0},                   {"Sec", 0}};
  for (const auto& [name, value] : parts) {
    out += std::string(" ") + prefix + name + "='" + std::to_string(value) + "'";
  }
  return out;
}

// The data directory of the whole run, provisioned on first use and removed
// when the program ends. This process is initialised on its notes.ini.
class DataDirectory {
 public:
  static DataDirectory& instance() {
    static DataDirectory directory;
    return directory;
  }

  ~DataDirectory() {
    if (initialised_) {
      std::error_code ignored;
      char shared[MAXPATH];
      if (MQGetSharedStateDirectory(shared) > 0) fs::remove_all(shared, ignored);
    }
    fs::remove_all(root_);
  }

  const std::string& failure() const { return failure_; }
  fs::path root() const { return root_; }
  fs::path data() const { return root_ / "data"; }
  std::string iniArgument() const { return std::string("=").append((data() / "notes.ini").string()); }

 private:
  DataDirectory() {
    root_ = fs::temp_directory_path() / ("tarnwick_set_bench_" + std::to_string(::getpid()));
    fs::remove_all(root_);
    fs::create_directories(root_);
    if (!admin({"init", data().string(), "--server", "Mail1/Acme", "--cluster", "AcmeCluster"})) return;
    for (int person = 0; person < kPersons; ++person) {
      if (!admin({"--data", data().string(), "mailfile", "create", mailFile(person), "--owner",
                  "User " + std::to_string(person) + "/Acme", "--mode", person % 2 == 0 ? "agent" : "service"})) {
        return;
      }
    }
    std::string ini = iniArgument();
    char* argv[] = {const_cast<char*>("set_bench"), ini.data()};
    initialised_ = NotesInitExtended(2, argv) == NOERROR;
    if (!initialised_) {
      failure_ = "cannot initialise on " + ini.substr(1);
      return;
    }
    for (int person = 0; person < kPersons && failure_.empty(); ++person) bookBusyTime(mailFile(person));
  }

  // Absences of the person are booked as busy time in the calendar.
  void bookBusyTime(const std::string& path) {
    DBHANDLE db = NULLHANDLE;
    NOTEHANDLE profile = NULLHANDLE;
    if (NSFDbOpen(path.c_str(), &db) != NOERROR ||
        NSFProfileOpen(db, "OutOfOfficeProfile", 18, nullptr, 0, TRUE, &profile) != NOERROR ||
        NSFItemSetText(profile, "BookBusyTime", "1", 1) != NOERROR || NSFNoteUpdate(profile, 0) != NOERROR) {
      failure_ = "cannot write BookBusyTime of " + path;
    }
    if (profile != NULLHANDLE) NSFNoteClose(profile);
    NSFDbClose(db);
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

// One running task with OOOWorkers set, its console in console.txt.
class RunningTask {
 public:
  explicit RunningTask(long workers) : directory_(DataDirectory::instance()) {
    if (!directory_.failure().empty()) {
      failure_ = directory_.failure();
      return;
    }
    OSSetEnvironmentVariable("OOOWorkers", std::to_string(workers).c_str());
    const fs::path console = directory_.root() / "console.txt";
    std::string binary = TARNWICK_TASK_BINARY;
    std::string ini = directory_.iniArgument();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, console.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    char* argv[] = {binary.data(), ini.data(), nullptr};
    const int spawned = posix_spawn(&pid_, binary.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
      pid_ = -1;
      failure_ = "cannot start " + binary;
      return;
    }
    const auto until = Clock::now() + 60s;
    MQHANDLE probe = NULLHANDLE;
    while (MQOpen(kRequestQueue, 0, &probe) != NOERROR) {
      if (Clock::now() > until || ::waitpid(pid_, nullptr, WNOHANG) == pid_) {
        failure_ = "the task did not start: " + readFile(console);
        return;
      }
      std::this_thread::sleep_for(10ms);
    }
    MQClose(probe, 0);
  }

  ~RunningTask() {
    if (pid_ <= 0) return;
    MQHANDLE requests = NULLHANDLE;
    if (MQOpen(kRequestQueue, 0, &requests) == NOERROR) {
      MQPutQuitMsg(requests);
      MQClose(requests, 0);
    }
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }

  RunningTask(const RunningTask&) = delete;
  RunningTask& operator=(const RunningTask&) = delete;

  const std::string& failure() const { return failure_; }
  fs::path root() const { return directory_.root(); }

 private:
  DataDirectory& directory_;
  pid_t pid_ = -1;
  std::string failure_;
};

// A front end with one request in flight, owning the persons whose number
// modulo the client count is its index; it remembers whether each of them
// is on.
class Client {
 public:
  Client(const fs::path& folder, int index, int clients)
      : replyQueue_("MQ$OOOServletList_setbench" + std::to_string(index)),
        requestFile_(folder / ("set_" + std::to_string(index) + ".xml")),
        requestPath_(requestFile_.string()),
        buffer_(MQ_MAX_MSGSIZE) {
    for (int person = index; person < kPersons; person += clients) persons_.push_back(person);
    on_.assign(persons_.size(), false);
    if (MQOpen(kRequestQueue, 0, &requests_) != NOERROR) failure_ = std::string("cannot open ") + kRequestQueue;
    if (MQOpen(replyQueue_.c_str(), MQ_OPEN_CREATE, &replies_) != NOERROR) failure_ = "cannot make " + replyQueue_;
  }

  ~Client() {
    if (requests_ != NULLHANDLE) MQClose(requests_, 0);
    if (replies_ != NULLHANDLE) MQClose(replies_, 0);
  }

  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // The next request, for the client's persons in turn: a set that
  // switches the person over, or (mixed) a set every tenth request and a
  // query of the person's state otherwise.
  bool next(bool mixed) {
    const size_t slot = count_ % persons_.size();
    const bool isSet = !mixed || count_ % 10 == 0;
    ++count_;
    if (!isSet) return ask(slot, false);
    on_[slot] = !on_[slot];
    return ask(slot, true);
  }

  const std::string& failure() const { return failure_; }
  std::vector<double>& latenciesUs() { return latenciesUs_; }

 private:
  bool ask(size_t slot, bool set) {
    const int person = persons_[slot];
    {
      std::ofstream request(requestFile_, std::ios::binary | std::ios::trunc);
      request << "<Username MQName='" << replyQueue_ << "' Action='" << (set ? "2" : "1") << "' MailServer='"
              << kMailServer << "' MailBox='" << mailFile(person) << "'";
      if (set) {
        request << " OOOEnable='" << (on_[slot] ? "1" : "0") << "' Subject='Away'" << dateAttributes("StartTime", 1)
                << dateAttributes("EndTime", 5);
      }
      request << ">" << userName(person) << "</Username>";
      if (!request.flush()) return fail("cannot write " + requestPath_);
    }
    const auto start = Clock::now();
    if (MQPut(requests_, 0, requestPath_.data(), static_cast<WORD>(requestPath_.size()), 0) != NOERROR) {
      return fail(std::string("cannot put on ") + kRequestQueue);
    }
    WORD length = 0;
    const STATUS got = MQGet(replies_, buffer_.data(), static_cast<WORD>(buffer_.size()), 0, kReplyWaitMs, &length);
    if (got != NOERROR) return fail("no reply on " + replyQueue_ + " for " + userName(person));
    const std::string reply(buffer_.data(), length);
    const std::string document = readFile(requestFile_);
    latenciesUs_.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());

    if (reply != "OK") return fail((set ? "set of " : "query of ") + userName(person) + " answered \"" + reply + "\"");
    const std::string state = std::string("OOOEnable=\"") + (on_[slot] ? "1" : "0") + "\"";
    if (document.find("<OOOReadObject>") == std::string::npos || document.find(state) == std::string::npos) {
      return fail("reply document of " + userName(person) + " does not show " + state + ": " + document);
    }
    return true;
  }

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
  std::vector<int> persons_;
  std::vector<bool> on_;
  size_t count_ = 0;
  std::vector<double> latenciesUs_;
  std::string failure_;
};

double percentile(std::vector<double> values, double fraction) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const size_t at = static_cast<size_t>(fraction * static_cast<double>(values.size() - 1) + 0.5);
  return values[std::min(at, values.size() - 1)];
}

// Runs the clients side by side, perClient requests each; the first failure
// stops every client and is returned, empty when none.
std::string runClients(std::vector<std::unique_ptr<Client>>& clients, int perClient, bool mixed) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (auto& client : clients) {
    threads.emplace_back([&, c = client.get()] {
      for (int k = 0; k < perClient && !stop.load(); ++k) {
        if (!c->next(mixed)) stop = true;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (const auto& client : clients) {
    if (!client->failure().empty()) return client->failure();
  }
  return {};
}

// The case: a task with OOOWorkers=workers, clientCount clients with one
// request in flight each; about 2000 requests per iteration after 200
// unmeasured ones (every person switched on and off once).
void runCase(benchmark::State& state, long workers, int clientCount, bool mixed) {
  RunningTask task(workers);
  if (!task.failure().empty()) {
    state.SkipWithError(task.failure().c_str());
    return;
  }
  const fs::path folder = task.root() / "requests";
  fs::create_directories(folder);
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < clientCount; ++i) {
    clients.push_back(std::make_unique<Client>(folder, i, clientCount));
    if (!clients.back()->failure().empty()) {
      state.SkipWithError(clients.back()->failure().c_str());
      return;
    }
  }
  // Every person switched on and off once: each client's persons twice.
  std::string failure = runClients(clients, 2 * ((kPersons + clientCount - 1) / clientCount), false);
  for (auto& client : clients) client->latenciesUs().clear();

  for (auto _ : state) {
    if (failure.empty()) failure = runClients(clients, 2000 / clientCount, mixed);
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

void BM_Set(benchmark::State& state) { runCase(state, state.range(0), static_cast<int>(state.range(1)), false); }

// Nine queries to one set.
void BM_QueriesAndSets(benchmark::State& state) {
  runCase(state, state.range(0), static_cast<int>(state.range(1)), true);
}

BENCHMARK(BM_Set)
    ->ArgNames({"workers", "clients"})
    ->Args({4, 1})
    ->Args({4, 16})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_QueriesAndSets)
    ->ArgNames({"workers", "clients"})
    ->Args({4, 16})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
