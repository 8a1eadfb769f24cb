// Requests per second through the task's request queue: a real tarnwick
// process on a temporary data directory, fed by this process, answered on a
// reply queue. Paced dispatch (OOOWorkers unset: one message a second)
// against the worker pool (OOOWorkers=N). Each request is a complete trip:
// queue message, worker thread, request context, parse of the request file,
// reply on the reply queue.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "mq.h"
#include "nsfdb.h"
#include "osenv.h"

extern char** environ;

namespace {

using namespace std::chrono_literals;

// One running task for the whole benchmark case.
class RunningTask {
 public:
  explicit RunningTask(long workers) {
    dir_ = std::filesystem::temp_directory_path() / ("tarnwick_bench_" + std::to_string(::getpid()));
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
    std::ofstream ini(dir_ / "notes.ini");
    ini << "Directory=" << dir_.string() << "\nServerName=CN=Srv1/O=Org\n";
    if (workers > 0) ini << "OOOWorkers=" << workers << "\n";
    ini.close();
    std::string iniArg = (dir_ / "notes.ini").string();
    iniArg.insert(iniArg.begin(), '=');
    char* initArgv[] = {const_cast<char*>("bench"), iniArg.data()};
    NotesInitExtended(2, initArgv);
    // The application database is there: the task's start-up provisions nothing.
    NSFDbCreate("OOO.nsf", DBCLASS_BY_EXTENSION, FALSE);

    std::string binary = TARNWICK_TASK_BINARY;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    char* argv[] = {binary.data(), iniArg.data(), nullptr};
    posix_spawn(&pid_, binary.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);

    MQCreate("MQ$OOOServletList_bench", 0, 0);
    MQOpen("MQ$OOOServletList_bench", 0, &replies_);
    while (MQOpen("MQ$OutOfOffice", 0, &requests_) != NOERROR) std::this_thread::sleep_for(10ms);
    std::filesystem::create_directories(dir_ / "spool");
    request_ = (dir_ / "spool" / "request.xml").string();
    std::ofstream(request_) << "<Request><Username MQName='MQ$OOOServletList_bench' Action='1' MailServer='CN=Srv1/O=Org' "
                               "MailBox='mail/jdoe.nsf' StartTimeYear='2031' StartTimeMonth='13' StartTimeDay='1'>"
                               "Jane Doe/Org</Username></Request>";
  }

  ~RunningTask() {
    MQClose(requests_, 0);
    MQClose(replies_, 0);
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
    std::filesystem::remove_all(dir_);
  }

  // Submits count requests and waits for every reply; false on a lost one.
  bool roundTrip(int count) {
    for (int i = 0; i < count; ++i) {
      if (MQPut(requests_, 0, request_.data(), static_cast<WORD>(request_.size()), 0) != NOERROR) return false;
    }
    std::vector<char> reply(MQ_MAX_MSGSIZE);
    for (int i = 0; i < count; ++i) {
      WORD length = 0;
      if (MQGet(replies_, reply.data(), static_cast<WORD>(reply.size()), 0, 30000, &length) != NOERROR) return false;
    }
    return true;
  }

 private:
  std::filesystem::path dir_;
  pid_t pid_ = -1;
  MQHANDLE requests_ = NULLHANDLE;
  MQHANDLE replies_ = NULLHANDLE;
  std::string request_;
};

void BM_RequestsThroughQueue(benchmark::State& state) {
  const long workers = state.range(0);
  const int batch = workers > 0 ? 1000 : 4;
  RunningTask task(workers);
  task.roundTrip(1);  // the task is up and answering
  for (auto _ : state) {
    if (!task.roundTrip(batch)) {
      state.SkipWithError("a reply was lost");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * batch);
}

// 0: OOOWorkers unset (one message a second); then pools of 1, 4 and 16.
BENCHMARK(BM_RequestsThroughQueue)->Arg(0)->Arg(1)->Arg(4)->Arg(16)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
