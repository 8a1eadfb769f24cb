#include "core/fork_generation.h"

#include <pthread.h>

#include <atomic>

namespace tarnwick::rt {
namespace {

std::atomic<unsigned> g_generation{0};

}  // namespace

unsigned fork_generation() {
  // Registered by the first call, which every holder of fork-sensitive state
  // makes when it takes that state: forks before it need no counting.
  static const bool registered = [] {
    ::pthread_atfork(nullptr, nullptr, [] { g_generation.fetch_add(1, std::memory_order_relaxed); });
    return true;
  }();
  (void)registered;
  return g_generation.load(std::memory_order_relaxed);
}

}  // namespace tarnwick::rt
