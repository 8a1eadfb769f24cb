// The request context: reset, error texts, the reply hand-off and the
// frames' reply rules, driven through real queues.
#include "request/IPOOO.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/util/XMLString.hpp>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "agents.h"
#include "globerr.h"
#include "mq.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osenv.h"

namespace {

// A data directory with its notes.ini, and a reply queue of our own.
class IPOOOTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() /
           ("tarnwick_ipooo_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(dir_);
    std::ofstream(dir_ / "notes.ini") << "Directory=" << dir_.string() << "\nServerName=CN=Srv1/O=Org\n";
    std::string ini = (dir_ / "notes.ini").string();
    ini.insert(ini.begin(), '=');
    char* argv[] = {const_cast<char*>("test"), ini.data()};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
    ASSERT_EQ(MQCreate(kReplyQueue, 0, 0), NOERROR);
    ASSERT_EQ(MQOpen(kReplyQueue, 0, &replies_), NOERROR);
  }
  void TearDown() override {
    MQClose(replies_, 0);
    std::filesystem::remove_all(dir_);
  }

  std::string writeRequest(const std::string& name, const std::string& xml) {
    std::filesystem::create_directories(dir_ / "spool");
    std::string path = (dir_ / "spool" / name).string();
    std::ofstream(path) << xml;
    return path;
  }

  // The next reply, or "<none>" when none comes within a short wait.
  std::string nextReply(DWORD waitMs = 200) {
    std::vector<char> buffer(MQ_MAX_MSGSIZE);
    WORD length = 0;
    STATUS status = MQGet(replies_, buffer.data(), static_cast<WORD>(buffer.size()), 0, waitMs, &length);
    if (status != NOERROR) return "<none>";
    return std::string(buffer.data(), length);
  }

  static constexpr const char* kReplyQueue = "MQ$OOOServletList_7";
  std::filesystem::path dir_;
  MQHANDLE replies_ = NULLHANDLE;
};

TEST_F(IPOOOTest, ResetClosesAndClearsTheRequest) {
  IPOOO context;
  const std::string value = "value";
  for (std::string* text : {&context.Username, &context.MQName, &context.MailServer, &context.MailBox,
                            &context.Message, &context.AppendSubjectDate, &context.DaysOut, &context.QueryUser,
                            &context.LoginName, &context.LoginServer, &context.Subject, &context.ShowHours}) {
    *text = value;
  }
  context.OOOEnable = true;
  context.Action = 2;

  context.reset(0);
  EXPECT_EQ(context.Username, value);
  EXPECT_TRUE(context.OOOEnable);

  context.reset(1);
  for (const std::string* text : {&context.Username, &context.MQName, &context.MailServer, &context.MailBox,
                                  &context.Message, &context.AppendSubjectDate, &context.DaysOut,
                                  &context.QueryUser, &context.LoginName, &context.LoginServer}) {
    EXPECT_EQ(*text, "");
  }
  EXPECT_FALSE(context.OOOEnable);
  // Not part of a reset: the next request's document sets them.
  EXPECT_EQ(context.Subject, value);
  EXPECT_EQ(context.ShowHours, value);
  EXPECT_EQ(context.Action, 2);
}

TEST_F(IPOOOTest, ResetClosesTheHandlesTheRequestOpened) {
  ASSERT_EQ(NSFDbCreate("mail/jdoe.nsf", DBCLASS_NOTEFILE, FALSE), NOERROR);
  IPOOO context;
  ASSERT_EQ(NSFDbOpen("mail/jdoe.nsf", &context.hMailDb), NOERROR);
  ASSERT_EQ(NSFNoteCreate(context.hMailDb, &context.hProfile), NOERROR);
  ASSERT_EQ(NSFNoteCreate(context.hMailDb, &context.hServiceProfile), NOERROR);
  // An enabled agent, opened as the agent operations open it.
  NOTEHANDLE agentNote = NULLHANDLE;
  ASSERT_EQ(NSFNoteCreate(context.hMailDb, &agentNote), NOERROR);
  const WORD agentClass = NOTE_CLASS_FILTER;
  NSFNoteSetInfo(agentNote, _NOTE_CLASS, &agentClass);
  ASSERT_EQ(NSFItemSetText(agentNote, "$TITLE", "OutOfOffice", MAXWORD), NOERROR);
  ASSERT_EQ(NSFItemSetText(agentNote, "$AssistFlags", "E", MAXWORD), NOERROR);
  ASSERT_EQ(NSFNoteUpdate(agentNote, 0), NOERROR);
  NOTEID agentId = 0;
  NSFNoteGetInfo(agentNote, _NOTE_ID, &agentId);
  NSFNoteClose(agentNote);
  ASSERT_EQ(AgentOpen(context.hMailDb, agentId, &context.hAgent), NOERROR);
  ASSERT_TRUE(AgentIsEnabled(context.hAgent));

  const DBHANDLE db = context.hMailDb;
  const NOTEHANDLE profile = context.hProfile;
  const NOTEHANDLE serviceProfile = context.hServiceProfile;
  const HAGENT agent = context.hAgent;

  context.reset(0);
  EXPECT_EQ(context.hAgent, NULLHANDLE);
  EXPECT_FALSE(AgentIsEnabled(agent));  // a closed handle
  EXPECT_EQ(context.hMailDb, NULLHANDLE);
  EXPECT_EQ(context.hProfile, NULLHANDLE);
  EXPECT_EQ(context.hServiceProfile, NULLHANDLE);
  // Closed already: a second close is refused.
  EXPECT_NE(NSFNoteClose(profile), NOERROR);
  EXPECT_NE(NSFNoteClose(serviceProfile), NOERROR);
  EXPECT_NE(NSFDbClose(db), NOERROR);
}

TEST_F(IPOOOTest, ErrorTextIgnoresTheStatusFlagBits) {
  IPOOO context;
  EXPECT_EQ(context.getErrorMsg(ERR_MQ_EMPTY), "Message Queue is empty.");
  EXPECT_EQ(context.getErrorMsg(ERR_MQ_EMPTY | STS_DISPLAYED | STS_REMOTE), "Message Queue is empty.");
}

TEST_F(IPOOOTest, RepliesAreCutTo16BitLengthsAndLostWithoutAQueue) {
  IPOOO context;
  context.MQName = kReplyQueue;
  std::string shortText = "OK";
  context.sendMQMessage(shortText);
  EXPECT_EQ(nextReply(), "OK");

  std::string longText(70000, 'x');
  for (size_t i = 0; i < longText.size(); i += 997) longText[i] = static_cast<char>('a' + i % 26);
  context.sendMQMessage(longText);
  EXPECT_EQ(nextReply(), longText.substr(0, 70000 % 65536));

  context.MQName = "MQ$NoSuchQueue";
  context.sendMQMessage(shortText);
  EXPECT_EQ(nextReply(), "<none>");
}

TEST_F(IPOOOTest, FramesSendNothingWithoutFileDocumentOrReplyQueue) {
  const std::string badDate =
      "<Username MQName='MQ$OOOServletList_7' Action='1' StartTimeMonth='13'>Jane Doe/Org</Username>";
  std::string missing = (dir_ / "spool" / "missing.xml").string();
  std::string empty = writeRequest("empty.xml", "");
  std::string noQueue = writeRequest("noqueue.xml", "<Username StartTimeMonth='13'>Jane</Username>");
  std::string failing = writeRequest("failing.xml", badDate);
  std::string extra;
  std::string reserved;
  char directory[] = "";

  for (std::string* path : {&missing, &empty, &noQueue}) {
    IPOOO plain;
    plain.processMsg(*path);
    IPOOO web;
    web.processRequestMsg(*path, directory, reserved, extra, extra);
    IPOOO mobile;
    mobile.processRequestMobileMsg(*path, directory, reserved, extra, extra);
    IPOOO install;
    install.processRequestInstallIOSMsg(*path, directory, reserved, extra, extra);
    EXPECT_EQ(nextReply(), "<none>") << *path;
  }

  // The same failure with a reply queue named reaches the front end from
  // every frame.
  IPOOO plain;
  plain.processMsg(failing);
  EXPECT_EQ(nextReply(), "receiveElements:The leaving date is invalid..");
  IPOOO install;
  install.processRequestInstallIOSMsg(failing, directory, reserved, extra, extra);
  EXPECT_EQ(nextReply(), "receiveElements:The leaving date is invalid..");
}

TEST_F(IPOOOTest, UnknownActionsGetNoReply) {
  for (const char* action : {"0", "4", "x"}) {
    std::string path = writeRequest(
        "action.xml", std::string("<Username MQName='MQ$OOOServletList_7' Action='") + action + "'>Jane</Username>");
    IPOOO context;
    context.processMsg(path);
    EXPECT_EQ(nextReply(), "<none>") << action;
  }
}

// What a context's XML parser makes of a small document: the name of its
// root element, or empty when it could not parse.
std::string rootNameParsedBy(IPOOO& context, const std::string& xml) {
  try {
    xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(xml.data()), xml.size(), "request");
    context.parser->parse(source);
    xercesc::DOMDocument* document = context.parser->getDocument();
    if (document == nullptr || document->getDocumentElement() == nullptr) return {};
    char* name = xercesc::XMLString::transcode(document->getDocumentElement()->getNodeName());
    std::string result = name;
    xercesc::XMLString::release(&name);
    return result;
  } catch (...) {
    return {};
  }
}

// Contexts made and dropped on many threads at once each keep a working XML
// toolkit, and a context that outlives them all still parses: no thread's
// teardown ends the toolkit under the others.
TEST(IPOOOConcurrency, ContextsComeAndGoOnManyThreads) {
  constexpr int kThreads = 8;
  IPOOO holder;  // as the main loop holds one while workers start
  std::atomic<int> waiting{kThreads};
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      waiting.fetch_sub(1);
      while (waiting.load() > 0) std::this_thread::yield();  // all start together
      for (int i = 0; i < 20; ++i) {
        IPOOO context;
        std::string name = "Jürgen";
        context.translator->TranslatorUTF8ToLMBCS(name);
        if (name != "J\x81rgen") failures.fetch_add(1);
        const std::string root = "request" + std::to_string(t);
        if (rootNameParsedBy(context, "<" + root + "><username>x</username></" + root + ">") != root) {
          failures.fetch_add(1);
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(rootNameParsedBy(holder, "<after><username>x</username></after>"), "after");
  std::string name = "Jürgen";
  holder.translator->TranslatorUTF8ToLMBCS(name);
  EXPECT_EQ(name, "J\x81rgen");
}

}  // namespace
