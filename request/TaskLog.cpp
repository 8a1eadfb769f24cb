#include "request/TaskLog.h"

#include "addin.h"

void taskLog(const std::string& text) { AddInLogMessageText("Tarnwick: %s", NOERROR, text.c_str()); }
