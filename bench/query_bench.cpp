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

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bench/end_to_end.h"

namespace {

namespace fs = std::filesystem;
using namespace tarnwick::bench;

constexpr char kMailServer[] = "CN=Mail1/O=Acme";

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

// The data directory of the whole run, provisioned on first use: the
// persons with their mail databases. This process is initialised on it.
DataDirectory& dataDirectory() {
  static DataDirectory directory("query_bench");
  static const bool provisioned = [] {
    for (const Person& person : kPersons) {
      directory.admin({"--data", directory.data().string(), "person", "add", person.fullName, "--short",
                       person.shortName, "--create-mailfile", "--mode", person.mode});
    }
    return directory.initialise();
  }();
  (void)provisioned;
  return directory;
}

// A front end asking queries; a query is wrong unless its reply is "OK"
// and its document the person's OOOReadObject.
class Client : public FrontEnd {
 public:
  Client(const fs::path& folder, int index)
      : FrontEnd(folder / ("query_" + std::to_string(index) + ".xml"),
                 "MQ$OOOServletList_bench" + std::to_string(index)) {}

  // One query of person; false with failure() set when the request could
  // not be made or its answer is wrong.
  bool ask(const Person& person) {
    const std::string request = "<Username MQName='" + replyQueue() + "' Action='1' MailServer='" + kMailServer +
                                "' MailBox='mail/" + person.shortName + ".nsf'>" + person.canonical + "</Username>";
    Answer answer;
    if (!roundTrip(request, person.fullName, answer)) return false;
    if (answer.reply != "OK") {
      return fail(std::string("query of ") + person.fullName + " answered \"" + answer.reply + "\"");
    }
    const std::string& document = answer.document;
    const bool isReadObject = document.find("<OOOReadObject>") != std::string::npos;
    const bool isPerson = document.find(std::string(">") + person.common + "</User>") != std::string::npos;
    const bool hasMode = document.find(std::string("TaskType=\"") + person.taskType + "\"") != std::string::npos;
    if (!isReadObject || !isPerson || !hasMode) {
      return fail(std::string("reply document of ") + person.fullName + " is not its OOOReadObject: " + document);
    }
    return true;
  }
};

// Runs the clients side by side, each asking perClient queries of the
// persons in turn (client i starts at person i). The first failure stops
// every client at its next query; it is returned, empty when none.
std::string runQueries(std::vector<std::unique_ptr<Client>>& clients, int perClient) {
  return runClients(clients, perClient, [](Client& client, size_t index, int k) {
    return client.ask(kPersons[(index + static_cast<size_t>(k)) % kPersonCount]);
  });
}

// The case: a task with OOOWorkers=workers (0: paced), clientCount clients
// with one query in flight each, perClient queries per client per
// iteration after one unmeasured query of every person per client.
void runCase(benchmark::State& state, long workers, int clientCount, int perClient, int warmUpPerClient) {
  DataDirectory& directory = dataDirectory();
  RunningTask task(directory, workers > 0 ? std::to_string(workers) : "");
  if (!task.failure().empty()) {
    state.SkipWithError(task.failure().c_str());
    return;
  }
  const fs::path folder = directory.data() / "spool";  // the folder the task takes requests from
  fs::create_directories(folder);
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < clientCount; ++i) {
    clients.push_back(std::make_unique<Client>(folder, i));
    if (!clients.back()->failure().empty()) {
      state.SkipWithError(clients.back()->failure().c_str());
      return;
    }
  }
  std::string failure = runQueries(clients, warmUpPerClient);
  for (auto& client : clients) client->latenciesUs().clear();

  for (auto _ : state) {
    if (failure.empty()) failure = runQueries(clients, perClient);
    if (!failure.empty()) {
      state.SkipWithError(failure.c_str());
      break;
    }
  }
  reportLatencies(state, clients);
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
