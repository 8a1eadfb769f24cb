// Transactions over the writes of one database handle: all or nothing,
// readers see the last commit, writers of one file follow each other, a
// failed write inside is undone alone, and a process killed before the
// commit leaves nothing of it.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "store/test_data_dir.h"

namespace {

using tarnwick::rt::store::testing::DataDirTest;

constexpr const char* kDb = "mail\\tx.nsf";

class TransactionTest : public DataDirTest {
 protected:
  void SetUp() override {
    DataDirTest::SetUp();
    ASSERT_EQ(NSFDbCreate(kDb, 0, FALSE), NOERROR);
    note_id_ = create("A", "0");
  }

  // A new stored note with one text item; its note ID.
  NOTEID create(const char* item, const std::string& value, DBHANDLE db = NULLHANDLE) {
    DBHANDLE own = NULLHANDLE;
    if (db == NULLHANDLE) {
      EXPECT_EQ(NSFDbOpen(kDb, &own), NOERROR);
      db = own;
    }
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteCreate(db, &note), NOERROR);
    NSFItemSetText(note, item, value.c_str(), static_cast<WORD>(value.size()));
    EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NOTEID id = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &id);
    NSFNoteClose(note);
    NSFDbClose(own);
    return id;
  }

  // Writes item A of the test note through db.
  static STATUS write(DBHANDLE db, NOTEID id, const std::string& value) {
    NOTEHANDLE note = NULLHANDLE;
    STATUS status = NSFNoteOpen(db, id, 0, &note);
    if (status != NOERROR) return status;
    NSFItemSetText(note, "A", value.c_str(), static_cast<WORD>(value.size()));
    status = NSFNoteUpdate(note, 0);
    NSFNoteClose(note);
    return status;
  }

  // Item A of a note as another handle reads it; "<none>" when the note
  // cannot be opened.
  static std::string stored(NOTEID id) {
    DBHANDLE db = NULLHANDLE;
    if (NSFDbOpen(kDb, &db) != NOERROR) return "<no db>";
    NOTEHANDLE note = NULLHANDLE;
    std::string value = "<none>";
    if (NSFNoteOpen(db, id, 0, &note) == NOERROR) {
      char text[64] = {0};
      value.assign(text, NSFItemGetText(note, "A", text, sizeof text));
      NSFNoteClose(note);
    }
    NSFDbClose(db);
    return value;
  }

  NOTEID note_id_ = 0;
};

TEST_F(TransactionTest, WritesAreStoredTogetherOrNotAtAll) {
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen(kDb, &db), NOERROR);

  ASSERT_EQ(NSFTransactionBegin(db, 0), NOERROR);
  EXPECT_EQ(write(db, note_id_, "1"), NOERROR);
  const NOTEID added = create("A", "new", db);
  EXPECT_EQ(stored(note_id_), "0");  // readers see the last commit
  EXPECT_EQ(stored(added), "<none>");
  ASSERT_EQ(NSFTransactionRollback(db), NOERROR);
  EXPECT_EQ(stored(note_id_), "0");
  EXPECT_EQ(stored(added), "<none>");

  ASSERT_EQ(NSFTransactionBegin(db, 0), NOERROR);
  EXPECT_EQ(write(db, note_id_, "2"), NOERROR);
  const NOTEID kept = create("A", "kept", db);
  ASSERT_EQ(NSFTransactionCommit(db, 0), NOERROR);
  EXPECT_EQ(stored(note_id_), "2");
  EXPECT_EQ(stored(kept), "kept");

  // Misuse is refused without harm.
  EXPECT_EQ(NSFTransactionCommit(db, 0), ERR_NO_TRANSACTION);
  EXPECT_EQ(NSFTransactionRollback(db), ERR_NO_TRANSACTION);
  EXPECT_EQ(NSFTransactionBegin(db, 1), ERR_BAD_PARAM);
  ASSERT_EQ(NSFTransactionBegin(db, 0), NOERROR);
  EXPECT_EQ(NSFTransactionBegin(db, 0), ERR_TRANSACTION_OPEN);

  // Closing the handle with the transaction open drops its writes and
  // frees the file for other writers.
  EXPECT_EQ(write(db, note_id_, "3"), NOERROR);
  NSFDbClose(db);
  EXPECT_EQ(stored(note_id_), "2");
  DBHANDLE other = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen(kDb, &other), NOERROR);
  EXPECT_EQ(write(other, note_id_, "4"), NOERROR);
  NSFDbClose(other);
  EXPECT_EQ(stored(note_id_), "4");
}

TEST_F(TransactionTest, AFailedWriteInsideIsUndoneAlone) {
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen(kDb, &db), NOERROR);
  const NOTEID second = create("A", "x");
  NOTEHANDLE stale = NULLHANDLE;
  ASSERT_EQ(NSFNoteOpen(db, second, 0, &stale), NOERROR);
  DBHANDLE other = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen(kDb, &other), NOERROR);
  ASSERT_EQ(write(other, second, "y"), NOERROR);  // stale is now out of date
  NSFDbClose(other);

  ASSERT_EQ(NSFTransactionBegin(db, 0), NOERROR);
  EXPECT_EQ(write(db, note_id_, "5"), NOERROR);
  NSFItemSetText(stale, "A", "z", 1);
  EXPECT_EQ(NSFNoteUpdate(stale, 0), ERR_CONFLICT);
  ASSERT_EQ(NSFTransactionCommit(db, 0), NOERROR);
  NSFNoteClose(stale);
  NSFDbClose(db);
  EXPECT_EQ(stored(note_id_), "5");
  EXPECT_EQ(stored(second), "y");
}

TEST_F(TransactionTest, WritersOfOneFileFollowEachOtherConcurrency) {
  DBHANDLE first = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen(kDb, &first), NOERROR);
  ASSERT_EQ(NSFTransactionBegin(first, 0), NOERROR);
  ASSERT_EQ(write(first, note_id_, "first"), NOERROR);

  std::atomic<bool> committed{false};
  std::atomic<bool> wroteBeforeCommit{false};
  STATUS secondStatus = ERR_UNKNOWN;
  std::thread second([&] {
    DBHANDLE db = NULLHANDLE;
    if (NSFDbOpen(kDb, &db) != NOERROR) return;
    // Waits for the write lock, so it comes after the first writer.
    secondStatus = NSFTransactionBegin(db, 0);
    wroteBeforeCommit = !committed;
    if (secondStatus == NOERROR) secondStatus = write(db, note_id_, "second");
    if (secondStatus == NOERROR) secondStatus = NSFTransactionCommit(db, 0);
    NSFDbClose(db);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  committed = true;
  ASSERT_EQ(NSFTransactionCommit(first, 0), NOERROR);
  second.join();
  NSFDbClose(first);
  EXPECT_FALSE(wroteBeforeCommit);
  EXPECT_EQ(secondStatus, NOERROR);
  EXPECT_EQ(stored(note_id_), "second");
}

// A child process begins a transaction, writes two notes and, with
// `commit`, commits; it reports on the pipe and waits to be killed.
TEST_F(TransactionTest, KilledProcessKeepsOnlyCommittedTransactions) {
  for (const bool commit : {false, true}) {
    int pipe_fds[2];
    ASSERT_EQ(::pipe(pipe_fds), 0);
    const std::string value = commit ? "committed" : "open";
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::close(pipe_fds[0]);
      DBHANDLE db = NULLHANDLE;
      if (NSFDbOpen(kDb, &db) != NOERROR || NSFTransactionBegin(db, 0) != NOERROR) _exit(2);
      if (write(db, note_id_, value) != NOERROR) _exit(3);
      const NOTEID added = create("A", value, db);
      if (commit && NSFTransactionCommit(db, 0) != NOERROR) _exit(4);
      if (::write(pipe_fds[1], &added, sizeof added) != sizeof added) _exit(5);
      for (;;) ::pause();
    }
    ::close(pipe_fds[1]);
    NOTEID added = 0;
    ASSERT_EQ(::read(pipe_fds[0], &added, sizeof added), static_cast<ssize_t>(sizeof added));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(pipe_fds[0]);
    EXPECT_EQ(stored(note_id_), commit ? "committed" : "0");
    EXPECT_EQ(stored(added), commit ? "committed" : "<none>");
  }
}

}  // namespace
