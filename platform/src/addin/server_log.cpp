#include "addin/server_log.h"

#include <cstdio>
#include <mutex>

#include "addin/log_database.h"
#include "globerr.h"

namespace tarnwick::rt {
namespace {

struct LogState {
  std::mutex mutex;
  std::shared_ptr<ServerLogStore> store;  // guarded by mutex
  bool chosen = false;                    // guarded by mutex: a store was installed, or the default taken
};

LogState& state() {
  static LogState* s = new LogState;  // never destroyed: threads may log until the process ends
  return *s;
}

// The installed store; without one, the log database.
std::shared_ptr<ServerLogStore> current_store() {
  std::lock_guard guard(state().mutex);
  if (!state().chosen) {
    state().store = std::make_shared<LogDatabaseStore>();
    state().chosen = true;
  }
  return state().store;
}

}  // namespace

std::shared_ptr<ServerLogStore> install_server_log_store(std::shared_ptr<ServerLogStore> store) {
  std::lock_guard guard(state().mutex);
  state().chosen = true;
  std::swap(state().store, store);
  return store;
}

std::string console_line(const ServerLogLine& line) {
  std::time_t seconds = static_cast<std::time_t>(line.unix_seconds);
  std::tm local{};
  ::localtime_r(&seconds, &local);
  char stamp[64];
  std::strftime(stamp, sizeof stamp, "%m/%d/%Y %I:%M:%S %p", &local);
  return std::string(stamp) + "  " + line.text;
}

void write_server_log(const std::string& task_name, const std::string& text) {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  ServerLogLine line{now.tv_sec, static_cast<int>(now.tv_nsec / 10000000), task_name, text};
  std::string console = console_line(line) + "\n";
  std::fwrite(console.data(), 1, console.size(), stdout);  // one call: stdio keeps the line whole
  std::fflush(stdout);
  if (auto store = current_store()) store->append(line);
}

STATUS read_server_log(size_t most, std::vector<ServerLogLine>* lines) {
  lines->clear();
  auto store = current_store();
  return store ? store->read(most, lines) : ERR_NOT_SUPPORTED;
}

}  // namespace tarnwick::rt
