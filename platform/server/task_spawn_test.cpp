#include "task_spawn.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "instance_lock.h"

namespace tarnwick::server {
namespace {

int wait_for(pid_t pid) {
  int status = 0;
  EXPECT_EQ(::waitpid(pid, &status, 0), pid);
  return status;
}

class TaskSpawn : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = std::filesystem::temp_directory_path() / ("tarnwick-server-spawn-" + std::to_string(::getpid()));
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  // A script that writes its arguments to args.txt, then runs body.
  std::filesystem::path script(const std::string& body) {
    std::filesystem::path file = folder_ / "task.sh";
    std::ofstream(file) << "#!/bin/sh\necho \"$@\" > " << (folder_ / "args.txt").string() << "\n" << body << "\n";
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    return file;
  }

  std::string args() {
    std::ifstream in(folder_ / "args.txt");
    std::string line;
    std::getline(in, line);
    return line;
  }

  std::filesystem::path folder_;
};

TEST_F(TaskSpawn, ChildGetsTheNotesIniArgumentAndItsEndIsDescribed) {
  pid_t pid = start_task_process(script("exit 3"), "/data/notes.ini");
  ASSERT_GT(pid, 0);
  int status = wait_for(pid);
  EXPECT_EQ(args(), "=/data/notes.ini");
  EXPECT_TRUE(ended_abnormally(status));
  EXPECT_EQ(describe_end(status), "exit status 3");

  pid = start_task_process(script("exit 0"), "/data/notes.ini");
  ASSERT_GT(pid, 0);
  status = wait_for(pid);
  EXPECT_FALSE(ended_abnormally(status));
  EXPECT_EQ(describe_end(status), "exit status 0");
}

TEST_F(TaskSpawn, SignalEndIsAbnormalAndNamed) {
  pid_t pid = start_task_process(script("exec sleep 60"), "/data/notes.ini");
  ASSERT_GT(pid, 0);
  // The child runs in a process group of its own.
  for (int i = 0; i < 500 && ::getpgid(pid) != pid; ++i) ::usleep(10'000);
  EXPECT_EQ(::getpgid(pid), pid);
  ::kill(pid, SIGKILL);
  int status = wait_for(pid);
  EXPECT_TRUE(ended_abnormally(status));
  EXPECT_EQ(describe_end(status), "signal 9 (SIGKILL)");
}

TEST_F(TaskSpawn, ProgramThatCannotRunEndsWith127) {
  pid_t pid = start_task_process(folder_ / "missing", "/data/notes.ini");
  ASSERT_GT(pid, 0);
  EXPECT_EQ(describe_end(wait_for(pid)), "exit status 127");
}

TEST_F(TaskSpawn, OneInstanceLockPerDataDirectory) {
  InstanceLock::Refusal refusal;
  auto first = InstanceLock::acquire(folder_, &refusal);
  ASSERT_TRUE(first.has_value()) << refusal.reason;
  auto second = InstanceLock::acquire(folder_, &refusal);
  EXPECT_FALSE(second.has_value());
  EXPECT_NE(refusal.reason.find("already running"), std::string::npos) << refusal.reason;
  EXPECT_NE(refusal.reason.find("process " + std::to_string(::getpid())), std::string::npos) << refusal.reason;
  first.reset();
  EXPECT_TRUE(InstanceLock::acquire(folder_, &refusal).has_value()) << refusal.reason;
}

}  // namespace
}  // namespace tarnwick::server
