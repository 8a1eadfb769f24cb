// User status requests over large groups, end to end: a real tarnwick
// process on a data directory whose directory holds 1,000 persons sharing
// 100 mail databases (made by the real tarnwick-admin from the mail
// template, agent and service mode alternating), in ten groups of 100
// ("Hundred" the first of them) nested in the group "Everyone".
// One request is the whole trip: the request file written, its path put on
// "MQ$OutOfOffice", the reply taken from the reply queue and the reply
// document read back. A reply other than "OK", or a document without one
// full User element per member, stops the case with an error, so a broken
// task never reports a speed.
//
// Reported: real time per request (its median over the repetitions) and
// members_per_s, the members reported per second.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "globerr.h"
#include "mq.h"
#include "mqlist.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osenv.h"
#include "tests/support/processes.h"

extern char** environ;

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr char kRequestQueue[] = "MQ$OutOfOffice";
constexpr char kReplyQueue[] = "MQ$OOOServletList_statusbench";
constexpr int kMailFiles = 100;
constexpr int kPersons = 1000;
constexpr DWORD kReplyWaitMs = 120000;

using tarnwick::testing::readFile;
using tarnwick::testing::runAndWait;

std::string memberName(int i) { return "CN=Member " + std::to_string(i) + "/O=Acme"; }

// The data directory of the whole run, provisioned on first use and
// removed when the program ends. This process is initialised on it.
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
    root_ = fs::temp_directory_path() / ("tarnwick_status_bench_" + std::to_string(::getpid()));
    fs::remove_all(root_);
    fs::create_directories(root_);
    if (!admin({"init", data().string(), "--server", "Mail1/Acme", "--cluster", "AcmeCluster"})) return;
    for (int m = 0; m < kMailFiles; ++m) {
      if (!admin({"--data", data().string(), "mailfile", "create", "mail/shared" + std::to_string(m) + ".nsf",
                  "--owner", memberName(m), "--mode", m % 2 == 0 ? "agent" : "service"})) {
        return;
      }
    }
    std::string ini = iniArgument();
    char* argv[] = {const_cast<char*>("status_bench"), ini.data()};
    if (NotesInitExtended(2, argv) != NOERROR) {
      failure_ = "cannot initialise on " + ini.substr(1);
      return;
    }
    initialised_ = true;
    failure_ = writeDirectory();
  }

 private:
  bool admin(std::vector<std::string> args) {
    args.insert(args.begin(), TARNWICK_ADMIN_BINARY);
    const fs::path log = root_ / "admin.log";
    if (runAndWait(args, log) == 0) return true;
    failure_ = "tarnwick-admin " + args[1] + " failed: " + readFile(log);
    return false;
  }

  // The persons and the group, written straight into the directory (the
  // admin tool would take a process per person).
  std::string writeDirectory() {
    DBHANDLE names = NULLHANDLE;
    if (NSFDbOpen("names.nsf", &names) != NOERROR) return "cannot open names.nsf";
    std::string failure;
    auto add = [&](const std::map<std::string, std::vector<std::string>>& items) {
      NOTEHANDLE note = NULLHANDLE;
      if (NSFNoteCreate(names, &note) != NOERROR) return false;
      bool ok = true;
      for (const auto& [name, values] : items) {
        ok = ok && NSFItemCreateTextList(note, name.c_str(), values[0].c_str(), static_cast<WORD>(values[0].size())) ==
                       NOERROR;
        for (size_t i = 1; ok && i < values.size(); ++i) {
          ok = NSFItemAppendTextList(note, name.c_str(), values[i].c_str(), static_cast<WORD>(values[i].size()),
                                     TRUE) == NOERROR;
        }
      }
      ok = ok && NSFNoteUpdate(note, 0) == NOERROR;
      NSFNoteClose(note);
      return ok;
    };
    std::vector<std::string> all;
    for (int i = 0; i < kPersons && failure.empty(); ++i) {
      all.push_back(memberName(i));
      if (!add({{"Form", {"Person"}},
                {"Type", {"Person"}},
                {"FullName", {memberName(i)}},
                {"MailServer", {"CN=Mail1/O=Acme"}},
                {"MailFile", {"mail/shared" + std::to_string(i % kMailFiles) + ".nsf"}}})) {
        failure = "cannot add person " + memberName(i);
      }
    }
    // Ten groups of 100 ("Team 0" is "Hundred"), nested in "Everyone": a
    // group's member list must stay within an item's summary size.
    std::vector<std::string> teams;
    for (int t = 0; t * 100 < kPersons && failure.empty(); ++t) {
      const std::string team = t == 0 ? "Hundred" : "Team " + std::to_string(t);
      const std::vector<std::string> members(all.begin() + t * 100, all.begin() + std::min(kPersons, (t + 1) * 100));
      teams.push_back(team);
      if (!add({{"Form", {"Group"}}, {"Type", {"Group"}}, {"ListName", {team}}, {"Members", members}})) {
        failure = "cannot add the group " + team;
      }
    }
    if (failure.empty() &&
        !add({{"Form", {"Group"}}, {"Type", {"Group"}}, {"ListName", {"Everyone"}}, {"Members", teams}})) {
      failure = "cannot add the group Everyone";
    }
    NSFDbClose(names);
    return failure;
  }

  fs::path root_;
  bool initialised_ = false;
  std::string failure_;
};

// The task for one benchmark run; ended with a quit message and a signal.
class RunningTask {
 public:
  explicit RunningTask(const DataDirectory& directory) {
    OSSetEnvironmentVariable("OOOWorkers", "2");
    const fs::path console = directory.root() / "console.txt";
    std::string binary = TARNWICK_TASK_BINARY;
    std::string ini = directory.iniArgument();
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
    while (MQOpen(kRequestQueue, 0, &requests_) != NOERROR) {
      if (Clock::now() > until || ::waitpid(pid_, nullptr, WNOHANG) == pid_) {
        failure_ = "the task did not start: " + readFile(console);
        return;
      }
      std::this_thread::sleep_for(10ms);
    }
    if (MQOpen(kReplyQueue, MQ_OPEN_CREATE, &replies_) != NOERROR) failure_ = "cannot make the reply queue";
  }

  ~RunningTask() {
    if (replies_ != NULLHANDLE) MQClose(replies_, 0);
    if (requests_ != NULLHANDLE) {
      MQPutQuitMsg(requests_);
      MQClose(requests_, 0);
    }
    if (pid_ > 0) {
      ::kill(pid_, SIGTERM);
      ::waitpid(pid_, nullptr, 0);
    }
  }

  RunningTask(const RunningTask&) = delete;
  RunningTask& operator=(const RunningTask&) = delete;

  const std::string& failure() const { return failure_; }

  // One status request for name; empty when its answer is right, else what
  // is wrong with it.
  std::string askStatus(const fs::path& file, const std::string& name, int members) {
    {
      std::ofstream request(file, std::ios::binary | std::ios::trunc);
      request << "<Username MQName='" << kReplyQueue << "' Action='3' QueryUser='CN=Olga Petrova/O=Acme'>" << name
              << "</Username>";
    }
    std::string path = file.string();
    if (MQPut(requests_, 0, path.data(), static_cast<WORD>(path.size()), 0) != NOERROR) return "cannot put";
    std::vector<char> buffer(MQ_MAX_MSGSIZE);
    WORD length = 0;
    if (MQGet(replies_, buffer.data(), static_cast<WORD>(buffer.size()), 0, kReplyWaitMs, &length) != NOERROR) {
      return "no reply";
    }
    const std::string reply(buffer.data(), length);
    if (reply != "OK") return "the reply is \"" + reply + "\"";
    const std::string document = readFile(file);
    int full = 0;
    for (size_t at = document.find("User_Status=\"1\""); at != std::string::npos;
         at = document.find("User_Status=\"1\"", at + 1)) {
      ++full;
    }
    if (full != members) {
      return "the document has " + std::to_string(full) + " full User elements of " + std::to_string(members);
    }
    if (document.find(">Member " + std::to_string(members - 1) + "/Acme</User>") == std::string::npos) {
      return "the last member is missing from the document";
    }
    return {};
  }

 private:
  pid_t pid_ = -1;
  MQHANDLE requests_ = NULLHANDLE;
  MQHANDLE replies_ = NULLHANDLE;
  std::string failure_;
};

void BM_StatusOfGroup(benchmark::State& state) {
  const int members = static_cast<int>(state.range(0));
  const std::string group = members == kPersons ? "Everyone" : "Hundred";
  DataDirectory& directory = DataDirectory::instance();
  if (!directory.failure().empty()) {
    state.SkipWithError(directory.failure().c_str());
    return;
  }
  RunningTask task(directory);
  if (!task.failure().empty()) {
    state.SkipWithError(task.failure().c_str());
    return;
  }
  const fs::path file = directory.root() / "status.xml";
  // One unmeasured request: the first opening of every mail database.
  std::string failure = task.askStatus(file, group, members);
  for (auto _ : state) {
    if (failure.empty()) failure = task.askStatus(file, group, members);
    if (!failure.empty()) {
      state.SkipWithError(failure.c_str());
      break;
    }
  }
  state.counters["members_per_s"] = benchmark::Counter(
      static_cast<double>(members) * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

BENCHMARK(BM_StatusOfGroup)
    ->ArgName("members")
    ->Arg(100)
    ->Arg(1000)
    ->Iterations(3)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
