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

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "bench/end_to_end.h"
#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"

namespace {

namespace fs = std::filesystem;
using namespace tarnwick::bench;

constexpr char kReplyQueue[] = "MQ$OOOServletList_statusbench";
constexpr int kMailFiles = 100;
constexpr int kPersons = 1000;
constexpr DWORD kReplyWaitMs = 120000;

std::string memberName(int i) { return "CN=Member " + std::to_string(i) + "/O=Acme"; }

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

// The data directory of the whole run, provisioned on first use: the
// shared mail databases, the persons and the groups. This process is
// initialised on it.
DataDirectory& dataDirectory() {
  static DataDirectory directory("status_bench");
  static const bool provisioned = [] {
    for (int m = 0; m < kMailFiles; ++m) {
      directory.admin({"--data", directory.data().string(), "mailfile", "create",
                       "mail/shared" + std::to_string(m) + ".nsf", "--owner", memberName(m), "--mode",
                       m % 2 == 0 ? "agent" : "service"});
    }
    if (!directory.initialise()) return false;
    const std::string failure = writeDirectory();
    if (!failure.empty()) directory.fail(failure);
    return failure.empty();
  }();
  (void)provisioned;
  return directory;
}

// The front end asking for the status of a group's members.
class StatusClient : public FrontEnd {
 public:
  explicit StatusClient(const fs::path& file) : FrontEnd(file, kReplyQueue, kReplyWaitMs) {}

  // One status request for name; empty when its answer is right, else what
  // is wrong with it.
  std::string askStatus(const std::string& name, int members) {
    const std::string request =
        "<Username MQName='" + replyQueue() + "' Action='3' QueryUser='CN=Olga Petrova/O=Acme'>" + name + "</Username>";
    Answer answer;
    if (!roundTrip(request, name, answer)) return failure();
    const std::string& reply = answer.reply;
    if (reply != "OK") return "the reply is \"" + reply + "\"";
    const std::string& document = answer.document;
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
};

void BM_StatusOfGroup(benchmark::State& state) {
  const int members = static_cast<int>(state.range(0));
  const std::string group = members == kPersons ? "Everyone" : "Hundred";
  DataDirectory& directory = dataDirectory();
  if (!directory.failure().empty()) {
    state.SkipWithError(directory.failure().c_str());
    return;
  }
  RunningTask task(directory, "2");
  if (!task.failure().empty()) {
    state.SkipWithError(task.failure().c_str());
    return;
  }
  const fs::path folder = directory.data() / "spool";  // the folder the task takes requests from
  fs::create_directories(folder);
  StatusClient client(folder / "status.xml");
  if (!client.failure().empty()) {
    state.SkipWithError(client.failure().c_str());
    return;
  }
  // One unmeasured request: the first opening of every mail database.
  std::string failure = client.askStatus(group, members);
  for (auto _ : state) {
    if (failure.empty()) failure = client.askStatus(group, members);
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
