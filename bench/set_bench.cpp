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

#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench/end_to_end.h"
#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "tests/support/request_dates.h"

namespace {

namespace fs = std::filesystem;
using namespace tarnwick::bench;
using tarnwick::testing::requestDateAttributes;

constexpr char kMailServer[] = "CN=Mail1/O=Acme";
constexpr int kPersons = 100;

std::string mailFile(int person) { return "mail/user" + std::to_string(person) + ".nsf"; }
std::string userName(int person) { return "CN=User " + std::to_string(person) + "/O=Acme"; }

// Absences of the person are booked as busy time in the calendar.
void bookBusyTime(DataDirectory& directory, const std::string& path) {
  DBHANDLE db = NULLHANDLE;
  NOTEHANDLE profile = NULLHANDLE;
  if (NSFDbOpen(path.c_str(), &db) != NOERROR ||
      NSFProfileOpen(db, "OutOfOfficeProfile", 18, nullptr, 0, TRUE, &profile) != NOERROR ||
      NSFItemSetText(profile, "BookBusyTime", "1", 1) != NOERROR || NSFNoteUpdate(profile, 0) != NOERROR) {
    directory.fail("cannot write BookBusyTime of " + path);
  }
  if (profile != NULLHANDLE) NSFNoteClose(profile);
  NSFDbClose(db);
}

// The data directory of the whole run, provisioned on first use: the mail
// databases with busy time booked. This process is initialised on it.
DataDirectory& dataDirectory() {
  static DataDirectory directory("set_bench");
  static const bool provisioned = [] {
    for (int person = 0; person < kPersons; ++person) {
      directory.admin({"--data", directory.data().string(), "mailfile", "create", mailFile(person), "--owner",
                       "User " + std::to_string(person) + "/Acme", "--mode", person % 2 == 0 ? "agent" : "service"});
    }
    if (!directory.initialise()) return false;
    for (int person = 0; person < kPersons && directory.failure().empty(); ++person) {
      bookBusyTime(directory, mailFile(person));
    }
    return directory.failure().empty();
  }();
  (void)provisioned;
  return directory;
}

// A front end with one request in flight, owning the persons whose number
// modulo the client count is its index; it remembers whether each of them
// is on.
class Client : public FrontEnd {
 public:
  Client(const fs::path& folder, int index, int clients)
      : FrontEnd(folder / ("set_" + std::to_string(index) + ".xml"),
                 "MQ$OOOServletList_setbench" + std::to_string(index)) {
    for (int person = index; person < kPersons; person += clients) persons_.push_back(person);
    on_.assign(persons_.size(), false);
  }

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

 private:
  bool ask(size_t slot, bool set) {
    const int person = persons_[slot];
    std::string request = "<Username MQName='" + replyQueue() + "' Action='" + (set ? "2" : "1") + "' MailServer='" +
                          kMailServer + "' MailBox='" + mailFile(person) + "'";
    if (set) {
      request += std::string(" OOOEnable='") + (on_[slot] ? "1" : "0") + "' Subject='Away'" +
                 requestDateAttributes("StartTime", 1) + requestDateAttributes("EndTime", 5);
    }
    request += '>';
    request += userName(person);
    request += "</Username>";
    Answer answer;
    if (!roundTrip(request, userName(person), answer)) return false;
    const std::string& reply = answer.reply;
    const std::string& document = answer.document;
    if (reply != "OK") return fail((set ? "set of " : "query of ") + userName(person) + " answered \"" + reply + "\"");
    const std::string state = std::string("OOOEnable=\"") + (on_[slot] ? "1" : "0") + "\"";
    if (document.find("<OOOReadObject>") == std::string::npos || document.find(state) == std::string::npos) {
      return fail("reply document of " + userName(person) + " does not show " + state + ": " + document);
    }
    return true;
  }

  std::vector<int> persons_;
  std::vector<bool> on_;
  size_t count_ = 0;
};

// Runs the clients side by side, perClient requests each; the first failure
// stops every client and is returned, empty when none.
std::string runRequests(std::vector<std::unique_ptr<Client>>& clients, int perClient, bool mixed) {
  return runClients(clients, perClient, [mixed](Client& client, size_t, int) {
    return client.next(mixed);
  });
}

// The case: a task with OOOWorkers=workers, clientCount clients with one
// request in flight each; about 2000 requests per iteration after 200
// unmeasured ones (every person switched on and off once).
void runCase(benchmark::State& state, long workers, int clientCount, bool mixed) {
  DataDirectory& directory = dataDirectory();
  RunningTask task(directory, std::to_string(workers));
  if (!task.failure().empty()) {
    state.SkipWithError(task.failure().c_str());
    return;
  }
  const fs::path folder = directory.data() / "spool";  // the folder the task takes requests from
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
  std::string failure = runRequests(clients, 2 * ((kPersons + clientCount - 1) / clientCount), false);
  for (auto& client : clients) client->latenciesUs().clear();

  for (auto _ : state) {
    if (failure.empty()) failure = runRequests(clients, 2000 / clientCount, mixed);
    if (!failure.empty()) {
      state.SkipWithError(failure.c_str());
      break;
    }
  }
  reportLatencies(state, clients);
}

void BM_Set(benchmark::State& state) { runCase(state, state.range(0), static_cast<int>(state.range(1)), false); }

// Nine queries to one set.
void BM_QueriesAndSets(benchmark::State& state) {
  runCase(state, state.range(0), static_cast<int>(state.range(1)), true);
}

// With 16 clients a pool of 16 workers lets every set in flight run, so that
// the waits of one set's sync overlap the work of the others.
BENCHMARK(BM_Set)
    ->ArgNames({"workers", "clients"})
    ->Args({4, 1})
    ->Args({4, 16})
    ->Args({16, 16})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_QueriesAndSets)
    ->ArgNames({"workers", "clients"})
    ->Args({4, 16})
    ->Args({16, 16})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
