// Read transactions over several statements: one state of the file for all
// of them, ended when the scope ends, and no effect inside a transaction
// that is open already.
#include "store/sqlite.h"

#include <filesystem>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "globerr.h"
#include "testing/temp_data_directory.h"

namespace {

using tarnwick::rt::store::Connection;
using tarnwick::rt::store::ReadTransaction;

class ReadTransactionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string path = (data_.path() / "counts.db").string();
    ASSERT_EQ(Connection::open(path, true, &reader_), NOERROR);
    ASSERT_EQ(reader_->exec("PRAGMA journal_mode=WAL; CREATE TABLE t(x INTEGER); INSERT INTO t VALUES(1)"),
              SQLITE_OK);
    ASSERT_EQ(Connection::open(path, false, &writer_), NOERROR);
  }

  static int64_t rows(Connection& connection) {
    auto count = connection.prepare("SELECT count(*) FROM t");
    EXPECT_EQ(count.step(), SQLITE_ROW);
    return count.column_int(0);
  }
  static bool in_transaction(Connection& connection) { return sqlite3_get_autocommit(connection.raw()) == 0; }

  tarnwick::testing::TempDataDirectory data_;
  std::unique_ptr<Connection> reader_;
  std::unique_ptr<Connection> writer_;
};

TEST_F(ReadTransactionTest, StatementsInsideSeeOneStateAndLaterOnesTheNext) {
  {
    ReadTransaction one_state(*reader_);
    EXPECT_EQ(rows(*reader_), 1);
    ASSERT_EQ(writer_->exec("INSERT INTO t VALUES(2)"), SQLITE_OK) << "readers do not hold writers back";
    EXPECT_EQ(rows(*reader_), 1) << "the commit made meanwhile is not seen inside";
    EXPECT_TRUE(in_transaction(*reader_));
  }
  EXPECT_FALSE(in_transaction(*reader_)) << "ended with its scope";
  EXPECT_EQ(rows(*reader_), 2);
  // A checkpoint can now take every frame: no read lock is left behind.
  int log_frames = -1, checkpointed = -1;
  ASSERT_EQ(sqlite3_wal_checkpoint_v2(writer_->raw(), nullptr, SQLITE_CHECKPOINT_TRUNCATE, &log_frames, &checkpointed),
            SQLITE_OK);
}

TEST_F(ReadTransactionTest, InsideAnOpenTransactionItLeavesThatOneAlone) {
  ASSERT_EQ(reader_->exec("BEGIN IMMEDIATE; INSERT INTO t VALUES(3)"), SQLITE_OK);
  {
    ReadTransaction nested(*reader_);
    EXPECT_EQ(rows(*reader_), 2) << "sees the open transaction's own write";
  }
  EXPECT_TRUE(in_transaction(*reader_)) << "the caller's transaction is still open";
  ASSERT_EQ(reader_->exec("ROLLBACK"), SQLITE_OK);
  EXPECT_EQ(rows(*reader_), 1) << "nothing of it was committed";
}

}  // namespace
