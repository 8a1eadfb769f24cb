#include "queue.h"

#include <vector>

#include "failure.h"
#include "globerr.h"
#include "mq.h"

namespace tarnwick::client {

Queue Queue::open(const std::string& name) {
  MQHANDLE handle = NULLHANDLE;
  const STATUS status = MQOpen(name.c_str(), 0, &handle);
  if (ERR(status) == ERR_NO_SUCH_MQ) {
    throw Failure("no queue named " + name + " (a queue lives only while a running process holds it)");
  }
  check(status, "cannot open queue " + name);
  return Queue(handle, name);
}

Queue Queue::open_or_create(const std::string& name) {
  MQHANDLE handle = NULLHANDLE;
  check(MQOpen(name.c_str(), MQ_OPEN_CREATE, &handle), "cannot open queue " + name);
  return Queue(handle, name);
}

Queue::Queue(Queue&& other) noexcept : handle_(other.handle_), name_(std::move(other.name_)) {
  other.handle_ = NULLHANDLE;
}

Queue::~Queue() {
  if (handle_ != NULLHANDLE) MQClose(handle_, 0);
}

void Queue::put(std::string_view bytes) {
  if (bytes.size() > MQ_MAX_MSGSIZE) {
    throw Failure("a message on " + name_ + " holds at most " + std::to_string(MQ_MAX_MSGSIZE) + " bytes");
  }
  check(MQPut(handle_, NOPRIORITY, const_cast<char*>(bytes.data()), static_cast<WORD>(bytes.size()), 0),
        "cannot put a message on " + name_);
}

std::optional<std::string> Queue::get(long long timeout_ms) {
  std::vector<char> buffer(MQ_MAX_MSGSIZE);
  WORD length = 0;
  const STATUS status =
      MQGet(handle_, buffer.data(), static_cast<WORD>(buffer.size()), 0, static_cast<DWORD>(timeout_ms), &length);
  if (ERR(status) == ERR_MQ_EMPTY) return std::nullopt;
  if (ERR(status) == ERR_MQ_QUITTING) throw Failure("queue " + name_ + " is quitting");
  check(status, "cannot get a message from " + name_);
  return std::string(buffer.data(), length);
}

}  // namespace tarnwick::client
