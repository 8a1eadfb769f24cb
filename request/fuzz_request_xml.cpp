// Fuzz target: request documents through the parser of the request context.
// Any input must end in stored values or an IPException, never a crash.
// Every input gets a context (and so a parser) of its own, as every request
// of the task does; a parser reused for all inputs would keep every document
// it ever read. Deep nesting needs long inputs: run with -max_len=65536 or
// more (make fuzz-long does).
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "osenv.h"
#include "request/IPOOO.h"

// A context kept for the whole run, so the XML toolkit stays initialised
// between inputs as it does in the task's loop.
IPOOO* g_toolkitHolder = nullptr;

namespace {

// A data directory of the run's own, whose spool folder holds the request
// file every input is written to; removed when the run ends.
char g_dataDirectory[4096];

void removeDataDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(g_dataDirectory, ignored);
}

std::string requestPath() {
  if (g_dataDirectory[0] == '\0') {
    const std::filesystem::path data =
        std::filesystem::temp_directory_path() / ("tarnwick_fuzz_request_" + std::to_string(::getpid()));
    std::snprintf(g_dataDirectory, sizeof g_dataDirectory, "%s", data.c_str());
    std::filesystem::create_directories(data / "spool");
    std::ofstream(data / "notes.ini") << "Directory=" << data.string() << "\n";
    std::string ini = "=" + (data / "notes.ini").string();
    char* argv[] = {const_cast<char*>("fuzz"), ini.data()};
    NotesInitExtended(2, argv);
    std::atexit(removeDataDirectory);
  }
  return (std::filesystem::path(g_dataDirectory) / "spool" / "request.xml").string();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (g_toolkitHolder == nullptr) g_toolkitHolder = new IPOOO;
  std::string path = requestPath();
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return 0;
  std::fwrite(data, 1, size, file);
  std::fclose(file);
  IPOOO context;
  try {
    context.xmlParser(path);
  } catch (const IPException&) {
  }
  context.reset(1);
  return 0;
}
