// Runs the real tarnwick-admin binary the way a person would, on a fresh
// temporary folder per test, and captures its exit code and output.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "osenv.h"

extern char** environ;

namespace tarnwick::admin::testing {

struct Result {
  int code = -1;
  std::string out;
  std::string err;
};

class AdminTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    root_ = std::filesystem::temp_directory_path() /
            ("tarnwick-admin-" + std::to_string(::getpid()) + "-" + info->test_suite_name() + "-" + info->name());
    std::filesystem::remove_all(root_);
    std::filesystem::create_directories(root_);
  }
  void TearDown() override { std::filesystem::remove_all(root_); }

  // Runs the tool with `args`; `env` entries ("NAME=value") are added to the
  // environment (NOTES_INI is removed unless given). The working directory
  // is the test's folder.
  Result run(const std::vector<std::string>& args, const std::vector<std::string>& env = {}) const {
    const std::filesystem::path out_file = root_ / "stdout.txt";
    const std::filesystem::path err_file = root_ / "stderr.txt";
    std::vector<std::string> arguments = {TARNWICK_ADMIN_BINARY};
    arguments.insert(arguments.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);

    std::vector<std::string> environment;
    for (char** e = environ; *e != nullptr; ++e) {
      if (std::string(*e).rfind("NOTES_INI=", 0) != 0) environment.emplace_back(*e);
    }
    environment.insert(environment.end(), env.begin(), env.end());
    std::vector<char*> envp;
    for (auto& entry : environment) envp.push_back(entry.data());
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addchdir_np(&actions, root_.c_str());
    pid_t pid = 0;
    Result result;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data()) == 0) {
      int status = 0;
      waitpid(pid, &status, 0);
      result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    posix_spawn_file_actions_destroy(&actions);
    result.out = read(out_file);
    result.err = read(err_file);
    return result;
  }

  // Runs with --data on the test's data directory and expects success.
  Result ok(std::vector<std::string> args) const {
    args.insert(args.begin(), {"--data", data().string()});
    Result result = run(args);
    EXPECT_EQ(result.code, 0) << "tarnwick-admin " << join(args) << "\nstderr: " << result.err;
    return result;
  }
  nlohmann::json json(std::vector<std::string> args) const {
    Result result = ok(std::move(args));
    return nlohmann::json::parse(result.out.empty() ? "null" : result.out);
  }

  // The server log lines of a task (as "log --task ... --json" gives them)
  // once one has the text: a process stores its lines a few milliseconds
  // after it logs them. The lines as they are after 30 s without it.
  nlohmann::json log_once_it_has(const std::string& task, const std::string& text) const {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    for (;;) {
      nlohmann::json lines = json({"log", "--task", task, "--json"});
      for (const auto& line : lines) {
        if (line["text"] == text) return lines;
      }
      if (std::chrono::steady_clock::now() > until) return lines;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }

  // A provisioned data directory for server Mail1/Acme.
  void init() const {
    const Result result = run({"init", data().string(), "--server", "Mail1/Acme", "--cluster", "AcmeCluster"});
    ASSERT_EQ(result.code, 0) << result.err;
  }

  std::filesystem::path data() const { return root_ / "data"; }

  // Starts the runtime in the test's own process on the provisioned data
  // directory, so that the test can hold queues, show a status line and log
  // as a running task would while the tool looks at them.
  void start_runtime_here() const {
    std::string argument = "=" + (data() / "notes.ini").string();
    char program[] = "admin-test";
    char* argv[] = {program, argument.data(), nullptr};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
  }

  static std::string read(const std::filesystem::path& file) {
    std::ifstream in(file);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }
  static std::string join(const std::vector<std::string>& args) {
    std::string line;
    for (const auto& arg : args) line += (line.empty() ? "" : " ") + arg;
    return line;
  }
  // Number of lines of a text (an error must be exactly one).
  static size_t lines(const std::string& text) {
    size_t count = 0;
    for (char c : text) count += c == '\n';
    return count;
  }

  // The item of that name in a note's JSON (null when missing).
  static nlohmann::json item(const nlohmann::json& note, const std::string& name) {
    for (const auto& entry : note["items"]) {
      if (entry["name"] == name) return entry;
    }
    return nullptr;
  }

  std::filesystem::path root_;
};

}  // namespace tarnwick::admin::testing
