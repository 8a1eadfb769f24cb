#include "addin/log_database.h"

#include <unistd.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "addin.h"
#include "addin/server_log.h"
#include "globerr.h"
#include "nsfdb.h"
#include "testing/temp_data_directory.h"

namespace {

using tarnwick::rt::ServerLogLine;

class LogDatabaseTest : public ::testing::Test {
 protected:
  void SetUp() override { tarnwick::rt::install_server_log_store(std::make_shared<tarnwick::rt::LogDatabaseStore>()); }
  void TearDown() override {
    AddInSDKTerm(NOERROR);
    tarnwick::rt::install_server_log_store(nullptr);
  }
  tarnwick::testing::TempDataDirectory data_{"ServerName=CN=Mail1/O=Acme\n"};
};

TEST_F(LogDatabaseTest, LoggedLinesAreDocumentsOfLogNsfReadBackInOrder) {
  AddInSetDefaults(NULLHANDLE, AddInCreateStatusLine("Tarnwick"));
  ::testing::internal::CaptureStdout();
  AddInLogMessageText("Tarnwick: %s", NOERROR, "Initializing");
  AddInLogMessageText("Tarnwick: %s", ERR_MQ_QUITTING, "stopping");
  ::testing::internal::GetCapturedStdout();

  tarnwick::rt::flush_server_log();
  ASSERT_TRUE(std::filesystem::exists(data_.path() / "log.nsf")) << "created on the first line";
  std::vector<ServerLogLine> lines;
  ASSERT_EQ(tarnwick::rt::read_server_log(0, &lines), NOERROR);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].task_name, "Tarnwick");
  EXPECT_EQ(lines[0].text, "Tarnwick: Initializing");
  EXPECT_EQ(lines[1].text, "Tarnwick: stopping: Quit is pending on the Message Queue");
  EXPECT_LE(std::abs(lines[0].unix_seconds - static_cast<int64_t>(std::time(nullptr))), 5);

  ASSERT_EQ(tarnwick::rt::read_server_log(1, &lines), NOERROR);
  ASSERT_EQ(lines.size(), 1u) << "only the newest";
  EXPECT_EQ(lines[0].text, "Tarnwick: stopping: Quit is pending on the Message Queue");
}

TEST_F(LogDatabaseTest, LinesFromAnotherProcessAreSeen) {
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    tarnwick::rt::LogDatabaseStore store;
    ServerLogLine line{std::time(nullptr), 0, "OtherTask", "written elsewhere"};
    _exit(store.append(line) == NOERROR ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  std::vector<ServerLogLine> lines;
  ASSERT_EQ(tarnwick::rt::read_server_log(0, &lines), NOERROR);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].task_name, "OtherTask");
  EXPECT_EQ(lines[0].text, "written elsewhere");
}

// Lines of several threads all reach the database, each thread's in the
// order it logged them.
TEST_F(LogDatabaseTest, ManyLinesFromSeveralThreadsAllArriveInOrder) {
  constexpr int kThreads = 4;
  constexpr int kLines = 150;
  ::testing::internal::CaptureStdout();
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) {
        tarnwick::rt::write_server_log("T" + std::to_string(t), std::to_string(i));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  ::testing::internal::GetCapturedStdout();
  std::vector<ServerLogLine> lines;
  ASSERT_EQ(tarnwick::rt::read_server_log(0, &lines), NOERROR);
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kLines));
  std::map<std::string, int> next;
  for (const auto& line : lines) {
    EXPECT_EQ(line.text, std::to_string(next[line.task_name]++)) << line.task_name;
  }
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(next["T" + std::to_string(t)], kLines);
}

// A process that logs and exits at once leaves every line in the database.
TEST_F(LogDatabaseTest, LinesWaitingAtExitAreStored) {
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::freopen("/dev/null", "w", stdout);
    for (int i = 0; i < 50; ++i) tarnwick::rt::write_server_log("Leaving", "line " + std::to_string(i));
    std::exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  std::vector<ServerLogLine> lines;
  ASSERT_EQ(tarnwick::rt::read_server_log(0, &lines), NOERROR);
  ASSERT_EQ(lines.size(), 50u);
  EXPECT_EQ(lines.front().text, "line 0");
  EXPECT_EQ(lines.back().text, "line 49");
}

TEST_F(LogDatabaseTest, ReadingWithoutALogDatabaseReportsIt) {
  std::vector<ServerLogLine> lines{{1, 0, "x", "y"}};
  EXPECT_EQ(tarnwick::rt::read_server_log(0, &lines), ERR_NOEXIST);
  EXPECT_TRUE(lines.empty());
}

}  // namespace
