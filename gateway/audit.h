// The audit record of the front end: every set of a person's out-of-office
// state made through it is one line of the server log (log.nsf), under the
// front end's task name, readable with `tarnwick-admin log`:
//
//   Audit: out-of-office of Jane Doe/Acme set by John Smith/Acme from
//   127.0.0.1: before [off, leave ..., return ..., subject "..."];
//   after [on, ...]; done
//
// (the log line carries the time).
#pragma once

#include <string>

namespace tarnwick::gateway {

struct AuditEntry {
  std::string actor;   // canonical name of the person signed in
  std::string target;  // canonical name of the person whose state was set
  std::string address;
  std::string before;  // state summaries
  std::string after;   // empty when the set failed
  std::string outcome;  // "done" or "refused (...)"
};

// The log line's text.
std::string audit_text(const AuditEntry& entry);
// Writes the line to the server log.
void record_set(const AuditEntry& entry);

}  // namespace tarnwick::gateway
