// The message queue calls of mq.h: handles and argument checks over
// message_queue.h. Nothing thrown inside may leave these functions.
#include <memory>

#include "core/api_guard.h"
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
  return guarded([&]() -> STATUS {
    return create_queue(QueueName, Quota);
  });
}

STATUS LNPUBLIC MQOpen(const char* QueueName, DWORD Options, MQHANDLE* retQueue) {
  if (retQueue != nullptr) *retQueue = NULLHANDLE;
  if (QueueName == nullptr || retQueue == nullptr) return ERR_BAD_PARAM;
  return guarded([&]() -> STATUS {
    std::shared_ptr<MessageQueue> queue;
    if (STATUS status = open_queue(QueueName, (Options & MQ_OPEN_CREATE) != 0, &queue)) return status;
    *retQueue = handles().add(HandleKind::kQueue, queue);
    return NOERROR;
  });
}

STATUS LNPUBLIC MQClose(MQHANDLE Queue, DWORD /*Options*/) {
  return guarded([&]() -> STATUS {
    auto queue = handles().remove_as<MessageQueue>(Queue, HandleKind::kQueue);
    if (!queue) return ERR_MQ_EMPTY;
    return close_queue(queue);
  });
}

STATUS LNPUBLIC MQPut(MQHANDLE Queue, WORD Priority, char* Buffer, WORD Length, DWORD /*Options*/) {
  if (Buffer == nullptr && Length > 0) return ERR_BAD_PARAM;
  return guarded([&]() -> STATUS {
    auto queue = find_queue(Queue);
    if (!queue) return ERR_MQ_EMPTY;
    return queue->put(Priority, Buffer, Length);
  });
}

STATUS LNPUBLIC MQGet(MQHANDLE Queue, char* Buffer, WORD BufLength, DWORD Options, DWORD Timeout,
                      WORD* retMsgLength) {
  if (retMsgLength != nullptr) *retMsgLength = 0;
  if (Buffer == nullptr && BufLength > 0) return ERR_BAD_PARAM;
  return guarded([&]() -> STATUS {
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
  });
}

void LNPUBLIC MQPutQuitMsg(MQHANDLE Queue) {
  guarded_void([&] {
    if (auto queue = find_queue(Queue)) queue->put_quit();
  });
}

BOOL LNPUBLIC MQIsQuitPending(MQHANDLE Queue) {
  return guarded_value<BOOL>(FALSE, [&]() -> BOOL {
    auto queue = find_queue(Queue);
    return queue && queue->quit_pending() ? TRUE : FALSE;
  });
}

WORD LNPUBLIC MQGetCount(MQHANDLE Queue) {
  return guarded_value<WORD>(0, [&]() -> WORD {
    auto queue = find_queue(Queue);
    if (!queue) return 0;
    size_t count = queue->count();
    return static_cast<WORD>(count > MAXWORD ? MAXWORD : count);
  });
}

}  // extern "C"
