// Test support: a fresh data directory with its own notes.ini, made the
// runtime's environment for the life of the object and removed afterwards.
//
//   TempDataDirectory data("ServerName=CN=Mail1/O=Acme\n");
//   ... data.path() is the data directory; notes.ini lies in it ...
#pragma once

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "global.h"
#include "osenv.h"

namespace tarnwick::testing {

class TempDataDirectory {
 public:
  explicit TempDataDirectory(std::string_view ini_lines = "") {
    static std::atomic<int> counter{0};
    path_ = std::filesystem::temp_directory_path() /
            ("tarnwick-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
    std::ofstream(ini()) << ini_lines;
    std::string argument = ini().string();
    argument.insert(argument.begin(), '=');
    char program[] = "test";
    char* argv[] = {program, argument.data()};
    EXPECT_EQ(NotesInitExtended(2, argv), NOERROR);
  }
  ~TempDataDirectory() {
    NotesTerm();
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDataDirectory(const TempDataDirectory&) = delete;
  TempDataDirectory& operator=(const TempDataDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path ini() const { return path_ / "notes.ini"; }

 private:
  std::filesystem::path path_;
};

}  // namespace tarnwick::testing
