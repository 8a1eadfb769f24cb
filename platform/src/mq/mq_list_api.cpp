// The calls of mqlist.h: the live queues and the shared state folder, over
// message_queue.h and shared_state.h.
#include <cstring>

#include "core/api_guard.h"
#include "globerr.h"
#include "mq/message_queue.h"
#include "mq/shared_state.h"
#include "mqlist.h"

using namespace tarnwick::rt;

extern "C" {

STATUS LNPUBLIC MQEnumQueues(MQENUMFUNC Callback, void* Param) {
  if (Callback == nullptr) return ERR_BAD_PARAM;
  return guarded([&]() -> STATUS {
    for (const QueueListing& queue : list_queues()) {
      const DWORD messages = queue.messages > MAXDWORD ? MAXDWORD : static_cast<DWORD>(queue.messages);
      const MQ_LISTING entry{queue.name.c_str(), messages, queue.quitting ? TRUE : FALSE};
      Callback(Param, &entry);
    }
    return NOERROR;
  });
}

WORD LNPUBLIC MQGetSharedStateDirectory(char* retPath) {
  if (retPath == nullptr) return 0;
  retPath[0] = '\0';
  return guarded_value<WORD>(0, [&]() -> WORD {
    const std::string path = shared_state_root().string();
    if (path.size() >= MAXPATH) return 0;
    std::memcpy(retPath, path.c_str(), path.size() + 1);
    return static_cast<WORD>(path.size());
  });
}

}  // extern "C"
