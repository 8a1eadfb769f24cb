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
#include "request/TaskLog.h"
#include "setup/DatabaseSetup.h"
#include "setup/ServerSettings.h"
#include "task/NDAgent.h"

namespace {

constexpr const char* kProgramVersionLine = "Program Version 2.3.1 Build 2051";
constexpr WORD kDirectoryLimit = 512;

// --- Dispatch -------------------------------------------------------------

// Bounds the number of running workers of the OOOWorkers dispatch. Shared
// with the workers, which may outlive AddInMain.
class WorkerLimit {
 public:
  explicit WorkerLimit(long limit) : limit_(limit) {}

  // Takes a slot; false when none became free within the wait.
  bool acquireFor(std::chrono::milliseconds wait) {
    std::unique_lock lock(mutex_);
    if (!freed_.wait_for(lock, wait, [this] { return running_ < limit_; })) return false;
    ++running_;
    return true;
  }

  void release() {
    {
      std::lock_guard lock(mutex_);
      --running_;
    }
    freed_.notify_one();
  }

 private:
  std::mutex mutex_;
  std::condition_variable freed_;
  long running_ = 0;
  const long limit_;
};

struct OwnedRequest {
  RequestThreadRecord record;
  std::shared_ptr<WorkerLimit> limit;
};

void* runOwnedRequest(void* argument) {
  std::unique_ptr<OwnedRequest> owned(static_cast<OwnedRequest*>(argument));
  run_request_of_record(owned->record);
  owned->limit->release();
  return nullptr;
}

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
  std::shared_ptr<WorkerLimit> limit_;
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
  if (workers_ > 0) limit_ = std::make_shared<WorkerLimit>(workers_);

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
  // Read anew for every message, so that an edit of the settings takes
  // effect with the next request.
  _get_server_setting(serverUserName_, directory_, serverURL, installIOSText, connectParams);
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

// Messages as they arrive, at most workers_ running; each worker owns a heap
// copy of the record from its start. The XML toolkit stays initialised
// through the loop's own context (see idleLoop).
bool TaskHost::fastRound() {
  if (MQIsQuitPending(requestQueue_)) {
    status_ = ERR_MQ_QUITTING;
    return false;
  }
  if (!limit_->acquireFor(std::chrono::seconds(1))) return false;
  if (!receiveMessage()) {
    limit_->release();
    return false;
  }
  auto* owned = new OwnedRequest{record_, limit_};
  pthread_t thread;
  if (pthread_create(&thread, nullptr, runOwnedRequest, owned) == 0) {
    pthread_detach(thread);
  } else {
    delete owned;
    limit_->release();
  }
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
