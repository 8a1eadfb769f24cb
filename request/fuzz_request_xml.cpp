// Fuzz target: request documents through the parser of the request context.
// Any input must end in stored values or an IPException, never a crash.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "request/IPOOO.h"

namespace {

// The request file every input is written to; removed when the run ends.
char g_requestPath[4096];

void removeRequestFile() { std::remove(g_requestPath); }

std::string requestPath() {
  if (g_requestPath[0] == '\0') {
    std::string name = "tarnwick_fuzz_request_";
    name += std::to_string(::getpid());
    name += ".xml";
    std::snprintf(g_requestPath, sizeof g_requestPath, "%s",
                  (std::filesystem::temp_directory_path() / name).c_str());
    std::atexit(removeRequestFile);
  }
  return g_requestPath;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static IPOOO* context = new IPOOO;  // kept: the toolkit stays initialised
  std::string path = requestPath();
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return 0;
  std::fwrite(data, 1, size, file);
  std::fclose(file);
  try {
    context->xmlParser(path);
  } catch (const IPException&) {
  }
  context->reset(1);
  return 0;
}
