#include "audit.h"

#include "accounts.h"
#include "addin.h"

namespace tarnwick::gateway {
namespace {

// A log line is one line: line breaks a client put into a value become
// blanks.
std::string one_line(std::string text) {
  for (char& c : text) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  return text;
}

}  // namespace

std::string audit_text(const AuditEntry& entry) {
  return one_line("Audit: out-of-office of " + display_name(entry.target) + " set by " + display_name(entry.actor) +
                  " from " + entry.address + ": before [" + entry.before + "]; after [" +
                  (entry.after.empty() ? "unchanged" : entry.after) + "]; " + entry.outcome);
}

void record_set(const AuditEntry& entry) { AddInLogMessageText("%s", NOERROR, audit_text(entry).c_str()); }

}  // namespace tarnwick::gateway
