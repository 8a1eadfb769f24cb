// The request worker thread.
#include <malloc.h>

#include <cstring>
#include <memory>
#include <string>

#include "osenv.h"
#include "request/IPOOO.h"
#include "request/RequestFile.h"
#include "request/RequestTools.h"
#include "task/NDAgent.h"

namespace {
// Requests are a few hundred bytes; one this large leaves memory to give back.
constexpr size_t kTrimAfterRequestBytes = 256 * 1024;

// The allocator would keep what a large request's document and its parse
// took (tens of megabytes for a request of ten) in this worker's arena for
// later requests; after such a request it goes back to the system.
void give_back_memory_of_large_request() {
  if (takeLargestRequestRead() >= kTrimAfterRequestBytes) malloc_trim(0);
}
}  // namespace

RequestKind requestKindOf(const char* messageText) {
  if (std::strstr(messageText, kMarkerInstallIOS) != nullptr) return RequestKind::InstallIOSPage;
  if (std::strstr(messageText, kMarkerMobile) != nullptr) return RequestKind::MobilePage;
  if (std::strstr(messageText, kMarkerWeb) != nullptr) return RequestKind::WebPage;
  return RequestKind::Plain;
}

void process_request_record(const RequestThreadRecord& record, IPOOO& context) {
  std::string message(record.MessageText);
  std::string installIOSText(record.InstallIOSText);
  std::string connectParams(record.ConnectParams);
  std::string serverURL(record.ServerURL);
  std::string reservedText(record.ReservedText);
  char directory[sizeof record.OOODirectory];
  std::memcpy(directory, record.OOODirectory, sizeof directory);

  context.useOOOAPI(record.BuildVersion > kLastBuildWithoutOOOApi);
  switch (requestKindOf(message.c_str())) {
    case RequestKind::InstallIOSPage:
      context.processRequestInstallIOSMsg(message, directory, reservedText, serverURL, installIOSText);
      break;
    case RequestKind::MobilePage:
      context.processRequestMobileMsg(message, directory, reservedText, serverURL, connectParams);
      break;
    case RequestKind::WebPage:
      context.processRequestMsg(message, directory, reservedText, serverURL, connectParams);
      break;
    case RequestKind::Plain:
      context.processMsg(message);
      break;
  }
  context.reset(1);
}

namespace {
// One request on this thread: the thread's platform state, a fresh context
// made by `makeContext`, and the memory of a large request given back.
template <class MakeContext>
void run_request_with(const RequestThreadRecord& record, MakeContext makeContext) {
  if (NotesInitThread() != NOERROR) return;
  std::unique_ptr<IPOOO> context = makeContext();
  process_request_record(record, *context);
  context.reset();
  give_back_memory_of_large_request();
  NotesTermThread();
}
}  // namespace

void run_request_of_record(const RequestThreadRecord& record) {
  run_request_with(record, [] { return std::make_unique<IPOOO>(); });
}

void run_request_of_record(const RequestThreadRecord& record, RequestTools& tools) {
  run_request_with(record, [&tools] { return std::make_unique<IPOOO>(tools); });
}

void* run_ooo_message_thread(void* record) {
  // First action: the main loop reuses its record for the next message.
  RequestThreadRecord own;
  std::memcpy(&own, record, sizeof own);
  run_request_of_record(own);
  return nullptr;
}
