// The out-of-office task as the front end uses it: each call sends one
// request through the front-end client library (request file in the spool
// folder, a reply queue name borrowed from the servlet list, the path on the
// request queue) and turns the answer into a TaskAnswer. The mail server
// and mail file always come from the directory's account, never from a
// client.
#pragma once

#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

#include "accounts.h"
#include "metrics.h"
#include "request_document.h"

namespace tarnwick::gateway {

// The task did not answer in time or is not running.
struct TaskUnavailable : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The task answered with an error text instead of "OK".
struct TaskRefused : std::runtime_error {
  using std::runtime_error::runtime_error;
  // True for the texts of the task's checks of the values (dates out of
  // order or in the past, invalid dates): the client's mistake.
  bool is_validation() const;
};

struct TaskAnswer {
  nlohmann::ordered_json users;  // the reply document's User elements
  std::string page;              // a page request's HTML
};

class TaskClient {
 public:
  TaskClient(long long timeout_ms, Metrics& metrics) : timeout_ms_(timeout_ms), metrics_(metrics) {}

  TaskAnswer query(const Account& target, const std::string& login_name);
  TaskAnswer set(const Account& target, client::RequestValues values, const std::string& login_name);
  TaskAnswer status(const std::string& name, const std::string& query_user);
  TaskAnswer page(client::RequestKind kind, const std::string& login_name, const std::string& login_server);

  long long timeout_ms() const { return timeout_ms_; }

 private:
  TaskAnswer exchange(client::RequestKind kind, client::RequestValues values);

  long long timeout_ms_;
  Metrics& metrics_;
};

}  // namespace tarnwick::gateway
