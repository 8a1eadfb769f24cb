#include "mq/shared_state.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <system_error>

#include "core/private_files.h"
#include "env/environment.h"
#include "mq/liveness_lock.h"
#include "mq/refusal_report.h"

namespace tarnwick::rt {
namespace fs = std::filesystem;

namespace {

constexpr const char* kSharedMemoryFolder = "/dev/shm";
constexpr const char* kFolderPrefix = "tarnwick-";
// Names the data directory a shared-memory folder belongs to.
constexpr const char* kOriginFile = "data-directory";

}  // namespace

fs::path shared_state_folder_of(const fs::path& data) {
  uint64_t hash = 0xcbf29ce484222325ull;  // FNV-1a
  for (unsigned char c : data.string()) hash = (hash ^ c) * 0x100000001b3ull;
  char name[64];
  std::snprintf(name, sizeof name, "%s%016llx", kFolderPrefix, static_cast<unsigned long long>(hash));
  return fs::path(kSharedMemoryFolder) / name;
}

namespace {

std::string read_origin(const fs::path& folder) {
  std::ifstream in(folder / kOriginFile);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Whether any process that holds a queue or shows a task line in the folder
// still runs: their files carry a lock that ends with the process.
bool has_live_holder(const fs::path& folder) {
  std::error_code ec;
  for (fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec), end;
       !ec && it != end; it.increment(ec)) {
    std::error_code type_error;
    if (it->is_regular_file(type_error) && is_held_by_live_process(it->path())) return true;
  }
  return static_cast<bool>(ec);  // a folder that cannot be read is left alone
}

// Logs that the folder is refused, and why: once, not on every queue
// operation that finds it so.
void report_refused(const fs::path& folder, const std::string& reason) {
  static std::mutex mutex;
  static std::string* last = new std::string;  // never destroyed: used until the process ends
  std::lock_guard lock(mutex);
  if (*last == folder.string() + reason) return;
  *last = folder.string() + reason;
  mq::report_refusal("Shared-state folder " + folder.string() + " refused: it " + reason +
                           ". Remove it, or let the server's user own it with mode 0700, and start again.");
}

// Makes or checks the folder; empty when it must not be used.
fs::path private_root(const fs::path& root) {
  const std::string reason = make_private_folder(root);
  if (!reason.empty()) {
    report_refused(root, reason);
    return {};
  }
  return root;
}

}  // namespace

fs::path shared_state_root() {
  // The last data directory asked for and its folder: a queue operation asks
  // every time, and the answer changes only with the data directory. Never
  // destroyed, so that it still serves while the process ends.
  struct Cache {
    std::mutex mutex;
    std::string data;
    fs::path root;
  };
  static Cache* const cache = new Cache;
  const fs::path configured = data_directory();
  std::error_code ec;
  {
    std::lock_guard lock(cache->mutex);
    if (!cache->root.empty() && configured.string() == cache->data && untrusted_folder_reason(cache->root).empty()) {
      return cache->root;
    }
  }
  fs::path data = fs::weakly_canonical(configured, ec);
  if (ec) data = configured;
  fs::path root;
  if (::access(kSharedMemoryFolder, W_OK) == 0) {
    static std::once_flag collected;
    std::call_once(collected, [] { collect_orphaned_shared_state(); });
    root = private_root(shared_state_folder_of(data));
    if (root.empty()) return root;
    if (read_origin(root).empty()) write_private_file(root / kOriginFile, data.string());
  } else {
    root = private_root(data / "run");
    if (root.empty()) return root;
  }
  std::lock_guard lock(cache->mutex);
  cache->data = configured.string();
  cache->root = root;
  return root;
}

int collect_orphaned_shared_state() {
  int removed = 0;
  std::error_code ec;
  for (fs::directory_iterator it(kSharedMemoryFolder, ec), end; !ec && it != end; it.increment(ec)) {
    const fs::path folder = it->path();
    if (folder.filename().string().rfind(kFolderPrefix, 0) != 0) continue;
    if (!untrusted_folder_reason(folder).empty()) continue;  // not ours to judge
    const std::string origin = read_origin(folder);
    if (origin.empty()) continue;  // not one of ours, or still being made
    std::error_code exists_error;
    if (fs::exists(origin, exists_error) || exists_error) continue;
    // A data directory may be missing only for a moment (renamed, its disk
    // remounted): while any of its processes runs, its queues stay.
    if (has_live_holder(folder)) continue;
    std::error_code remove_error;
    if (fs::remove_all(folder, remove_error) > 0 && !remove_error) ++removed;
  }
  return removed;
}

}  // namespace tarnwick::rt
