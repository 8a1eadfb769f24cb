// The add-in task's entry: start-up, the idle loop that reads the request
// queue and starts the workers, and shutdown. See NDAgent.h for the
// lifecycle and the two dispatch modes.
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "addin.h"
#include "globerr.h"
#include "kfm.h"
#include "mq.h"
#include "osenv.h"
#include "osmisc.h"
#include "request/IPOOO.h"
#include "request/RequestTools.h"
#include "request/TaskLog.h"
#include "setup/DatabaseSetup.h"
#include "setup/ServerSettings.h"
#include "task/NDAgent.h"

namespace {

constexpr const char* kProgramVersionLine = "Program Version 2.3.1 Build 2051";
constexpr WORD kDirectoryLimit = 512;

// --- Dispatch -------------------------------------------------------------

// The worker threads of the OOOWorkers dispatch: at most limit requests in
// hand at once (taken by the loop and not yet finished). Threads are started
// as requests come, up to limit, and then kept: each waits for the next
// record, owns a copy of it, and answers it with its own XML tools. Shared
// with the threads, which may outlive AddInMain.
class WorkerPool : public std::enable_shared_from_this<WorkerPool> {
 public:
  explicit WorkerPool(long limit) : limit_(limit) {}

  // Takes a slot for the next request; false when none became free within
  // the wait.
  bool acquireFor(std::chrono::milliseconds wait) {
    std::unique_lock lock(mutex_);
    if (!freed_.wait_for(lock, wait, [this] { return inHand_ < limit_; })) return false;
    ++inHand_;
    return true;
  }

  // Gives back a slot that got no request.
  void release() {
    {
      std::lock_guard lock(mutex_);
      --inHand_;
    }
    freed_.notify_one();
  }

  // Hands a copy of record to a worker, starting one when every running
  // worker has a request already. A request no thread can take is dropped
  // and its slot given back.
  void hand(const RequestThreadRecord& record) {
    bool start = false;
    {
      std::lock_guard lock(mutex_);
      pending_.push_back(record);
      start = threads_ < inHand_;
      if (start) ++threads_;
    }
    if (!start) {
      work_.notify_one();
      return;
    }
    auto* self = new std::shared_ptr<WorkerPool>(shared_from_this());
    pthread_t thread;
    if (pthread_create(&thread, nullptr, &WorkerPool::threadBody, self) == 0) {
      pthread_detach(thread);
      return;
    }
    delete self;
    bool dropped = false;
    {
      std::lock_guard lock(mutex_);
      --threads_;
      if (threads_ == 0 && !pending_.empty()) {  // nobody else will take it
        pending_.pop_back();
        --inHand_;
        dropped = true;
      }
    }
    if (dropped) freed_.notify_one();
    work_.notify_one();
  }

  // The workers end once the requests handed to them are answered.
  void stop() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    work_.notify_all();
  }

 private:
  static void* threadBody(void* argument) {
    std::unique_ptr<std::shared_ptr<WorkerPool>> self(static_cast<std::shared_ptr<WorkerPool>*>(argument));
    (*self)->serve();
    return nullptr;
  }

  void serve() {
    RequestTools tools;
    auto record = std::make_unique<RequestThreadRecord>();
    while (next(*record)) {
      run_request_of_record(*record, tools);
      release();
    }
  }

  // The next record into record; false when the pool stops and nothing is
  // left.
  bool next(RequestThreadRecord& record) {
    std::unique_lock lock(mutex_);
    work_.wait(lock, [this] { return !pending_.empty() || stopping_; });
    if (pending_.empty()) {
      --threads_;
      return false;
    }
    std::memcpy(&record, &pending_.front(), sizeof record);
    pending_.pop_front();
    return true;
  }

  std::mutex mutex_;
  std::condition_variable freed_;
  std::condition_variable work_;
  std::deque<RequestThreadRecord> pending_;
  long inHand_ = 0;
  long threads_ = 0;
  bool stopping_ = false;
  const long limit_;
};

void copyCut(char* field, size_t fieldSize, const std::string& text) {
  std::memcpy(field, text.data(), std::min(text.size(), fieldSize - 1));
}

// Fills the record after MQGet has put the message into it (the record was
// zero-filled before the get). Setting texts longer than their field are cut.
void fillRecord(RequestThreadRecord& record, WORD messageLength, const char* directory, const std::string& serverURL,
                const std::string& installIOSText, const std::string& connectParams, WORD buildVersion) {
  record.MessageLength = messageLength;
  std::memcpy(record.OOODirectory, directory, sizeof record.OOODirectory);
  copyCut(record.InstallIOSText, sizeof record.InstallIOSText, installIOSText);
  copyCut(record.ConnectParams, sizeof record.ConnectParams, connectParams);
  copyCut(record.ServerURL, sizeof record.ServerURL, serverURL);
  record.ReservedText[0] = '\0';
  record.BuildVersion = buildVersion;
}

// --- The task ---------------------------------------------------------------

class TaskHost {
 public:
  STATUS run();

 private:
  void createStatusLine();
  STATUS startUp();
  STATUS createServletList();
  STATUS createRequestQueue();
  void idleLoop();
  void pacedRound();
  bool fastRound();
  // Takes one message into record_ and prepares the record; false when the
  // round has nothing to hand over (status_ tells why).
  bool receiveMessage();
  void shutDown();

  char directory_[kDirectoryLimit + 1] = {0};
  std::string serverUserName_;
  WORD buildVersion_ = 0;
  MQHANDLE servletList_ = NULLHANDLE;
  MQHANDLE requestQueue_ = NULLHANDLE;
  STATUS status_ = NOERROR;
  long workers_ = 0;  // OOOWorkers; 0 = one message a second
  std::shared_ptr<WorkerPool> pool_;
  ServerSettingsCache settings_;
  RequestThreadRecord record_{};
};

void TaskHost::createStatusLine() {
  HMODULE module = NULLHANDLE;
  DHANDLE defaultLine = NULLHANDLE;
  AddInQueryDefaults(&module, &defaultLine);
  AddInDeleteStatusLine(defaultLine);
  DHANDLE line = AddInCreateStatusLine(kTaskName);
  AddInSetDefaults(module, line);
}

STATUS TaskHost::startUp() {
  taskLog("Initializing");
  std::memset(directory_, 0, sizeof directory_);
  OSGetEnvironmentString("OOODirectory", directory_, kDirectoryLimit);

  char userName[MAXUSERNAME + 1] = {0};
  serverUserName_ = SECKFMGetUserName(userName) == NOERROR ? userName : "Unknown";

  STATUS status = FirstSetup(directory_, &buildVersion_);
  if (status != NOERROR) return status;

  taskLog("Initialization Complete");
  taskLog(kProgramVersionLine);
  AddInSetStatusText("Idle");

  workers_ = std::max(0L, OSGetEnvironmentLong("OOOWorkers"));
  if (workers_ > 0) pool_ = std::make_shared<WorkerPool>(workers_);

  status = createServletList();
  if (status != NOERROR) return status;
  return createRequestQueue();
}

// A pool of reply-queue names left for the front ends; the task never reads
// it.
STATUS TaskHost::createServletList() {
  STATUS status = MQCreate(kServletListQueueName, 0, 0);
  if (status != NOERROR) return status;
  status = MQOpen(kServletListQueueName, 0, &servletList_);
  if (status != NOERROR) return status;
  for (int i = 0; i < kServletListSize; ++i) {
    char name[128];
    int length = std::snprintf(name, sizeof name, kServletListNameFormat, kServletListQueueName, i);
    status = MQPut(servletList_, 0, name, static_cast<WORD>(length), 0);
    if (status != NOERROR) return status;
  }
  return NOERROR;
}

STATUS TaskHost::createRequestQueue() {
  STATUS status = MQCreate(kRequestQueueName, 0, 0);
  if (status != NOERROR) return status;
  return MQOpen(kRequestQueueName, 0, &requestQueue_);
}

bool TaskHost::receiveMessage() {
  std::memset(&record_, 0, sizeof record_);
  WORD length = 0;
  status_ = MQGet(requestQueue_, record_.MessageText, kMaxRequestMessage, 0, kRequestWaitMs, &length);
  if (status_ != NOERROR) return false;
  std::string serverURL;
  std::string installIOSText;
  std::string connectParams;
  // Read for every message, so that an edit of the settings takes effect
  // with the next request (the cache reads the document again only after a
  // change of the application database).
  settings_.read(serverUserName_, directory_, serverURL, installIOSText, connectParams);
  fillRecord(record_, length, directory_, serverURL, installIOSText, connectParams, buildVersion_);
  return true;
}

// One message a second; the worker copies the shared record during the
// one-second sleep that follows its start. Workers are never waited for;
// they are detached so that each one's thread resources go when it ends.
void TaskHost::pacedRound() {
  if (AddInSecondsHaveElapsed(60)) return;
  if (!AddInSecondsHaveElapsed(1)) return;
  if (MQIsQuitPending(requestQueue_)) {
    status_ = ERR_MQ_QUITTING;
    return;
  }
  if (!receiveMessage()) return;
  // Keeps the XML toolkit initialised while the worker starts.
  IPOOO toolkitHolder;
  pthread_t thread;
  if (pthread_create(&thread, nullptr, run_ooo_message_thread, &record_) == 0) pthread_detach(thread);
  sleep(1);
}

// Messages as they arrive, at most workers_ in hand; each worker owns a copy
// of the record from the hand-over. The XML toolkit stays initialised
// through the loop's own context (see idleLoop).
bool TaskHost::fastRound() {
  if (MQIsQuitPending(requestQueue_)) {
    status_ = ERR_MQ_QUITTING;
    return false;
  }
  if (!pool_->acquireFor(std::chrono::seconds(1))) return false;
  if (!receiveMessage()) {
    pool_->release();
    return false;
  }
  pool_->hand(record_);
  return true;
}

// AddInIdle gives up the processor for a moment, so rounds that end without
// work do not spin.
void TaskHost::idleLoop() {
  // With the worker pool one context lives as long as the loop: the toolkit
  // then never falls back to uninitialised between two requests, which
  // would make every request pay for its whole initialisation again.
  std::unique_ptr<IPOOO> toolkitHolder;
  if (workers_ > 0) toolkitHolder = std::make_unique<IPOOO>();
  while (!AddInIdle()) {
    if (workers_ > 0) {
      // Rounds follow each other without a pause while messages come.
      while (fastRound() && !AddInShouldTerminate()) {
      }
    } else {
      pacedRound();
    }
  }
}

// Running workers are not waited for.
void TaskHost::shutDown() {
  if (pool_) pool_->stop();
  if (requestQueue_ != NULLHANDLE) MQClose(requestQueue_, 0);
  if (servletList_ != NULLHANDLE) MQClose(servletList_, 0);
  if (status_ != NOERROR && status_ != ERR_MQ_EMPTY) {
    char text[256] = {0};
    OSLoadString(NULLHANDLE, static_cast<STATUS>(status_ & ERR_MASK), text, sizeof text);
    taskLog(text);
  }
  taskLog("Shutdown Complete");
}

STATUS TaskHost::run() {
  createStatusLine();
  status_ = startUp();
  if (status_ == NOERROR) idleLoop();
  shutDown();
  return NOERROR;
}

}  // namespace

STATUS LNPUBLIC AddInMain(HMODULE /*module*/, int /*argc*/, char** /*argv*/) {
  TaskHost host;
  return host.run();
}
