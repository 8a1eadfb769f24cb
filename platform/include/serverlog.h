/* Reading the server log back. Every line a task logs (AddInLogMessageText)
 * is kept with its time and task name; a server's tools read them here, as
 * its console shows them. An extension of this runtime for its own tools. */
#ifndef TARNWICK_SERVERLOG_H
#define TARNWICK_SERVERLOG_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

typedef struct {
  long long UnixSeconds;   /* when it was logged, seconds since 1970-01-01 UTC */
  WORD Hundredths;         /* and hundredths of a second */
  const char *TaskName;    /* the task that logged it */
  const char *Text;        /* the line as logged */
  const char *ConsoleText; /* "MM/DD/YYYY HH:MM:SS AM  text" in local time */
} SERVER_LOG_LINE;

/* Called once per line; the strings live only during the call. */
typedef void(LNCALLBACK *SERVERLOGENUMFUNC)(void *Param, const SERVER_LOG_LINE *Line);

/* Calls Callback for the newest MostLines lines (all when 0), oldest first.
 * ERR_NOT_SUPPORTED when the log is kept nowhere but on the console. */
STATUS LNPUBLIC ServerLogEnumLines(DWORD MostLines, SERVERLOGENUMFUNC Callback, void *Param);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_SERVERLOG_H */
