// Add-in tasks as separate processes: their status lines seen from another
// process, quit requests and termination signals ending the idle loop, and a
// whole add-in started through the generic main program.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "addin.h"
#include "addin/task_registry.h"
#include "globerr.h"
#include "mq.h"
#include "mq/process_test_support.h"
#include "notessdkmain.h"
#include "osenv.h"
#include "osmisc.h"

namespace {

using tarnwick::rt::TaskStatusLine;
using tarnwick::rt::testing::Child;
using tarnwick::rt::testing::ScratchDataDirectory;
using tarnwick::rt::testing::Signal;

// The status lines of one process as another process lists them.
std::vector<TaskStatusLine> lines_of(pid_t pid) {
  std::vector<TaskStatusLine> lines;
  for (auto& line : tarnwick::rt::list_status_lines()) {
    if (line.process_id == pid) lines.push_back(line);
  }
  return lines;
}

// Starts this process as an add-in task whose status line carries name.
bool start_task(const char* name) {
  char program[] = "task";
  char* argv[] = {program};
  if (AddInSDKInit(1, argv) != NOERROR) return false;
  HMODULE module = NULLHANDLE;
  DHANDLE line = NULLHANDLE;
  AddInQueryDefaults(&module, &line);
  AddInDeleteStatusLine(line);
  AddInSetDefaults(module, AddInCreateStatusLine(name));
  return true;
}

// A task that shows a status line and idles until told to end.
int idle_task(const char* name, Signal* started) {
  if (!start_task(name)) return 1;
  AddInSetStatusText("Idle");
  started->ready();
  auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!AddInIdle()) {
    if (std::chrono::steady_clock::now() > give_up) return 2;
  }
  return AddInSDKTerm(NOERROR) == NOERROR ? 0 : 3;
}

class AddInConcurrencyTest : public ::testing::Test {
 protected:
  ScratchDataDirectory data_;
};

TEST_F(AddInConcurrencyTest, QuitRequestFromAnotherProcessEndsTheIdleLoop) {
  Signal started;
  Child task([&] { return idle_task("Tarnwick", &started); });
  ASSERT_TRUE(started.wait());
  auto lines = lines_of(task.pid());
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].task_name, "Tarnwick");
  EXPECT_EQ(lines[0].status_text, "Idle");
  EXPECT_EQ(tarnwick::rt::request_task_quit("nosuchtask"), 0);
  EXPECT_EQ(tarnwick::rt::request_task_quit("TARNWICK"), 1) << "task names match without case";
  EXPECT_EQ(task.wait(), 0);
  EXPECT_TRUE(lines_of(task.pid()).empty());
}

TEST_F(AddInConcurrencyTest, TerminationSignalsEndTheIdleLoop) {
  for (int signal_number : {SIGTERM, SIGINT}) {
    Signal started;
    Child task([&] { return idle_task("Signalled", &started); });
    ASSERT_TRUE(started.wait());
    ::kill(task.pid(), signal_number);
    EXPECT_EQ(task.wait(), 0) << "signal " << signal_number;
  }
}

// A task blocked in a long queue wait: the wait ends early, as a timed-out
// one, when the task is asked to end, and the idle loop then reports the end.
int waiting_task(const char* name, Signal* started) {
  if (!start_task(name)) return 1;
  MQHANDLE queue = NULLHANDLE;
  if (MQCreate("MQ$Waiting", 0, 0) != NOERROR || MQOpen("MQ$Waiting", 0, &queue) != NOERROR) return 2;
  started->ready();
  const auto begun = std::chrono::steady_clock::now();
  char buffer[64];
  WORD length = 0;
  const STATUS status = MQGet(queue, buffer, sizeof buffer, 0, 60000, &length);
  const bool cut_short = std::chrono::steady_clock::now() - begun < std::chrono::seconds(30);
  MQClose(queue, 0);
  if (status != ERR_MQ_EMPTY) return 3;
  if (!cut_short) return 4;
  if (!AddInIdle()) return 5;
  return AddInSDKTerm(NOERROR) == NOERROR ? 0 : 6;
}

TEST_F(AddInConcurrencyTest, EndRequestsCutAQueueWaitShort) {
  Signal signalled;
  Child first([&] { return waiting_task("Waiter", &signalled); });
  ASSERT_TRUE(signalled.wait());
  ::kill(first.pid(), SIGTERM);
  EXPECT_EQ(first.wait(), 0);

  Signal told;
  Child second([&] { return waiting_task("Waiter", &told); });
  ASSERT_TRUE(told.wait());
  EXPECT_EQ(tarnwick::rt::request_task_quit("Waiter"), 1);
  EXPECT_EQ(second.wait(), 0);
}

TEST_F(AddInConcurrencyTest, KilledTaskDisappearsFromTheList) {
  Signal started;
  Child task([&] { return idle_task("Doomed", &started); });
  ASSERT_TRUE(started.wait());
  EXPECT_EQ(lines_of(task.pid()).size(), 1u);
  task.kill_hard();
  EXPECT_TRUE(lines_of(task.pid()).empty());
  EXPECT_EQ(tarnwick::rt::request_task_quit("Doomed"), 0);
}

// An add-in written against the platform's entry conventions: NotesMain
// runs it inside AddInSDKInit/AddInSDKTerm; it renames its status line,
// logs, and serves its queue until told to quit.
STATUS LNPUBLIC AddInMain(HMODULE module, int, char**) {
  DHANDLE line = NULLHANDLE;
  AddInQueryDefaults(&module, &line);
  AddInDeleteStatusLine(line);
  AddInSetDefaults(module, AddInCreateStatusLine("Sample"));
  AddInLogMessageText("Sample: %s", NOERROR, "Initializing");
  MQHANDLE queue = NULLHANDLE;
  STATUS status = MQCreate("MQ$Sample", 0, 0);
  if (status == NOERROR) status = MQOpen("MQ$Sample", 0, &queue);
  AddInSetStatusText("Idle");
  while (status == NOERROR && !AddInIdle()) {
    char message[256];
    WORD length = 0;
    STATUS got = MQGet(queue, message, sizeof message, 0, 200, &length);
    if (got == NOERROR) AddInLogMessageText("Sample: got %.*s", NOERROR, static_cast<int>(length), message);
    if (got == ERR_MQ_QUITTING) AddInLogMessageText("Sample: %s", got, "queue");
  }
  if (queue != NULLHANDLE) MQClose(queue, 0);
  if (status != NOERROR) AddInLogMessageText("Sample: start-up failed", status);
  AddInLogMessageText("Sample: Shutdown Complete", NOERROR);
  return NOERROR;
}

STATUS LNPUBLIC NotesMain(int argc, char** argv) {
  if (STATUS status = AddInSDKInit(argc, argv)) return status;
  HMODULE module = NULLHANDLE;
  NotesInitModule(&module, nullptr, nullptr);
  return AddInSDKTerm(AddInMain(module, argc, argv));
}

int generic_main(int argc, char** argv) {
  char text[256];
  STATUS error = NotesInitExtended(argc, argv);
  if (error) {
    if (!(NotesSDKMAINInitError(error, text, 255) & STS_DISPLAYED)) std::printf("\r\n%s\r\n\r\n", text);
    return -1;
  }
  NotesSDKMAINCommandLineBegin();
  NotesSDKMAINInit(generic_main, argc, argv);
  error = NotesMain(argc, argv);
  if (error) {
    NotesSDKMAINError(error, text, 255);
    std::printf("\r\n%s\r\n\r\n", text);
  }
  NotesSDKMAINCommandLineEnd();
  NotesTerm();
  return error ? -1 : 0;
}

// Runs generic_main in a child with its standard output going to a file.
class AddInProcess {
 public:
  AddInProcess(const std::filesystem::path& output, std::vector<std::string> args)
      : output_(output), child_([this, args]() mutable {
          int fd = ::open(output_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
          ::dup2(fd, STDOUT_FILENO);
          std::vector<char*> argv;
          for (auto& arg : args) argv.push_back(arg.data());
          int code = generic_main(static_cast<int>(argv.size()), argv.data());
          std::fflush(stdout);  // the child ends with _exit, which does not flush
          return code;
        }) {}

  Child& child() { return child_; }
  std::string output() const {
    std::ifstream in(output_);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

 private:
  std::filesystem::path output_;
  Child child_;
};

bool eventually(const std::function<bool()>& condition) {
  auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > give_up) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

TEST_F(AddInConcurrencyTest, AddInRunsAsAProcessFromTheGenericMain) {
  std::string ini_argument = "=" + (data_.path() / "notes.ini").string();
  AddInProcess task(data_.path() / "console.txt", {"/usr/bin/tarnwick", ini_argument});
  ASSERT_TRUE(eventually([&] {
    auto lines = lines_of(task.child().pid());
    return lines.size() == 1 && lines[0].task_name == "Sample" && lines[0].status_text == "Idle";
  }));
  MQHANDLE queue = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$SAMPLE", 0, &queue), NOERROR);
  char hello[] = "hello";
  ASSERT_EQ(MQPut(queue, 0, hello, 5, 0), NOERROR);
  ASSERT_TRUE(eventually([&] { return task.output().find("Sample: got hello") != std::string::npos; }));
  EXPECT_EQ(tarnwick::rt::request_task_quit("sample"), 1);
  EXPECT_EQ(task.child().wait(), 0);
  EXPECT_TRUE(MQIsQuitPending(queue)) << "tell quit also puts the task's own queue into QUIT";
  MQClose(queue, 0);

  std::string console = task.output();
  auto at = [&](const char* text) { return console.find(text); };
  ASSERT_NE(at("  Sample: Initializing\n"), std::string::npos) << console;
  EXPECT_LT(at("Sample: Initializing"), at("Sample: got hello"));
  EXPECT_LT(at("Sample: got hello"), at("Sample: Shutdown Complete"));
  EXPECT_EQ(at("start-up failed"), std::string::npos) << console;
  EXPECT_TRUE(lines_of(task.child().pid()).empty());
}

TEST_F(AddInConcurrencyTest, GenericMainReportsAMissingNotesIni) {
  std::string ini_argument = "=" + (data_.path() / "missing.ini").string();
  AddInProcess task(data_.path() / "console.txt", {"tarnwick", ini_argument});
  EXPECT_EQ(task.child().wait(), 255) << "main returns -1";
  EXPECT_NE(task.output().find("Unable to initialize the runtime: File does not exist"), std::string::npos)
      << task.output();
}

}  // namespace
