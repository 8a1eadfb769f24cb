// Test helper: a fresh data directory with a notes.ini, loaded as the
// runtime's environment for the duration of one test.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "env/environment.h"
#include "globerr.h"

namespace tarnwick::rt::store::testing {

class DataDirTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    root_ = std::filesystem::temp_directory_path() /
            ("tarnwick-store-" + std::to_string(::getpid()) + "-" + info->test_suite_name() + "-" + info->name());
    std::filesystem::remove_all(root_);
    data_ = root_ / "data";
    std::filesystem::create_directories(data_);
    ini_ = root_ / "notes.ini";
    std::ofstream(ini_) << "[Notes]\nDirectory=data\nServerName=CN=Srv1/O=Org\n" << extra_ini();
    ASSERT_EQ(load_environment(ini_), NOERROR);
  }
  void TearDown() override { std::filesystem::remove_all(root_); }

  virtual std::string extra_ini() const { return {}; }

  std::filesystem::path root_, data_, ini_;
};

}  // namespace tarnwick::rt::store::testing
