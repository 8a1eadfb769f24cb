// The worker's dispatch: request kind by marker, the use-API flag by build
// version, and a worker that leaves the loop's record alone.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "globerr.h"
#include "mq.h"
#include "osenv.h"

#include "request/IPOOO.h"
#include "task/NDAgent.h"

namespace {

TEST(RequestKind, FirstMarkerInTableOrderWinsAnywhereInThePath) {
  EXPECT_EQ(requestKindOf("/data/req/ND_REQUEST_OOO_42.xml"), RequestKind::WebPage);
  EXPECT_EQ(requestKindOf("/data/req/ND_REQUEST_MOBILE_OOO_42.xml"), RequestKind::MobilePage);
  EXPECT_EQ(requestKindOf("/data/req/ND_REQUEST_INSTALL_IOS_OOO_42.xml"), RequestKind::InstallIOSPage);
  // Both markers in one path: installation before mobile before web,
  // whatever their places in the text.
  EXPECT_EQ(requestKindOf("/ND_REQUEST_MOBILE_OOO_/ND_REQUEST_INSTALL_IOS_OOO_1.xml"), RequestKind::InstallIOSPage);
  EXPECT_EQ(requestKindOf("/ND_REQUEST_OOO_dir/ND_REQUEST_MOBILE_OOO_1.xml"), RequestKind::MobilePage);
  // A plain substring test, case as written.
  EXPECT_EQ(requestKindOf("/data/req/nd_request_ooo_42.xml"), RequestKind::Plain);
  EXPECT_EQ(requestKindOf("/data/req/ND_REQUEST_OO_42.xml"), RequestKind::Plain);
  EXPECT_EQ(requestKindOf(""), RequestKind::Plain);
}

RequestThreadRecord recordFor(const char* message, WORD buildVersion) {
  RequestThreadRecord record;
  std::memset(&record, 0, sizeof record);
  std::strncpy(record.MessageText, message, sizeof record.MessageText - 1);
  record.MessageLength = static_cast<WORD>(std::strlen(message));
  record.BuildVersion = buildVersion;
  return record;
}

TEST(RequestRecord, BuildVersionAbove378AllowsTheServiceInterface) {
  for (auto [build, expected] : {std::pair<WORD, int>{0, 0}, {378, 0}, {379, 1}, {2051, 1}}) {
    IPOOO context;
    process_request_record(recordFor("/nonexistent/request.xml", build), context);
    EXPECT_EQ(context.useAPI, expected) << build;
  }
}

TEST(RequestRecord, ProcessingEndsWithTheRequestCleared) {
  IPOOO context;
  context.Username = "left over";
  context.MQName = "left over";
  process_request_record(recordFor("/nonexistent/ND_REQUEST_OOO_1.xml", 0), context);
  EXPECT_EQ(context.Username, "");
  EXPECT_EQ(context.MQName, "");
}

// The worker runs the request its record names and leaves the loop's record
// exactly as it was (the loop reuses it for the next message): not a byte
// of it is written or freed.
TEST(RequestThreadConcurrency, WorkerRunsTheRequestAndLeavesTheLoopsRecordAlone) {
  const std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("tarnwick_request_thread_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  std::ofstream(dir / "notes.ini") << "Directory=" << dir.string() << "\nServerName=CN=Srv1/O=Acme\n";
  std::string ini = "=" + (dir / "notes.ini").string();
  char* argv[] = {const_cast<char*>("test"), ini.data()};
  ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
  const char* replyQueue = "MQ$OOOServletList_9";
  ASSERT_EQ(MQCreate(replyQueue, 0, 0), NOERROR);
  MQHANDLE replies = NULLHANDLE;
  ASSERT_EQ(MQOpen(replyQueue, 0, &replies), NOERROR);
  // A request the parser refuses, with a queue named for the answer.
  const std::string request = (dir / "request.xml").string();
  std::ofstream(request) << "<Username MQName='" << replyQueue << "' StartTimeMonth='13'>Jane</Username>";

  RequestThreadRecord record = recordFor(request.c_str(), 379);
  std::strncpy(record.OOODirectory, dir.string().c_str(), sizeof record.OOODirectory - 1);
  RequestThreadRecord before;
  std::memcpy(&before, &record, sizeof before);
  IPOOO holder;
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, nullptr, run_ooo_message_thread, &record), 0);
  pthread_join(thread, nullptr);

  std::vector<char> buffer(MQ_MAX_MSGSIZE);
  WORD length = 0;
  ASSERT_EQ(MQGet(replies, buffer.data(), static_cast<WORD>(buffer.size()), 0, 5000, &length), NOERROR);
  EXPECT_EQ(std::string(buffer.data(), length), "receiveElements:The leaving date is invalid..");
  EXPECT_EQ(std::memcmp(&record, &before, sizeof record), 0);
  MQClose(replies, 0);
  std::filesystem::remove_all(dir);
}

}  // namespace
