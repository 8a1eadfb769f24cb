#include "addin/server_log.h"

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <new>
#include <thread>

#include "addin/log_database.h"
#include "globerr.h"

namespace tarnwick::rt {
namespace {

// How long the writer gathers lines before it stores them: at most this
// much of the last lines is lost when the process dies.
constexpr auto kGatherTime = std::chrono::milliseconds(10);
// Lines waiting beyond this make the loggers wait for the writer.
constexpr size_t kMostWaiting = 10000;

struct LogState {
  std::mutex mutex;
  std::shared_ptr<ServerLogStore> store;  // guarded by mutex
  bool chosen = false;                    // guarded by mutex: a store was installed, or the default taken

  // Lines on their way to the store, and the one thread that writes them.
  std::condition_variable changed;
  std::deque<ServerLogLine> waiting;      // guarded by mutex
  bool writing = false;                   // guarded by mutex: a batch is being stored
  bool hurry = false;                     // guarded by mutex: someone waits for the lines
  bool stopping = false;                  // guarded by mutex
  bool exited = false;                    // guarded by mutex: past exit, lines are stored at once
  std::thread* writer = nullptr;          // guarded by mutex
};

LogState& state();

// A child made by fork() has no writer: the lines waiting are the parent's
// to store, and the child starts its own writer when it logs.
void before_fork() { state().mutex.lock(); }
void after_fork_in_parent() { state().mutex.unlock(); }
void after_fork_in_child() {
  LogState& s = state();
  s.waiting.clear();
  s.writing = s.hurry = s.stopping = false;
  s.writer = nullptr;  // the parent's thread: not joinable here
  new (&s.changed) std::condition_variable;  // its waiters stayed in the parent
  s.mutex.unlock();
}

LogState& state() {
  static LogState* s = [] {
    auto* made = new LogState;  // never destroyed: threads may log until the process ends
    ::pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
    return made;
  }();
  return *s;
}

// The installed store; without one, the log database.
std::shared_ptr<ServerLogStore> current_store_locked() {
  if (!state().chosen) {
    state().store = std::make_shared<LogDatabaseStore>();
    state().chosen = true;
  }
  return state().store;
}

// Stores what is waiting, in batches, until asked to stop with nothing left.
void write_lines() {
  LogState& s = state();
  std::unique_lock lock(s.mutex);
  for (;;) {
    s.changed.wait(lock, [&] { return !s.waiting.empty() || s.stopping; });
    if (s.waiting.empty()) return;
    if (!s.stopping) s.changed.wait_for(lock, kGatherTime, [&] { return s.stopping || s.hurry; });
    s.hurry = false;
    std::vector<ServerLogLine> batch(std::make_move_iterator(s.waiting.begin()),
                                     std::make_move_iterator(s.waiting.end()));
    s.waiting.clear();
    s.writing = true;
    std::shared_ptr<ServerLogStore> store = current_store_locked();
    lock.unlock();
    if (store) store->append_batch(batch);
    lock.lock();
    s.writing = false;
    s.changed.notify_all();
  }
}

void wait_until_written_locked(std::unique_lock<std::mutex>& lock) {
  LogState& s = state();
  if (s.writer != nullptr && s.writer->get_id() == std::this_thread::get_id()) return;
  if (s.waiting.empty() && !s.writing) return;
  s.hurry = true;
  s.changed.notify_all();
  s.changed.wait(lock, [&] { return s.waiting.empty() && !s.writing; });
}

// At exit the writer stores what is left and ends.
void stop_writer() {
  LogState& s = state();
  std::thread* writer = nullptr;
  {
    std::unique_lock lock(s.mutex);
    if (s.writer == nullptr || s.writer->get_id() == std::this_thread::get_id()) return;
    wait_until_written_locked(lock);
    s.stopping = true;
    s.changed.notify_all();
    writer = s.writer;
  }
  writer->join();
  std::lock_guard lock(s.mutex);
  delete s.writer;
  s.writer = nullptr;
  s.stopping = false;
  s.exited = true;
}

void start_writer_locked() {
  LogState& s = state();
  if (s.writer != nullptr) return;
  s.writer = new std::thread(write_lines);
  static bool registered = false;
  if (!registered) {
    registered = true;
    std::atexit(stop_writer);
  }
}

}  // namespace

STATUS ServerLogStore::append_batch(const std::vector<ServerLogLine>& lines) {
  STATUS first_error = NOERROR;
  for (const auto& line : lines) {
    STATUS status = append(line);
    if (first_error == NOERROR) first_error = status;
  }
  return first_error;
}

std::shared_ptr<ServerLogStore> install_server_log_store(std::shared_ptr<ServerLogStore> store) {
  std::unique_lock lock(state().mutex);
  wait_until_written_locked(lock);  // lines logged so far belong to the store they were logged to
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
  LogState& s = state();
  std::unique_lock lock(s.mutex);
  // Under the lock, so that the store gets the lines in the console's order.
  std::fwrite(console.data(), 1, console.size(), stdout);  // one call: stdio keeps the line whole
  std::fflush(stdout);
  std::shared_ptr<ServerLogStore> store = current_store_locked();
  if (!store) return;
  if (s.exited) {
    lock.unlock();
    store->append(line);
    return;
  }
  if (s.waiting.size() >= kMostWaiting) wait_until_written_locked(lock);
  s.waiting.push_back(std::move(line));
  start_writer_locked();
  if (s.waiting.size() == 1) s.changed.notify_all();
}

void flush_server_log() {
  std::unique_lock lock(state().mutex);
  wait_until_written_locked(lock);
}

STATUS read_server_log(size_t most, std::vector<ServerLogLine>* lines) {
  lines->clear();
  std::shared_ptr<ServerLogStore> store;
  {
    std::unique_lock lock(state().mutex);
    wait_until_written_locked(lock);
    store = current_store_locked();
  }
  return store ? store->read(most, lines) : ERR_NOT_SUPPORTED;
}

}  // namespace tarnwick::rt
