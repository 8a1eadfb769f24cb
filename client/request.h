// Sending a request to the out-of-office task as a front end does:
//
//  1. borrow a reply queue name from "MQ$OOOServletList" (the task fills it
//     with 50 names at start) and make that queue;
//  2. write the request document into the data directory's spool folder,
//     the file name carrying the page marker of a page request;
//  3. put the file's path on "MQ$OutOfOffice";
//  4. wait for the one reply message; the task has then written its answer
//     (reply document or page) over the request file;
//  5. close the reply queue and put its name back on the list.
//
// A raw request sends a document as it stands: the reply queue is the one
// its MQName names (made by the tool), and no name is borrowed.
#pragma once

#include <optional>
#include <string>

#include "failure.h"
#include "protocol/ProtocolNames.h"
#include "request_document.h"

namespace tarnwick::client {

constexpr const char* kRequestQueue = protocol::kRequestQueueName;
constexpr const char* kServletListQueue = protocol::kServletListQueueName;

struct RequestOptions {
  RequestKind kind = RequestKind::query;
  RequestValues values;   // reply_queue and action are filled in
  std::string raw_file;   // a document to send unchanged instead of values
  long long timeout_ms = 30000;
  bool keep_file = false;  // leave the request file in the spool folder
};

struct RequestOutcome {
  std::string path;                  // the request file
  std::optional<std::string> reply;  // nullopt: the document names no reply queue
  std::string document;              // the file at the path once the reply came
  long long elapsed_ms = 0;          // from the put to the reply
};

// The task did not answer: its queues are missing (it is not running), no
// reply queue name came free in time, or the reply did not come in time.
struct NoReply : Failure {
  using Failure::Failure;
};

// Throws NoReply("no reply within N ms") when the reply does not come in
// time, NoReply for a task that is not running (its queues missing), and
// Failure for anything else that goes wrong.
RequestOutcome send_request(const RequestOptions& options);

}  // namespace tarnwick::client
