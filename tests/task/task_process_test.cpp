// The tarnwick process end to end: a real task on a temporary data
// directory, driven through the real queues from this process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "globerr.h"
#include "mq.h"
#include "nsfdb.h"
#include "osenv.h"
#include "osmisc.h"

extern char** environ;

namespace {

using namespace std::chrono_literals;

// "=<path>", the argument that names a notes.ini.
std::string iniArgument(const std::filesystem::path& ini) {
  std::string argument = ini.string();
  argument.insert(argument.begin(), '=');
  return argument;
}

// A console line of the task: "Tarnwick: <text>".
std::string taskLine(const std::string& text) {
  std::string line = "Tarnwick: ";
  line += text;
  return line;
}

std::string statusText(STATUS status) {
  char text[256] = {0};
  OSLoadString(NULLHANDLE, status, text, sizeof text);
  return text;
}

class TaskProcessConcurrency : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() / ("tarnwick_task_" + std::to_string(::getpid()) + "_" +
                                                     ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
    writeIni("");
    std::string ini = iniArgument(dir_ / "notes.ini");
    char* argv[] = {const_cast<char*>("test"), ini.data()};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
    // The task's application database is there, so its start-up finds
    // nothing to provision.
    ASSERT_EQ(NSFDbCreate("OOO.nsf", DBCLASS_BY_EXTENSION, FALSE), NOERROR);
  }

  void TearDown() override {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    for (MQHANDLE queue : openQueues_) MQClose(queue, 0);
    std::filesystem::remove_all(dir_);
  }

  void writeIni(const std::string& extra) {
    std::ofstream(dir_ / "notes.ini") << "Directory=" << dir_.string() << "\nServerName=CN=Srv1/O=Org\n" << extra;
  }

  void startTask() {
    std::string ini = iniArgument(dir_ / "notes.ini");
    std::string binary = TARNWICK_TASK_BINARY;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    std::string out = (dir_ / "console.txt").string();
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    char* argv[] = {binary.data(), ini.data(), nullptr};
    ASSERT_EQ(posix_spawn(&pid_, binary.c_str(), &actions, nullptr, argv, environ), 0);
    posix_spawn_file_actions_destroy(&actions);
  }

  std::string console() {
    std::ifstream in(dir_ / "console.txt");
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }

  // Waits until the console shows line (or the wait is over).
  bool waitForLine(const std::string& line, std::chrono::seconds wait = 30s) {
    auto until = std::chrono::steady_clock::now() + wait;
    while (std::chrono::steady_clock::now() < until) {
      if (console().find(line) != std::string::npos) return true;
      std::this_thread::sleep_for(20ms);
    }
    return false;
  }

  // Waits until the task's request queue can be opened.
  MQHANDLE openRequestQueue() {
    auto until = std::chrono::steady_clock::now() + 30s;
    MQHANDLE queue = NULLHANDLE;
    while (MQOpen("MQ$OutOfOffice", 0, &queue) != NOERROR) {
      if (std::chrono::steady_clock::now() > until) return NULLHANDLE;
      std::this_thread::sleep_for(20ms);
    }
    openQueues_.push_back(queue);
    return queue;
  }

  MQHANDLE makeQueue(const char* name) {
    MQHANDLE queue = NULLHANDLE;
    EXPECT_EQ(MQCreate(name, 0, 0), NOERROR);
    EXPECT_EQ(MQOpen(name, 0, &queue), NOERROR);
    openQueues_.push_back(queue);
    return queue;
  }

  std::string writeRequest(const std::string& name, const std::string& xml) {
    std::filesystem::create_directories(dir_ / "spool");
    std::string path = (dir_ / "spool" / name).string();
    std::ofstream(path) << xml;
    return path;
  }

  void submit(MQHANDLE requests, std::string path) {
    ASSERT_EQ(MQPut(requests, 0, path.data(), static_cast<WORD>(path.size()), 0), NOERROR);
  }

  std::string nextMessage(MQHANDLE queue, DWORD waitMs) {
    std::vector<char> buffer(MQ_MAX_MSGSIZE);
    WORD length = 0;
    if (MQGet(queue, buffer.data(), static_cast<WORD>(buffer.size()), 0, waitMs, &length) != NOERROR) {
      return "<none>";
    }
    return std::string(buffer.data(), length);
  }

  // The next reply of the task, waiting while the task runs (at most 20 s).
  std::string nextReply(MQHANDLE queue) {
    auto until = std::chrono::steady_clock::now() + 20s;
    while (std::chrono::steady_clock::now() < until) {
      std::string reply = nextMessage(queue, 250);
      if (reply != "<none>") return reply;
      int status = 0;
      if (pid_ <= 0 || ::waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return "<task ended>";
      }
    }
    return "<none>";
  }

  // Stops the task as the server does and returns its exit status.
  int stopTask() {
    if (pid_ <= 0) return -1;  // ended on its own already
    ::kill(pid_, SIGTERM);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1000 - WTERMSIG(status);
  }

  std::filesystem::path dir_;
  pid_t pid_ = -1;
  std::vector<MQHANDLE> openQueues_;
};

TEST_F(TaskProcessConcurrency, StartsServesAndStops) {
  startTask();
  MQHANDLE requests = openRequestQueue();
  ASSERT_NE(requests, NULLHANDLE) << console();
  const std::string startup = console();
  const size_t init = startup.find("Tarnwick: Initializing");
  const size_t complete = startup.find("Tarnwick: Initialization Complete");
  const size_t version = startup.find("Tarnwick: Program Version 2.3.1 Build 2051");
  ASSERT_NE(init, std::string::npos) << startup;
  ASSERT_NE(complete, std::string::npos) << startup;
  ASSERT_NE(version, std::string::npos) << startup;
  EXPECT_LT(init, complete);
  EXPECT_LT(complete, version);

  // The servlet list: exactly 50 names, in order.
  MQHANDLE servlets = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$OOOServletList", 0, &servlets), NOERROR);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(nextMessage(servlets, 0), "MQ$OOOServletList_" + std::to_string(i));
  EXPECT_EQ(nextMessage(servlets, 0), "<none>");
  MQClose(servlets, 0);

  // A request whose document fails is answered with the failure's text; one
  // without a reply queue, or naming no file, gets nothing.
  MQHANDLE replies = makeQueue("MQ$OOOServletList_0");
  submit(requests, writeRequest("r1.xml",
                                "<Username MQName='MQ$OOOServletList_0' Action='1' "
                                "StartTimeMonth='13'>Jane Doe/Org</Username>"));
  EXPECT_EQ(nextReply(replies), "receiveElements:The leaving date is invalid..");
  submit(requests, writeRequest("r2.xml", "<Username StartTimeMonth='13'>Jane</Username>"));
  submit(requests, (dir_ / "spool" / "missing.xml").string());
  submit(requests, writeRequest("ND_REQUEST_MOBILE_OOO_r3.xml",
                                "<Username MQName='MQ$OOOServletList_0' EndTimeMonth='0'>Jane</Username>"));
  EXPECT_EQ(nextReply(replies), "receiveElements:The leaving date is invalid..");

  EXPECT_EQ(stopTask(), 0);
  const std::string all = console();
  EXPECT_NE(all.find("Tarnwick: Shutdown Complete"), std::string::npos) << all;
  EXPECT_EQ(all.find(taskLine(statusText(ERR_MQ_EMPTY))), std::string::npos) << all;
  // The task's queues are gone with it (this process holds no handle to the
  // servlet list).
  MQHANDLE gone = NULLHANDLE;
  EXPECT_EQ(MQOpen("MQ$OOOServletList", 0, &gone), ERR_NO_SUCH_MQ);
}

TEST_F(TaskProcessConcurrency, ExistingRequestQueueEndsTheStart) {
  makeQueue("MQ$OutOfOffice");
  startTask();
  ASSERT_TRUE(waitForLine("Tarnwick: Shutdown Complete")) << console();
  int status = 0;
  ASSERT_EQ(::waitpid(pid_, &status, 0), pid_);
  pid_ = -1;
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  const std::string all = console();
  EXPECT_NE(all.find(taskLine(statusText(ERR_DUPLICATE_MQ))), std::string::npos) << all;
  EXPECT_LT(all.find("Tarnwick: Program Version"), all.find(taskLine(statusText(ERR_DUPLICATE_MQ))));
}

TEST_F(TaskProcessConcurrency, PendingQuitIsReportedAtShutdown) {
  startTask();
  MQHANDLE requests = openRequestQueue();
  ASSERT_NE(requests, NULLHANDLE) << console();
  MQPutQuitMsg(requests);
  std::this_thread::sleep_for(1500ms);  // at least one round sees the quit
  EXPECT_EQ(stopTask(), 0);
  const std::string all = console();
  const size_t quitting = all.find(taskLine(statusText(ERR_MQ_QUITTING)));
  ASSERT_NE(quitting, std::string::npos) << all;
  EXPECT_LT(quitting, all.find("Tarnwick: Shutdown Complete"));
}

TEST_F(TaskProcessConcurrency, WorkerPoolAnswersEveryRequest) {
  writeIni("OOOWorkers=3\n");
  startTask();
  MQHANDLE requests = openRequestQueue();
  ASSERT_NE(requests, NULLHANDLE) << console();
  MQHANDLE replies = makeQueue("MQ$OOOServletList_1");
  constexpr int kRequests = 12;
  for (int i = 0; i < kRequests; ++i) {
    std::string name = "w";
    name += std::to_string(i);
    name += ".xml";
    std::string xml = "<Username MQName='MQ$OOOServletList_1' StartTimeMonth='";
    xml += std::to_string(13 + i);
    xml += "'>u</Username>";
    submit(requests, writeRequest(name, xml));
  }
  for (int i = 0; i < kRequests; ++i) {
    const std::string reply = nextReply(replies);
    EXPECT_EQ(reply, "receiveElements:The leaving date is invalid..") << i << console();
    if (reply == "<task ended>") break;
  }
  EXPECT_EQ(stopTask(), 0);
  EXPECT_NE(console().find("Tarnwick: Shutdown Complete"), std::string::npos);
}

}  // namespace
