// tarnwick-http's HTTP server: the web page, the JSON API, the task's
// request pages, the application database's three file resources,
// /healthz and /metrics, on one address (TLS when a certificate is set).
//
// Anonymous clients reach the sign-in page, the request pages, the file
// resources, /healthz, /metrics and the API description; everything else
// needs a session cookie (with the X-CSRF-Token header on state changes) or
// HTTP Basic.
#pragma once

#include <memory>
#include <string>

namespace tarnwick::gateway {

struct GatewayOptions {
  std::string host = "127.0.0.1";
  int port = 8080;  // 0: any free port
  std::string certificate, private_key;  // both set: TLS
  long long task_timeout_ms = 15000;
  size_t max_body_bytes = 64 * 1024;
  int threads = 24;
  std::string probe_user;  // /healthz queries this person when set
};

class Gateway {
 public:
  explicit Gateway(GatewayOptions options);
  Gateway(const Gateway&) = delete;
  Gateway& operator=(const Gateway&) = delete;
  ~Gateway();

  // Binds the address; returns the port (useful with port 0). Throws
  // std::runtime_error when the address cannot be bound or TLS cannot start.
  int bind();
  // Serves until stop(); returns false when serving failed.
  bool serve();
  void stop();
  bool tls() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tarnwick::gateway
