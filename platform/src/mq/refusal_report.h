// Where the queue layer reports a shared-state folder it refuses. The queues
// sit below the server log, so the add-in layer installs the reporter when
// the runtime starts (src/hooks.cpp); without one the line goes to stderr.
// Thread-safe.
#pragma once

#include <string>

namespace tarnwick::rt::mq {

using RefusalReporter = void (*)(const std::string& text);

// Installs the reporter (nullptr: stderr); returns the one it replaces.
RefusalReporter install_refusal_reporter(RefusalReporter reporter);

// Hands one line to the installed reporter.
void report_refusal(const std::string& text);

}  // namespace tarnwick::rt::mq
