#include "env/environment.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "globerr.h"
#include "osenv.h"
#include "testing/temp_data_directory.h"

namespace {

namespace fs = std::filesystem;

class EnvironmentTest : public ::testing::Test {
 protected:
  tarnwick::testing::TempDataDirectory data_{
      "[Notes]\nDirectory=data\nServerName=CN=Mail1/O=Acme\nOOOWorkers = 8 \n; a comment\n"};
  const fs::path dir_ = data_.path();
  const fs::path ini_ = data_.ini();
};

TEST_F(EnvironmentTest, ReadsVariablesWithoutCaseAndTrimsValues) {
  char value[MAXENVVALUE];
  ASSERT_TRUE(OSGetEnvironmentString("servername", value, sizeof value - 1));
  EXPECT_STREQ(value, "CN=Mail1/O=Acme");
  EXPECT_EQ(OSGetEnvironmentLong("OOOWORKERS"), 8);
  EXPECT_EQ(OSGetEnvironmentInt("ooOworkers"), 8);
  EXPECT_FALSE(OSGetEnvironmentString("Missing", value, sizeof value - 1));
  EXPECT_STREQ(value, "");
  EXPECT_EQ(OSGetEnvironmentLong("Missing"), 0);
  EXPECT_EQ(OSGetEnvironmentLong("ServerName"), 0) << "non-numeric reads as 0";
}

TEST_F(EnvironmentTest, ShortBufferIsCutAndTerminated) {
  char value[8];
  std::memset(value, 'z', sizeof value);
  ASSERT_TRUE(OSGetEnvironmentString("ServerName", value, 4));
  EXPECT_STREQ(value, "CN=M");
  EXPECT_EQ(value[5], 'z');
}

TEST_F(EnvironmentTest, WritesGoToTheFileAtomicallyAndKeepOtherLines) {
  OSSetEnvironmentVariable("OOODirectory", "ooo");
  OSSetEnvironmentInt("OOOWorkers", 16);
  OSSetEnvironmentVariable("ServerName", "");
  std::ifstream in(ini_);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_NE(text.find("[Notes]\n"), std::string::npos);
  EXPECT_NE(text.find("; a comment\n"), std::string::npos);
  EXPECT_NE(text.find("OOOWorkers=16\n"), std::string::npos) << text;
  EXPECT_NE(text.find("OOODirectory=ooo\n"), std::string::npos);
  EXPECT_NE(text.find("ServerName=\n"), std::string::npos);
  EXPECT_EQ(OSGetEnvironmentLong("OOOWorkers"), 16);
  for (const auto& entry : fs::directory_iterator(dir_)) {
    EXPECT_EQ(entry.path().string().find(".tmp."), std::string::npos) << "temporary file left behind";
  }
}

TEST_F(EnvironmentTest, CheckedWritesReportAFileThatCannotBeWritten) {
  char path[MAXPATH];
  ASSERT_GT(OSGetNotesIniPath(path), 0);
  EXPECT_TRUE(fs::equivalent(path, ini_)) << path;
  EXPECT_EQ(OSSetEnvironmentVariableChecked("OOODirectory", "ooo"), NOERROR);
  char value[MAXENVVALUE];
  ASSERT_TRUE(OSGetEnvironmentString("OOODirectory", value, sizeof value - 1));
  EXPECT_STREQ(value, "ooo");
  // A folder where the writer makes its new copy of the file: no write can
  // succeed, whoever runs the test.
  fs::path blocker = ini_;
  blocker += ".tmp." + std::to_string(::getpid());
  fs::create_directory(blocker);
  EXPECT_EQ(OSSetEnvironmentVariableChecked("OOODirectory", "other"), ERR_ACCESS);
  fs::remove(blocker);
  EXPECT_EQ(OSSetEnvironmentVariableChecked("", "x"), ERR_BAD_PARAM);
  EXPECT_EQ(OSSetEnvironmentVariableChecked(nullptr, "x"), ERR_BAD_PARAM);
}

TEST_F(EnvironmentTest, SeesChangesMadeByAnotherWriter) {
  EXPECT_EQ(OSGetEnvironmentLong("OOOWorkers"), 8);
  // Another process rewrites the file (as the admin tool's "env set" does).
  fs::path temp = dir_ / "other.tmp";
  std::ofstream(temp) << "Directory=data\nOOOWorkers=3\n";
  fs::rename(temp, ini_);
  EXPECT_EQ(OSGetEnvironmentLong("OOOWorkers"), 3);
  EXPECT_FALSE(OSGetEnvironmentString("ServerName", nullptr, 0));
}

// Readers on several threads at once: a change made before a read starts is
// seen by that read, whichever thread took the change notice.
TEST_F(EnvironmentTest, EveryThreadSeesAChangeMadeBeforeItsRead) {
  constexpr long kVersions = 150;
  std::atomic<long> written{0};
  std::atomic<bool> done{false};
  std::atomic<int> stale{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < 4; ++i) {
    readers.emplace_back([&] {
      while (!done.load()) {
        const long before = written.load();
        if (OSGetEnvironmentLong("Version") < before) stale.fetch_add(1);
      }
    });
  }
  for (long version = 1; version <= kVersions; ++version) {
    fs::path temp = dir_ / "other.tmp";
    std::ofstream(temp) << "Directory=data\nVersion=" << version << "\n";
    fs::rename(temp, ini_);
    written.store(version);
  }
  done.store(true);
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(stale.load(), 0);
  EXPECT_EQ(OSGetEnvironmentLong("Version"), kVersions);
}

// Runs `body` in a child process; returns its exit code.
int in_child(const std::function<int()>& body) {
  const pid_t pid = ::fork();
  if (pid == 0) ::_exit(body());
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(EnvironmentTest, SeesAnInPlaceEditOfAnotherProcessThatKeepsSizeAndTime) {
  EXPECT_EQ(OSGetEnvironmentLong("OOOWorkers"), 8);
  struct stat before {};
  ASSERT_EQ(::stat(ini_.c_str(), &before), 0);
  // The same length, written into the same file, its time put back: only
  // the change notice can tell the file changed.
  ASSERT_EQ(in_child([&] {
              std::ofstream(ini_, std::ios::trunc)
                  << "[Notes]\nDirectory=data\nServerName=CN=Mail1/O=Acme\nOOOWorkers = 9 \n; a comment\n";
              const timespec times[2] = {before.st_atim, before.st_mtim};
              return ::utimensat(AT_FDCWD, ini_.c_str(), times, 0) == 0 ? 0 : 1;
            }),
            0);
  EXPECT_EQ(OSGetEnvironmentLong("OOOWorkers"), 9);
}

TEST_F(EnvironmentTest, AForkedChildAndItsParentBothSeeLaterChanges) {
  EXPECT_EQ(OSGetEnvironmentLong("OOOWorkers"), 8);
  // The child replaces the file as another process would, then reads it;
  // the parent, whose view was made before the fork, reads it afterwards.
  EXPECT_EQ(in_child([&] {
              fs::path temp = dir_ / "child.tmp";
              std::ofstream(temp) << "Directory=data\nOOOWorkers=5\n";
              fs::rename(temp, ini_);
              return OSGetEnvironmentLong("OOOWorkers") == 5 ? 0 : 1;
            }),
            0);
  EXPECT_EQ(OSGetEnvironmentLong("OOOWorkers"), 5);
  std::ofstream(ini_, std::ios::trunc) << "Directory=other\n";
  EXPECT_EQ(OSGetEnvironmentLong("OOOWorkers"), 0);
  EXPECT_EQ(tarnwick::rt::data_directory(), dir_ / "other") << "the data directory follows the file";
}

TEST_F(EnvironmentTest, ASnapshotKeepsOneVersionOfTheFile) {
  const tarnwick::rt::EnvironmentSnapshot before;
  OSSetEnvironmentInt("OOOWorkers", 2);
  std::ofstream(ini_, std::ios::app) << "Added=yes\n";
  EXPECT_EQ(before.get("ooOworkers"), "8");
  EXPECT_EQ(before.get("Added"), std::nullopt);
  const tarnwick::rt::EnvironmentSnapshot after;
  EXPECT_EQ(after.get("OOOWorkers"), "2");
  EXPECT_EQ(after.get(" added "), "yes");
}

// Callers keep what they derived from a snapshot while later snapshots are
// the same reading of the file; any change, ours or another writer's, ends that.
TEST_F(EnvironmentTest, SnapshotsTellWhetherTheFileWasReadAgain) {
  const tarnwick::rt::EnvironmentSnapshot first;
  EXPECT_TRUE(tarnwick::rt::EnvironmentSnapshot().same_as(first)) << "nothing changed";
  OSSetEnvironmentInt("OOOWorkers", 2);
  const tarnwick::rt::EnvironmentSnapshot written;
  EXPECT_FALSE(written.same_as(first));
  std::ofstream(ini_, std::ios::app) << "Added=yes\n";
  EXPECT_FALSE(tarnwick::rt::EnvironmentSnapshot().same_as(written)) << "another writer's change";
}

TEST_F(EnvironmentTest, DataDirectoryAndApiPaths) {
  char path[MAXPATH];
  WORD length = OSGetDataDirectory(path);
  EXPECT_EQ(std::string(path, length), (dir_ / "data").string());
  EXPECT_EQ(tarnwick::rt::resolve_data_path("mail\\jdoe.nsf"), dir_ / "data/mail/jdoe.nsf");
  EXPECT_EQ(tarnwick::rt::resolve_data_path("ooo/OOO.nsf"), dir_ / "data/ooo/OOO.nsf");
  EXPECT_EQ(tarnwick::rt::resolve_data_path("/abs/x.nsf"), fs::path("/abs/x.nsf"));
  OSSetEnvironmentVariable("Directory", "");
  EXPECT_EQ(tarnwick::rt::data_directory(), dir_) << "default: the folder of notes.ini";
}

TEST(EnvironmentInit, MissingIniIsReportedAndBadArgumentsDoNotCrash) {
  char program[] = "test";
  char missing[] = "=/nonexistent/dir/notes.ini";
  char* argv[] = {program, missing};
  EXPECT_EQ(NotesInitExtended(2, argv), ERR_NOEXIST);
  EXPECT_FALSE(OSGetEnvironmentString(nullptr, nullptr, 0));
  EXPECT_EQ(OSGetEnvironmentLong(nullptr), 0);
  OSSetEnvironmentVariable(nullptr, "x");
  OSSetEnvironmentVariable("", "x");
  EXPECT_EQ(OSGetDataDirectory(nullptr), 0);
}

}  // namespace
