// The request document a front end writes for the out-of-office task: any
// root element holding one "Username" element whose text is the user name
// and whose attributes carry every other request value, e.g.
//
//   <?xml version="1.0" encoding="UTF-8"?>
//   <OOORequest><Username MQName="MQ$OOOServletList_3" Action="1"
//     MailServer="CN=Mail1/O=Acme" MailBox="mail/jdoe.nsf">Jane Doe/Acme</Username></OOORequest>
//
// The task matches element and attribute names without case and as
// prefixes; the writer uses the exact names, in the order the task tries
// them. The file is UTF-8.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "iso8601.h"

namespace tarnwick::client {

// Request kinds: what the task does with the request. The three page kinds
// are told apart by a marker in the request file's name.
enum class RequestKind { query, set, status, page, mobile_page, install_ios_page };

// The "Action" value of a kind ("1" query, "2" set, "3" user status); empty
// for the page kinds, which carry none.
std::string_view action_of(RequestKind kind);
// The marker a request file's name must hold; empty for the plain kinds.
std::string_view file_marker_of(RequestKind kind);

// The request values; a value left unset is not written.
struct RequestValues {
  std::string user;  // the Username element's text (may be empty)
  std::string reply_queue;  // MQName
  std::string action;       // Action
  std::optional<std::string> message, enable, mail_server, mail_box, subject, show_hours, days_out,
      append_subject_date, append_subject, asd_enable, is_iphone, is_android, exclude_internet, login_name,
      login_server, query_user;
  std::optional<LocalDateTime> leave, back;  // local times
};

// The document's UTF-8 text.
std::string request_document(const RequestValues& values);

// The reply queue a document names: the value of the last "MQName"
// attribute (name matched as the task matches it) on a "Username" element;
// nullopt when there is none.
std::optional<std::string> reply_queue_named_in(std::string_view document);

}  // namespace tarnwick::client
