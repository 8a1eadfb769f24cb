// The message queue calls of mq.h: handles and argument checks over
// message_queue.h. Nothing thrown inside may leave these functions.
#include <memory>

#include "core/handle_table.h"
#include "globerr.h"
#include "mq.h"
#include "mq/message_queue.h"

using namespace tarnwick::rt;

namespace {

std::shared_ptr<MessageQueue> find_queue(MQHANDLE handle) {
  return handles().find_as<MessageQueue>(handle, HandleKind::kQueue);
}

}  // namespace

extern "C" {

STATUS LNPUBLIC MQCreate(const char* QueueName, WORD Quota, DWORD /*Options*/) {
  if (QueueName == nullptr) return ERR_BAD_PARAM;
  try {
    return create_queue(QueueName, Quota);
  } catch (...) {
    return ERR_MEMORY;
  }
}

STATUS LNPUBLIC MQOpen(const char* QueueName, DWORD Options, MQHANDLE* retQueue) {
  if (retQueue != nullptr) *retQueue = NULLHANDLE;
  if (QueueName == nullptr || retQueue == nullptr) return ERR_BAD_PARAM;
  try {
    std::shared_ptr<MessageQueue> queue;
    if (STATUS status = open_queue(QueueName, (Options & MQ_OPEN_CREATE) != 0, &queue)) return status;
    *retQueue = handles().add(HandleKind::kQueue, queue);
    return NOERROR;
  } catch (...) {
    return ERR_MEMORY;
  }
}

STATUS LNPUBLIC MQClose(MQHANDLE Queue, DWORD /*Options*/) {
  try {
    auto queue = handles().remove_as<MessageQueue>(Queue, HandleKind::kQueue);
    if (!queue) return ERR_MQ_EMPTY;
    return close_queue(queue);
  } catch (...) {
    return ERR_MEMORY;
  }
}

STATUS LNPUBLIC MQPut(MQHANDLE Queue, WORD Priority, char* Buffer, WORD Length, DWORD /*Options*/) {
  if (Buffer == nullptr && Length > 0) return ERR_BAD_PARAM;
  try {
    auto queue = find_queue(Queue);
    if (!queue) return ERR_MQ_EMPTY;
    return queue->put(Priority, Buffer, Length);
  } catch (...) {
    return ERR_MEMORY;
  }
}

STATUS LNPUBLIC MQGet(MQHANDLE Queue, char* Buffer, WORD BufLength, DWORD Options, DWORD Timeout,
                      WORD* retMsgLength) {
  if (retMsgLength != nullptr) *retMsgLength = 0;
  if (Buffer == nullptr && BufLength > 0) return ERR_BAD_PARAM;
  try {
    auto queue = find_queue(Queue);
    if (!queue) return ERR_MQ_EMPTY;
    // A timeout alone also makes the call wait (the add-in relies on it);
    // MQ_WAIT_FOR_MSG without one waits for as long as it takes.
    long long timeout_ms = Timeout;
    if (Timeout == 0 && (Options & MQ_WAIT_FOR_MSG) != 0) timeout_ms = -1;
    WORD length = 0;
    STATUS status = queue->get(Buffer, BufLength, timeout_ms, &length);
    if (retMsgLength != nullptr) *retMsgLength = length;
    return status;
  } catch (...) {
    return ERR_MEMORY;
  }
}

void LNPUBLIC MQPutQuitMsg(MQHANDLE Queue) {
  try {
    if (auto queue = find_queue(Queue)) queue->put_quit();
  } catch (...) {
  }
}

BOOL LNPUBLIC MQIsQuitPending(MQHANDLE Queue) {
  try {
    auto queue = find_queue(Queue);
    return queue && queue->quit_pending() ? TRUE : FALSE;
  } catch (...) {
    return FALSE;
  }
}

WORD LNPUBLIC MQGetCount(MQHANDLE Queue) {
  try {
    auto queue = find_queue(Queue);
    if (!queue) return 0;
    size_t count = queue->count();
    return static_cast<WORD>(count > MAXWORD ? MAXWORD : count);
  } catch (...) {
    return 0;
  }
}

}  // extern "C"
