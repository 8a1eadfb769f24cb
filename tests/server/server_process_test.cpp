// tarnwick-server end to end: a real server process on a temporary data
// directory running scripted tasks (tests/server/scripted_task.cpp, under the
// names alpha and beta) or the real task, watched through the server log and
// the task list as the admin tool sees them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "globerr.h"
#include "nsfdb.h"
#include "osenv.h"
#include "serverlog.h"
#include "tasklist.h"
#include "tests/support/processes.h"

namespace {

using namespace std::chrono_literals;

class ServerProcess : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() / ("tarnwick_server_" + std::to_string(::getpid()) + "_" +
                                                     ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_ / "bin");
    for (const char* name : {"alpha", "beta"}) std::filesystem::create_symlink(TARNWICK_SCRIPTED_TASK, dir_ / "bin" / name);
    std::filesystem::create_symlink(TARNWICK_TASK_BINARY, dir_ / "bin" / "tarnwick");
  }

  void TearDown() override {
    for (pid_t pid : taskPids()) ::kill(pid, SIGKILL);
    if (server_ > 0) {
      ::kill(server_, SIGKILL);
      ::waitpid(server_, nullptr, 0);
    }
    NotesTerm();
    std::filesystem::remove_all(dir_);
  }

  // Writes notes.ini and makes it this process's environment too.
  void configure(const std::string& lines) {
    std::ofstream(dir_ / "notes.ini") << "Directory=" << dir_.string() << "\nServerName=CN=Srv1/O=Org\n" << lines;
    std::string ini = "=" + (dir_ / "notes.ini").string();
    char* argv[] = {const_cast<char*>("test"), ini.data()};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
  }

  // Starts tarnwick-server with PATH holding only the test's programs.
  pid_t spawnServer(const std::filesystem::path& console) {
    std::string binary = TARNWICK_SERVER_BINARY;
    std::string ini = "=" + (dir_ / "notes.ini").string();
    std::string path = "PATH=" + (dir_ / "bin").string();
    std::vector<std::string> environment{path};
    for (char** variable = environ; *variable != nullptr; ++variable) {
      if (std::strncmp(*variable, "PATH=", 5) != 0) environment.emplace_back(*variable);
    }
    std::vector<char*> envp;
    for (auto& variable : environment) envp.push_back(variable.data());
    envp.push_back(nullptr);
    return tarnwick::testing::spawnLogged({binary, ini}, console, tarnwick::testing::LogMode::Append, envp.data());
  }

  void startServer() {
    server_ = spawnServer(dir_ / "console.txt");
    ASSERT_GT(server_, 0);
    ASSERT_TRUE(waitForLog("Server starting on"));
  }

  // The server's exit status once it ended (the wait is bounded).
  int waitForServerEnd() {
    int status = -1;
    for (auto until = std::chrono::steady_clock::now() + 60s; std::chrono::steady_clock::now() < until;) {
      if (::waitpid(server_, &status, WNOHANG) == server_) {
        server_ = -1;
        return status;
      }
      std::this_thread::sleep_for(20ms);
    }
    return -1;
  }

  // "<task>: <text>" for every line of the server log, oldest first.
  static std::vector<std::string> log() {
    std::vector<std::string> lines;
    ServerLogEnumLines(
        0,
        [](void* param, const SERVER_LOG_LINE* line) {
          static_cast<std::vector<std::string>*>(param)->push_back(std::string(line->TaskName) + ": " + line->Text);
        },
        &lines);
    return lines;
  }

  static size_t countInLog(const std::string& text) {
    size_t count = 0;
    for (const auto& line : log()) count += line.find(text) != std::string::npos ? 1 : 0;
    return count;
  }

  // The position of the first log line holding text, after position from.
  static long positionInLog(const std::string& text, long from = -1) {
    auto lines = log();
    for (long i = from + 1; i < static_cast<long>(lines.size()); ++i) {
      if (lines[i].find(text) != std::string::npos) return i;
    }
    return -1;
  }

  static bool waitForLog(const std::string& text, size_t times = 1) {
    for (auto until = std::chrono::steady_clock::now() + 60s; std::chrono::steady_clock::now() < until;) {
      if (countInLog(text) >= times) return true;
      std::this_thread::sleep_for(20ms);
    }
    return false;
  }

  // The process ids of every task the server started, from its log.
  static std::vector<pid_t> taskPids() {
    std::vector<pid_t> pids;
    const std::string started = "Server: Started task ", process = " (process ";
    for (const auto& line : log()) {
      if (!line.starts_with(started)) continue;
      if (size_t at = line.find(process); at != std::string::npos) pids.push_back(std::stoi(line.substr(at + process.size())));
    }
    return pids;
  }

  static std::vector<std::string> runningTaskNames() {
    std::vector<std::string> names;
    TaskEnumStatusLines(
        [](void* param, const TASK_STATUS_LINE* line) {
          static_cast<std::vector<std::string>*>(param)->push_back(line->TaskName);
        },
        &names);
    return names;
  }

  std::string console() const { return tarnwick::testing::readFile(dir_ / "console.txt"); }

  std::filesystem::path dir_;
  pid_t server_ = -1;
};

TEST_F(ServerProcess, StartsListedTasksAndStopsThemInReverseOrder) {
  configure("ServerTasks=alpha, beta, gamma\nalphaStopMillis=200\nbetaStopMillis=300\n");
  startServer();
  ASSERT_TRUE(waitForLog("alpha: alpha started"));
  ASSERT_TRUE(waitForLog("beta: beta started"));
  EXPECT_EQ(countInLog("Server: ServerTasks: no program for task gamma"), 1u);
  auto names = runningTaskNames();
  for (const char* name : {"Server", "alpha", "beta"}) {
    EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << name;
  }

  ::kill(server_, SIGTERM);
  int status = waitForServerEnd();
  ASSERT_TRUE(WIFEXITED(status)) << console();
  EXPECT_EQ(WEXITSTATUS(status), 0);
  // beta is stopped, and has ended, before alpha is asked.
  long stopBeta = positionInLog("Server: Stopping task beta");
  long betaStopped = positionInLog("beta: beta stopped", stopBeta);
  long stopAlpha = positionInLog("Server: Stopping task alpha", betaStopped);
  long alphaStopped = positionInLog("alpha: alpha stopped", stopAlpha);
  ASSERT_GE(stopBeta, 0);
  EXPECT_GE(betaStopped, 0);
  EXPECT_GE(stopAlpha, 0);
  EXPECT_GE(alphaStopped, 0);
  EXPECT_GE(positionInLog("Server: Server stopped", alphaStopped), 0);
  EXPECT_EQ(countInLog("ended with exit status 0"), 2u);
}

TEST_F(ServerProcess, RestartsTheTaskAfterKillNine) {
  configure("ServerTasks=tarnwick\nOOOWorkers=2\n");
  ASSERT_EQ(NSFDbCreate("OOO.nsf", DBCLASS_BY_EXTENSION, FALSE), NOERROR);
  startServer();
  ASSERT_TRUE(waitForLog("Tarnwick: Initialization Complete")) << console();
  auto pids = taskPids();
  ASSERT_EQ(pids.size(), 1u);

  ASSERT_EQ(::kill(pids[0], SIGKILL), 0);
  const std::string ended = "Server: Task tarnwick (process " + std::to_string(pids[0]) +
                            ") ended abnormally with signal 9 (SIGKILL); restarting it in 100 ms";
  ASSERT_TRUE(waitForLog(ended)) << console();
  ASSERT_TRUE(waitForLog("Started task tarnwick", 2));
  ASSERT_TRUE(waitForLog("Tarnwick: Initialization Complete", 2)) << console();
  pids = taskPids();
  ASSERT_EQ(pids.size(), 2u);
  EXPECT_NE(pids[1], pids[0]);
  EXPECT_EQ(::kill(pids[1], 0), 0);

  ::kill(server_, SIGTERM);
  int status = waitForServerEnd();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << console();
  EXPECT_EQ(countInLog("Server: Task tarnwick (process " + std::to_string(pids[1]) + ") ended with exit status 0"), 1u)
      << console();
}

TEST_F(ServerProcess, RestartsATaskThatExitsWithAnErrorAfterAGrowingDelay) {
  configure("ServerTasks=alpha\nalphaFailTimes=2\n");
  startServer();
  ASSERT_TRUE(waitForLog("alpha: alpha started")) << console();
  EXPECT_EQ(countInLog("alpha: alpha failing"), 2u);
  EXPECT_EQ(countInLog("ended abnormally with exit status 3; restarting it in 100 ms"), 1u);
  EXPECT_EQ(countInLog("ended abnormally with exit status 3; restarting it in 200 ms"), 1u);
  EXPECT_EQ(countInLog("Server: Started task alpha"), 3u);
}

TEST_F(ServerProcess, TaskToldToQuitStaysDownAndTellServerQuitEndsAll) {
  configure("ServerTasks=alpha,beta\n");
  startServer();
  ASSERT_TRUE(waitForLog("alpha: alpha started"));
  ASSERT_TRUE(waitForLog("beta: beta started"));
  DWORD asked = 0;
  ASSERT_EQ(TaskRequestQuit("ALPHA", &asked), NOERROR);
  EXPECT_EQ(asked, 1u);
  ASSERT_TRUE(waitForLog("alpha: alpha stopped"));
  ASSERT_TRUE(waitForLog(") ended", 1));
  EXPECT_GE(positionInLog("Server: Task alpha (process "), 0);
  // Longer than the first restart delay: a restart would have come.
  std::this_thread::sleep_for(1s);
  EXPECT_EQ(countInLog("Server: Started task alpha"), 1u);
  EXPECT_EQ(countInLog("alpha: alpha started"), 1u);
  EXPECT_EQ(countInLog("abnormally"), 0u);

  ASSERT_EQ(TaskRequestQuit("server", &asked), NOERROR);
  EXPECT_EQ(asked, 1u);
  int status = waitForServerEnd();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << console();
  EXPECT_EQ(countInLog("Server: Stopping task beta"), 1u);
  EXPECT_EQ(countInLog("Server: Stopping task alpha"), 0u);
  EXPECT_EQ(countInLog("beta: beta stopped"), 1u);
}

TEST_F(ServerProcess, KillsATaskThatDoesNotEndInTime) {
  configure("ServerTasks=alpha\nalphaIgnoreQuit=1\nServerTaskStopSeconds=1\n");
  startServer();
  ASSERT_TRUE(waitForLog("alpha: alpha started"));
  ::kill(server_, SIGINT);
  int status = waitForServerEnd();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << console();
  EXPECT_EQ(countInLog(") did not end within 1 s; killing it"), 1u);
  EXPECT_EQ(countInLog(") ended with signal 9 (SIGKILL)"), 1u);
}

TEST_F(ServerProcess, SecondServerOnTheSameDataDirectoryIsRefused) {
  configure("ServerTasks=alpha\n");
  startServer();
  ASSERT_TRUE(waitForLog("alpha: alpha started"));
  const std::filesystem::path second = dir_ / "second.txt";
  pid_t other = spawnServer(second);
  ASSERT_GT(other, 0);
  int status = 0;
  ASSERT_EQ(::waitpid(other, &status, 0), other);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_NE(WEXITSTATUS(status), 0);
  EXPECT_NE(tarnwick::testing::readFile(second).find("a server is already running on the data directory " +
                                                     dir_.string() + " (process " + std::to_string(server_) + ")"),
            std::string::npos)
      << tarnwick::testing::readFile(second);
  EXPECT_EQ(::kill(server_, 0), 0);
  EXPECT_EQ(countInLog("Server: Started task alpha"), 1u);
}

}  // namespace
