// Signed-in sessions and the slow-down of failed sign-ins.
//
// A session is a random 256-bit token (the cookie's value) bound to the
// person's canonical name, with its own random CSRF token that every
// state-changing request made with the cookie must echo in the
// X-CSRF-Token header. Sessions end after an idle time or on sign-out.
//
// Failed sign-ins are counted per name and per address. After a few free
// failures each further attempt must wait a delay that doubles with every
// failure (capped); failures are forgotten after a quiet period, and a
// successful sign-in clears the name's count. Thread-safe; the clock is
// injectable for tests.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "accounts.h"

namespace tarnwick::gateway {

using Clock = std::function<std::chrono::steady_clock::time_point()>;

struct Session {
  Account account;  // the person signed in, as the directory gave it
  std::string csrf;
  std::chrono::steady_clock::time_point last_used;
};

class SessionStore {
 public:
  explicit SessionStore(std::chrono::seconds idle_limit = std::chrono::hours(8), Clock clock = {});

  // A new session for the person; returns its token.
  std::string open(const Account& account);
  // The live session of a token (its idle time restarts); nullopt when
  // unknown or expired.
  std::optional<Session> find(const std::string& token);
  void close(const std::string& token);

 private:
  std::chrono::steady_clock::time_point now() const;
  std::chrono::seconds idle_limit_;
  Clock clock_;
  std::mutex mutex_;
  std::map<std::string, Session> sessions_;
};

class SignInThrottle {
 public:
  struct Limits {
    int free_failures_per_name = 5;
    int free_failures_per_address = 20;
    std::chrono::seconds first_delay{1};
    std::chrono::seconds longest_delay{60};
    std::chrono::seconds forget_after{15 * 60};
  };
  SignInThrottle() : SignInThrottle(Limits{}) {}
  explicit SignInThrottle(Limits limits, Clock clock = {});

  // Zero when an attempt for name from address may be checked now, else
  // how long the client must wait first.
  std::chrono::seconds wait_before(const std::string& name, const std::string& address);
  void failed(const std::string& name, const std::string& address);
  void succeeded(const std::string& name);

 private:
  struct Failures {
    int count = 0;
    std::chrono::steady_clock::time_point last;
  };
  std::chrono::steady_clock::time_point now() const;
  std::chrono::seconds wait_for(std::map<std::string, Failures>& table, const std::string& key, int free_failures);
  void forget_old(std::map<std::string, Failures>& table);

  Limits limits_;
  Clock clock_;
  std::mutex mutex_;
  std::map<std::string, Failures> by_name_, by_address_;
};

// Hex text of n random bytes (OpenSSL's generator); throws when it fails.
std::string random_token(size_t bytes = 32);

}  // namespace tarnwick::gateway
