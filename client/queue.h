// An open handle of a message queue, closed at scope end. Failing calls
// throw Failure naming the queue.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "global.h"

namespace tarnwick::client {

class Queue {
 public:
  // Opens an existing queue; a missing one is a Failure that says so.
  static Queue open(const std::string& name);
  // Opens the queue, making it first when it does not exist.
  static Queue open_or_create(const std::string& name);

  Queue(Queue&& other) noexcept;
  Queue& operator=(Queue&&) = delete;
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;
  ~Queue();

  const std::string& name() const { return name_; }

  void put(std::string_view bytes);
  // The first message; waits up to timeout_ms (0: not at all). nullopt when
  // none came.
  std::optional<std::string> get(long long timeout_ms);

 private:
  Queue(MQHANDLE handle, std::string name) : handle_(handle), name_(std::move(name)) {}
  MQHANDLE handle_ = NULLHANDLE;
  std::string name_;
};

}  // namespace tarnwick::client
