#include "mq/refusal_report.h"

#include <atomic>
#include <cstdio>

namespace tarnwick::rt::mq {
namespace {

std::atomic<RefusalReporter> g_reporter{nullptr};

}  // namespace

RefusalReporter install_refusal_reporter(RefusalReporter reporter) { return g_reporter.exchange(reporter); }

void report_refusal(const std::string& text) {
  if (RefusalReporter reporter = g_reporter.load()) {
    reporter(text);
  } else {
    std::fprintf(stderr, "%s\n", text.c_str());
  }
}

}  // namespace tarnwick::rt::mq
