// The add-in services of addin.h: this process's status lines (published
// through task_registry.h), the log call, the idle and timer calls, and the
// task's start and end. Nothing thrown inside may leave these functions.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

#include "addin.h"
#include "addin/elapsed_intervals.h"
#include "addin/program.h"
#include "addin/server_log.h"
#include "addin/task_registry.h"
#include "core/api_guard.h"
#include "core/fork_generation.h"
#include "env/environment.h"
#include "globerr.h"
#include "mq/message_queue.h"
#include "osmisc.h"

using namespace tarnwick::rt;

namespace {

// The handle NotesInitModule and AddInQueryDefaults give for the program.
constexpr HMODULE kProgramModule = 1;
// Default status lines are named after the program, cut to this length.
constexpr size_t kDefaultTaskNameLength = 20;
// How long AddInIdle gives up the processor when there is nothing to end.
constexpr long kIdlePauseNanoseconds = 10'000'000;

// Set from the SIGTERM/SIGINT handler; lock-free, so safe there.
std::atomic<bool> g_termination_signalled{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void on_termination_signal(int) { g_termination_signalled.store(true); }

int64_t unix_seconds_now() { return static_cast<int64_t>(std::time(nullptr)); }

// The process's task state. A child made by fork() starts afresh.
class AddInTask {
 public:
  static AddInTask& instance() {
    static AddInTask* task = new AddInTask;  // never destroyed: threads may log until the process ends
    return *task;
  }

  void set_program(const char* argv0) {
    std::lock_guard guard(mutex_);
    reset_if_forked_locked();
    std::string name = argv0 ? argv0 : "";
    if (size_t slash = name.find_last_of("/\\"); slash != std::string::npos) name.erase(0, slash + 1);
    program_name_ = name.substr(0, kDefaultTaskNameLength);
  }

  void start(const char* argv0) {
    if (argv0 != nullptr) set_program(argv0);
    std::lock_guard guard(mutex_);
    reset_if_forked_locked();
    if (default_line_ == NULLHANDLE) default_line_ = create_locked(program_name_);
  }

  void end() {
    std::lock_guard guard(mutex_);
    reset_if_forked_locked();
    lines_.clear();
    default_line_ = NULLHANDLE;
    publish_locked();
  }

  DHANDLE default_line() {
    std::lock_guard guard(mutex_);
    reset_if_forked_locked();
    return default_line_;
  }

  void set_default_line(DHANDLE line) {
    std::lock_guard guard(mutex_);
    reset_if_forked_locked();
    if (line == NULLHANDLE || find_locked(line) != nullptr) default_line_ = line;
  }

  DHANDLE create_line(const char* task_name) {
    std::lock_guard guard(mutex_);
    reset_if_forked_locked();
    return create_locked(task_name ? task_name : "");
  }

  void delete_line(DHANDLE line) {
    std::lock_guard guard(mutex_);
    reset_if_forked_locked();
    std::erase_if(lines_, [&](const StatusLine& l) { return l.handle == line; });
    if (default_line_ == line) default_line_ = NULLHANDLE;
    publish_locked();
  }

  void set_text(DHANDLE line, const char* text) {
    std::lock_guard guard(mutex_);
    reset_if_forked_locked();
    if (StatusLine* found = find_locked(line)) {
      found->text = text ? text : "";
      publish_locked();
    }
  }

  // The name the log records: the default status line's task, else the program.
  std::string task_name() {
    std::lock_guard guard(mutex_);
    reset_if_forked_locked();
    if (const StatusLine* line = find_locked(default_line_)) return line->task_name;
    return program_name_;
  }

  bool has_elapsed(DWORD seconds) {
    std::lock_guard guard(mutex_);
    reset_if_forked_locked();
    return intervals_.has_elapsed(seconds, unix_seconds_now());
  }

 private:
  struct StatusLine {
    DHANDLE handle;
    std::string task_name;
    std::string text;
  };

  DHANDLE create_locked(const std::string& task_name) {
    DHANDLE handle = next_handle_++;
    lines_.push_back({handle, task_name, ""});
    publish_locked();
    return handle;
  }

  StatusLine* find_locked(DHANDLE line) {
    for (auto& l : lines_) {
      if (l.handle == line) return &l;
    }
    return nullptr;
  }

  void publish_locked() {
    std::vector<TaskStatusLine> published;
    for (const auto& l : lines_) published.push_back({static_cast<long>(::getpid()), l.task_name, l.text});
    publish_status_lines(published);
  }

  void reset_if_forked_locked() {
    if (generation_ == fork_generation()) return;
    generation_ = fork_generation();
    lines_.clear();
    default_line_ = NULLHANDLE;
    intervals_ = ElapsedIntervals(unix_seconds_now());
  }

  std::mutex mutex_;
  unsigned generation_ = fork_generation();         // guarded by mutex_
  std::string program_name_;                        // guarded by mutex_
  std::vector<StatusLine> lines_;                   // guarded by mutex_, in creation order
  DHANDLE default_line_ = NULLHANDLE;               // guarded by mutex_
  DHANDLE next_handle_ = 1;                         // guarded by mutex_
  ElapsedIntervals intervals_{unix_seconds_now()};  // guarded by mutex_
};

bool should_terminate() { return g_termination_signalled.load() || quit_requested_for_this_process(); }

std::string format_message(const char* format, va_list args) {
  va_list measure;
  va_copy(measure, args);
  int length = std::vsnprintf(nullptr, 0, format, measure);
  va_end(measure);
  if (length <= 0) return {};
  std::string text(static_cast<size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, args);
  text.resize(static_cast<size_t>(length));
  return text;
}

// ": <standard text>" for a status, as the platform appends it.
std::string status_suffix(STATUS status) {
  if (status == NOERROR) return {};
  char text[256];
  if (OSLoadString(NULLHANDLE, ERR(status), text, sizeof text) > 0) return std::string(": ") + text;
  char code[32];
  std::snprintf(code, sizeof code, ": Error 0x%04X", ERR(status));
  return code;
}

}  // namespace

void tarnwick::rt::remember_program_name(const char* argv0) { AddInTask::instance().set_program(argv0); }

extern "C" {

void LNPUBLIC AddInQueryDefaults(HMODULE* rethModule, DHANDLE* rethDesc) {
  guarded_void([&] {
    if (rethModule != nullptr) *rethModule = kProgramModule;
    if (rethDesc != nullptr) *rethDesc = AddInTask::instance().default_line();
  });
}

void LNPUBLIC AddInSetDefaults(HMODULE /*hModule*/, DHANDLE hDesc) {
  guarded_void([&] {
    AddInTask::instance().set_default_line(hDesc);
  });
}

DHANDLE LNPUBLIC AddInCreateStatusLine(const char* TaskName) {
  return guarded_value<DHANDLE>(NULLHANDLE, [&]() -> DHANDLE {
    return AddInTask::instance().create_line(TaskName);
  });
}

void LNPUBLIC AddInDeleteStatusLine(DHANDLE hDesc) {
  guarded_void([&] {
    AddInTask::instance().delete_line(hDesc);
  });
}

void LNPUBLIC AddInSetStatusLine(DHANDLE hDesc, const char* String) {
  guarded_void([&] {
    AddInTask::instance().set_text(hDesc, String);
  });
}

void LNPUBLIC AddInSetStatusText(const char* String) {
  guarded_void([&] {
    AddInTask& task = AddInTask::instance();
    task.set_text(task.default_line(), String);
  });
}

void LNVARARGS AddInLogMessageText(const char* String, STATUS AdditionalErrorCode, ...) {
  if (String == nullptr) return;
  va_list args;
  va_start(args, AdditionalErrorCode);
  guarded_void([&] {
    std::string text = format_message(String, args);
    write_server_log(AddInTask::instance().task_name(), text + status_suffix(AdditionalErrorCode));
  });
  va_end(args);
}

BOOL LNPUBLIC AddInShouldTerminate(void) {
  return guarded_value<BOOL>(FALSE, [&]() -> BOOL {
    return should_terminate() ? TRUE : FALSE;
  });
}

BOOL LNPUBLIC AddInIdle(void) {
  if (AddInShouldTerminate()) return TRUE;
  timespec pause{0, kIdlePauseNanoseconds};
  ::nanosleep(&pause, nullptr);  // a termination signal cuts it short
  return AddInShouldTerminate();
}

BOOL LNPUBLIC AddInSecondsHaveElapsed(DWORD Seconds) {
  return guarded_value<BOOL>(FALSE, [&]() -> BOOL {
    return AddInTask::instance().has_elapsed(Seconds) ? TRUE : FALSE;
  });
}

BOOL LNPUBLIC AddInMinutesHaveElapsed(DWORD Minutes) {
  return Minutes > MAXDWORD / 60 ? FALSE : AddInSecondsHaveElapsed(Minutes * 60);
}

STATUS LNPUBLIC NotesInitModule(HMODULE* rethModule, HMODULE* rethInstance, HMODULE* rethPrevInstance) {
  if (rethModule != nullptr) *rethModule = kProgramModule;
  if (rethInstance != nullptr) *rethInstance = NULLHANDLE;
  if (rethPrevInstance != nullptr) *rethPrevInstance = NULLHANDLE;
  return NOERROR;
}

STATUS LNPUBLIC AddInSDKInit(int argc, char** argv) {
  return guarded([&]() -> STATUS {
    struct sigaction action {};
    action.sa_handler = on_termination_signal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    if (::sigaction(SIGTERM, &action, nullptr) != 0 || ::sigaction(SIGINT, &action, nullptr) != 0) {
      return ERR_NOT_SUPPORTED;
    }
    // The server runs its tasks in its data directory: files a task names
    // without a folder (a design file, say) are found there.
    if (::chdir(data_directory().c_str()) != 0) return ERR_NOEXIST;
    AddInTask::instance().start(argc > 0 && argv != nullptr ? argv[0] : nullptr);
    // A task waiting on a queue ends its wait when asked to end.
    set_wait_interrupt(&should_terminate);
    return NOERROR;
  });
}

STATUS LNPUBLIC AddInSDKTerm(STATUS status) {
  guarded_void([&] {
    AddInTask::instance().end();
    flush_server_log();  // the task's last lines are stored before it goes
  });
  return status;
}

}  // extern "C"
