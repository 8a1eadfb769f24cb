// A process killed (SIGKILL) in the middle of note updates: every database
// still opens, each update is wholly there or wholly absent, and every update
// whose NSFNoteUpdate returned before the kill is there.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "store/test_data_dir.h"

namespace {

using tarnwick::rt::store::testing::DataDirTest;

constexpr const char* kDatabases[] = {"one.nsf", "mail\\two.nsf"};
constexpr const char* kItems[] = {"A", "B", "C", "D", "E"};

class CrashConcurrencyTest : public DataDirTest {
 protected:
  void SetUp() override {
    DataDirTest::SetUp();
    for (const char* path : kDatabases) {
      ASSERT_EQ(NSFDbCreate(path, 0, FALSE), NOERROR);
      DBHANDLE db = NULLHANDLE;
      ASSERT_EQ(NSFDbOpen(path, &db), NOERROR);
      NOTEHANDLE note = NULLHANDLE;
      NSFNoteCreate(db, &note);
      for (const char* item : kItems) NSFItemSetText(note, item, "0", 1);
      ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
      NSFNoteGetInfo(note, _NOTE_ID, &note_id_);
      NSFNoteClose(note);
      NSFDbClose(db);
    }
  }

  // The child: forever, writes round n into all five items of the note of
  // each database (with a growing filler, so commits span several pages),
  // and reports n on the pipe once both updates returned.
  [[noreturn]] void run_writer(int report_fd) {
    DBHANDLE dbs[2] = {};
    for (int i = 0; i < 2; ++i) {
      if (NSFDbOpen(kDatabases[i], &dbs[i]) != NOERROR) _exit(2);
    }
    for (uint32_t round = 1;; ++round) {
      const std::string value = std::to_string(round);
      const std::string filler(1000 + (round % 7) * 3000, static_cast<char>('a' + round % 26));
      for (DBHANDLE db : dbs) {
        NOTEHANDLE note = NULLHANDLE;
        if (NSFNoteOpen(db, note_id_, 0, &note) != NOERROR) _exit(3);
        for (const char* item : kItems) NSFItemSetText(note, item, value.c_str(), MAXWORD);
        NSFItemSetTextSummary(note, "Filler", filler.c_str(), static_cast<WORD>(filler.size()), FALSE);
        if (NSFNoteUpdate(note, 0) != NOERROR) _exit(4);
        NSFNoteClose(note);
      }
      if (write(report_fd, &round, sizeof round) != static_cast<ssize_t>(sizeof round)) _exit(5);
    }
  }

  // The round stored in a database, checking that all items agree.
  uint32_t stored_round(const char* path) {
    DBHANDLE db = NULLHANDLE;
    EXPECT_EQ(NSFDbOpen(path, &db), NOERROR) << path << " must open after the crash";
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteOpen(db, note_id_, 0, &note), NOERROR);
    char first[32] = "";
    NSFItemGetText(note, kItems[0], first, sizeof first);
    for (const char* item : kItems) {
      char value[32] = "";
      NSFItemGetText(note, item, value, sizeof value);
      EXPECT_STREQ(value, first) << "item " << item << " of " << path << ": an update was applied in part";
    }
    NSFNoteClose(note);
    NSFDbClose(db);
    return static_cast<uint32_t>(std::stoul(first));
  }

  NOTEID note_id_ = 0;
};

TEST_F(CrashConcurrencyTest, KilledWriterLeavesWholeDurableUpdates) {
  for (int kill_round = 0; kill_round < 4; ++kill_round) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      close(fds[0]);
      run_writer(fds[1]);
    }
    close(fds[1]);
    // Let the writer confirm a few rounds whatever the machine's load, then
    // kill it at a varying point of a later round.
    uint32_t confirmed = 0;
    uint32_t round = 0;
    while (confirmed < static_cast<uint32_t>(2 + kill_round) &&
           read(fds[0], &round, sizeof round) == static_cast<ssize_t>(sizeof round)) {
      confirmed = round;
    }
    ASSERT_GE(confirmed, static_cast<uint32_t>(2 + kill_round)) << "the writer stopped before confirming rounds";
    std::this_thread::sleep_for(std::chrono::milliseconds(3 * kill_round));
    ASSERT_EQ(kill(pid, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the writer stopped on its own: " << status;

    while (read(fds[0], &round, sizeof round) == static_cast<ssize_t>(sizeof round)) confirmed = round;
    close(fds[0]);

    for (const char* path : kDatabases) {
      const uint32_t stored = stored_round(path);
      EXPECT_GE(stored, confirmed) << path << ": an update confirmed before the kill is missing";
      EXPECT_LE(stored, confirmed + 1) << path;
    }
  }
}

}  // namespace
