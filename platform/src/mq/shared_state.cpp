#include "mq/shared_state.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <system_error>

#include "env/environment.h"

namespace tarnwick::rt {
namespace fs = std::filesystem;

namespace {
constexpr const char* kSharedMemoryFolder = "/dev/shm";
}

fs::path shared_state_root() {
  std::error_code ec;
  fs::path data = fs::weakly_canonical(data_directory(), ec);
  if (ec) data = data_directory();
  fs::path root;
  if (::access(kSharedMemoryFolder, W_OK) == 0) {
    uint64_t hash = 0xcbf29ce484222325ull;  // FNV-1a
    for (unsigned char c : data.string()) hash = (hash ^ c) * 0x100000001b3ull;
    char name[64];
    std::snprintf(name, sizeof name, "tarnwick-%016llx", static_cast<unsigned long long>(hash));
    root = fs::path(kSharedMemoryFolder) / name;
  } else {
    root = data / "run";
  }
  fs::create_directories(root, ec);
  return root;
}

}  // namespace tarnwick::rt
