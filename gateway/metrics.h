// The front end's counters for /metrics, in the Prometheus text format:
//   tarnwick_http_requests_total{kind,outcome}   HTTP requests answered
//   tarnwick_http_request_seconds{kind}          their latency (histogram)
//   tarnwick_task_requests_total{kind,outcome}   requests sent to the task
//   tarnwick_task_queue_wait_seconds{kind}       put to reply (histogram)
// Thread-safe.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tarnwick::gateway {

class Histogram {
 public:
  Histogram();
  void observe(double seconds);
  // Appends the histogram's lines for `name` with the label text (k="v").
  void write(std::string& out, const std::string& name, const std::string& labels) const;

 private:
  std::vector<unsigned long long> buckets_;  // cumulative counts written out
  unsigned long long count_ = 0;
  double sum_ = 0;
};

class Metrics {
 public:
  void count_request(const std::string& kind, const std::string& outcome, double seconds);
  void count_task(const std::string& kind, const std::string& outcome);
  void observe_queue_wait(const std::string& kind, double seconds);
  std::string text() const;

 private:
  mutable std::mutex mutex_;
  std::map<std::pair<std::string, std::string>, unsigned long long> requests_, task_requests_;
  std::map<std::string, Histogram> latency_, queue_wait_;
};

}  // namespace tarnwick::gateway
