// The worker's dispatch: request kind by marker, the use-API flag by build
// version, and the worker's own copy of the record.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>

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

TEST(RequestThreadConcurrency, WorkerRunsOnItsOwnCopyOfTheRecord) {
  RequestThreadRecord record = recordFor("/nonexistent/request.xml", 379);
  IPOOO holder;
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, nullptr, run_ooo_message_thread, &record), 0);
  pthread_join(thread, nullptr);
  // The thread neither frees nor changes the loop's record.
  EXPECT_STREQ(record.MessageText, "/nonexistent/request.xml");
  EXPECT_EQ(record.BuildVersion, 379);
}

}  // namespace
