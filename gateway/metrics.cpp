#include "metrics.h"

#include <array>
#include <cstdio>

namespace tarnwick::gateway {
namespace {

constexpr std::array<double, 12> kBounds = {0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                            0.1,   0.25,   0.5,   1,    2.5,   10};

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", value);
  return text;
}

void write_counters(std::string& out, const std::string& name, const std::string& help,
                    const std::map<std::pair<std::string, std::string>, unsigned long long>& counters) {
  out += "# HELP " + name + " " + help + "\n# TYPE " + name + " counter\n";
  for (const auto& [labels, count] : counters) {
    out += name + "{kind=\"" + labels.first + "\",outcome=\"" + labels.second + "\"} " + std::to_string(count) + "\n";
  }
}

void write_histograms(std::string& out, const std::string& name, const std::string& help,
                      const std::map<std::string, Histogram>& histograms) {
  out += "# HELP " + name + " " + help + "\n# TYPE " + name + " histogram\n";
  for (const auto& [kind, histogram] : histograms) histogram.write(out, name, "kind=\"" + kind + "\"");
}

}  // namespace

Histogram::Histogram() : buckets_(kBounds.size(), 0) {}

void Histogram::observe(double seconds) {
  for (size_t i = 0; i < kBounds.size(); ++i) {
    if (seconds <= kBounds[i]) ++buckets_[i];
  }
  ++count_;
  sum_ += seconds;
}

void Histogram::write(std::string& out, const std::string& name, const std::string& labels) const {
  for (size_t i = 0; i < kBounds.size(); ++i) {
    out += name + "_bucket{" + labels + ",le=\"" + number(kBounds[i]) + "\"} " + std::to_string(buckets_[i]) + "\n";
  }
  out += name + "_bucket{" + labels + ",le=\"+Inf\"} " + std::to_string(count_) + "\n";
  out += name + "_sum{" + labels + "} " + number(sum_) + "\n";
  out += name + "_count{" + labels + "} " + std::to_string(count_) + "\n";
}

void Metrics::count_request(const std::string& kind, const std::string& outcome, double seconds) {
  std::lock_guard guard(mutex_);
  ++requests_[{kind, outcome}];
  latency_[kind].observe(seconds);
}

void Metrics::count_task(const std::string& kind, const std::string& outcome) {
  std::lock_guard guard(mutex_);
  ++task_requests_[{kind, outcome}];
}

void Metrics::observe_queue_wait(const std::string& kind, double seconds) {
  std::lock_guard guard(mutex_);
  queue_wait_[kind].observe(seconds);
}

std::string Metrics::text() const {
  std::lock_guard guard(mutex_);
  std::string out;
  write_counters(out, "tarnwick_http_requests_total", "HTTP requests answered, by kind and outcome.", requests_);
  write_histograms(out, "tarnwick_http_request_seconds", "Time to answer an HTTP request.", latency_);
  write_counters(out, "tarnwick_task_requests_total", "Requests sent to the out-of-office task, by outcome.",
                 task_requests_);
  write_histograms(out, "tarnwick_task_queue_wait_seconds", "Time from putting a request on the queue to its reply.",
                   queue_wait_);
  return out;
}

}  // namespace tarnwick::gateway
