// The commands that look at a running server: queues, log, tasks. The test
// process plays the running task: it holds queues, shows a status line and
// logs, while the tool is run beside it.
#include <string>

#include "addin.h"
#include "admin_harness.h"
#include "globerr.h"
#include "mq.h"

namespace tarnwick::admin::testing {
namespace {

using AdminRuntime = AdminTest;

std::string take(MQHANDLE queue) {
  char buffer[256];
  WORD length = 0;
  if (MQGet(queue, buffer, sizeof buffer, 0, 0, &length) != NOERROR) return "<none>";
  return std::string(buffer, length);
}

TEST_F(AdminRuntime, QueuesAreListedFedAndDrained) {
  init();
  start_runtime_here();
  EXPECT_NE(ok({"mq", "list"}).out.find("No queues"), std::string::npos);

  ASSERT_EQ(MQCreate("MQ$OutOfOffice", 0, 0), NOERROR);
  MQHANDLE requests = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$OutOfOffice", 0, &requests), NOERROR);
  ok({"mq", "open-put", "mq$outofoffice", "/data/one.xml"});
  ok({"mq", "open-put", "MQ$OutOfOffice", "two words"});
  const std::string listing = ok({"mq", "list"}).out;
  EXPECT_NE(listing.find("MQ$OutOfOffice"), std::string::npos) << listing;
  EXPECT_NE(listing.find(" 2\n"), std::string::npos) << listing;
  EXPECT_EQ(take(requests), "/data/one.xml");

  // get prints the next message and takes it off.
  EXPECT_EQ(ok({"mq", "get", "MQ$OutOfOffice"}).out, "two words\n");
  const Result empty = run({"--data", data().string(), "mq", "get", "MQ$OutOfOffice", "--timeout", "50"});
  EXPECT_EQ(empty.code, 1);
  EXPECT_NE(empty.err.find("50 ms"), std::string::npos) << empty.err;
  EXPECT_EQ(lines(empty.err), 1u);

  // A queue nobody holds cannot be fed: open-put does not make it.
  const Result missing = run({"--data", data().string(), "mq", "open-put", "MQ$Nobody", "x"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_NE(missing.err.find("MQ$Nobody"), std::string::npos) << missing.err;
  EXPECT_EQ(ok({"mq", "list"}).out.find("MQ$Nobody"), std::string::npos);

  MQPutQuitMsg(requests);
  EXPECT_NE(ok({"mq", "list"}).out.find("(quitting)"), std::string::npos);
  MQClose(requests, 0);
}

TEST_F(AdminRuntime, TasksAreShownToldToQuitAndTheirLogLinesRead) {
  init();
  start_runtime_here();
  char program[] = "tarnwick";
  char* argv[] = {program, nullptr};
  ASSERT_EQ(AddInSDKInit(1, argv), NOERROR);
  const DHANDLE line = AddInCreateStatusLine("Tarnwick");
  AddInSetDefaults(NULLHANDLE, line);
  AddInSetStatusText("Idle");
  AddInLogMessageText("Tarnwick: Initializing", NOERROR);
  ASSERT_EQ(MQCreate("MQ$Tarnwick", 0, 0), NOERROR);
  MQHANDLE own = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$Tarnwick", 0, &own), NOERROR);

  const std::string tasks = ok({"show", "tasks"}).out;
  EXPECT_NE(tasks.find("Tarnwick"), std::string::npos) << tasks;
  EXPECT_NE(tasks.find("Idle"), std::string::npos) << tasks;
  EXPECT_NE(tasks.find(std::to_string(::getpid())), std::string::npos) << tasks;

  const auto log = log_once_it_has("tarnwick", "Tarnwick: Initializing");
  ASSERT_EQ(log.size(), 1u) << log.dump();
  EXPECT_EQ(log[0]["task"], "Tarnwick");
  EXPECT_EQ(log[0]["text"], "Tarnwick: Initializing");
  EXPECT_EQ(log[0]["time"].get<std::string>().size() >= 25, true) << log[0]["time"];
  EXPECT_TRUE(json({"log", "--task", "Other", "--json"}).empty());
  EXPECT_NE(ok({"log"}).out.find("  Tarnwick: Initializing\n"), std::string::npos);

  EXPECT_FALSE(AddInShouldTerminate());
  ok({"tell", "tarnwick", "quit"});
  EXPECT_TRUE(AddInShouldTerminate());
  EXPECT_TRUE(MQIsQuitPending(own)) << "quit also reaches the task's own queue";

  const Result nobody = run({"--data", data().string(), "tell", "Nobody", "quit"});
  EXPECT_EQ(nobody.code, 1);
  EXPECT_NE(nobody.err.find("Nobody"), std::string::npos);
  MQClose(own, 0);
}

}  // namespace
}  // namespace tarnwick::admin::testing
