// The task's log lines: every line goes to the server log and the console as
// "Tarnwick: <text>", without levels. Thread-safe.
#ifndef TARNWICK_REQUEST_TASKLOG_H
#define TARNWICK_REQUEST_TASKLOG_H

#include <string>

void taskLog(const std::string& text);

#endif  // TARNWICK_REQUEST_TASKLOG_H
