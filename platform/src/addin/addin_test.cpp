// Add-in services within one process: interval timers, status lines as the
// admin tool lists them, log line formats and the log store hand-off.
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "addin.h"
#include "addin/elapsed_intervals.h"
#include "addin/server_log.h"
#include "addin/task_registry.h"
#include "globerr.h"
#include "mq/process_test_support.h"
#include "notessdkmain.h"

namespace {

using tarnwick::rt::ElapsedIntervals;
using tarnwick::rt::ServerLogLine;
using tarnwick::rt::TaskStatusLine;
using tarnwick::rt::testing::ScratchDataDirectory;

TEST(ElapsedIntervalsTest, TrueOnceAfterEachMultipleOfTheInterval) {
  ElapsedIntervals timers(1000 * 60 + 10);  // started 10 s past a minute
  EXPECT_FALSE(timers.has_elapsed(60, 60010));
  EXPECT_FALSE(timers.has_elapsed(60, 60059));
  EXPECT_TRUE(timers.has_elapsed(60, 60060)) << "the minute turned";
  EXPECT_FALSE(timers.has_elapsed(60, 60061)) << "once per minute";
  EXPECT_FALSE(timers.has_elapsed(60, 60119));
  EXPECT_TRUE(timers.has_elapsed(60, 60125));
  EXPECT_TRUE(timers.has_elapsed(60, 60500)) << "several missed minutes give one true";
  EXPECT_FALSE(timers.has_elapsed(60, 60539));
  EXPECT_TRUE(timers.has_elapsed(60, 60540));
}

TEST(ElapsedIntervalsTest, EachIntervalKeepsItsOwnTimer) {
  ElapsedIntervals timers(500);
  EXPECT_FALSE(timers.has_elapsed(1, 500));
  EXPECT_TRUE(timers.has_elapsed(1, 501));
  EXPECT_FALSE(timers.has_elapsed(1, 501));
  EXPECT_TRUE(timers.has_elapsed(60, 540)) << "the minute timer is not consumed by the second timer";
  EXPECT_TRUE(timers.has_elapsed(1, 540));
  EXPECT_FALSE(timers.has_elapsed(60, 541));
  EXPECT_TRUE(timers.has_elapsed(0, 541)) << "a zero interval is always due";
}

// "MM/DD/YYYY HH:MM:SS AM  <text>"
bool is_console_line(const std::string& line, const std::string& text) {
  int month = 0, day = 0, year = 0, hour = 0, minute = 0, second = 0;
  char half[3] = "";
  if (line.size() < 24 || std::sscanf(line.c_str(), "%2d/%2d/%4d %2d:%2d:%2d %2s", &month, &day, &year, &hour, &minute,
                                      &second, half) != 7) {
    return false;
  }
  bool fields_ok = month >= 1 && month <= 12 && day >= 1 && day <= 31 && year >= 2000 && hour >= 1 && hour <= 12 &&
                   minute < 60 && second < 61 && (std::string(half) == "AM" || std::string(half) == "PM");
  return fields_ok && line.substr(22) == "  " + text;
}

class AddInTest : public ::testing::Test {
 protected:
  void TearDown() override {
    AddInSDKTerm(NOERROR);
    tarnwick::rt::install_server_log_store(nullptr);
  }

  static std::vector<TaskStatusLine> own_lines() {
    std::vector<TaskStatusLine> own;
    for (auto& line : tarnwick::rt::list_status_lines()) {
      if (line.process_id == ::getpid()) own.push_back(line);
    }
    return own;
  }

  ScratchDataDirectory data_;
};

TEST_F(AddInTest, StatusLinesAreListedWithTaskNameAndText) {
  char program[] = "/opt/tarnwick/bin/a-very-long-program-name";
  char* argv[] = {program};
  ASSERT_EQ(AddInSDKInit(1, argv), NOERROR);
  HMODULE module = NULLHANDLE;
  DHANDLE original = NULLHANDLE;
  AddInQueryDefaults(&module, &original);
  EXPECT_NE(module, NULLHANDLE);
  ASSERT_NE(original, NULLHANDLE);
  auto lines = own_lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].task_name, "a-very-long-program-") << "the program's name, cut to 20 bytes";

  AddInDeleteStatusLine(original);
  DHANDLE line = AddInCreateStatusLine("Tarnwick");
  ASSERT_NE(line, NULLHANDLE);
  AddInSetDefaults(module, line);
  AddInSetStatusText("Idle");
  DHANDLE extra = AddInCreateStatusLine("Tarnwick worker");
  AddInSetStatusLine(extra, "Busy\twith\nlines");
  lines = own_lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].task_name, "Tarnwick");
  EXPECT_EQ(lines[0].status_text, "Idle");
  EXPECT_EQ(lines[1].task_name, "Tarnwick worker");
  EXPECT_EQ(lines[1].status_text, "Busy with lines");

  DHANDLE current = NULLHANDLE;
  AddInQueryDefaults(&module, &current);
  EXPECT_EQ(current, line);
  AddInDeleteStatusLine(extra);
  EXPECT_EQ(own_lines().size(), 1u);
  AddInSDKTerm(NOERROR);
  EXPECT_TRUE(own_lines().empty()) << "a task that ended shows no line";
}

TEST_F(AddInTest, LogLinesCarryTimeTextAndStatusText) {
  struct Recorder : tarnwick::rt::ServerLogStore {
    STATUS append(const ServerLogLine& line) override {
      lines.push_back(line);
      return NOERROR;
    }
    STATUS read(size_t, std::vector<ServerLogLine>* out) override {
      *out = lines;
      return NOERROR;
    }
    std::vector<ServerLogLine> lines;
  };
  auto recorder = std::make_shared<Recorder>();
  tarnwick::rt::install_server_log_store(recorder);
  AddInSetDefaults(NULLHANDLE, AddInCreateStatusLine("Tarnwick"));

  ::testing::internal::CaptureStdout();
  AddInLogMessageText("Tarnwick: %s", NOERROR, "Initializing");
  AddInLogMessageText("Tarnwick: [%s] read %d times", ERR_MQ_EMPTY, "CN=Jo Doe/O=Org", 3);
  std::string console = ::testing::internal::GetCapturedStdout();

  std::istringstream lines(console);
  std::string first, second, rest;
  ASSERT_TRUE(std::getline(lines, first) && std::getline(lines, second));
  EXPECT_FALSE(std::getline(lines, rest));
  EXPECT_TRUE(is_console_line(first, "Tarnwick: Initializing")) << first;
  EXPECT_TRUE(is_console_line(second, "Tarnwick: [CN=Jo Doe/O=Org] read 3 times: Message Queue is empty.")) << second;
  tarnwick::rt::flush_server_log();
  ASSERT_EQ(recorder->lines.size(), 2u);
  EXPECT_EQ(recorder->lines[0].task_name, "Tarnwick");
  EXPECT_EQ(recorder->lines[0].text, "Tarnwick: Initializing");
  EXPECT_EQ(recorder->lines[1].text, "Tarnwick: [CN=Jo Doe/O=Org] read 3 times: Message Queue is empty.");
  EXPECT_LE(std::abs(recorder->lines[1].unix_seconds - static_cast<int64_t>(std::time(nullptr))), 5);
  std::vector<ServerLogLine> read_back;
  EXPECT_EQ(tarnwick::rt::read_server_log(0, &read_back), NOERROR);
  EXPECT_EQ(read_back.size(), 2u);
}

// While the store is busy with one batch, the lines logged meanwhile wait
// and then go to it together, in order.
TEST_F(AddInTest, LinesLoggedWhileTheStoreIsBusyGoTogetherInOrder) {
  struct SlowStore : tarnwick::rt::ServerLogStore {
    STATUS append(const ServerLogLine& line) override { return append_batch({line}); }
    STATUS append_batch(const std::vector<ServerLogLine>& lines) override {
      std::unique_lock lock(mutex);
      batches.push_back(lines);
      entered.notify_all();
      released.wait(lock, [&] { return open; });
      return NOERROR;
    }
    STATUS read(size_t, std::vector<ServerLogLine>*) override { return NOERROR; }
    std::mutex mutex;
    std::condition_variable entered, released;
    bool open = false;
    std::vector<std::vector<ServerLogLine>> batches;
  };
  auto store = std::make_shared<SlowStore>();
  tarnwick::rt::install_server_log_store(store);
  ::testing::internal::CaptureStdout();
  tarnwick::rt::write_server_log("Tarnwick", "first");
  {
    std::unique_lock lock(store->mutex);
    store->entered.wait(lock, [&] { return !store->batches.empty(); });
  }
  for (int i = 0; i < 100; ++i) tarnwick::rt::write_server_log("Tarnwick", std::to_string(i));
  const std::string console = ::testing::internal::GetCapturedStdout();
  EXPECT_NE(console.find("  99\n"), std::string::npos) << "the console does not wait for the store";
  {
    std::lock_guard lock(store->mutex);
    store->open = true;
    store->released.notify_all();
  }
  tarnwick::rt::flush_server_log();
  std::lock_guard lock(store->mutex);
  ASSERT_EQ(store->batches.size(), 2u);
  ASSERT_EQ(store->batches[0].size(), 1u);
  EXPECT_EQ(store->batches[0][0].text, "first");
  ASSERT_EQ(store->batches[1].size(), 100u);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(store->batches[1][i].text, std::to_string(i));
}

TEST_F(AddInTest, WithoutALogStoreLinesStillReachTheConsole) {
  tarnwick::rt::install_server_log_store(nullptr);
  ::testing::internal::CaptureStdout();
  AddInLogMessageText("plain line", NOERROR);
  EXPECT_NE(::testing::internal::GetCapturedStdout().find("  plain line\n"), std::string::npos);
  std::vector<ServerLogLine> read_back;
  EXPECT_EQ(tarnwick::rt::read_server_log(0, &read_back), ERR_NOT_SUPPORTED);
}

TEST(ServerLogTest, ConsoleLineShowsLocalDateAndTwelveHourTime) {
  const char* old = std::getenv("TZ");
  std::string saved = old ? old : "";
  ::setenv("TZ", "EST5", 1);
  ::tzset();
  ServerLogLine line{86400 * 365 + 3600 * 17 + 62, 0, "Tarnwick", "Tarnwick: Shutdown Complete"};
  EXPECT_EQ(tarnwick::rt::console_line(line), "01/01/1971 12:01:02 PM  Tarnwick: Shutdown Complete");
  if (old) {
    ::setenv("TZ", saved.c_str(), 1);
  } else {
    ::unsetenv("TZ");
  }
  ::tzset();
}

TEST(GenericMainTest, ErrorTextsNameTheStatus) {
  char text[256];
  EXPECT_EQ(NotesSDKMAINInitError(ERR_NOEXIST, text, 255), ERR_NOEXIST);
  EXPECT_STREQ(text, "Unable to initialize the runtime: File does not exist");
  EXPECT_EQ(NotesSDKMAINError(ERR_DUPLICATE_MQ | STS_DISPLAYED, text, 255), ERR_DUPLICATE_MQ | STS_DISPLAYED);
  EXPECT_STREQ(text, "Message Queue name already in use.");
  char small[8];
  NotesSDKMAINError(ERR_DUPLICATE_MQ, small, 7);
  EXPECT_STREQ(small, "Message");
}

}  // namespace
