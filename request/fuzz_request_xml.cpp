// Fuzz target: request documents through the parser of the request context.
// Any input must end in stored values or an IPException, never a crash.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "request/IPOOO.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static IPOOO* context = new IPOOO;  // kept: the toolkit stays initialised
  static std::string path =
      (std::filesystem::temp_directory_path() / ("tarnwick_fuzz_request_" + std::to_string(::getpid()) + ".xml"))
          .string();
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
