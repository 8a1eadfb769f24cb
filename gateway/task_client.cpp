#include "task_client.h"

#include "failure.h"
#include "reply_json.h"
#include "request.h"

namespace tarnwick::gateway {
namespace {

constexpr const char* kOk = "OK";
// The task's own checks of request values name these functions.
constexpr const char* kValidationSources[] = {"ValidateSettings:", "receiveElements:"};

const char* kind_name(client::RequestKind kind) {
  switch (kind) {
    case client::RequestKind::query: return "query";
    case client::RequestKind::set: return "set";
    case client::RequestKind::status: return "status";
    default: return "page";
  }
}

bool is_page(client::RequestKind kind) {
  return kind == client::RequestKind::page || kind == client::RequestKind::mobile_page ||
         kind == client::RequestKind::install_ios_page;
}

}  // namespace

bool TaskRefused::is_validation() const {
  const std::string text = what();
  for (const char* source : kValidationSources) {
    if (text.rfind(source, 0) == 0) return true;
  }
  return false;
}

TaskAnswer TaskClient::exchange(client::RequestKind kind, client::RequestValues values) {
  client::RequestOptions options;
  options.kind = kind;
  options.values = std::move(values);
  options.timeout_ms = timeout_ms_;
  client::RequestOutcome outcome;
  try {
    outcome = client::send_request(options);
  } catch (const client::NoReply& failure) {
    metrics_.count_task(kind_name(kind), "timeout");
    throw TaskUnavailable(failure.what());
  }
  metrics_.observe_queue_wait(kind_name(kind), static_cast<double>(outcome.elapsed_ms) / 1000.0);
  if (!outcome.reply || *outcome.reply != kOk) {
    metrics_.count_task(kind_name(kind), "error");
    throw TaskRefused(outcome.reply ? *outcome.reply : "no reply");
  }
  TaskAnswer answer;
  if (is_page(kind)) {
    answer.page = outcome.document;
  } else {
    auto users = reply_users(outcome.document);
    if (!users) {
      metrics_.count_task(kind_name(kind), "error");
      throw TaskRefused("the task's reply document cannot be read");
    }
    answer.users = std::move(*users);
  }
  metrics_.count_task(kind_name(kind), "ok");
  return answer;
}

TaskAnswer TaskClient::query(const Account& target, const std::string& login_name) {
  client::RequestValues values;
  values.user = target.full_name;
  values.mail_server = target.mail_server;
  values.mail_box = target.mail_file;
  values.login_name = login_name;
  return exchange(client::RequestKind::query, std::move(values));
}

TaskAnswer TaskClient::set(const Account& target, client::RequestValues values, const std::string& login_name) {
  values.user = target.full_name;
  values.mail_server = target.mail_server;
  values.mail_box = target.mail_file;
  values.login_name = login_name;
  return exchange(client::RequestKind::set, std::move(values));
}

TaskAnswer TaskClient::status(const std::string& name, const std::string& query_user) {
  client::RequestValues values;
  values.user = name;
  values.query_user = query_user;
  values.login_name = query_user;
  return exchange(client::RequestKind::status, std::move(values));
}

TaskAnswer TaskClient::page(client::RequestKind kind, const std::string& login_name, const std::string& login_server) {
  client::RequestValues values;
  values.login_name = login_name;
  values.login_server = login_server;
  return exchange(kind, std::move(values));
}

}  // namespace tarnwick::gateway
