// How a command of tarnwick-admin fails: every failure is one of two
// exceptions, caught once in the command-line driver, which prints the
// message as one line on stderr and exits 1 (a failure) or 2 (bad usage).
#pragma once

#include <stdexcept>
#include <string>

#include "global.h"

namespace tarnwick::client {

// The command could not do its job (a missing file, a runtime status, ...).
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The command line itself is wrong (an unknown option value, a malformed
// ITEM=VALUE, ...).
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The runtime's text of a status ("File does not exist (0x0103)").
std::string status_text(STATUS status);

// Throws Failure("<what>: <status text>") unless status is NOERROR.
void check(STATUS status, const std::string& what);

}  // namespace tarnwick::client
