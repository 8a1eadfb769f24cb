// Sending a request against a stand-in for the task (a thread that answers
// as the task does): a second copy of a reply queue name in use is dropped
// and the next name taken.
#include "request.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "globerr.h"
#include "mq.h"
#include "osenv.h"
#include "queue.h"
#include "session.h"

namespace tarnwick::client {
namespace {

namespace fs = std::filesystem;

class SendRequest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("tarnwick_client_request_" + std::to_string(::getpid()));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    std::ofstream(dir_ / "notes.ini") << "Directory=" << dir_.string() << "\nServerName=CN=Mail1/O=Acme\n";
    start_runtime_at(dir_ / "notes.ini");
  }
  void TearDown() override {
    NotesTerm();
    fs::remove_all(dir_);
  }

  // Every message waiting on a queue, taken off it.
  static std::vector<std::string> drain(Queue& queue) {
    std::vector<std::string> messages;
    while (auto message = queue.get(0)) messages.push_back(*message);
    return messages;
  }

  fs::path dir_;
};

TEST_F(SendRequest, ASecondCopyOfANameInUseIsDroppedAndTheNextNameTaken) {
  Queue list = Queue::open_or_create(kServletListQueue);
  Queue requests = Queue::open_or_create(kRequestQueue);
  // A restarted task filled its list anew while another front end still
  // uses _7: the list holds _7 again.
  list.put("MQ$OOOServletList_7");
  list.put("MQ$OOOServletList_8");
  Queue inUse = Queue::open_or_create("MQ$OOOServletList_7");

  // The stand-in answers one request: it reads the reply queue the
  // document names and writes its answer over the file.
  std::string namedQueue;
  std::thread task([&] {
    const auto path = requests.get(10000);
    if (!path) return;
    std::ifstream in(*path);
    const std::string document((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    namedQueue = reply_queue_named_in(document).value_or("");
    std::ofstream(*path, std::ios::trunc) << "<OOOReadObject/>";
    Queue::open(namedQueue).put("OK");
  });
  RequestOptions options;
  options.values.user = "Jane Doe/Acme";
  options.timeout_ms = 10000;
  const RequestOutcome outcome = send_request(options);
  task.join();

  EXPECT_EQ(outcome.reply, "OK");
  EXPECT_EQ(outcome.document, "<OOOReadObject/>");
  EXPECT_EQ(namedQueue, "MQ$OOOServletList_8");
  // _8 is back; the extra _7 is gone, the other front end brings its own.
  EXPECT_EQ(drain(list), std::vector<std::string>{"MQ$OOOServletList_8"});
}

}  // namespace
}  // namespace tarnwick::client
