#include "sessions.h"

#include <openssl/rand.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <vector>

namespace tarnwick::gateway {
namespace {

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

}  // namespace

std::string random_token(size_t bytes) {
  std::vector<unsigned char> random(bytes);
  if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) throw std::runtime_error("no random bytes");
  static const char digits[] = "0123456789abcdef";
  std::string hex;
  for (unsigned char byte : random) {
    hex += digits[byte >> 4];
    hex += digits[byte & 15];
  }
  return hex;
}

SessionStore::SessionStore(std::chrono::seconds idle_limit, Clock clock)
    : idle_limit_(idle_limit), clock_(std::move(clock)) {}

std::chrono::steady_clock::time_point SessionStore::now() const {
  return clock_ ? clock_() : std::chrono::steady_clock::now();
}

std::string SessionStore::open(const Account& account) {
  const std::string token = random_token();
  std::lock_guard guard(mutex_);
  const auto at = now();
  std::erase_if(sessions_, [&](const auto& entry) { return at - entry.second.last_used > idle_limit_; });
  sessions_[token] = Session{account, random_token(), at};
  return token;
}

std::optional<Session> SessionStore::find(const std::string& token) {
  std::lock_guard guard(mutex_);
  auto it = sessions_.find(token);
  if (it == sessions_.end()) return std::nullopt;
  const auto at = now();
  if (at - it->second.last_used > idle_limit_) {
    sessions_.erase(it);
    return std::nullopt;
  }
  it->second.last_used = at;
  return it->second;
}

void SessionStore::close(const std::string& token) {
  std::lock_guard guard(mutex_);
  sessions_.erase(token);
}

SignInThrottle::SignInThrottle(Limits limits, Clock clock) : limits_(limits), clock_(std::move(clock)) {}

std::chrono::steady_clock::time_point SignInThrottle::now() const {
  return clock_ ? clock_() : std::chrono::steady_clock::now();
}

void SignInThrottle::forget_old(std::map<std::string, Failures>& table) {
  const auto at = now();
  std::erase_if(table, [&](const auto& entry) { return at - entry.second.last > limits_.forget_after; });
}

std::chrono::seconds SignInThrottle::wait_for(std::map<std::string, Failures>& table, const std::string& key,
                                              int free_failures) {
  auto it = table.find(key);
  if (it == table.end() || it->second.count < free_failures) return std::chrono::seconds(0);
  const int doublings = std::min(it->second.count - free_failures, 16);
  const std::chrono::seconds delay =
      std::min(std::chrono::seconds(limits_.first_delay.count() << doublings), limits_.longest_delay);
  const auto ready = it->second.last + delay;
  const auto at = now();
  if (at >= ready) return std::chrono::seconds(0);
  return std::chrono::ceil<std::chrono::seconds>(ready - at);
}

std::chrono::seconds SignInThrottle::wait_before(const std::string& name, const std::string& address) {
  std::lock_guard guard(mutex_);
  forget_old(by_name_);
  forget_old(by_address_);
  return std::max(wait_for(by_name_, lower(name), limits_.free_failures_per_name),
                  wait_for(by_address_, address, limits_.free_failures_per_address));
}

void SignInThrottle::failed(const std::string& name, const std::string& address) {
  std::lock_guard guard(mutex_);
  const auto at = now();
  for (auto* entry : {&by_name_[lower(name)], &by_address_[address]}) {
    ++entry->count;
    entry->last = at;
  }
}

void SignInThrottle::succeeded(const std::string& name) {
  std::lock_guard guard(mutex_);
  by_name_.erase(lower(name));
}

}  // namespace tarnwick::gateway
