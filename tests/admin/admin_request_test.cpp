// request: the tool as a front end. A stand-in for the task runs in the test
// process: it holds the task's queues, takes request paths, records the
// documents, writes an answer over the file and replies on the document's
// MQName queue, as the task does.
#include <atomic>
#include <cctype>
#include <thread>

#include "admin_harness.h"
#include "globerr.h"
#include "mq.h"

namespace tarnwick::admin::testing {
namespace {

std::string file_text(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// The value of the first MQName attribute (any case), as the task reads it;
// empty when none.
std::string reply_queue_of(const std::string& document) {
  std::string lower = document;
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const size_t name = lower.find("mqname=");
  if (name == std::string::npos) return "";
  const size_t start = name + 8;
  const size_t end = document.find(document[start - 1], start);
  return end == std::string::npos ? "" : document.substr(start, end - start);
}

struct Received {
  std::string path;
  std::string document;
};

class StandInTask {
 public:
  // Replies "OK" after writing `answer` over the request file, or stays
  // silent when `answer` is empty.
  explicit StandInTask(std::string answer) : answer_(std::move(answer)) {
    EXPECT_EQ(MQCreate("MQ$OOOServletList", 0, 0), NOERROR);
    EXPECT_EQ(MQOpen("MQ$OOOServletList", 0, &servlet_list_), NOERROR);
    for (int i = 0; i < 3; ++i) {
      std::string name = "MQ$OOOServletList_" + std::to_string(i);
      EXPECT_EQ(MQPut(servlet_list_, 0, name.data(), static_cast<WORD>(name.size()), 0), NOERROR);
    }
    EXPECT_EQ(MQCreate("MQ$OutOfOffice", 0, 0), NOERROR);
    EXPECT_EQ(MQOpen("MQ$OutOfOffice", 0, &requests_), NOERROR);
    worker_ = std::thread([this] { serve(); });
  }
  ~StandInTask() {
    MQPutQuitMsg(requests_);
    worker_.join();
    MQClose(requests_, 0);
    MQClose(servlet_list_, 0);
  }
  std::vector<Received> received() {
    std::lock_guard guard(mutex_);
    return received_;
  }
  WORD free_names() const { return MQGetCount(servlet_list_); }

 private:
  void serve() {
    char path[513];
    WORD length = 0;
    while (MQGet(requests_, path, 512, MQ_WAIT_FOR_MSG, 0, &length) == NOERROR) {
      Received request{std::string(path, length), file_text(std::string(path, length))};
      {
        std::lock_guard guard(mutex_);
        received_.push_back(request);
      }
      const std::string queue = reply_queue_of(request.document);
      if (answer_.empty() || queue.empty()) continue;
      std::ofstream(request.path, std::ios::trunc) << answer_;
      MQHANDLE reply = NULLHANDLE;
      if (MQOpen(queue.c_str(), 0, &reply) != NOERROR) continue;
      char ok[] = "OK";
      MQPut(reply, 0, ok, 2, 0);
      MQClose(reply, 0);
    }
  }

  std::string answer_;
  MQHANDLE servlet_list_ = NULLHANDLE;
  MQHANDLE requests_ = NULLHANDLE;
  std::thread worker_;
  std::mutex mutex_;
  std::vector<Received> received_;
};

class AdminRequestConcurrency : public AdminTest {
 protected:
  void SetUp() override {
    AdminTest::SetUp();
    init();
    ok({"person", "add", "Jane Doe/Acme", "--create-mailfile"});
    start_runtime_here();
  }
  static bool has(const std::string& text, const std::string& piece) { return text.find(piece) != std::string::npos; }
};

constexpr const char* kAnswer = "<OOOReadObject><User OOOEnable=\"0\">Jane Doe</User></OOOReadObject>";

TEST_F(AdminRequestConcurrency, QueryWritesTheDocumentWaitsAndPrintsReplyAndAnswer) {
  StandInTask task(kAnswer);
  const auto out = json({"request", "query", "--user", "Jane Doe/Acme", "--json"});
  EXPECT_EQ(out["reply"], "OK");
  EXPECT_EQ(out["document"], kAnswer);
  EXPECT_GE(out["elapsed_ms"].get<long long>(), 0);
  std::vector<std::string> keys;
  for (const auto& [key, value] : out.items()) keys.push_back(key);
  EXPECT_EQ(keys.size(), 3u);

  const auto received = task.received();
  ASSERT_EQ(received.size(), 1u);
  const std::filesystem::path path = received[0].path;
  EXPECT_EQ(path.parent_path(), std::filesystem::absolute(data() / "spool"));
  EXPECT_FALSE(has(path.filename().string(), "ND_REQUEST_")) << path;
  EXPECT_FALSE(std::filesystem::exists(path)) << "the request file is removed once read";
  const std::string& document = received[0].document;
  EXPECT_TRUE(has(document, "Action=\"1\"")) << document;
  EXPECT_TRUE(has(document, "MailServer=\"CN=Mail1/O=Acme\"")) << "from the directory: " << document;
  EXPECT_TRUE(has(document, "MailBox=\"mail/jdoe.nsf\"")) << document;
  EXPECT_TRUE(has(document, ">Jane Doe/Acme</Username>")) << document;
  const std::string reply_queue = reply_queue_of(document);
  EXPECT_TRUE(reply_queue == "MQ$OOOServletList_0" || reply_queue == "MQ$OOOServletList_1" ||
              reply_queue == "MQ$OOOServletList_2")
      << document;

  // The borrowed name is back, and its queue is gone.
  EXPECT_EQ(task.free_names(), 3);
  MQHANDLE gone = NULLHANDLE;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(MQOpen(("MQ$OOOServletList_" + std::to_string(i)).c_str(), 0, &gone), ERR_NO_SUCH_MQ);
  }

  // Text output: the reply, then the file.
  const std::string text = ok({"request", "query", "--user", "jdoe"}).out;
  EXPECT_TRUE(has(text, ": OK\n")) << text;
  EXPECT_TRUE(has(text, kAnswer)) << text;
}

TEST_F(AdminRequestConcurrency, SetCarriesEveryValueAndPagesCarryTheirMarkers) {
  StandInTask task(kAnswer);
  ok({"request", "set", "--user", "Jane Doe/Acme", "--mailserver", "Mail2/Acme", "--mailfile", "mail/x.nsf",
      "--enable", "--subject", "Away & gone", "--message", "Back soon\nJane", "--leave", "2026-03-02T09:30",
      "--return", "2026-03-09T08:00:30", "--show-hours", "1", "--days-out", "d", "--append-subject=0",
      "--append-subject-date", "asd", "--asd-enable", "--exclude-internet", "--query-user", "Bob",
      "--login-name", "jdoe", "--login-server", "Mail1/Acme", "--keep"});
  ok({"request", "page", "--login-name", "jdoe"});
  ok({"request", "mobile-page", "--login-name", "jdoe"});
  ok({"request", "install-ios-page", "--login-name", "jdoe"});
  const std::string status = ok({"request", "status", "--user", "Jane Doe/Acme", "--query-user", "Bob"}).out;
  const auto received = task.received();
  ASSERT_EQ(received.size(), 5u);

  const std::string& set = received[0].document;
  for (const char* piece :
       {"Action=\"2\"", "MailServer=\"Mail2/Acme\"", "MailBox=\"mail/x.nsf\"", "OOOEnable=\"1\"",
        "Subject=\"Away &amp; gone\"", "Message=\"Back soon&#10;Jane\"", "StartTimeYear=\"2026\"",
        "StartTimeMonth=\"3\"", "StartTimeDay=\"2\"", "StartTimeHour=\"9\"", "StartTimeMin=\"30\"",
        "StartTimeSec=\"0\"", "EndTimeDay=\"9\"", "EndTimeHour=\"8\"", "EndTimeSec=\"30\"", "ShowHours=\"1\"",
        "DaysOut=\"d\"", "AppendSubject=\"0\"", "AppendSubjectDate=\"asd\"", "ASDEnable=\"1\"",
        "InternetAddress=\"1\"", "QueryUser=\"Bob\"", "LoginName=\"jdoe\"", "LoginServer=\"Mail1/Acme\""}) {
    EXPECT_TRUE(has(set, piece)) << piece << " in " << set;
  }
  EXPECT_TRUE(std::filesystem::exists(received[0].path)) << "--keep leaves the file";

  const char* markers[] = {"ND_REQUEST_OOO_", "ND_REQUEST_MOBILE_OOO_", "ND_REQUEST_INSTALL_IOS_OOO_"};
  for (int i = 0; i < 3; ++i) {
    const std::string name = std::filesystem::path(received[1 + i].path).filename().string();
    EXPECT_EQ(name.rfind(markers[i], 0), 0u) << name;
    EXPECT_FALSE(has(received[1 + i].document, "Action=")) << received[1 + i].document;
    EXPECT_TRUE(has(received[1 + i].document, "LoginName=\"jdoe\"")) << received[1 + i].document;
  }
  EXPECT_TRUE(has(received[4].document, "Action=\"3\"")) << received[4].document;
  // A status request names no mail file, and its reply shows a User
  // element per line.
  EXPECT_FALSE(has(received[4].document, "MailBox=")) << received[4].document;
  EXPECT_TRUE(has(status, "<OOOReadObject>\n<User OOOEnable=\"0\">Jane Doe</User>\n</OOOReadObject>")) << status;
}

TEST_F(AdminRequestConcurrency, RawDocumentsGoUnchangedAndMakeTheQueueTheyName) {
  StandInTask task(kAnswer);
  const std::string raw =
      "<?xml version='1.0'?>\n<x><USERNAME mqname='MQ$MyReply' ACTION='21'>  jdoe </USERNAME></x>\n";
  std::ofstream(root_ / "raw.xml") << raw;
  const auto out = json({"request", "query", "--raw", (root_ / "raw.xml").string(), "--json"});
  EXPECT_EQ(out["reply"], "OK");
  const auto received = task.received();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].document, raw);
  EXPECT_EQ(task.free_names(), 3) << "no name is borrowed for a raw request";

  // Without MQName nothing can answer: the tool says so and leaves the file
  // for the task.
  std::ofstream(root_ / "silent.xml") << "<x><Username Action='1'>jdoe</Username></x>";
  const std::string sent = ok({"request", "page", "--raw", (root_ / "silent.xml").string()}).out;
  EXPECT_TRUE(has(sent, "no reply queue")) << sent;
  for (int tries = 0; tries < 200 && task.received().size() < 2; ++tries) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ASSERT_EQ(task.received().size(), 2u);
  EXPECT_TRUE(has(task.received()[1].path, "ND_REQUEST_OOO_"));
  EXPECT_TRUE(std::filesystem::exists(task.received()[1].path));

  // --raw and a value option together are a usage error.
  const Result both = run({"--data", data().string(), "request", "query", "--raw", (root_ / "raw.xml").string(),
                           "--user", "x"});
  EXPECT_EQ(both.code, 2) << both.err;
}

TEST_F(AdminRequestConcurrency, NoReplyInTimeIsAFailureThatReturnsTheName) {
  StandInTask task("");
  const Result silent = run({"--data", data().string(), "request", "query", "--user", "jdoe", "--timeout", "300"});
  EXPECT_EQ(silent.code, 1);
  EXPECT_TRUE(has(silent.err, "no reply within 300 ms")) << silent.err;
  EXPECT_EQ(lines(silent.err), 1u);
  EXPECT_EQ(silent.out, "");
  EXPECT_EQ(task.received().size(), 1u);
  EXPECT_EQ(task.free_names(), 3);
}

TEST_F(AdminRequestConcurrency, WithoutTheTaskTheErrorSaysSo) {
  const Result result = run({"--data", data().string(), "request", "query", "--user", "jdoe"});
  EXPECT_EQ(result.code, 1);
  EXPECT_TRUE(has(result.err, "MQ$OOOServletList")) << result.err;
  EXPECT_TRUE(has(result.err, "task")) << result.err;
  const Result bad_time =
      run({"--data", data().string(), "request", "set", "--user", "jdoe", "--leave", "2026-03-02"});
  EXPECT_EQ(bad_time.code, 2) << bad_time.err;
  EXPECT_TRUE(has(bad_time.err, "--leave")) << bad_time.err;
}

}  // namespace
}  // namespace tarnwick::admin::testing
