#include "server.h"

#include <httplib.h>
// The resolver's headers that httplib pulls in name two macros as the
// runtime's headers do; the runtime's meaning is the one used here.
#undef STATUS
#undef NOERROR
#include <openssl/crypto.h>

#include <chrono>
#include <cstring>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "access.h"
#include "accounts.h"
#include "addin.h"
#include "audit.h"
#include "failure.h"
#include "lmbcs_text.h"
#include "metrics.h"
#include "mq.h"
#include "nsfdb.h"
#include "ooo_settings.h"
#include "osenv.h"
#include "osmem.h"
#include "fileresource.h"
#include "protocol/ProtocolNames.h"
#include "sessions.h"
#include "task_client.h"
#include "web_assets.h"

namespace tarnwick::gateway {
namespace {

using Json = nlohmann::ordered_json;
using httplib::Request;
using httplib::Response;

constexpr const char* kCookieName = "tarnwick_session";
constexpr const char* kJson = "application/json; charset=utf-8";
constexpr const char* kCsrfHeader = "X-CSRF-Token";
constexpr size_t kMaxPasswordBytes = 1024;
constexpr const char* kMe = "me";

// Content-Security-Policy of our own page, and of the task's request pages
// (which carry inline styles and links the task composes; never scripts).
constexpr const char* kPagePolicy =
    "default-src 'self'; img-src 'self' data:; style-src 'self'; script-src 'self'; frame-ancestors 'none'; "
    "base-uri 'none'; form-action 'self'";
constexpr const char* kRequestPagePolicy =
    "default-src 'none'; img-src 'self'; style-src 'unsafe-inline'; frame-ancestors 'none'; base-uri 'none'; "
    "form-action 'none'";

// What each answered request counts as in the metrics; set by the handler
// while it runs on the server's thread.
thread_local std::string t_kind;
thread_local std::chrono::steady_clock::time_point t_started;

std::string outcome_of(int status) {
  if (status < 400) return "ok";
  if (status == 401 || status == 403) return "denied";
  if (status == 504) return "timeout";
  if (status >= 500) return "task_error";
  return "client_error";
}

void send_json(Response& res, int status, const Json& body) {
  res.status = status;
  res.set_header("Cache-Control", "no-store");
  res.set_content(body.dump(-1, ' ', false, Json::error_handler_t::replace), kJson);
}

void send_error(Response& res, int status, const std::string& message) {
  send_json(res, status, Json{{"error", message}});
}

// The task's error text "function:message" for a person: the message.
std::string message_of_task_text(const std::string& text) {
  const size_t colon = text.find(':');
  if (colon == std::string::npos || text.find(' ') < colon) return text;
  return text.substr(colon + 1);
}

bool constant_time_equal(const std::string& a, const std::string& b) {
  return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

std::string cookie_value(const Request& req, const std::string& name) {
  const std::string header = req.get_header_value("Cookie");
  size_t pos = 0;
  while (pos < header.size()) {
    size_t end = header.find(';', pos);
    if (end == std::string::npos) end = header.size();
    std::string pair = header.substr(pos, end - pos);
    const size_t first = pair.find_first_not_of(' ');
    pair = first == std::string::npos ? "" : pair.substr(first);
    if (pair.rfind(name + "=", 0) == 0) return pair.substr(name.size() + 1);
    pos = end + 1;
  }
  return {};
}

std::optional<std::string> base64_decode(const std::string& text) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  unsigned buffer = 0;
  int bits = 0;
  for (char c : text) {
    if (c == '=') break;
    const size_t value = alphabet.find(c);
    if (value == std::string::npos) return std::nullopt;
    buffer = (buffer << 6) | static_cast<unsigned>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out += static_cast<char>((buffer >> bits) & 0xFF);
    }
  }
  return out;
}

bool is_json_body(const Request& req) {
  const std::string type = req.get_header_value("Content-Type");
  return type.rfind("application/json", 0) == 0;
}

std::string local_server_name() {
  char name[MAXENVVALUE + 1] = {};
  OSGetEnvironmentString("ServerName", name, MAXENVVALUE);
  return client::to_utf8(name);
}

// Who is asking.
struct Caller {
  Account account;
  bool by_cookie = false;
  std::string csrf;  // the session's token when by_cookie
};

}  // namespace

struct Gateway::Impl {
  GatewayOptions options;
  std::unique_ptr<httplib::Server> server;
  Metrics metrics;
  SessionStore sessions;
  SignInThrottle throttle;
  TaskClient task;
  int port = 0;

  explicit Impl(GatewayOptions o) : options(std::move(o)), task(options.task_timeout_ms, metrics) {}

  // ---- sign-in ------------------------------------------------------------

  // Checks a name and password with the slow-down; on failure answers the
  // request and returns nullopt.
  std::optional<Account> check_password(const Request& req, Response& res, const std::string& name,
                                        const std::string& password) {
    if (!is_valid_name(name) || password.size() > kMaxPasswordBytes) {
      send_error(res, 400, "a name and a password are needed");
      return std::nullopt;
    }
    std::optional<Account> account;
    try {
      account = find_account(name);
    } catch (const client::Failure& failure) {
      send_error(res, 500, "the directory cannot be read");
      return std::nullopt;
    }
    const std::string throttle_key = account ? account->full_name : name;
    if (const auto wait = throttle.wait_before(throttle_key, req.remote_addr); wait.count() > 0) {
      res.set_header("Retry-After", std::to_string(wait.count()));
      send_error(res, 429, "too many failed sign-ins; try again in " + std::to_string(wait.count()) + " s");
      return std::nullopt;
    }
    if (!password_is_right(account, password)) {
      throttle.failed(throttle_key, req.remote_addr);
      send_error(res, 401, "the name or the password is wrong");
      return std::nullopt;
    }
    throttle.succeeded(throttle_key);
    return account;
  }

  // The caller of an API request, or nullopt after answering 401/403/429.
  std::optional<Caller> caller_of(const Request& req, Response& res, bool changes_state) {
    const std::string authorization = req.get_header_value("Authorization");
    if (authorization.rfind("Basic ", 0) == 0) {
      const auto decoded = base64_decode(authorization.substr(6));
      const size_t colon = decoded ? decoded->find(':') : std::string::npos;
      if (colon == std::string::npos) {
        send_error(res, 401, "malformed Basic credentials");
        return std::nullopt;
      }
      auto account = check_password(req, res, decoded->substr(0, colon), decoded->substr(colon + 1));
      if (!account) {
        if (res.status == 401) res.set_header("WWW-Authenticate", "Basic realm=\"Tarnwick\", charset=\"UTF-8\"");
        return std::nullopt;
      }
      return Caller{*account, false, ""};
    }
    const std::string token = cookie_value(req, kCookieName);
    const auto session = token.empty() ? std::nullopt : sessions.find(token);
    if (!session) {
      send_error(res, 401, "sign in first");
      return std::nullopt;
    }
    if (changes_state && !constant_time_equal(req.get_header_value(kCsrfHeader), session->csrf)) {
      send_error(res, 403, "the request lacks this session's CSRF token");
      return std::nullopt;
    }
    return Caller{session->account, true, session->csrf};
  }

  std::string session_cookie(const std::string& token, bool expire) const {
    std::string cookie = std::string(kCookieName) + "=" + token + "; Path=/; HttpOnly; SameSite=Strict";
    if (server_is_tls()) cookie += "; Secure";
    if (expire) cookie += "; Max-Age=0";
    return cookie;
  }

  bool server_is_tls() const { return !options.certificate.empty() && !options.private_key.empty(); }

  void sign_in(const Request& req, Response& res) {
    t_kind = "signin";
    if (!is_json_body(req)) return send_error(res, 415, "send the name and password as JSON");
    const Json body = Json::parse(req.body, nullptr, false);
    if (!body.is_object() || !body.contains("name") || !body["name"].is_string() || !body.contains("password") ||
        !body["password"].is_string()) {
      return send_error(res, 400, "a name and a password are needed");
    }
    const auto account = check_password(req, res, body["name"], body["password"]);
    if (!account) return;
    const std::string token = sessions.open(*account);
    const auto session = sessions.find(token);
    res.set_header("Set-Cookie", session_cookie(token, false));
    send_json(res, 200, Json{{"user", account->full_name}, {"display", display_name(account->full_name)},
                             {"csrf", session->csrf}});
  }

  void session_info(const Request& req, Response& res) {
    t_kind = "signin";
    const auto caller = caller_of(req, res, false);
    if (!caller) return;
    send_json(res, 200, Json{{"user", caller->account.full_name}, {"display", display_name(caller->account.full_name)},
                             {"csrf", caller->csrf}});
  }

  void sign_out(const Request& req, Response& res) {
    t_kind = "signin";
    const auto caller = caller_of(req, res, true);
    if (!caller) return;
    sessions.close(cookie_value(req, kCookieName));
    res.set_header("Set-Cookie", session_cookie("", true));
    res.status = 204;
  }

  // ---- out-of-office --------------------------------------------------------

  // The person a path names ("me": the caller), after the access check; or
  // nullopt after answering.
  std::optional<Account> target_of(const Caller& caller, const std::string& name, Response& res) {
    if (name == kMe) return caller.account;
    if (!is_valid_name(name)) {
      send_error(res, 400, "not a valid name");
      return std::nullopt;
    }
    std::optional<Account> target;
    try {
      target = find_account(name);
    } catch (const client::Failure&) {
      send_error(res, 500, "the directory cannot be read");
      return std::nullopt;
    }
    if (!target) {
      send_error(res, 404, "the directory knows no person named " + name);
      return std::nullopt;
    }
    if (may_manage(caller.account, *target) == Grant::refused) {
      send_error(res, 403, "you may not read or change the out-of-office of " + display_name(target->full_name));
      return std::nullopt;
    }
    return target;
  }

  // Runs a call to the task and answers its failures; true when it worked.
  template <typename Call>
  bool with_task(Response& res, Call&& call) {
    try {
      call();
      return true;
    } catch (const TaskUnavailable& failure) {
      send_json(res, 504, Json{{"error", "the out-of-office task did not answer"}, {"detail", failure.what()}});
    } catch (const TaskRefused& refused) {
      send_json(res, refused.is_validation() ? 422 : 502,
                Json{{"error", message_of_task_text(refused.what())}, {"task_reply", refused.what()}});
    } catch (const std::exception& failure) {
      send_error(res, 500, failure.what());
    }
    return false;
  }

  void get_ooo(const Request& req, Response& res) {
    t_kind = "query";
    const auto caller = caller_of(req, res, false);
    if (!caller) return;
    const auto target = target_of(*caller, req.matches[1], res);
    if (!target) return;
    TaskAnswer answer;
    if (!with_task(res, [&] { answer = task.query(*target, caller->account.full_name); })) return;
    if (answer.users.empty()) return send_error(res, 502, "the task's reply names nobody");
    send_json(res, 200, answer.users[0]);
  }

  void put_ooo(const Request& req, Response& res) {
    t_kind = "set";
    const auto caller = caller_of(req, res, true);
    if (!caller) return;
    if (!is_json_body(req)) return send_error(res, 415, "send the change as JSON (Content-Type: application/json)");
    const Json change = Json::parse(req.body, nullptr, false);
    if (change.is_discarded() || !change.is_object()) return send_error(res, 400, "the body is not a JSON object");
    const auto target = target_of(*caller, req.matches[1], res);
    if (!target) return;

    TaskAnswer before;
    if (!with_task(res, [&] { before = task.query(*target, caller->account.full_name); })) return;
    const Json current = before.users.empty() ? Json::object() : before.users[0];
    client::RequestValues values;
    try {
      values = set_values(current, change);
    } catch (const std::invalid_argument& wrong) {
      return send_error(res, 400, wrong.what());
    }
    TaskAnswer after;
    const bool done = with_task(res, [&] { after = task.set(*target, values, caller->account.full_name); });
    const Json now = done && !after.users.empty() ? after.users[0] : Json::object();
    record_set(AuditEntry{caller->account.full_name, target->full_name, req.remote_addr, state_summary(current),
                          done ? state_summary(now) : "", done ? "done" : "refused (" + res.body + ")"});
    if (!done) return;
    if (after.users.empty()) return send_error(res, 502, "the task's reply names nobody");
    send_json(res, 200, now);
  }

  void get_status(const Request& req, Response& res) {
    t_kind = "status";
    const auto caller = caller_of(req, res, false);
    if (!caller) return;
    const std::string name = req.get_param_value("name");
    if (!is_valid_name(name)) return send_error(res, 400, "give a valid person or group name as ?name=");
    TaskAnswer answer;
    if (!with_task(res, [&] { answer = task.status(name, caller->account.full_name); })) return;
    send_json(res, 200, Json{{"name", name}, {"users", answer.users}});
  }

  // ---- pages and files ----------------------------------------------------------

  void request_page(const Request& req, Response& res, client::RequestKind kind) {
    t_kind = "page";
    std::string login;
    const std::string token = cookie_value(req, kCookieName);
    if (auto session = token.empty() ? std::nullopt : sessions.find(token)) login = session->account.full_name;
    TaskAnswer answer;
    if (!with_task(res, [&] { answer = task.page(kind, login, local_server_name()); })) return;
    res.set_header("Content-Security-Policy", kRequestPagePolicy);
    res.set_header("Cache-Control", "no-store");
    res.set_content(answer.page, "text/html; charset=utf-8");
  }

  void file_resource(const Request& req, Response& res) {
    t_kind = "resource";
    const std::string name = req.matches[1];
    bool allowed = false;
    for (const char* known : protocol::kFileResourceNames) allowed = allowed || name == known;
    if (!allowed) return send_error(res, 404, "no such file");
    DBHANDLE db = NULLHANDLE;
    if (NSFDbOpen(client::to_lmbcs(application_database_path()).c_str(), &db) != NOERROR) {
      return send_error(res, 404, "no such file");
    }
    DHANDLE data = NULLHANDLE;
    DWORD length = 0;
    char type[128] = {};
    const STATUS status = TarnwickFileResourceRead(db, name.c_str(), &data, &length, type, sizeof type);
    NSFDbClose(db);
    if (status != NOERROR) return send_error(res, 404, "no such file");
    std::string bytes;
    if (data != NULLHANDLE) {
      bytes.assign(static_cast<const char*>(OSLockObject(data)), length);
      OSUnlockObject(data);
      OSMemFree(data);
    }
    res.set_header("Cache-Control", "public, max-age=3600");
    res.set_content(bytes, type[0] != '\0' ? type : "application/octet-stream");
  }

  void healthz(Response& res) {
    t_kind = "health";
    if (!options.probe_user.empty()) {
      std::optional<Account> probe;
      try {
        probe = find_account(options.probe_user);
      } catch (const client::Failure&) {
      }
      if (!probe) return send_json(res, 503, Json{{"status", "unknown probe user"}});
      if (!with_task(res, [&] { task.query(*probe, ""); })) {
        res.status = 503;
        return;
      }
      return send_json(res, 200, Json{{"status", "ok"}, {"checked", "query"}});
    }
    MQHANDLE queue = NULLHANDLE;
    if (MQOpen(protocol::kRequestQueueName, 0, &queue) != NOERROR) {
      return send_json(res, 503, Json{{"status", "the task's request queue is missing"}});
    }
    MQClose(queue, 0);
    send_json(res, 200, Json{{"status", "ok"}, {"checked", "queue"}});
  }

  void routes() {
    httplib::Server& s = *server;
    s.set_payload_max_length(options.max_body_bytes);
    s.set_keep_alive_max_count(100000);
    s.new_task_queue = [threads = options.threads] { return new httplib::ThreadPool(static_cast<size_t>(threads)); };
    s.set_pre_routing_handler([](const Request&, Response& res) {
      t_kind = "other";
      t_started = std::chrono::steady_clock::now();
      res.set_header("X-Content-Type-Options", "nosniff");
      res.set_header("Referrer-Policy", "no-referrer");
      res.set_header("X-Frame-Options", "DENY");
      return httplib::Server::HandlerResponse::Unhandled;
    });
    // Counted before the response is written, so a client that has its
    // answer already sees it in /metrics.
    s.set_post_routing_handler([this](const Request&, Response& res) {
      const double seconds =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - t_started).count();
      metrics.count_request(t_kind, outcome_of(res.status), seconds);
    });

    auto asset = [&](const char* path, const char* body, const char* type) {
      s.Get(path, [body, type](const Request&, Response& res) {
        t_kind = "asset";
        res.set_header("Content-Security-Policy", kPagePolicy);
        res.set_header("Cache-Control", "no-cache");
        res.set_content(body, type);
      });
    };
    asset("/", embedded::kIndexHtml, "text/html; charset=utf-8");
    asset("/status", embedded::kIndexHtml, "text/html; charset=utf-8");
    asset("/app.js", embedded::kAppJs, "text/javascript; charset=utf-8");
    asset("/app.css", embedded::kAppCss, "text/css; charset=utf-8");
    s.Get("/api/v1/openapi.json", [](const Request&, Response& res) {
      t_kind = "asset";
      res.set_content(embedded::kOpenApi, kJson);
    });

    s.Get("/api/v1/session", [this](const Request& req, Response& res) { session_info(req, res); });
    s.Post("/api/v1/session", [this](const Request& req, Response& res) { sign_in(req, res); });
    s.Delete("/api/v1/session", [this](const Request& req, Response& res) { sign_out(req, res); });
    // A name may hold "/" ("Jane Doe/Acme", sent as %2F, which the server
    // decodes before matching): the name is everything between the two.
    s.Get(R"(/api/v1/users/(.+)/ooo)", [this](const Request& req, Response& res) { get_ooo(req, res); });
    s.Put(R"(/api/v1/users/(.+)/ooo)", [this](const Request& req, Response& res) { put_ooo(req, res); });
    s.Get("/api/v1/status", [this](const Request& req, Response& res) { get_status(req, res); });

    s.Get("/pages/web", [this](const Request& req, Response& res) { request_page(req, res, client::RequestKind::page); });
    s.Get("/pages/mobile",
          [this](const Request& req, Response& res) { request_page(req, res, client::RequestKind::mobile_page); });
    s.Get("/pages/ios",
          [this](const Request& req, Response& res) { request_page(req, res, client::RequestKind::install_ios_page); });
    s.Get(R"((?:/[^/]+)*/OOO\.nsf/([^/]+))", [this](const Request& req, Response& res) { file_resource(req, res); });

    s.Get("/healthz", [this](const Request&, Response& res) { healthz(res); });
    s.Get("/metrics", [this](const Request&, Response& res) {
      t_kind = "metrics";
      res.set_content(metrics.text(), "text/plain; version=0.0.4; charset=utf-8");
    });
    s.set_error_handler([](const Request&, Response& res) {
      if (res.body.empty()) {
        const std::string message = res.status == 413   ? "the request body is too large"
                                    : res.status == 404 ? "no such page"
                                                        : "HTTP status " + std::to_string(res.status);
        send_json(res, res.status, Json{{"error", message}});
      }
    });
  }
};

Gateway::Gateway(GatewayOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {
  if (impl_->server_is_tls()) {
    auto tls = std::make_unique<httplib::SSLServer>(impl_->options.certificate.c_str(),
                                                    impl_->options.private_key.c_str());
    if (!tls->is_valid()) {
      throw std::runtime_error("cannot start TLS with " + impl_->options.certificate + " and " +
                               impl_->options.private_key);
    }
    impl_->server = std::move(tls);
  } else {
    impl_->server = std::make_unique<httplib::Server>();
  }
  impl_->routes();
}

Gateway::~Gateway() = default;

int Gateway::bind() {
  Impl& impl = *impl_;
  if (impl.options.port == 0) {
    impl.port = impl.server->bind_to_any_port(impl.options.host);
    if (impl.port <= 0) throw std::runtime_error("cannot listen on " + impl.options.host);
  } else {
    if (!impl.server->bind_to_port(impl.options.host, impl.options.port)) {
      throw std::runtime_error("cannot listen on " + impl.options.host + ":" + std::to_string(impl.options.port));
    }
    impl.port = impl.options.port;
  }
  return impl.port;
}

bool Gateway::serve() { return impl_->server->listen_after_bind(); }
void Gateway::stop() { impl_->server->stop(); }
bool Gateway::tls() const { return impl_->server_is_tls(); }

}  // namespace tarnwick::gateway
