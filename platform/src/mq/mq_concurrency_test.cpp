// Message queues shared by real processes (fork) and by threads: hand-over
// between processes, wake-ups, QUIT seen by a waiting getter, a killed
// holder, and messages taken exactly once by competing getters.
#include <atomic>
#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "globerr.h"
#include "mq.h"
#include "mq/process_test_support.h"

namespace {

using tarnwick::rt::testing::Child;
using tarnwick::rt::testing::ScratchDataDirectory;
using tarnwick::rt::testing::Signal;

STATUS put(MQHANDLE queue, const std::string& text) {
  return MQPut(queue, 0, const_cast<char*>(text.data()), static_cast<WORD>(text.size()), 0);
}

// Opens the queue in a child and puts the texts; exit code 0 when all went in.
int put_from_child(const char* name, const std::vector<std::string>& texts) {
  MQHANDLE queue = NULLHANDLE;
  if (MQOpen(name, 0, &queue) != NOERROR) return 1;
  for (const auto& text : texts) {
    if (put(queue, text) != NOERROR) return 2;
  }
  return MQClose(queue, 0) == NOERROR ? 0 : 3;
}

class MessageQueueConcurrencyTest : public ::testing::Test {
 protected:
  ScratchDataDirectory data_;
};

TEST_F(MessageQueueConcurrencyTest, MessagesPutInOneProcessAreTakenInAnotherInOrder) {
  MQHANDLE queue = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$OOOServletList", MQ_OPEN_CREATE, &queue), NOERROR);
  std::vector<std::string> names;
  for (int i = 0; i < 50; ++i) names.push_back("MQ$OOOServletList_" + std::to_string(i));
  Child producer([&] { return put_from_child("mq$oooservletlist", names); });
  ASSERT_EQ(producer.wait(), 0);
  char buffer[512];
  WORD length = 0;
  for (const auto& expected : names) {
    ASSERT_EQ(MQGet(queue, buffer, sizeof buffer, 0, 0, &length), NOERROR);
    EXPECT_EQ(std::string(buffer, length), expected);
  }
  EXPECT_EQ(MQGet(queue, buffer, sizeof buffer, 0, 0, &length), ERR_MQ_EMPTY);
  MQClose(queue, 0);
}

TEST_F(MessageQueueConcurrencyTest, LargestMessageCrossesProcessesIntact) {
  MQHANDLE queue = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$Big", MQ_OPEN_CREATE, &queue), NOERROR);
  std::string largest(MQ_MAX_MSGSIZE, '\0');
  for (size_t i = 0; i < largest.size(); ++i) largest[i] = static_cast<char>(i * 7 + i / 256);
  Child producer([&] {
    MQHANDLE child_queue = NULLHANDLE;
    if (MQOpen("MQ$Big", 0, &child_queue) != NOERROR) return 1;
    if (put(child_queue, largest) != NOERROR) return 2;
    return put(child_queue, largest + "!") == ERR_SEGMENT_TOO_BIG ? 0 : 3;
  });
  ASSERT_EQ(producer.wait(), 0);
  std::vector<char> buffer(MQ_MAX_MSGSIZE);
  WORD length = 0;
  ASSERT_EQ(MQGet(queue, buffer.data(), MQ_MAX_MSGSIZE, 0, 0, &length), NOERROR);
  EXPECT_EQ(std::string(buffer.data(), length), largest);
  EXPECT_EQ(MQGetCount(queue), 0);
  MQClose(queue, 0);
}

TEST_F(MessageQueueConcurrencyTest, WaitingGetterWakesOnPutFromAnotherProcess) {
  MQHANDLE queue = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$OutOfOffice", MQ_OPEN_CREATE, &queue), NOERROR);
  Signal waiting;
  Child producer([&] {
    if (!waiting.wait()) return 1;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // let the parent block in MQGet
    return put_from_child("MQ$OutOfOffice", {"/tmp/request.xml"});
  });
  waiting.ready();
  char buffer[512];
  WORD length = 0;
  auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(MQGet(queue, buffer, sizeof buffer, 0, 30000, &length), NOERROR);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20)) << "woken by the put, not the timeout";
  EXPECT_EQ(std::string(buffer, length), "/tmp/request.xml");
  EXPECT_EQ(producer.wait(), 0);
  MQClose(queue, 0);
}

TEST_F(MessageQueueConcurrencyTest, WaitingGetterSeesQuitPutByAnotherProcess) {
  MQHANDLE queue = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$Task", MQ_OPEN_CREATE, &queue), NOERROR);
  Signal waiting;
  Child admin([&] {
    if (!waiting.wait()) return 1;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    MQHANDLE child_queue = NULLHANDLE;
    if (MQOpen("MQ$TASK", 0, &child_queue) != NOERROR) return 2;
    MQPutQuitMsg(child_queue);
    return MQClose(child_queue, 0) == NOERROR ? 0 : 3;
  });
  waiting.ready();
  char buffer[64];
  WORD length = 0;
  EXPECT_EQ(MQGet(queue, buffer, sizeof buffer, MQ_WAIT_FOR_MSG, 0, &length), ERR_MQ_QUITTING)
      << "an endless wait ends with the quit";
  EXPECT_TRUE(MQIsQuitPending(queue));
  EXPECT_EQ(admin.wait(), 0);
  MQClose(queue, 0);
}

// A thread keeps its watch on a queue between waits: a quit put by another
// process after an earlier wait still ends the next one at once.
TEST_F(MessageQueueConcurrencyTest, AQuitPutBetweenTwoWaitsEndsTheSecond) {
  MQHANDLE queue = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$Task", MQ_OPEN_CREATE, &queue), NOERROR);
  char buffer[64];
  WORD length = 0;
  EXPECT_EQ(MQGet(queue, buffer, sizeof buffer, MQ_WAIT_FOR_MSG, 20, &length), ERR_MQ_EMPTY);
  Child admin([&] {
    MQHANDLE child_queue = NULLHANDLE;
    if (MQOpen("MQ$TASK", 0, &child_queue) != NOERROR) return 1;
    MQPutQuitMsg(child_queue);
    return MQClose(child_queue, 0) == NOERROR ? 0 : 2;
  });
  ASSERT_EQ(admin.wait(), 0);
  EXPECT_EQ(MQGet(queue, buffer, sizeof buffer, MQ_WAIT_FOR_MSG, 0, &length), ERR_MQ_QUITTING);
  EXPECT_EQ(put(queue, "late"), ERR_MQ_QUITTING);
  MQClose(queue, 0);
}

// One thread waits on one queue, then another, then the first again, then on
// a queue made anew under the first one's name: each put wakes it.
TEST_F(MessageQueueConcurrencyTest, AThreadWaitingOnQueuesInTurnIsWokenOnEach) {
  MQHANDLE first = NULLHANDLE;
  MQHANDLE second = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$First", MQ_OPEN_CREATE, &first), NOERROR);
  ASSERT_EQ(MQOpen("MQ$Second", MQ_OPEN_CREATE, &second), NOERROR);
  auto woken_by_put = [](MQHANDLE queue, const char* name, const std::string& text) {
    std::thread putter([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(30));  // most likely while the get sleeps
      MQHANDLE own = NULLHANDLE;
      if (MQOpen(name, 0, &own) == NOERROR) {
        put(own, text);
        MQClose(own, 0);
      }
    });
    char buffer[64];
    WORD length = 0;
    const STATUS got = MQGet(queue, buffer, sizeof buffer, MQ_WAIT_FOR_MSG, 30000, &length);
    putter.join();
    return got == NOERROR ? std::string(buffer, length) : "status " + std::to_string(got);
  };
  EXPECT_EQ(woken_by_put(first, "MQ$First", "one"), "one");
  EXPECT_EQ(woken_by_put(second, "MQ$Second", "two"), "two");
  EXPECT_EQ(woken_by_put(first, "MQ$First", "three"), "three");
  ASSERT_EQ(MQClose(first, 0), NOERROR);  // the last handle: the queue goes
  ASSERT_EQ(MQOpen("MQ$First", MQ_OPEN_CREATE, &first), NOERROR);
  EXPECT_EQ(woken_by_put(first, "MQ$First", "four"), "four");
  MQClose(first, 0);
  MQClose(second, 0);
}

// Several threads wait on one queue at once: a put wakes one of them for
// each message, none sleeps through a message meant for it.
TEST_F(MessageQueueConcurrencyTest, EveryWaitingThreadGetsAMessage) {
  constexpr int kWaiters = 4;
  MQHANDLE queue = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$Pool", MQ_OPEN_CREATE, &queue), NOERROR);
  std::atomic<int> taken{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < kWaiters; ++i) {
    waiters.emplace_back([&] {
      char buffer[16];
      WORD length = 0;
      if (MQGet(queue, buffer, sizeof buffer, MQ_WAIT_FOR_MSG, 30000, &length) == NOERROR) ++taken;
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(30));  // most likely all asleep by now
  for (int i = 0; i < kWaiters; ++i) ASSERT_EQ(put(queue, std::to_string(i)), NOERROR);
  for (auto& waiter : waiters) waiter.join();
  EXPECT_EQ(taken.load(), kWaiters);
  MQClose(queue, 0);
}

TEST_F(MessageQueueConcurrencyTest, KilledHolderDoesNotBlockTheNextCreate) {
  Signal created;
  Child task([&] {
    MQHANDLE queue = NULLHANDLE;
    if (MQCreate("MQ$OutOfOffice", 0, 0) != NOERROR || MQOpen("MQ$OutOfOffice", 0, &queue) != NOERROR) return 1;
    put(queue, "left behind");
    created.ready();
    ::pause();
    return 0;
  });
  ASSERT_TRUE(created.wait());
  EXPECT_EQ(MQCreate("MQ$OutOfOffice", 0, 0), ERR_DUPLICATE_MQ) << "a live holder keeps the queue";
  task.kill_hard();
  ASSERT_EQ(MQCreate("MQ$OutOfOffice", 0, 0), NOERROR) << "the dead holder's queue is replaced";
  MQHANDLE queue = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$OutOfOffice", 0, &queue), NOERROR);
  EXPECT_EQ(MQGetCount(queue), 0) << "messages of the dead queue are gone";
  MQClose(queue, 0);
}

TEST_F(MessageQueueConcurrencyTest, QueueOutlivesItsCreatorWhileAnotherProcessHoldsIt) {
  MQHANDLE queue = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$Shared", MQ_OPEN_CREATE, &queue), NOERROR);
  Signal opened, closed_by_parent;
  Child holder([&] {
    MQHANDLE child_queue = NULLHANDLE;
    if (MQOpen("MQ$Shared", 0, &child_queue) != NOERROR) return 1;
    opened.ready();
    if (!closed_by_parent.wait()) return 2;
    return put(child_queue, "still here") == NOERROR ? 0 : 3;
  });
  ASSERT_TRUE(opened.wait());
  ASSERT_EQ(MQClose(queue, 0), NOERROR);
  closed_by_parent.ready();
  ASSERT_EQ(holder.wait(), 0);
  // The child ended without closing: its hold died with it, so the queue is gone.
  EXPECT_EQ(MQOpen("MQ$Shared", 0, &queue), ERR_NO_SUCH_MQ);
}

TEST_F(MessageQueueConcurrencyTest, CompetingGettersTakeEachMessageExactlyOnce) {
  constexpr int kMessages = 300;
  MQHANDLE queue = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$Work", MQ_OPEN_CREATE, &queue), NOERROR);
  for (int i = 0; i < kMessages; ++i) ASSERT_EQ(put(queue, std::to_string(i)), NOERROR);
  // Two processes and two threads here take from the queue at once; every
  // process writes what it took to a pipe.
  int pipe_fds[2];
  ASSERT_EQ(::pipe(pipe_fds), 0);
  auto drain = [&](int out) {
    MQHANDLE own = NULLHANDLE;
    if (MQOpen("MQ$Work", 0, &own) != NOERROR) return 1;
    char buffer[16];
    WORD length = 0;
    while (MQGet(own, buffer, sizeof buffer, 0, 0, &length) == NOERROR) {
      std::string line(buffer, length);
      line += '\n';
      if (::write(out, line.data(), line.size()) != static_cast<ssize_t>(line.size())) return 2;
    }
    MQClose(own, 0);
    return 0;
  };
  {
    Child first([&] { return drain(pipe_fds[1]); });
    Child second([&] { return drain(pipe_fds[1]); });
    std::thread third([&] { drain(pipe_fds[1]); });
    std::thread fourth([&] { drain(pipe_fds[1]); });
    third.join();
    fourth.join();
    EXPECT_EQ(first.wait(), 0);
    EXPECT_EQ(second.wait(), 0);
  }
  ::close(pipe_fds[1]);
  std::string all;
  char chunk[4096];
  ssize_t n;
  while ((n = ::read(pipe_fds[0], chunk, sizeof chunk)) > 0) all.append(chunk, static_cast<size_t>(n));
  ::close(pipe_fds[0]);
  std::multiset<std::string> taken;
  for (size_t start = 0, end; (end = all.find('\n', start)) != std::string::npos; start = end + 1) {
    taken.insert(all.substr(start, end - start));
  }
  EXPECT_EQ(taken.size(), static_cast<size_t>(kMessages));
  for (int i = 0; i < kMessages; ++i) EXPECT_EQ(taken.count(std::to_string(i)), 1u) << i;
  MQClose(queue, 0);
}

// A front end's reply queue as a task sees it: opened for one reply and
// closed again, many times. Having used a queue must never keep it alive,
// and a queue made anew under the same name is the new one.
TEST_F(MessageQueueConcurrencyTest, AProcessThatUsedAQueueDoesNotKeepItAlive) {
  Signal made, used, closed;
  Child owner([&] {
    MQHANDLE queue = NULLHANDLE;
    if (MQOpen("MQ$Reply_1", MQ_OPEN_CREATE, &queue) != NOERROR) return 1;
    made.ready();
    if (!used.wait()) return 2;
    char buffer[16];
    WORD length = 0;
    if (MQGet(queue, buffer, sizeof buffer, 0, 0, &length) != NOERROR || std::string(buffer, length) != "OK") return 3;
    return MQClose(queue, 0) == NOERROR ? 0 : 4;
  });
  ASSERT_TRUE(made.wait());
  for (int i = 0; i < 3; ++i) {
    MQHANDLE reply = NULLHANDLE;
    ASSERT_EQ(MQOpen("mq$reply_1", 0, &reply), NOERROR) << i;
    if (i == 0) {
      ASSERT_EQ(put(reply, "OK"), NOERROR);
    }
    ASSERT_EQ(MQClose(reply, 0), NOERROR);
  }
  used.ready();
  ASSERT_EQ(owner.wait(), 0);
  MQHANDLE reply = NULLHANDLE;
  EXPECT_EQ(MQOpen("MQ$Reply_1", 0, &reply), ERR_NO_SUCH_MQ) << "the owner's close ended the queue";
  EXPECT_EQ(MQCreate("MQ$Reply_1", 0, 0), NOERROR) << "the name is free";
}

TEST_F(MessageQueueConcurrencyTest, AQueueMadeAnewUnderAUsedNameIsTheNewOne) {
  Signal first_made, first_used, second_made, second_used;
  Child owner([&] {
    MQHANDLE queue = NULLHANDLE;
    if (MQCreate("MQ$Reply_2", 0, 0) != NOERROR || MQOpen("MQ$Reply_2", 0, &queue) != NOERROR) return 1;
    first_made.ready();
    if (!first_used.wait() || MQClose(queue, 0) != NOERROR) return 2;
    if (MQCreate("MQ$Reply_2", 2, 0) != NOERROR || MQOpen("MQ$Reply_2", 0, &queue) != NOERROR) return 3;
    second_made.ready();
    if (!second_used.wait()) return 4;
    return MQGetCount(queue) == 2 ? 0 : 5;
  });
  ASSERT_TRUE(first_made.wait());
  MQHANDLE reply = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$Reply_2", 0, &reply), NOERROR);
  ASSERT_EQ(put(reply, "to the first"), NOERROR);
  ASSERT_EQ(MQClose(reply, 0), NOERROR);
  first_used.ready();
  ASSERT_TRUE(second_made.wait());
  ASSERT_EQ(MQOpen("MQ$Reply_2", 0, &reply), NOERROR);
  EXPECT_EQ(MQGetCount(reply), 0) << "the first queue's message went with it";
  EXPECT_EQ(put(reply, "a"), NOERROR);
  EXPECT_EQ(put(reply, "b"), NOERROR);
  EXPECT_EQ(put(reply, "c"), ERR_MQ_EXCEEDED_QUOTA) << "the new queue's quota, not the old one's";
  ASSERT_EQ(MQClose(reply, 0), NOERROR);
  second_used.ready();
  EXPECT_EQ(owner.wait(), 0);
}

TEST_F(MessageQueueConcurrencyTest, AUsedQueueWhoseOwnerWasKilledIsSeenAsGone) {
  Signal made;
  Child owner([&] {
    MQHANDLE queue = NULLHANDLE;
    if (MQOpen("MQ$Reply_3", MQ_OPEN_CREATE, &queue) != NOERROR) return 1;
    made.ready();
    ::pause();
    return 0;
  });
  ASSERT_TRUE(made.wait());
  MQHANDLE reply = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$Reply_3", 0, &reply), NOERROR);
  ASSERT_EQ(MQClose(reply, 0), NOERROR);
  owner.kill_hard();
  EXPECT_EQ(MQOpen("MQ$Reply_3", 0, &reply), ERR_NO_SUCH_MQ);
  EXPECT_EQ(MQCreate("MQ$Reply_3", 0, 0), NOERROR);
}

// A process forked by a holder, which never touches queues itself, must not
// keep its parent's queues alive once the parent is gone.
TEST_F(MessageQueueConcurrencyTest, AForkedChildDoesNotKeepItsParentsQueuesAlive) {
  int pid_pipe[2];
  ASSERT_EQ(::pipe(pid_pipe), 0);
  Child holder([&] {
    MQHANDLE queue = NULLHANDLE;
    if (MQOpen("MQ$Parent", MQ_OPEN_CREATE, &queue) != NOERROR) return 1;
    // The grandchild reports itself once it runs: until then it has not
    // yet dropped what it inherited, and shares its parent's holding.
    const pid_t grandchild = ::fork();
    if (grandchild == 0) {
      const pid_t self = ::getpid();
      if (::write(pid_pipe[1], &self, sizeof self) != sizeof self) ::_exit(2);
      ::pause();
      ::_exit(0);
    }
    if (grandchild < 0) return 2;
    ::pause();
    return 0;
  });
  pid_t grandchild = -1;
  ASSERT_EQ(::read(pid_pipe[0], &grandchild, sizeof grandchild), static_cast<ssize_t>(sizeof grandchild));
  ::close(pid_pipe[0]);
  ::close(pid_pipe[1]);
  MQHANDLE queue = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$Parent", 0, &queue), NOERROR);
  ASSERT_EQ(MQClose(queue, 0), NOERROR);
  holder.kill_hard();
  EXPECT_EQ(MQOpen("MQ$Parent", 0, &queue), ERR_NO_SUCH_MQ) << "the grandchild, still running, holds nothing";
  ::kill(grandchild, SIGKILL);
}

}  // namespace
