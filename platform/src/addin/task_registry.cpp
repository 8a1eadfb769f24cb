#include "addin/task_registry.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <tuple>

#include "core/fork_generation.h"
#include "core/private_files.h"
#include "mq.h"
#include "mq/liveness_lock.h"
#include "mq/message_queue.h"
#include "mq/shared_state.h"

namespace tarnwick::rt {
namespace fs = std::filesystem;

namespace {

constexpr std::string_view kAliveSuffix = ".alive";

// Empty when the shared state is refused.
fs::path tasks_folder() {
  const fs::path shared = shared_state_root();
  if (shared.empty()) return shared;
  fs::path folder = shared / "tasks";
  if (!make_private_folder(folder).empty()) return {};
  return folder;
}

// Tabs and line ends inside a name or text would break the file's lines.
std::string one_line(std::string_view text) {
  std::string line(text);
  std::replace_if(line.begin(), line.end(), [](char c) { return c == '\t' || c == '\n' || c == '\r'; }, ' ');
  return line;
}

bool equal_no_case(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

bool write_replacing(const fs::path& path, const std::string& content) {
  fs::path aside = path.parent_path() / ("." + path.filename().string() + ".new");
  if (!write_private_file(aside, content)) return false;
  std::error_code ec;
  fs::rename(aside, path, ec);
  return !ec;
}

// This process's entry in the tasks folder.
class Publication {
 public:
  static Publication& instance() {
    static Publication* publication = new Publication;  // never destroyed: used until the process ends
    return *publication;
  }

  void publish(const std::vector<TaskStatusLine>& lines) {
    std::lock_guard guard(mutex_);
    forget_if_forked_locked();
    fs::path folder = tasks_folder();
    if (lines.empty() || folder.empty() || (alive_ && folder != folder_)) withdraw_locked();
    if (lines.empty() || folder.empty()) return;
    if (!alive_) {
      folder_ = folder;
      tag_ = process_instance_tag();
      alive_ = LivenessLock::acquire(folder_ / (tag_ + std::string(kAliveSuffix)));
      if (!alive_) return;
    }
    std::string content;
    for (const auto& line : lines) content += one_line(line.task_name) + "\t" + one_line(line.status_text) + "\n";
    write_replacing(folder_ / (tag_ + ".lines"), content);
  }

  // A task asks before and after every message; the quit file is looked at
  // once per kQuitLookInterval at most, so a quit is seen within that time.
  bool quit_requested() {
    std::lock_guard guard(mutex_);
    forget_if_forked_locked();
    if (!alive_) return false;
    const auto now = std::chrono::steady_clock::now();
    if (!quit_seen_ && now < next_quit_look_) return false;
    next_quit_look_ = now + kQuitLookInterval;
    quit_seen_ = ::access((folder_ / (tag_ + ".quit")).c_str(), F_OK) == 0;
    return quit_seen_;
  }

 private:
  void withdraw_locked() {
    forget_quit_look_locked();
    if (!alive_) return;
    std::error_code ec;
    fs::remove(folder_ / (tag_ + ".lines"), ec);
    fs::remove(folder_ / (tag_ + ".quit"), ec);
    alive_.reset();  // removes the .alive file last
  }

  // A child made by fork() starts without an entry (the lock was dropped
  // by the fork handler; the files stay the parent's).
  void forget_if_forked_locked() {
    if (generation_ == fork_generation()) return;
    generation_ = fork_generation();
    alive_.reset();
    forget_quit_look_locked();
  }

  // The next quit_requested() looks at the file again.
  void forget_quit_look_locked() {
    quit_seen_ = false;
    next_quit_look_ = {};
  }

  std::mutex mutex_;
  unsigned generation_ = fork_generation();  // guarded by mutex_
  fs::path folder_;                      // guarded by mutex_
  std::string tag_;                      // guarded by mutex_
  std::unique_ptr<LivenessLock> alive_;  // guarded by mutex_
  static constexpr std::chrono::milliseconds kQuitLookInterval{20};
  std::chrono::steady_clock::time_point next_quit_look_{};  // guarded by mutex_
  bool quit_seen_ = false;  // guarded by mutex_: what the last look found
};

struct LiveTask {
  std::string tag;
  long process_id;
};

// The live task processes of the folder; removes the files of dead ones.
std::vector<LiveTask> live_tasks(const fs::path& folder) {
  std::vector<LiveTask> live;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(folder, ec)) {
    std::string name = entry.path().filename().string();
    if (name.starts_with(".") || !name.ends_with(kAliveSuffix)) continue;
    std::string tag = name.substr(0, name.size() - kAliveSuffix.size());
    if (is_held_by_live_process(entry.path())) {
      live.push_back({tag, std::strtol(tag.c_str(), nullptr, 10)});
    } else {
      std::error_code ignored;
      fs::remove(folder / (tag + ".lines"), ignored);
      fs::remove(folder / (tag + ".quit"), ignored);
      fs::remove(entry.path(), ignored);
    }
  }
  std::sort(live.begin(), live.end(),
            [](const LiveTask& a, const LiveTask& b) { return std::tie(a.process_id, a.tag) < std::tie(b.process_id, b.tag); });
  return live;
}

std::vector<TaskStatusLine> read_lines(const fs::path& folder, const LiveTask& task) {
  std::vector<TaskStatusLine> lines;
  std::ifstream in(folder / (task.tag + ".lines"));
  std::string line;
  while (std::getline(in, line)) {
    size_t tab = line.find('\t');
    if (tab == std::string::npos) continue;
    lines.push_back({task.process_id, line.substr(0, tab), line.substr(tab + 1)});
  }
  return lines;
}

}  // namespace

void publish_status_lines(const std::vector<TaskStatusLine>& lines) { Publication::instance().publish(lines); }

std::vector<TaskStatusLine> list_status_lines() {
  fs::path folder = tasks_folder();
  std::vector<TaskStatusLine> all;
  for (const auto& task : live_tasks(folder)) {
    auto lines = read_lines(folder, task);
    all.insert(all.end(), lines.begin(), lines.end());
  }
  return all;
}

int request_task_quit(std::string_view task_name) {
  fs::path folder = tasks_folder();
  int asked = 0;
  for (const auto& task : live_tasks(folder)) {
    auto lines = read_lines(folder, task);
    bool named = std::any_of(lines.begin(), lines.end(),
                             [&](const TaskStatusLine& line) { return equal_no_case(line.task_name, task_name); });
    if (!named) continue;
    int fd = open_private_file(folder / (task.tag + ".quit"), O_WRONLY | O_CREAT);
    if (fd >= 0) {
      ::close(fd);
      ++asked;
    }
  }
  put_quit_by_name(std::string(TASK_QUEUE_PREFIX) + std::string(task_name));
  return asked;
}

bool quit_requested_for_this_process() { return Publication::instance().quit_requested(); }

}  // namespace tarnwick::rt
