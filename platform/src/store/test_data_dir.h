// Test support for the store's tests: a fixture around the shared
// TempDataDirectory (testing/temp_data_directory.h) whose notes.ini names
// the local server, plus a scratch folder outside the data directory.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "globerr.h"
#include "nsfdb.h"
#include "testing/temp_data_directory.h"

namespace tarnwick::rt::store::testing {

class DataDirTest : public ::testing::Test {
 protected:
  void SetUp() override {
    data_dir_ = std::make_unique<tarnwick::testing::TempDataDirectory>("[Notes]\nServerName=CN=Srv1/O=Org\n" +
                                                                        extra_ini());
    data_ = data_dir_->path();
    root_ = data_.string() + "-outside";
    std::filesystem::remove_all(root_);
    std::filesystem::create_directories(root_);
  }
  void TearDown() override {
    data_dir_.reset();
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }

  // More notes.ini lines for a fixture.
  virtual std::string extra_ini() const { return {}; }

  std::unique_ptr<tarnwick::testing::TempDataDirectory> data_dir_;
  std::filesystem::path data_;  // the data directory (notes.ini lies in it)
  std::filesystem::path root_;  // a folder outside the data directory
};

// DataDirTest with one new database, created and opened as db_ at `path`.
class OneDatabaseTest : public DataDirTest {
 protected:
  explicit OneDatabaseTest(std::string path) : path_(std::move(path)) {}
  void SetUp() override {
    DataDirTest::SetUp();
    ASSERT_EQ(NSFDbCreate(path_.c_str(), 0, FALSE), NOERROR);
    ASSERT_EQ(NSFDbOpen(path_.c_str(), &db_), NOERROR);
  }
  void TearDown() override {
    NSFDbClose(db_);
    DataDirTest::TearDown();
  }

  const std::string path_;
  DBHANDLE db_ = NULLHANDLE;
};

}  // namespace tarnwick::rt::store::testing
