#include "bench/end_to_end.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "globerr.h"
#include "mqlist.h"
#include "osenv.h"
#include "tests/support/processes.h"

namespace tarnwick::bench {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using tarnwick::testing::readFile;
using tarnwick::testing::runAndWait;

DataDirectory::DataDirectory(const std::string& program)
    : program_(program), root_(fs::temp_directory_path() / ("tarnwick_" + program + "_" + std::to_string(::getpid()))) {
  fs::remove_all(root_);
  fs::create_directories(root_);
  admin({"init", data().string(), "--server", "Mail1/Acme", "--cluster", "AcmeCluster"});
}

// The shared state folder of the data directory (queues, task status) goes
// with it: no process of it runs any more.
DataDirectory::~DataDirectory() {
  std::error_code ignored;
  char shared[MAXPATH];
  if (initialised_ && MQGetSharedStateDirectory(shared) > 0) fs::remove_all(shared, ignored);
  fs::remove_all(root_, ignored);
}

bool DataDirectory::admin(std::vector<std::string> args) {
  if (!failure_.empty()) return false;
  args.insert(args.begin(), TARNWICK_ADMIN_BINARY);
  const fs::path log = root_ / "admin.log";
  if (runAndWait(args, log) == 0) return true;
  failure_ = "tarnwick-admin " + args[1] + " failed: " + readFile(log);
  return false;
}

bool DataDirectory::initialise() {
  if (!failure_.empty()) return false;
  std::string ini = iniArgument();
  char* argv[] = {program_.data(), ini.data()};
  initialised_ = NotesInitExtended(2, argv) == NOERROR;
  if (!initialised_) failure_ = "cannot initialise on " + ini.substr(1);
  return initialised_;
}

void DataDirectory::fail(std::string text) {
  if (failure_.empty()) failure_ = std::move(text);
}

std::string DataDirectory::iniArgument() const { return std::string("=").append((data() / "notes.ini").string()); }

RunningTask::RunningTask(const DataDirectory& directory, const std::string& workers) {
  if (!directory.failure().empty()) {
    failure_ = directory.failure();
    return;
  }
  OSSetEnvironmentVariable("OOOWorkers", workers.c_str());
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
  // Up when its request queue exists.
  const auto until = Clock::now() + std::chrono::seconds(60);
  while (MQOpen(kRequestQueue, 0, &requests_) != NOERROR) {
    requests_ = NULLHANDLE;
    if (Clock::now() > until || ::waitpid(pid_, nullptr, WNOHANG) == pid_) {
      failure_ = "the task did not start: " + readFile(console);
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

RunningTask::~RunningTask() {
  if (requests_ != NULLHANDLE) {
    MQPutQuitMsg(requests_);
    MQClose(requests_, 0);
  }
  if (pid_ > 0) {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
}

FrontEnd::FrontEnd(const fs::path& requestFile, std::string replyQueue, DWORD replyWaitMs)
    : replyQueue_(std::move(replyQueue)),
      requestPath_(requestFile.string()),
      replyWaitMs_(replyWaitMs),
      buffer_(MQ_MAX_MSGSIZE) {
  if (MQOpen(kRequestQueue, 0, &requests_) != NOERROR) failure_ = std::string("cannot open ") + kRequestQueue;
  if (MQOpen(replyQueue_.c_str(), MQ_OPEN_CREATE, &replies_) != NOERROR) failure_ = "cannot make " + replyQueue_;
  file_ = ::open(requestPath_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (file_ < 0) failure_ = "cannot make " + requestPath_;
}

FrontEnd::~FrontEnd() {
  if (requests_ != NULLHANDLE) MQClose(requests_, 0);
  if (replies_ != NULLHANDLE) MQClose(replies_, 0);
  if (file_ >= 0) ::close(file_);
}

bool FrontEnd::roundTrip(const std::string& request, const std::string& whom, Answer& answer) {
  if (!writeRequest(request)) return fail("cannot write " + requestPath_);
  const auto start = Clock::now();
  if (MQPut(requests_, 0, requestPath_.data(), static_cast<WORD>(requestPath_.size()), 0) != NOERROR) {
    return fail(std::string("cannot put on ") + kRequestQueue);
  }
  WORD length = 0;
  const STATUS got = MQGet(replies_, buffer_.data(), static_cast<WORD>(buffer_.size()), 0, replyWaitMs_, &length);
  if (got != NOERROR) return fail("no reply on " + replyQueue_ + " for " + whom);
  answer.reply.assign(buffer_.data(), length);
  if (!readDocument(answer.document)) return fail("cannot read " + requestPath_);
  latenciesUs_.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  return true;
}

// The task writes the reply over the same file (in place), so the front end
// keeps it open: the request goes over the old reply, cut to its length
// only where the reply was longer.
bool FrontEnd::writeRequest(const std::string& request) {
  if (file_ < 0) return false;
  size_t written = 0;
  while (written < request.size()) {
    const ssize_t n = ::pwrite(file_, request.data() + written, request.size() - written, static_cast<off_t>(written));
    if (n <= 0) return false;
    written += static_cast<size_t>(n);
  }
  if (fileLength_ > request.size() && ::ftruncate(file_, static_cast<off_t>(request.size())) != 0) return false;
  fileLength_ = request.size();
  return true;
}

bool FrontEnd::readDocument(std::string& document) {
  document.clear();
  char chunk[16384];
  for (;;) {
    const ssize_t n = ::pread(file_, chunk, sizeof chunk, static_cast<off_t>(document.size()));
    if (n < 0) return false;
    if (n == 0) break;
    document.append(chunk, static_cast<size_t>(n));
  }
  fileLength_ = document.size();
  return true;
}

bool FrontEnd::fail(std::string text) {
  failure_ = std::move(text);
  return false;
}

double percentile(std::vector<double> values, double fraction) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const size_t at = static_cast<size_t>(fraction * static_cast<double>(values.size() - 1) + 0.5);
  return values[std::min(at, values.size() - 1)];
}

}  // namespace tarnwick::bench
