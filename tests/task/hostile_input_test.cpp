// Hostile local input through the real queue and a real task: whoever can
// put a message on the request queue or write into the spool folder must
// not be able to overwrite other files, read other mail files, stall the
// workers or stop the task. Each case checks what the attacker wanted to
// change stayed unchanged, that the task still answers, and the log line.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "mq.h"
#include "osenv.h"
#include "tests/support/task_process.h"
#include "tests/task/mail_database_fixture.h"

extern char** environ;

namespace tarnwick::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr char kReplyQueue[] = "MQ$OOOServletList_9";
// A request that fails in the parser with a known reply: the task read it.
constexpr char kBadDateRequest[] =
    "<Username MQName='MQ$OOOServletList_9' Action='1' StartTimeMonth='13'>Jane Doe/Acme</Username>";
constexpr char kBadDateReply[] = "receiveElements:The leaving date is invalid..";

class HostileInput : public MailDatabaseTest {
 protected:
  void TearDown() override {
    task_.kill();
    for (MQHANDLE queue : queues_) MQClose(queue, 0);
    MailDatabaseTest::TearDown();
  }

  // Starts the task with two workers (and the notes.ini variable `setting`
  // set to 1, when given) and waits until it takes requests.
  void startTask(const char* setting = nullptr) {
    OSSetEnvironmentVariable("OOOWorkers", "2");
    if (setting != nullptr) OSSetEnvironmentVariable(setting, "1");
    ASSERT_TRUE(task_.start(data(), root_ / "console.txt")) << console();
    ASSERT_EQ(MQCreate(kReplyQueue, 0, 0), NOERROR);
    ASSERT_EQ(MQOpen(kReplyQueue, 0, &replies_), NOERROR);
    queues_.push_back(replies_);
  }

  std::string console() const { return readFile(root_ / "console.txt"); }

  fs::path spool() const {
    fs::create_directories(data() / "spool");
    return data() / "spool";
  }

  fs::path write(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  void submit(const fs::path& path) {
    std::string text = path.string();
    ASSERT_EQ(MQPut(task_.requests(), 0, text.data(), static_cast<WORD>(text.size()), 0), NOERROR);
  }

  // The next reply, "<none>" when none comes within the wait, "<task ended>"
  // when the task is gone.
  std::string nextReply(std::chrono::milliseconds wait = 20s) {
    const auto until = std::chrono::steady_clock::now() + wait;
    std::vector<char> buffer(MQ_MAX_MSGSIZE);
    while (std::chrono::steady_clock::now() < until) {
      WORD length = 0;
      if (MQGet(replies_, buffer.data(), static_cast<WORD>(buffer.size()), 0, 200, &length) == NOERROR) {
        return std::string(buffer.data(), length);
      }
      if (task_.ended()) return "<task ended>";
    }
    return "<none>";
  }

  // The task still takes and answers requests.
  void expectAnswering() {
    submit(write(spool() / "alive.xml", kBadDateRequest));
    EXPECT_EQ(nextReply(), kBadDateReply) << console();
  }

  // A query for Jane's out-of-office state naming mailBox.
  std::string janeQuery(const std::string& mailBox) const {
    return std::string("<Username MQName='") + kReplyQueue + "' Action='1' MailServer='" + kMail1 +
           "' MailBox='" + mailBox + "'>" + kJane + "</Username>";
  }

  tarnwick::testing::TaskProcess task_;
  MQHANDLE replies_ = NULLHANDLE;
  std::vector<MQHANDLE> queues_;
};

TEST_F(HostileInput, RepliesNeverReachFilesOutsideTheSpoolFolder) {
  addJane("agent");
  startTask();
  // The victim holds a request that would be answered: read through a
  // link, it would be replaced by the reply.
  const std::string victimText = janeQuery(kJaneMail);
  const fs::path victim = write(root_ / "victim.conf", victimText);
  ::chmod(victim.c_str(), 0600);

  // A request file outside the request folders, one named through "..",
  // a link in the spool folder, and a hard link of the victim.
  const fs::path outside = write(root_ / "outside.xml", janeQuery(kJaneMail));
  submit(outside);
  submit(spool() / ".." / ".." / "outside.xml");
  fs::create_symlink(victim, spool() / "link.xml");
  submit(spool() / "link.xml");
  const fs::path linkedFolder = spool() / "sub";
  fs::create_directory_symlink(root_, linkedFolder);
  submit(linkedFolder / "outside.xml");
  fs::create_hard_link(victim, spool() / "hard.xml");
  submit(spool() / "hard.xml");

  EXPECT_EQ(nextReply(3s), "<none>");
  EXPECT_EQ(readFile(victim), victimText);
  EXPECT_EQ(readFile(outside), janeQuery(kJaneMail));
  expectAnswering();
  const std::string log = console();
  EXPECT_NE(log.find("Tarnwick: Request file refused: " + outside.string() + ": not inside a request folder"),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("link.xml: a link in the path or in the file's place"), std::string::npos) << log;
  EXPECT_NE(log.find("hard.xml: a file with more than one name"), std::string::npos) << log;
}

TEST_F(HostileInput, FifosDoNotHoldTheWorkers) {
  startTask();
  for (int i = 0; i < 4; ++i) {
    const fs::path fifo = spool() / ("fifo" + std::to_string(i) + ".xml");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    submit(fifo);
  }
  expectAnswering();
  EXPECT_NE(console().find("fifo3.xml: not a regular file"), std::string::npos) << console();
}

TEST_F(HostileInput, HugeDeepAndExpandingDocumentsCostOneRequestAtMost) {
  startTask();
  // Nesting far deeper than a recursive walk survives: parsed and answered.
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "<a>";
  deep += kBadDateRequest;
  for (int i = 0; i < 100000; ++i) deep += "</a>";
  submit(write(spool() / "deep.xml", deep));
  EXPECT_EQ(nextReply(), kBadDateReply) << console();

  // Many nested Username elements: the last one's values stand.
  std::string nested;
  for (int i = 0; i < 10000; ++i) nested += "<Username MQName='MQ$OOOServletList_9'>u";
  nested += "<Username Action='1' StartTimeMonth='13'>last</Username>";
  for (int i = 0; i < 10000; ++i) nested += "</Username>";
  submit(write(spool() / "nested.xml", nested));
  EXPECT_EQ(nextReply(), kBadDateReply) << console();

  // An entity bomb is a parse error: no reply.
  std::string bomb = "<?xml version='1.0'?><!DOCTYPE r [<!ENTITY a0 'aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa'>";
  for (int level = 1; level <= 9; ++level) {
    bomb += "<!ENTITY a" + std::to_string(level) + " '";
    for (int i = 0; i < 10; ++i) bomb += "&a" + std::to_string(level - 1) + ";";
    bomb += "'>";
  }
  bomb += "]><r><Username MQName='MQ$OOOServletList_9' Action='1' Message='&a9;'>&a9;</Username></r>";
  submit(write(spool() / "bomb.xml", bomb));

  // A file over the size limit is refused as a whole.
  std::string large = kBadDateRequest;
  large += std::string(RequestFilePolicy::kDefaultMaxBytes, ' ');
  submit(write(spool() / "large.xml", large));

  EXPECT_EQ(nextReply(3s), "<none>");
  expectAnswering();
  EXPECT_NE(console().find("large.xml: larger than 1048576 bytes"), std::string::npos) << console();

  // A value too long for the platform's 16-bit lengths is refused, not cut.
  const std::string longName(70000, 'n');
  submit(write(spool() / "long.xml", std::string("<Username MQName='MQ$OOOServletList_9' Action='1'>") + longName +
                                         "</Username>"));
  EXPECT_EQ(nextReply(), "TranslatorUTF8ToLMBCS:The text is longer than 65535 bytes and cannot be converted");
}

TEST_F(HostileInput, MailFilesOutsideTheDataDirectoryCannotBeNamed) {
  addJane("agent");
  // Another server's data directory next to ours, with a mail file of its own.
  const fs::path other = root_ / "other";
  fs::create_directories(other / "mail");
  fs::copy_file(data() / kJaneMail, other / "mail" / "jdoe.nsf");
  startTask();
  for (const std::string& mailBox : {std::string("../other/mail/jdoe.nsf"), (other / "mail" / "jdoe.nsf").string()}) {
    submit(write(spool() / "q.xml", janeQuery(mailBox)));
    const std::string reply = nextReply();
    EXPECT_NE(reply.find("File does not exist"), std::string::npos) << mailBox << ": " << reply;
  }
  // The server's own mail file is still there for a real request.
  submit(write(spool() / "q.xml", janeQuery(kJaneMail)));
  EXPECT_EQ(nextReply(), "OK") << console();
}

// Another local user made the queue folder before the server started (here:
// one that anyone may write to): the task does not use it and ends cleanly.
TEST_F(HostileInput, APreparedQueueFolderEndsTheStartCleanly) {
  // The data directory's folder is the one that names it.
  const std::string canonical = fs::weakly_canonical(data()).string();
  ASSERT_EQ(MQCreate("MQ$Probe", 0, 0), NOERROR);
  fs::path folder;
  for (const auto& entry : fs::directory_iterator("/dev/shm")) {
    if (readFile(entry.path() / "data-directory") == canonical) folder = entry.path();
  }
  ASSERT_FALSE(folder.empty()) << "no shared folder for " << canonical;
  fs::remove_all(folder);
  ASSERT_EQ(::mkdir(folder.c_str(), 0777), 0);
  ::chmod(folder.c_str(), 0777);

  ASSERT_TRUE(task_.spawn(data(), root_ / "console.txt"));
  const int status = task_.waitForExit();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  const std::string log = console();
  const size_t refused = log.find("Shared-state folder " + folder.string() + " refused: it can be written by other users");
  ASSERT_NE(refused, std::string::npos) << log;
  EXPECT_LT(refused, log.find("Tarnwick: Shutdown Complete")) << log;
  EXPECT_TRUE(fs::is_empty(folder)) << "nothing of the server's went into it";
  fs::remove_all(folder);
}

// A "Notified" list longer than a conversion can carry: the text round trip
// of the reply fails.
class TextRoundTrip : public HostileInput {
 protected:
  void giveJaneALongNotifiedList() {
    addJane("agent");
    // Three lists of 400 names: about 33,000 characters in all.
    auto names = [](int first) {
      std::vector<std::string> list;
      for (int i = first; i < first + 400; ++i) list.push_back("CN=Correspondent Number " + std::to_string(i) + "/O=Acme");
      return list;
    };
    editProfile([&](NOTEHANDLE p) { setList(p, "Notified", names(0)); });
    editProfile(
        [&](NOTEHANDLE p) {
          setList(p, "Notified_1", names(400));
          setList(p, "Notified_2", names(800));
        },
        "OOServiceProfile");
  }
};

TEST_F(TextRoundTrip, StopIsLoggedWithUserAndRequestFirst) {
  giveJaneALongNotifiedList();
  startTask();
  const fs::path request = write(spool() / "q.xml", janeQuery(kJaneMail));
  submit(request);
  EXPECT_EQ(nextReply(), "<task ended>");
  const std::string log = console();
  const size_t line = log.find("Tarnwick: Text conversion failed for [" + std::string(kJane) + "] in request " +
                               request.string() + ": the task stops");
  ASSERT_NE(line, std::string::npos) << log;
  EXPECT_LT(line, log.find("t1==t2")) << log;
}

TEST_F(TextRoundTrip, SwitchTurnsTheStopIntoAnErrorReply) {
  giveJaneALongNotifiedList();
  startTask("OOOTextErrorReply");
  const fs::path request = write(spool() / "q.xml", janeQuery(kJaneMail));
  submit(request);
  EXPECT_EQ(nextReply(), "translate:The text cannot be converted") << console();
  EXPECT_NE(console().find("in request " + request.string() + ": the request is refused"), std::string::npos)
      << console();
  expectAnswering();
}

}  // namespace
}  // namespace tarnwick::testing
