// The task host: the add-in task's entry, its main loop and its request
// worker threads.
//
// Lifecycle of AddInMain:
//
//   Initializing --setup ok--> Idle (queues open, loop running) --quit--> shutting down
//        |                       ^ each message: one worker thread           ^
//        +---- setup or queue failure -----------------------------------------+
//
// The main thread alone reads the request queue "MQ$OutOfOffice". Each
// message is the path of a request file, possibly carrying a page-request
// marker; it is handed to a worker thread of its own through a
// RequestThreadRecord. Workers share no program data with the loop or with
// each other once they own their copy of the record; they are not waited for
// at shutdown.
//
// Dispatch. By default the loop takes at most one message a second and
// sleeps one second after starting a worker, the worker copying the record
// meanwhile. With the notes.ini variable OOOWorkers set to a positive N the
// loop takes messages as they arrive, gives each worker a copy of the record
// that the worker owns before the loop goes on, and runs at most N workers
// at once; further messages wait in the queue. These N workers are threads
// started as the first messages come and kept for the next ones, each with
// its own XML tools (RequestTools); every request still gets a context of
// its own. At shutdown they finish the requests handed to them and end.
#ifndef TARNWICK_TASK_NDAGENT_H
#define TARNWICK_TASK_NDAGENT_H

#include "global.h"
#include "protocol/ProtocolNames.h"

// Thread-argument record, filled afresh by the main loop for each message.
// Every text field is zero-filled before use, so it stays terminated while
// its content is shorter than the field.
struct RequestThreadRecord {
  WORD MessageLength;         // as MQGet returned it
  char MessageText[513];      // the message (at most 512 bytes)
  char OOODirectory[513];     // notes.ini "OOODirectory"
  char InstallIOSText[4097];  // server settings: iOS installation text
  char ConnectParams[513];    // server settings: the app's connection parameters
  char ServerURL[513];        // server settings: the server URL
  char ReservedText[513];     // always empty; passed on to the page builders
  WORD BuildVersion;          // build version found by the database setup
};

inline constexpr const char* kTaskName = "Tarnwick";
inline constexpr DWORD kRequestWaitMs = 10000;
// Servers of this build or later offer the out-of-office service interface.
inline constexpr WORD kLastBuildWithoutOOOApi = 378;

// The queues, the reply-queue pool and the page markers, as every front end
// knows them.
using tarnwick::protocol::kMarkerInstallIOS;
using tarnwick::protocol::kMarkerMobile;
using tarnwick::protocol::kMarkerWeb;
using tarnwick::protocol::kRequestQueueName;
using tarnwick::protocol::kServletListNameFormat;
using tarnwick::protocol::kServletListQueueName;
using tarnwick::protocol::kServletListSize;
inline constexpr WORD kMaxRequestMessage = static_cast<WORD>(tarnwick::protocol::kMaxRequestMessage);

// The kind of request a message carries: the first marker found anywhere in
// the text, in the order install, mobile, web; a plain request otherwise.
enum class RequestKind { InstallIOSPage, MobilePage, WebPage, Plain };
RequestKind requestKindOf(const char* messageText);

class IPOOO;
// Runs the request of a worker's own record in context: sets the use-API
// flag from the build version, runs the frame of the message's kind and
// resets the context. The thread bodies call it between NotesInitThread and
// NotesTermThread.
void process_request_record(const RequestThreadRecord& record, IPOOO& context);

// Thread body: copies the record the argument points at (owned by the main
// loop, reused for the next message) as its first action, then processes it.
void* run_ooo_message_thread(void* record);
// The worker's part after it owns its record: NotesInitThread, one context,
// process_request_record, NotesTermThread.
void run_request_of_record(const RequestThreadRecord& record);
// The same for a worker that keeps its XML tools from request to request:
// the context borrows them.
class RequestTools;
void run_request_of_record(const RequestThreadRecord& record, RequestTools& tools);

TARNWICK_EXTERN_C_BEGIN
STATUS LNPUBLIC AddInMain(HMODULE module, int argc, char** argv);
TARNWICK_EXTERN_C_END

#endif  // TARNWICK_TASK_NDAGENT_H
