// Message queue semantics within one process: statuses, order, sizes,
// quota, QUIT state and queue lifetime.
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "globerr.h"
#include "mq.h"
#include "mq/message_queue.h"
#include "mq/process_test_support.h"
#include "mq/shared_state.h"
#include "testing/temp_data_directory.h"

namespace {

using tarnwick::rt::testing::ScratchDataDirectory;

class MessageQueueTest : public ::testing::Test {
 protected:
  MQHANDLE make_queue(const char* name, WORD quota = 0) {
    EXPECT_EQ(MQCreate(name, quota, 0), NOERROR);
    MQHANDLE queue = NULLHANDLE;
    EXPECT_EQ(MQOpen(name, 0, &queue), NOERROR);
    return queue;
  }
  static STATUS put(MQHANDLE queue, const std::string& text, WORD priority = 0) {
    return MQPut(queue, priority, const_cast<char*>(text.data()), static_cast<WORD>(text.size()), 0);
  }
  static std::string get(MQHANDLE queue, STATUS expected = NOERROR) {
    std::vector<char> buffer(MQ_MAX_MSGSIZE);
    WORD length = 0;
    EXPECT_EQ(MQGet(queue, buffer.data(), static_cast<WORD>(buffer.size()), 0, 0, &length), expected);
    return std::string(buffer.data(), length);
  }

  ScratchDataDirectory data_;
};

TEST_F(MessageQueueTest, CreateAndOpenReportDuplicateAndMissingNamesWithoutCase) {
  EXPECT_EQ(MQCreate("MQ$OutOfOffice", 0, 0), NOERROR);
  EXPECT_EQ(MQCreate("mq$outofoffice", 0, 0), ERR_DUPLICATE_MQ);
  MQHANDLE queue = NULLHANDLE;
  EXPECT_EQ(MQOpen("MQ$OUTOFOFFICE", 0, &queue), NOERROR);
  EXPECT_NE(queue, NULLHANDLE);
  MQHANDLE missing = 123;
  EXPECT_EQ(MQOpen("MQ$Nobody", 0, &missing), ERR_NO_SUCH_MQ);
  EXPECT_EQ(missing, NULLHANDLE);
  EXPECT_EQ(MQOpen("", MQ_OPEN_CREATE, &missing), ERR_BAD_PARAM);
  EXPECT_EQ(MQClose(queue, 0), NOERROR);
}

TEST_F(MessageQueueTest, KeysFoldCaseAndEscapeWhatAFileNameCannotHold) {
  EXPECT_EQ(tarnwick::rt::queue_key("MQ$OutOfOffice_1.x"), "MQ$OUTOFOFFICE_1.X");
  EXPECT_EQ(tarnwick::rt::queue_key("a/b c"), "A%2FB%20C");
  EXPECT_EQ(tarnwick::rt::queue_key(".."), "%2E.");
  EXPECT_FALSE(tarnwick::rt::queue_key(""));
  EXPECT_FALSE(tarnwick::rt::queue_key(std::string(300, 'q')));
  // Distinct names never share a folder.
  EXPECT_NE(tarnwick::rt::queue_key("a%2F"), tarnwick::rt::queue_key("a/"));
}

TEST_F(MessageQueueTest, MessagesComeOutInPriorityThenPutOrder) {
  MQHANDLE queue = make_queue("MQ$Order");
  ASSERT_EQ(put(queue, "low-1", 10), NOERROR);
  ASSERT_EQ(put(queue, "high-1", 0), NOERROR);
  ASSERT_EQ(put(queue, "low-2", 10), NOERROR);
  ASSERT_EQ(put(queue, "high-2", 0), NOERROR);
  ASSERT_EQ(put(queue, "", 0), NOERROR) << "zero-length messages are allowed";
  EXPECT_EQ(MQGetCount(queue), 5);
  EXPECT_EQ(get(queue), "high-1");
  EXPECT_EQ(get(queue), "high-2");
  EXPECT_EQ(get(queue), "");
  EXPECT_EQ(get(queue), "low-1");
  EXPECT_EQ(get(queue), "low-2");
  EXPECT_EQ(get(queue, ERR_MQ_EMPTY), "");
  EXPECT_EQ(MQGetCount(queue), 0);
  MQClose(queue, 0);
}

TEST_F(MessageQueueTest, FiftyServletNamesReadBackInOrder) {
  MQHANDLE queue = make_queue("MQ$OOOServletList");
  for (int i = 0; i < 50; ++i) ASSERT_EQ(put(queue, "MQ$OOOServletList_" + std::to_string(i)), NOERROR);
  EXPECT_EQ(MQGetCount(queue), 50);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(get(queue), "MQ$OOOServletList_" + std::to_string(i));
  MQClose(queue, 0);
}

// Short messages travel in their file's name and longer ones in the file:
// every byte value, and every length across the switch from one to the
// other, must come back exactly and in put order.
TEST_F(MessageQueueTest, MessagesOfEveryByteAndLengthRoundTripInOrder) {
  MQHANDLE queue = make_queue("MQ$Bytes");
  std::vector<std::string> sent;
  std::string every_byte;
  for (int byte = 0; byte < 256; ++byte) every_byte += static_cast<char>(byte);
  for (size_t at = 0; at < every_byte.size(); at += 16) sent.push_back(every_byte.substr(at, 16));
  sent.push_back(every_byte);
  sent.push_back("/tmp/spool/set_0.xml");
  sent.push_back("%41=%%2F%");  // escape-like text must not be decoded twice
  for (size_t length = 60; length <= 260; length += 7) {
    std::string path;
    while (path.size() < length) path += "/a%b";
    path.resize(length);
    sent.push_back(path);
  }
  for (const std::string& message : sent) ASSERT_EQ(put(queue, message), NOERROR);
  EXPECT_EQ(MQGetCount(queue), sent.size());
  for (const std::string& message : sent) EXPECT_EQ(get(queue), message);
  EXPECT_EQ(get(queue, ERR_MQ_EMPTY), "");
  MQClose(queue, 0);
}

TEST_F(MessageQueueTest, LargestMessageRoundTripsAndOneByteMoreIsRefused) {
  MQHANDLE queue = make_queue("MQ$Big");
  std::string largest(MQ_MAX_MSGSIZE, 'x');
  for (size_t i = 0; i < largest.size(); i += 97) largest[i] = static_cast<char>('a' + i % 26);
  ASSERT_EQ(put(queue, largest), NOERROR);
  std::string too_long(MQ_MAX_MSGSIZE + 1, 'y');
  EXPECT_EQ(put(queue, too_long), ERR_SEGMENT_TOO_BIG);
  EXPECT_EQ(MQGetCount(queue), 1);
  EXPECT_EQ(get(queue), largest);
  MQClose(queue, 0);
}

TEST_F(MessageQueueTest, ShortBufferTakesTheMessageCutToTheBuffer) {
  MQHANDLE queue = make_queue("MQ$Short");
  ASSERT_EQ(put(queue, "0123456789"), NOERROR);
  ASSERT_EQ(put(queue, "next"), NOERROR);
  char buffer[4];
  WORD length = 0;
  EXPECT_EQ(MQGet(queue, buffer, sizeof buffer, 0, 0, &length), ERR_MQ_BFR_TOO_SMALL);
  EXPECT_EQ(length, 4);
  EXPECT_EQ(std::string(buffer, length), "0123");
  EXPECT_EQ(get(queue), "next") << "the cut message is gone from the queue";
  MQClose(queue, 0);
}

TEST_F(MessageQueueTest, WaitWithoutMessageEndsEmptyAfterTheTimeout) {
  MQHANDLE queue = make_queue("MQ$Wait");
  char buffer[16];
  WORD length = 7;
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(MQGet(queue, buffer, sizeof buffer, 0, 150, &length), ERR_MQ_EMPTY);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
  EXPECT_EQ(length, 0);
  start = std::chrono::steady_clock::now();
  EXPECT_EQ(MQGet(queue, buffer, sizeof buffer, MQ_WAIT_FOR_MSG, 100, &length), ERR_MQ_EMPTY);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
  MQClose(queue, 0);
}

TEST_F(MessageQueueTest, QuitStateRefusesPutsAndOverridesWaitingMessages) {
  MQHANDLE queue = make_queue("MQ$Quit");
  ASSERT_EQ(put(queue, "before"), NOERROR);
  EXPECT_FALSE(MQIsQuitPending(queue));
  MQPutQuitMsg(queue);
  EXPECT_TRUE(MQIsQuitPending(queue));
  EXPECT_EQ(put(queue, "after"), ERR_MQ_QUITTING);
  char buffer[16];
  WORD length = 0;
  EXPECT_EQ(MQGet(queue, buffer, sizeof buffer, MQ_WAIT_FOR_MSG, 0, &length), ERR_MQ_QUITTING);
  MQHANDLE second = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$QUIT", 0, &second), NOERROR);
  EXPECT_TRUE(MQIsQuitPending(second)) << "the state belongs to the queue, not the handle";
  MQClose(second, 0);
  MQClose(queue, 0);
}

TEST_F(MessageQueueTest, QuotaLimitsWaitingMessages) {
  MQHANDLE queue = make_queue("MQ$Small", 3);
  for (int i = 0; i < 3; ++i) ASSERT_EQ(put(queue, "m"), NOERROR);
  EXPECT_EQ(put(queue, "m"), ERR_MQ_EXCEEDED_QUOTA);
  get(queue);
  EXPECT_EQ(put(queue, "m"), NOERROR) << "a taken message frees its place";
  MQClose(queue, 0);
}

TEST_F(MessageQueueTest, QueueLivesUntilItsLastHandleCloses) {
  ASSERT_EQ(MQCreate("MQ$Life", 0, 0), NOERROR);
  MQHANDLE first = NULLHANDLE, second = NULLHANDLE, again = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$Life", 0, &first), NOERROR) << "a created queue waits for its first open";
  ASSERT_EQ(MQOpen("MQ$Life", 0, &second), NOERROR);
  ASSERT_EQ(put(first, "kept"), NOERROR);
  EXPECT_EQ(MQClose(first, 0), NOERROR);
  EXPECT_EQ(get(second), "kept");
  EXPECT_EQ(MQClose(second, 0), NOERROR);
  EXPECT_EQ(MQOpen("MQ$Life", 0, &again), ERR_NO_SUCH_MQ);
  EXPECT_EQ(MQCreate("MQ$Life", 0, 0), NOERROR) << "the name is free again";
  ASSERT_EQ(MQOpen("MQ$Life", MQ_OPEN_CREATE, &again), NOERROR);
  EXPECT_EQ(MQGetCount(again), 0) << "a new queue starts empty";
  MQClose(again, 0);
}

TEST_F(MessageQueueTest, OpenCreateMakesAMissingQueue) {
  MQHANDLE queue = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$Made", MQ_OPEN_CREATE, &queue), NOERROR);
  EXPECT_EQ(MQCreate("MQ$Made", 0, 0), ERR_DUPLICATE_MQ);
  MQHANDLE again = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$Made", MQ_OPEN_CREATE, &again), NOERROR) << "an existing queue is opened as it is";
  ASSERT_EQ(put(queue, "shared"), NOERROR);
  EXPECT_EQ(get(again), "shared");
  MQClose(again, 0);
  MQClose(queue, 0);
}

TEST_F(MessageQueueTest, ListingShowsLiveQueuesByTheirNamesWithCountsAndQuitState) {
  MQHANDLE requests = make_queue("MQ$OutOfOffice");
  MQHANDLE reply = make_queue("MQ$Reply_7");
  ASSERT_EQ(put(requests, "a"), NOERROR);
  ASSERT_EQ(put(requests, "b"), NOERROR);
  MQPutQuitMsg(reply);
  auto listed = tarnwick::rt::list_queues();
  ASSERT_EQ(listed.size(), 2u);
  EXPECT_EQ(listed[0].name, "MQ$OutOfOffice");
  EXPECT_EQ(listed[0].messages, 2u);
  EXPECT_FALSE(listed[0].quitting);
  EXPECT_EQ(listed[1].name, "MQ$Reply_7");
  EXPECT_EQ(listed[1].messages, 0u);
  EXPECT_TRUE(listed[1].quitting);
  MQClose(reply, 0);
  listed = tarnwick::rt::list_queues();
  ASSERT_EQ(listed.size(), 1u) << "a closed queue is gone";
  EXPECT_EQ(listed[0].name, "MQ$OutOfOffice");
  MQClose(requests, 0);
}

TEST_F(MessageQueueTest, BadHandlesGiveStatusesNotCrashes) {
  char buffer[4];
  WORD length = 9;
  EXPECT_EQ(MQGet(4242, buffer, sizeof buffer, 0, 0, &length), ERR_MQ_EMPTY);
  EXPECT_EQ(length, 0);
  EXPECT_EQ(MQPut(4242, 0, buffer, 1, 0), ERR_MQ_EMPTY);
  EXPECT_EQ(MQClose(4242, 0), ERR_MQ_EMPTY);
  EXPECT_FALSE(MQIsQuitPending(4242));
  EXPECT_EQ(MQGetCount(4242), 0);
  MQPutQuitMsg(4242);
  MQHANDLE queue = make_queue("MQ$Twice");
  EXPECT_EQ(MQClose(queue, 0), NOERROR);
  EXPECT_EQ(MQClose(queue, 0), ERR_MQ_EMPTY) << "a closed handle is no longer valid";
}

}  // namespace

namespace {

// The shared folder of a data directory that has been removed goes with the
// next collection; the folders of live data directories stay.
TEST(SharedStateTest, FoldersOfRemovedDataDirectoriesAreCollected) {
  if (::access("/dev/shm", W_OK) != 0) GTEST_SKIP() << "no /dev/shm here";
  std::filesystem::path orphan;
  {
    tarnwick::testing::TempDataDirectory gone;
    orphan = tarnwick::rt::shared_state_root();
  }  // the data directory is removed, its shared folder is not
  tarnwick::testing::TempDataDirectory live;
  const std::filesystem::path kept = tarnwick::rt::shared_state_root();
  // Every process collects once at its first use, so a test running beside
  // this one may take the orphan first: what counts is that it is gone.
  tarnwick::rt::collect_orphaned_shared_state();
  EXPECT_FALSE(std::filesystem::exists(orphan));
  EXPECT_TRUE(std::filesystem::exists(kept));
  EXPECT_EQ(MQCreate("MQ$StillHere", 0, 0), NOERROR);  // the live folder still works
}

}  // namespace
