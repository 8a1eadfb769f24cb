// tarnwick-crash-trials: kills the task (and now and then the whole server)
// at random moments of a burst of sets and queries, and checks what a user
// would notice afterwards.
//
// One data directory, provisioned once with tarnwick-admin (USERS mail
// files, half in agent and half in service mode), serves every trial. A
// trial starts tarnwick-server if it is not running, lets CLIENTS front-end
// threads send sets and queries through the front-end client library for
// the users each of them owns, kills the task with SIGKILL (every
// SERVER_EVERY-th trial the server process and the task) at a random
// moment, waits until a query is answered again (the restart time), lets
// the clients run on a little and stops them. Then it checks:
//   - every note (profiles included) of every mail file and of OOO.nsf
//     opens and reads whole;
//   - every user's state, as a query reports it, is the last set that was
//     answered "OK" or a later set still in doubt (sent, never answered);
//   - the task answers (the restart time above).
// Requests put on the queue and never answered ("lost") are counted; they
// are what a front end sees as a time-out.
//
// Prints one line per trial and a summary; exits 1 when a note was torn,
// an acknowledged set was lost or the task did not answer again.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "failure.h"
#include "globerr.h"
#include "handles.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "note_json.h"
#include "osenv.h"
#include "request.h"
#include "session.h"
#include "tests/support/processes.h"
#include "tests/support/request_dates.h"
#include "tests/support/running_task.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

struct Options {
  int trials = 3;
  int users = 50;
  int clients = 8;
  int serverEvery = 5;        // every n-th trial kills the server process too
  int maxKillDelayMs = 1500;  // the kill comes 100 ms .. this after the burst starts
  long long timeoutMs = 5000;
  unsigned seed = 0;
  fs::path work;
  std::string admin = TARNWICK_ADMIN_BINARY;
  std::string server = TARNWICK_SERVER_BINARY;
  std::string task = TARNWICK_TASK_BINARY;
};

// A user's out-of-office state as a set gives it and a query reports it.
struct State {
  bool on = false;
  std::string subject;
  bool matches(bool reportedOn, const std::string& reportedSubject) const {
    // A switch-off in agent mode may leave the profile's subject as it was.
    return on == reportedOn && (!on || subject == reportedSubject);
  }
};

// What the clients know of a user: the last acknowledged state and the
// states of sets sent after it that were never answered.
struct UserRecord {
  std::optional<State> acknowledged;
  std::vector<State> inDoubt;
};

struct TrialCounts {
  long sent = 0, answered = 0, lost = 0, refused = 0, errors = 0;
};

std::string mailFile(int user) { return "mail/user" + std::to_string(user) + ".nsf"; }
std::string userName(int user) { return "User " + std::to_string(user) + "/Acme"; }

// Local date some days ahead at 09:00.
tarnwick::client::LocalDateTime daysAhead(int days) {
  const std::tm day = tarnwick::testing::localDayAhead(days);
  return {day.tm_year + 1900, day.tm_mon + 1, day.tm_mday, 9, 0, 0};
}

tarnwick::client::RequestOptions requestFor(int user, long long timeoutMs) {
  tarnwick::client::RequestOptions options;
  options.values.user = "CN=User " + std::to_string(user) + "/O=Acme";
  options.values.mail_server = "CN=Mail1/O=Acme";
  options.values.mail_box = mailFile(user);
  options.timeout_ms = timeoutMs;
  return options;
}

tarnwick::client::RequestOptions setRequest(int user, const State& state, long long timeoutMs) {
  auto options = requestFor(user, timeoutMs);
  options.kind = tarnwick::client::RequestKind::set;
  options.values.enable = state.on ? "1" : "0";
  options.values.subject = state.subject;
  options.values.message = "Back soon.";
  options.values.leave = daysAhead(1);
  options.values.back = daysAhead(5);
  return options;
}

// The value of attribute name="..." in a reply document (no entities are
// expected in the values the trials use).
std::optional<std::string> attribute(const std::string& document, const std::string& name) {
  const std::string key = " " + name + "=\"";
  const size_t at = document.find(key);
  if (at == std::string::npos) return std::nullopt;
  const size_t end = document.find('"', at + key.size());
  if (end == std::string::npos) return std::nullopt;
  return document.substr(at + key.size(), end - at - key.size());
}

enum class Outcome { answered, lost, refused };

// One request; answered with its reply text, lost when put but never
// answered, refused when it could not be put (the task is down).
Outcome send(const tarnwick::client::RequestOptions& options, std::string& reply, std::string& document) {
  try {
    auto outcome = tarnwick::client::send_request(options);
    reply = outcome.reply.value_or("");
    document = outcome.document;
    return Outcome::answered;
  } catch (const tarnwick::client::NoReply& noReply) {
    return std::string(noReply.what()).starts_with("no reply within") ? Outcome::lost : Outcome::refused;
  } catch (const tarnwick::client::Failure&) {
    return Outcome::refused;
  }
}

class Trials {
 public:
  explicit Trials(Options options) : options_(std::move(options)), random_(options_.seed), records_(options_.users) {}

  bool provision();
  int run();

 private:
  fs::path data() const { return options_.work / "data"; }
  bool admin(const std::vector<std::string>& args);
  bool startServer();
  void stopServer();
  double waitForAnswer(Clock::time_point since);
  void client(int index, unsigned seed, const std::atomic<bool>& stop, TrialCounts& counts);
  long checkNotes(std::vector<std::string>& problems);
  long checkStates(std::vector<std::string>& problems);
  bool trial(int number);

  Options options_;
  std::mt19937 random_;
  std::mutex mutex_;
  std::vector<UserRecord> records_;
  pid_t server_ = -1;
  std::vector<double> restartMs_;
  long torn_ = 0, lostAcknowledged_ = 0, lost_ = 0, maxLost_ = 0, sent_ = 0, refused_ = 0, errors_ = 0,
       noAnswer_ = 0;
};

bool Trials::admin(const std::vector<std::string>& args) {
  std::vector<std::string> command{options_.admin};
  command.insert(command.end(), args.begin(), args.end());
  if (tarnwick::testing::runAndWait(command, options_.work / "admin.log") == 0) return true;
  std::cerr << "crash-trials: tarnwick-admin failed (see " << (options_.work / "admin.log").string() << ")\n";
  return false;
}

// The data directory, made on first use; later runs reuse it.
bool Trials::provision() {
  fs::create_directories(options_.work / "bin");
  const fs::path taskLink = options_.work / "bin" / "tarnwick";
  std::error_code ignored;
  fs::remove(taskLink, ignored);
  fs::create_symlink(fs::absolute(options_.task), taskLink);
  const std::string data = this->data().string();
  if (!fs::exists(this->data() / "notes.ini")) {
    if (!admin({"init", data, "--server", "Mail1/Acme"})) return false;
    for (int user = 0; user < options_.users; ++user) {
      if (!admin({"--data", data, "mailfile", "create", mailFile(user), "--owner", userName(user), "--mode",
                  user % 2 == 0 ? "agent" : "service"})) {
        return false;
      }
    }
    if (!admin({"--data", data, "env", "set", "OOOWorkers", "4"})) return false;
    if (!admin({"--data", data, "env", "set", "ServerTasks", "tarnwick"})) return false;
  }
  try {
    tarnwick::client::start_runtime({data, ""});
  } catch (const tarnwick::client::Failure& failure) {
    std::cerr << "crash-trials: " << failure.what() << "\n";
    return false;
  }
  return true;
}

// tarnwick-server with PATH holding only the task; its console appended to
// server.log.
bool Trials::startServer() {
  std::vector<std::string> environment{"PATH=" + (options_.work / "bin").string()};
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (std::strncmp(*variable, "PATH=", 5) != 0) environment.emplace_back(*variable);
  }
  std::vector<char*> envp;
  for (auto& variable : environment) envp.push_back(variable.data());
  envp.push_back(nullptr);
  server_ = tarnwick::testing::spawnLogged({options_.server, "=" + (data() / "notes.ini").string()},
                                           options_.work / "server.log", tarnwick::testing::LogMode::Append,
                                           envp.data());
  return server_ > 0;
}

void Trials::stopServer() {
  if (server_ <= 0) return;
  ::kill(server_, SIGTERM);
  for (auto until = Clock::now() + 60s; Clock::now() < until;) {
    if (::waitpid(server_, nullptr, WNOHANG) == server_) {
      server_ = -1;
      return;
    }
    std::this_thread::sleep_for(20ms);
  }
  ::kill(server_, SIGKILL);
  ::waitpid(server_, nullptr, 0);
  server_ = -1;
}

// Milliseconds from since until a query is answered "OK"; negative when
// none is within a minute.
double Trials::waitForAnswer(Clock::time_point since) {
  for (auto until = Clock::now() + 60s; Clock::now() < until;) {
    std::string reply, document;
    if (send(requestFor(0, 250), reply, document) == Outcome::answered && reply == "OK") {
      return std::chrono::duration<double, std::milli>(Clock::now() - since).count();
    }
    std::this_thread::sleep_for(5ms);
  }
  return -1;
}

// A front end: sets (one in three) and queries for the users whose number
// modulo the client count is its index, one request in flight.
void Trials::client(int index, unsigned seed, const std::atomic<bool>& stop, TrialCounts& counts) {
  std::mt19937 random(seed);
  std::vector<int> users;
  for (int user = index; user < options_.users; user += options_.clients) users.push_back(user);
  long sequence = 0;
  while (!stop.load() && !users.empty()) {
    const int user = users[random() % users.size()];
    const bool isSet = random() % 3 == 0;
    State state{random() % 4 != 0, "Away " + std::to_string(index) + "-" + std::to_string(seed % 100000) + "-" +
                                        std::to_string(++sequence)};
    if (isSet) {
      std::lock_guard lock(mutex_);
      records_[user].inDoubt.push_back(state);
    }
    std::string reply, document;
    const Outcome outcome =
        send(isSet ? setRequest(user, state, options_.timeoutMs) : requestFor(user, options_.timeoutMs), reply, document);
    if (outcome == Outcome::refused) {
      ++counts.refused;
      std::this_thread::sleep_for(10ms);
      continue;
    }
    ++counts.sent;
    if (outcome == Outcome::lost) {
      ++counts.lost;
      continue;
    }
    ++counts.answered;
    if (reply != "OK") {
      ++counts.errors;
      continue;
    }
    if (isSet) {
      std::lock_guard lock(mutex_);
      records_[user].acknowledged = state;
      records_[user].inDoubt.clear();
    }
  }
}

// Opens every note and profile of every mail file and of OOO.nsf and reads
// all its items; returns how many could not be read.
long Trials::checkNotes(std::vector<std::string>& problems) {
  using tarnwick::admin::Database;
  using tarnwick::admin::Note;
  std::vector<std::string> databases{"OOO.nsf"};
  for (int user = 0; user < options_.users; ++user) databases.push_back(mailFile(user));
  long torn = 0;
  for (const auto& path : databases) {
    try {
      const Database db = Database::open(path);
      std::vector<NOTEID> ids = db.note_ids(NOTE_CLASS_ALL);
      auto collect = [](DBHANDLE, void* context, char*, WORD, char*, WORD, NOTEID id) -> STATUS {
        static_cast<std::vector<NOTEID>*>(context)->push_back(id);
        return NOERROR;
      };
      const STATUS status = NSFProfileEnum(db.handle(), nullptr, 0, collect, &ids, 0);
      if (status != NOERROR) throw tarnwick::client::Failure("cannot list the profiles");
      for (NOTEID id : ids) (void)tarnwick::admin::note_json(Note::open(db, id));
    } catch (const std::exception& error) {
      ++torn;
      problems.push_back(path + ": " + error.what());
    }
  }
  return torn;
}

// Queries every user and compares the state with what the clients know;
// returns how many acknowledged sets are missing. A state in doubt that is
// found becomes the known one.
long Trials::checkStates(std::vector<std::string>& problems) {
  long missing = 0;
  for (int user = 0; user < options_.users; ++user) {
    std::string reply, document;
    if (send(requestFor(user, 10000), reply, document) != Outcome::answered || reply != "OK") {
      problems.push_back("query of " + userName(user) + " not answered OK: " + reply);
      ++missing;
      continue;
    }
    const bool on = attribute(document, "OOOEnable").value_or("") == "1";
    const std::string subject = attribute(document, "Subject").value_or("");
    UserRecord& record = records_[user];
    auto found = std::find_if(record.inDoubt.rbegin(), record.inDoubt.rend(),
                              [&](const State& state) { return state.matches(on, subject); });
    if (found != record.inDoubt.rend()) {
      record.acknowledged = *found;
    } else if (record.acknowledged && !record.acknowledged->matches(on, subject)) {
      ++missing;
      problems.push_back(userName(user) + ": acknowledged " + (record.acknowledged->on ? "on" : "off") + " \"" +
                         record.acknowledged->subject + "\", stored " + (on ? "on" : "off") + " \"" + subject + "\"");
    }
    record.inDoubt.clear();
  }
  return missing;
}

bool Trials::trial(int number) {
  const auto started = Clock::now();
  if (server_ <= 0 && !startServer()) return false;
  if (waitForAnswer(Clock::now()) < 0) {
    std::cerr << "crash-trials: the task does not answer before trial " << number << "\n";
    return false;
  }
  const bool wholeServer = options_.serverEvery > 0 && number % options_.serverEvery == 0;
  std::atomic<bool> stop{false};
  std::vector<TrialCounts> counts(options_.clients);
  std::vector<std::thread> clients;
  for (int index = 0; index < options_.clients; ++index) {
    clients.emplace_back(&Trials::client, this, index, static_cast<unsigned>(random_()), std::cref(stop),
                         std::ref(counts[index]));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(100 + random_() % std::max(1, options_.maxKillDelayMs - 100)));

  const std::optional<pid_t> task = tarnwick::testing::runningTaskPid("Tarnwick");
  const auto killed = Clock::now();
  if (wholeServer) {
    ::kill(server_, SIGKILL);
    ::waitpid(server_, nullptr, 0);
    server_ = -1;
  }
  if (task) ::kill(*task, SIGKILL);
  if (wholeServer) {
    // The task may still be ending; a second server refuses to start
    // until the data directory is free.
    while (task && ::kill(*task, 0) == 0) std::this_thread::sleep_for(1ms);
    startServer();
  }
  const double restart = waitForAnswer(killed);
  std::this_thread::sleep_for(300ms);
  stop = true;
  for (auto& thread : clients) thread.join();

  TrialCounts total;
  for (const auto& c : counts) {
    total.sent += c.sent;
    total.answered += c.answered;
    total.lost += c.lost;
    total.refused += c.refused;
    total.errors += c.errors;
  }
  std::vector<std::string> problems;
  const long torn = checkNotes(problems);
  const long missing = checkStates(problems);
  if (restart < 0) {
    ++noAnswer_;
    problems.push_back("the task did not answer within a minute of the kill");
  } else {
    restartMs_.push_back(restart);
  }
  torn_ += torn;
  lostAcknowledged_ += missing;
  lost_ += total.lost;
  maxLost_ = std::max(maxLost_, total.lost);
  sent_ += total.sent;
  refused_ += total.refused;
  errors_ += total.errors;
  std::printf("trial %d (%s, task %d): %ld sent, %ld answered (%ld not OK), %ld lost, %ld refused; torn %ld, "
              "acknowledged sets missing %ld; answers again after %.0f ms (trial %.1f s)\n",
              number, wholeServer ? "server+task" : "task", task ? static_cast<int>(*task) : -1, total.sent,
              total.answered, total.errors, total.lost, total.refused, torn, missing, restart,
              std::chrono::duration<double>(Clock::now() - started).count());
  for (const auto& problem : problems) std::printf("  %s\n", problem.c_str());
  std::fflush(stdout);
  return true;
}

double percentileOf(std::vector<double> values, double fraction) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[static_cast<size_t>(fraction * static_cast<double>(values.size() - 1) + 0.5)];
}

int Trials::run() {
  int done = 0;
  for (int number = 1; number <= options_.trials; ++number, ++done) {
    if (!trial(number)) break;
  }
  stopServer();
  std::printf("\nsummary: %d trials (%d of them killing the server process too), %ld requests sent\n", done,
              options_.serverEvery > 0 ? done / options_.serverEvery : 0, sent_);
  std::printf("  torn notes: %ld\n  acknowledged sets lost: %ld\n  task not answering again: %ld\n", torn_,
              lostAcknowledged_, noAnswer_);
  std::printf("  requests lost from the queue (sent, never answered): %ld in all, %.1f per trial, at most %ld\n",
              lost_, done > 0 ? static_cast<double>(lost_) / done : 0.0, maxLost_);
  std::printf("  requests refused while the task was down: %ld; answered with an error: %ld\n", refused_, errors_);
  std::printf("  restart (kill to first answer): median %.0f ms, max %.0f ms\n", percentileOf(restartMs_, 0.5),
              percentileOf(restartMs_, 1.0));
  const bool held = done == options_.trials && torn_ == 0 && lostAcknowledged_ == 0 && noAnswer_ == 0;
  std::printf("%s\n", held ? "HELD" : "FAILED");
  return held ? 0 : 1;
}

int usage() {
  std::cerr << "usage: tarnwick-crash-trials [--trials N] [--users N] [--clients N] [--server-every N]\n"
               "         [--max-kill-delay MS] [--timeout MS] [--seed N] [--work DIR]\n"
               "         [--admin PATH] [--server PATH] [--task PATH]\n";
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  options.seed = static_cast<unsigned>(std::random_device{}());
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (i + 1 >= argc) return usage();
    const std::string value = argv[++i];
    if (arg == "--trials") options.trials = std::stoi(value);
    else if (arg == "--users") options.users = std::stoi(value);
    else if (arg == "--clients") options.clients = std::stoi(value);
    else if (arg == "--server-every") options.serverEvery = std::stoi(value);
    else if (arg == "--max-kill-delay") options.maxKillDelayMs = std::stoi(value);
    else if (arg == "--timeout") options.timeoutMs = std::stoll(value);
    else if (arg == "--seed") options.seed = static_cast<unsigned>(std::stoul(value));
    else if (arg == "--work") options.work = value;
    else if (arg == "--admin") options.admin = value;
    else if (arg == "--server") options.server = value;
    else if (arg == "--task") options.task = value;
    else return usage();
  }
  if (options.trials < 1 || options.users < 1 || options.clients < 1) return usage();
  const bool ownWork = options.work.empty();
  if (ownWork) options.work = fs::temp_directory_path() / ("tarnwick_crash_trials_" + std::to_string(::getpid()));
  fs::create_directories(options.work);
  std::printf("crash trials: %d trials, %d users, %d clients, seed %u, work folder %s\n", options.trials,
              options.users, options.clients, options.seed, options.work.c_str());
  int result = 1;
  {
    Trials trials(options);
    if (trials.provision()) result = trials.run();
  }
  NotesTerm();
  if (ownWork && result == 0) fs::remove_all(options.work);
  return result;
}
