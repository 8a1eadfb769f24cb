// The tool against the real task: a data directory provisioned with the
// tool, the tarnwick process started on it, and requests, queues, tasks and
// log looked at through the tool only.
#include <signal.h>

#include <chrono>
#include <thread>

#include "admin_harness.h"
#include "globerr.h"
#include "mq.h"

#ifndef TARNWICK_TASK_BINARY
#error "the task's executable is needed"
#endif

namespace tarnwick::admin::testing {
namespace {

using namespace std::chrono_literals;

class AdminTaskConcurrency : public AdminTest {
 protected:
  void SetUp() override {
    AdminTest::SetUp();
    init();
    ok({"person", "add", "Jane Doe/Acme", "--create-mailfile"});
    start_runtime_here();
  }
  void TearDown() override {
    if (task_ > 0) {
      ::kill(task_, SIGKILL);
      ::waitpid(task_, nullptr, 0);
    }
    AdminTest::TearDown();
  }

  // Starts `tarnwick =<data>/notes.ini` and waits until its request queue
  // is there.
  void start_task() {
    std::string binary = TARNWICK_TASK_BINARY;
    std::string ini = "=" + (data() / "notes.ini").string();
    const std::string console = (root_ / "console.txt").string();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, console.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    char* argv[] = {binary.data(), ini.data(), nullptr};
    ASSERT_EQ(posix_spawn(&task_, binary.c_str(), &actions, nullptr, argv, environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    const auto until = std::chrono::steady_clock::now() + 30s;
    MQHANDLE requests = NULLHANDLE;
    while (MQOpen("MQ$OutOfOffice", 0, &requests) != NOERROR) {
      ASSERT_LT(std::chrono::steady_clock::now(), until) << read(root_ / "console.txt");
      std::this_thread::sleep_for(20ms);
    }
    MQClose(requests, 0);
  }

  // Waits for the task to end by itself; its exit code, or -1.
  int wait_for_task_end(std::chrono::seconds wait) {
    const auto until = std::chrono::steady_clock::now() + wait;
    while (std::chrono::steady_clock::now() < until) {
      int status = 0;
      if (::waitpid(task_, &status, WNOHANG) == task_) {
        task_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      }
      std::this_thread::sleep_for(20ms);
    }
    return -1;
  }

  std::filesystem::path write(const std::string& name, const std::string& text) const {
    std::ofstream(root_ / name) << text;
    return root_ / name;
  }

  pid_t task_ = -1;
};

TEST_F(AdminTaskConcurrency, RequestsReachTheTaskAndItsRepliesComeBack) {
  start_task();
  const std::string tasks = ok({"show", "tasks"}).out;
  EXPECT_NE(tasks.find("Tarnwick"), std::string::npos) << tasks;
  EXPECT_NE(tasks.find("Idle"), std::string::npos) << tasks;
  const std::string queues = ok({"mq", "list"}).out;
  EXPECT_NE(queues.find("MQ$OOOServletList        50"), std::string::npos) << queues;

  // A document whose leaving date cannot be a date gets the task's error
  // text as its reply, on the queue the document names.
  const std::string raw = "<r><Username MQName='MQ$AdminTestReply' Action='2' StartTimeYear='2026' "
                          "StartTimeMonth='13' StartTimeDay='1'>Jane Doe/Acme</Username></r>";
  const auto answer = json({"request", "set", "--raw", write("bad-date.xml", raw).string(), "--json"});
  EXPECT_EQ(answer["reply"], "receiveElements:The leaving date is invalid..");
  EXPECT_EQ(answer["document"], raw) << "the task writes nothing over a failed request";

  // An Action the task does not know gets no reply.
  const Result unknown = run({"--data", data().string(), "request", "query", "--raw",
                              write("unknown.xml", "<r><Username MQName='MQ$AdminTestReply' Action='7'>jdoe</Username></r>")
                                  .string(),
                              "--timeout", "1500"});
  EXPECT_EQ(unknown.code, 1);
  EXPECT_NE(unknown.err.find("no reply within 1500 ms"), std::string::npos) << unknown.err;

  // A request built from options borrows a reply queue name and gives it
  // back, whatever the answer.
  const Result query = run({"--data", data().string(), "request", "query", "--user", "Jane Doe/Acme", "--timeout",
                            "1500", "--json"});
  if (query.code == 0) {
    EXPECT_TRUE(nlohmann::json::parse(query.out).contains("reply")) << query.out;
  } else {
    EXPECT_NE(query.err.find("no reply within 1500 ms"), std::string::npos) << query.err;
  }
  EXPECT_NE(ok({"mq", "list"}).out.find("MQ$OOOServletList        50"), std::string::npos);
}

TEST_F(AdminTaskConcurrency, TheTaskLogsAndQuitsWhenTold) {
  start_task();
  bool initialized = false;
  for (const auto& line : log_once_it_has("Tarnwick", "Tarnwick: Initialization Complete")) {
    initialized |= line["text"] == "Tarnwick: Initialization Complete";
  }
  EXPECT_TRUE(initialized);

  ok({"tell", "Tarnwick", "quit"});
  EXPECT_EQ(wait_for_task_end(30s), 0) << read(root_ / "console.txt");
  EXPECT_NE(ok({"show", "tasks"}).out.find("No tasks"), std::string::npos);
  bool shut_down = false;
  for (const auto& line : json({"log", "--task", "Tarnwick", "--json"})) {
    shut_down |= line["text"] == "Tarnwick: Shutdown Complete";
  }
  EXPECT_TRUE(shut_down);
}

}  // namespace
}  // namespace tarnwick::admin::testing
