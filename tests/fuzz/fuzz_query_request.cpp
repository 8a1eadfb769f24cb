// Fuzz target: a whole request as a worker of the task runs it, against a
// data directory prepared once with tarnwick-admin (two mail files, one in
// agent and one in service mode, and the task's own databases). The input
// is the request document; a document that parses goes on to the query,
// set or status steps, the reply document writer and the text conversions
// on the way, and its answer is taken from the reply queue it names.
// The server is set to refuse a request whose text does not convert
// ("OOOTextErrorReply") instead of stopping, so such an input is answered
// like any refused request; every other way out must be an answer.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "globerr.h"
#include "mq.h"
#include "osenv.h"
#include "request/IPOOO.h"
#include "setup/DatabaseSetup.h"
#include "task/NDAgent.h"
#include "tests/support/processes.h"

// A context kept for the whole run, so the XML toolkit stays initialised
// between inputs as it does in the task's loop.
IPOOO* g_toolkitHolder = nullptr;

namespace {

namespace fs = std::filesystem;

char g_root[4096];
MQHANDLE g_replies = NULLHANDLE;
WORD g_buildVersion = 0;

void removeRoot() {
  std::error_code ignored;
  fs::remove_all(g_root, ignored);
}

void admin(const fs::path& root, std::vector<std::string> args) {
  args.insert(args.begin(), TARNWICK_ADMIN_BINARY);
  if (tarnwick::testing::runAndWait(args, root / "admin.log") != 0) {
    std::fprintf(stderr, "fuzz_query_request: tarnwick-admin failed; see %s\n", (root / "admin.log").c_str());
    std::abort();
  }
}

// The data directory, the runtime started on it, the task's databases set
// up and the reply queue the seed documents name; returns the spool
// folder's request file.
std::string prepare() {
  const fs::path root = fs::temp_directory_path() / ("tarnwick_fuzz_query_" + std::to_string(::getpid()));
  std::snprintf(g_root, sizeof g_root, "%s", root.c_str());
  fs::create_directories(root);
  std::atexit(removeRoot);
  const fs::path data = root / "data";
  admin(root, {"init", data.string(), "--server", "Mail1/Acme"});
  admin(root, {"--data", data.string(), "mailfile", "create", "mail/jdoe.nsf", "--owner", "Jane Doe/Acme", "--mode",
               "agent"});
  admin(root, {"--data", data.string(), "mailfile", "create", "mail/jsmith.nsf", "--owner", "John Smith/Acme",
               "--mode", "service"});
  admin(root, {"--data", data.string(), "env", "set", "OOOTextErrorReply", "1"});
  std::string ini = "=" + (data / "notes.ini").string();
  char* argv[] = {const_cast<char*>("fuzz"), ini.data()};
  if (NotesInitExtended(2, argv) != NOERROR) std::abort();
  if (FirstSetup(data.c_str(), &g_buildVersion) != NOERROR) std::abort();
  if (MQCreate("MQ$OOOServletList_0", 0, 0) != NOERROR || MQOpen("MQ$OOOServletList_0", 0, &g_replies) != NOERROR) {
    std::abort();
  }
  fs::create_directories(data / "spool");
  return (data / "spool" / "request.xml").string();
}

// Empties the reply queue; with TARNWICK_FUZZ_SHOW_REPLIES set, prints each
// reply (to look at what the seeds reach).
void drainReplies() {
  static std::vector<char> buffer(MQ_MAX_MSGSIZE);
  static const bool show = std::getenv("TARNWICK_FUZZ_SHOW_REPLIES") != nullptr;
  WORD length = 0;
  while (MQGet(g_replies, buffer.data(), static_cast<WORD>(buffer.size()), 0, 0, &length) == NOERROR) {
    if (show) std::fprintf(stderr, "reply: %.*s\n", static_cast<int>(length), buffer.data());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = prepare();
  if (g_toolkitHolder == nullptr) g_toolkitHolder = new IPOOO;
  {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  RequestThreadRecord record;
  std::memset(&record, 0, sizeof record);
  std::snprintf(record.MessageText, sizeof record.MessageText, "%s", path.c_str());
  record.MessageLength = static_cast<WORD>(std::strlen(record.MessageText));
  record.BuildVersion = g_buildVersion;
  {
    IPOOO context;
    process_request_record(record, context);
  }
  drainReplies();
  return 0;
}
