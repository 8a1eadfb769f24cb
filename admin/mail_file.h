// Mail databases as a fresh user has them: the design of the mail template,
// an ACL giving the owner and the servers Manager access, and the profiles
// the out-of-office task reads: "CalendarProfile" (Owner),
// "OutOfOfficeProfile" (owner, TaskType of the mode, switched off) and
// "OOServiceProfile". Service mode also marks the icon note's "$Flags"
// with "O".
#pragma once

#include "client.h"

#include <string>

namespace tarnwick::admin {

enum class OooMode { agent, service };

// "agent" or "service"; UsageError otherwise.
OooMode parse_mode(const std::string& text);

struct MailFileRequest {
  std::string path;        // relative to the data directory
  std::string owner;       // any name form
  std::string template_file;  // empty: "mail.ntf" if the data directory has it
  OooMode mode = OooMode::agent;
};

struct MailFileResult {
  std::string template_used;  // empty when the database was created without design
};

MailFileResult create_mail_file(const MailFileRequest& request, const std::string& local_server);

}  // namespace tarnwick::admin
