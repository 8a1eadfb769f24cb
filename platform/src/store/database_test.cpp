// Databases as files: create, open, delete, paths, properties, bad files.
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <vector>

#include <gtest/gtest.h>

#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearch.h"
#include "store/database_file.h"
#include "store/sqlite.h"
#include "store/test_data_dir.h"

namespace {

using tarnwick::rt::store::testing::DataDirTest;
namespace fs = std::filesystem;

class DatabaseTest : public DataDirTest {};

TEST_F(DatabaseTest, CreateOpenCloseDeleteWithEitherSeparator) {
  ASSERT_EQ(NSFDbCreate("mail\\jdoe.nsf", DBCLASS_BY_EXTENSION, FALSE), NOERROR);
  EXPECT_TRUE(fs::exists(data_ / "mail" / "jdoe.nsf"));
  EXPECT_EQ(NSFDbCreate("mail/jdoe.nsf", DBCLASS_BY_EXTENSION, FALSE), ERR_EXISTS);

  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("mail/jdoe.nsf", &db), NOERROR);
  EXPECT_NE(db, NULLHANDLE);
  char canonical[MAXPATH];
  char expanded[MAXPATH];
  ASSERT_EQ(NSFDbPathGet(db, canonical, expanded), NOERROR);
  EXPECT_STREQ(canonical, "mail/jdoe.nsf");
  EXPECT_EQ(fs::path(expanded), data_ / "mail" / "jdoe.nsf");
  EXPECT_EQ(NSFDbClose(db), NOERROR);
  EXPECT_EQ(NSFDbClose(db), ERR_DB_NOT_OPEN) << "a closed handle is not live any more";
  EXPECT_EQ(NSFDbClose(NULLHANDLE), NOERROR);

  ASSERT_EQ(NSFDbDelete("mail\\jdoe.nsf"), NOERROR);
  EXPECT_EQ(NSFDbOpen("mail\\jdoe.nsf", &db), ERR_NOEXIST);
  EXPECT_EQ(db, NULLHANDLE);
  EXPECT_EQ(NSFDbDelete("mail\\jdoe.nsf"), ERR_NOEXIST);
}

TEST_F(DatabaseTest, MissingAndForeignFilesGiveErrors) {
  DBHANDLE db = NULLHANDLE;
  EXPECT_EQ(NSFDbOpen("nothere.nsf", &db), ERR_NOEXIST);
  EXPECT_EQ(NSFDbOpen("", &db), ERR_INV_FILE_NAME);
  EXPECT_EQ(NSFDbOpen(nullptr, &db), ERR_INV_FILE_NAME);
  EXPECT_EQ(NSFDbOpen(std::string(400, 'a').c_str(), &db), ERR_INV_FILE_NAME);
  EXPECT_EQ(NSFDbOpen("x.nsf", nullptr), ERR_BAD_PARAM);

  std::ofstream(data_ / "text.nsf") << "this is not a database at all, just some text that is long enough";
  EXPECT_EQ(NSFDbOpen("text.nsf", &db), ERR_NOT_NSF);
  std::ofstream(data_ / "empty.nsf");
  EXPECT_NE(NSFDbOpen("empty.nsf", &db), NOERROR) << "an empty file is not a database";
  fs::create_directories(data_ / "folder.nsf");
  EXPECT_EQ(NSFDbOpen("folder.nsf", &db), ERR_DIRECTORY);

  // A database whose pages were overwritten is refused or read as damaged, never a crash.
  ASSERT_EQ(NSFDbCreate("damaged.nsf", 0, FALSE), NOERROR);
  {
    std::fstream file(data_ / "damaged.nsf", std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(0);
    file << std::string(200, '\x5A');
  }
  EXPECT_EQ(NSFDbOpen("damaged.nsf", &db), ERR_NOT_NSF);
}

TEST_F(DatabaseTest, ForceCreationReplacesTheOldDatabase) {
  ASSERT_EQ(NSFDbCreate("a.nsf", 0, FALSE), NOERROR);
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("a.nsf", &db), NOERROR);
  NOTEHANDLE note = NULLHANDLE;
  ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
  ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
  NOTEID id = 0;
  NSFNoteGetInfo(note, _NOTE_ID, &id);
  NSFNoteClose(note);
  NSFDbClose(db);

  ASSERT_EQ(NSFDbCreate("a.nsf", 0, TRUE), NOERROR);
  ASSERT_EQ(NSFDbOpen("a.nsf", &db), NOERROR);
  EXPECT_EQ(NSFNoteOpen(db, id, 0, &note), ERR_INVALID_NOTE) << "a pooled connection must not see the old file";
  NSFDbClose(db);
}

TEST_F(DatabaseTest, ReopeningAfterDeleteAndRecreateSeesTheNewFile) {
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(NSFDbCreate("cycle.nsf", 0, FALSE), NOERROR);
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen("cycle.nsf", &db), NOERROR);
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
    ASSERT_EQ(NSFItemSetText(note, "Round", std::to_string(round).c_str(), MAXWORD), NOERROR);
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NOTEID id = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &id);
    NSFNoteClose(note);
    NSFDbClose(db);

    ASSERT_EQ(NSFDbOpen("cycle.nsf", &db), NOERROR);
    ASSERT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);
    char text[16];
    NSFItemGetText(note, "Round", text, sizeof text);
    EXPECT_EQ(std::string(text), std::to_string(round));
    NSFNoteClose(note);
    NSFDbClose(db);
    ASSERT_EQ(NSFDbDelete("cycle.nsf"), NOERROR);
  }
}

TEST_F(DatabaseTest, BuildVersionAndIdentityArePerDatabaseAndPersist) {
  ASSERT_EQ(NSFDbCreate("log.nsf", 0, FALSE), NOERROR);
  ASSERT_EQ(NSFDbCreate("other.nsf", 0, FALSE), NOERROR);
  DBHANDLE log = NULLHANDLE;
  DBHANDLE other = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("log.nsf", &log), NOERROR);
  ASSERT_EQ(NSFDbOpen("other.nsf", &other), NOERROR);
  WORD build = 0;
  ASSERT_EQ(NSFDbGetBuildVersion(log, &build), NOERROR);
  EXPECT_EQ(build, TARNWICK_DB_BUILD_VERSION);
  ASSERT_EQ(TarnwickDbSetBuildVersion(log, 399), NOERROR);

  DBREPLICAINFO first{};
  DBREPLICAINFO second{};
  ASSERT_EQ(NSFDbReplicaInfoGet(log, &first), NOERROR);
  ASSERT_EQ(NSFDbReplicaInfoGet(other, &second), NOERROR);
  EXPECT_FALSE(first.ID.Innards[0] == second.ID.Innards[0] && first.ID.Innards[1] == second.ID.Innards[1]);
  NSFDbClose(log);
  NSFDbClose(other);

  ASSERT_EQ(NSFDbOpen("log.nsf", &log), NOERROR);
  ASSERT_EQ(NSFDbGetBuildVersion(log, &build), NOERROR);
  EXPECT_EQ(build, 399);
  DBREPLICAINFO again{};
  ASSERT_EQ(NSFDbReplicaInfoGet(log, &again), NOERROR);
  EXPECT_EQ(again.ID.Innards[0], first.ID.Innards[0]);
  EXPECT_EQ(again.ID.Innards[1], first.ID.Innards[1]);
  NSFDbClose(log);

  EXPECT_EQ(NSFDbGetBuildVersion(log, &build), ERR_DB_NOT_OPEN);
  EXPECT_EQ(NSFDbGetBuildVersion(12345, &build), ERR_DB_NOT_OPEN);
}

// An absolute path is taken as given when it names a file of the data
// directory; one elsewhere does not exist for the server.
TEST_F(DatabaseTest, AbsolutePathsAreTakenAsGivenInsideTheDataDirectory) {
  const fs::path inside = data_ / "apps" / "abs.nsf";
  ASSERT_EQ(NSFDbCreate(inside.c_str(), 0, FALSE), NOERROR);
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen(inside.c_str(), &db), NOERROR);
  NSFDbClose(db);
  ASSERT_EQ(NSFDbOpen("apps/abs.nsf", &db), NOERROR);
  NSFDbClose(db);

  const fs::path outside = root_ / "elsewhere" / "abs.nsf";
  EXPECT_EQ(NSFDbCreate(outside.c_str(), 0, FALSE), ERR_NOEXIST);
  EXPECT_FALSE(fs::exists(outside));
}

// Processes that start using a database the moment it exists (the server
// log, written by every task) may race to create it; the one that loses
// must not disturb the files of the one that won.
TEST_F(DatabaseTest, ProcessesRacingToCreateADatabaseAllWriteToTheSameOne) {
  constexpr int kProcesses = 6;
  for (int round = 0; round < 20; ++round) {
    const std::string name = "race" + std::to_string(round) + ".nsf";
    int start[2];
    ASSERT_EQ(::pipe(start), 0);
    std::vector<pid_t> children;
    for (int child = 0; child < kProcesses; ++child) {
      const pid_t pid = ::fork();
      ASSERT_GE(pid, 0);
      if (pid != 0) {
        children.push_back(pid);
        continue;
      }
      ::close(start[1]);
      char go = 0;
      if (::read(start[0], &go, 1) != 0) _exit(2);
      STATUS created = NSFDbCreate(name.c_str(), 0, FALSE);
      if (created != NOERROR && created != ERR_EXISTS) _exit(3);
      DBHANDLE db = NULLHANDLE;
      if (NSFDbOpen(name.c_str(), &db) != NOERROR) _exit(4);
      for (int line = 0; line < 3; ++line) {
        NOTEHANDLE note = NULLHANDLE;
        if (NSFNoteCreate(db, &note) != NOERROR) _exit(5);
        if (NSFNoteUpdate(note, 0) != NOERROR) _exit(6);
        NSFNoteClose(note);
      }
      NSFDbClose(db);
      _exit(0);
    }
    ::close(start[0]);
    ::close(start[1]);  // releases every child at once
    for (pid_t pid : children) {
      int status = -1;
      ::waitpid(pid, &status, 0);
      ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "round " << round << ": status " << status;
    }
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(name.c_str(), &db), NOERROR);
    int documents = 0;
    auto count = [](void* counter, SEARCH_MATCH*, ITEM_TABLE*) -> STATUS {
      ++*static_cast<int*>(counter);
      return NOERROR;
    };
    ASSERT_EQ(NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, count, &documents, nullptr), NOERROR);
    NSFDbClose(db);
    EXPECT_EQ(documents, kProcesses * 3) << "round " << round;
  }
}

// A server keeps many connections open; each one keeps only a few pages of
// its file however much of it a search reads.
TEST_F(DatabaseTest, AConnectionKeepsFewPagesOfAFileItReadsWhole) {
  ASSERT_EQ(NSFDbCreate("big.nsf", DBCLASS_NOTEFILE, FALSE), NOERROR);
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("big.nsf", &db), NOERROR);
  ASSERT_EQ(NSFTransactionBegin(db, 0), NOERROR);
  const std::string body(2000, 'b');
  for (int i = 0; i < 600; ++i) {
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
    ASSERT_EQ(NSFItemSetText(note, "Body", body.c_str(), static_cast<WORD>(body.size())), NOERROR);
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NSFNoteClose(note);
  }
  ASSERT_EQ(NSFTransactionCommit(db, 0), NOERROR);
  int documents = 0;
  auto count = [](void* counter, SEARCH_MATCH*, ITEM_TABLE*) -> STATUS {
    ++*static_cast<int*>(counter);
    return NOERROR;
  };
  ASSERT_EQ(NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, count, &documents, nullptr), NOERROR);
  EXPECT_EQ(documents, 600);
  NSFDbClose(db);
  ASSERT_GT(fs::file_size(data_ / "big.nsf") + fs::file_size(data_ / "big.nsf-wal"), 1'000'000u);

  // The connection the search used, back in the pool.
  std::shared_ptr<tarnwick::rt::store::Connection> connection;
  ASSERT_EQ(tarnwick::rt::store::acquire_connection(data_ / "big.nsf", &connection), NOERROR);
  int used = 0;
  int highest = 0;
  ASSERT_EQ(sqlite3_db_status(connection->raw(), SQLITE_DBSTATUS_CACHE_USED, &used, &highest, 0), SQLITE_OK);
  EXPECT_LT(used, 160 * 1024) << "page cache bytes";
}

}  // namespace
