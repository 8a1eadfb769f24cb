#include "task_list.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace tarnwick::server {
namespace {

TEST(ServerTasksList, NamesInOrderWithoutBlanksEmptiesOrRepeats) {
  EXPECT_EQ(parse_server_tasks(" tarnwick , tarnwick-http,,Tarnwick ,  "),
            (std::vector<std::string>{"tarnwick", "tarnwick-http"}));
  EXPECT_TRUE(parse_server_tasks("").empty());
  EXPECT_TRUE(parse_server_tasks(" , ,").empty());
}

class TaskProgramLookup : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = std::filesystem::temp_directory_path() / ("tarnwick-server-lookup-" + std::to_string(::getpid()));
    std::filesystem::remove_all(root_);
    own_ = root_ / "own";
    first_ = root_ / "first";
    second_ = root_ / "second";
    std::filesystem::create_directories(own_);
    std::filesystem::create_directories(first_);
    std::filesystem::create_directories(second_);
  }
  void TearDown() override { std::filesystem::remove_all(root_); }

  static void make(const std::filesystem::path& file, bool executable) {
    std::ofstream(file) << "#!/bin/sh\n";
    std::filesystem::permissions(file, executable ? std::filesystem::perms::owner_all : std::filesystem::perms::owner_read);
  }

  std::string path() const { return first_.string() + "::" + second_.string(); }

  std::filesystem::path root_;
  std::filesystem::path own_, first_, second_;
};

TEST_F(TaskProgramLookup, OwnFolderComesBeforeThePath) {
  make(own_ / "alpha", true);
  make(second_ / "alpha", true);
  EXPECT_EQ(find_task_program("alpha", own_, path()), own_ / "alpha");
}

TEST_F(TaskProgramLookup, PathFoldersAreSearchedInOrderForAnExecutableFile) {
  make(first_ / "alpha", false);  // not executable: passed over
  make(second_ / "alpha", true);
  EXPECT_EQ(find_task_program("alpha", own_, path()), second_ / "alpha");
  std::filesystem::create_directories(first_ / "beta");  // a folder is no program
  make(second_ / "beta", true);
  EXPECT_EQ(find_task_program("beta", own_, path()), second_ / "beta");
}

TEST_F(TaskProgramLookup, NameMatchesTheLowerCaseProgram) {
  make(own_ / "tarnwick", true);
  EXPECT_EQ(find_task_program("Tarnwick", own_, ""), own_ / "tarnwick");
}

TEST_F(TaskProgramLookup, MissingProgramsAndPathsInNamesFindNothing) {
  make(own_ / "alpha", true);
  EXPECT_TRUE(find_task_program("gamma", own_, path()).empty());
  EXPECT_TRUE(find_task_program("../own/alpha", first_, path()).empty());
  EXPECT_TRUE(find_task_program(own_.string() + "/alpha", first_, "").empty());
  EXPECT_TRUE(find_task_program("..", own_, path()).empty());
}

}  // namespace
}  // namespace tarnwick::server
