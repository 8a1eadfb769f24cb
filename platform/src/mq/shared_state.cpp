#include "mq/shared_state.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <system_error>

#include "env/environment.h"

namespace tarnwick::rt {
namespace fs = std::filesystem;

namespace {

constexpr const char* kSharedMemoryFolder = "/dev/shm";
constexpr const char* kFolderPrefix = "tarnwick-";
// Names the data directory a shared-memory folder belongs to.
constexpr const char* kOriginFile = "data-directory";

fs::path folder_for(const fs::path& data) {
  uint64_t hash = 0xcbf29ce484222325ull;  // FNV-1a
  for (unsigned char c : data.string()) hash = (hash ^ c) * 0x100000001b3ull;
  char name[64];
  std::snprintf(name, sizeof name, "%s%016llx", kFolderPrefix, static_cast<unsigned long long>(hash));
  return fs::path(kSharedMemoryFolder) / name;
}

std::string read_origin(const fs::path& folder) {
  std::ifstream in(folder / kOriginFile);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
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
    if (!cache->root.empty() && configured.string() == cache->data && fs::is_directory(cache->root, ec)) {
      return cache->root;
    }
  }
  fs::path data = fs::weakly_canonical(configured, ec);
  if (ec) data = configured;
  fs::path root;
  if (::access(kSharedMemoryFolder, W_OK) == 0) {
    root = folder_for(data);
    if (fs::create_directories(root, ec)) {
      std::ofstream(root / kOriginFile) << data.string();
    }
    static std::once_flag collected;
    std::call_once(collected, [] { collect_orphaned_shared_state(); });
  } else {
    root = data / "run";
    fs::create_directories(root, ec);
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
    const std::string origin = read_origin(folder);
    if (origin.empty()) continue;  // not one of ours, or still being made
    std::error_code exists_error;
    if (fs::exists(origin, exists_error) || exists_error) continue;
    std::error_code remove_error;
    if (fs::remove_all(folder, remove_error) > 0 && !remove_error) ++removed;
  }
  return removed;
}

}  // namespace tarnwick::rt
