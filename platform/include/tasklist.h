/* The running tasks of the data directory, as every process sees them: their
 * status lines (the server's "show tasks") and the request to end one (its
 * "tell <task> quit"). An extension of this runtime for its own tools. */
#ifndef TARNWICK_TASKLIST_H
#define TARNWICK_TASKLIST_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

typedef struct {
  DWORD ProcessID;
  const char *TaskName;
  const char *StatusText;
} TASK_STATUS_LINE;

/* Called once per line; the strings live only during the call. */
typedef void(LNCALLBACK *TASKSTATUSENUMFUNC)(void *Param, const TASK_STATUS_LINE *Line);

/* Calls Callback for every status line of every live task process, by
 * process id, each process's lines in the order it made them. */
STATUS LNPUBLIC TaskEnumStatusLines(TASKSTATUSENUMFUNC Callback, void *Param);

/* Asks every live process showing a status line with this task name
 * (matched without case) to end: its AddInIdle turns TRUE, and the queue
 * TASK_QUEUE_PREFIX + name, if it exists, enters the quit state.
 * retProcesses (may be NULL) receives how many processes were asked. */
STATUS LNPUBLIC TaskRequestQuit(const char *TaskName, DWORD *retProcesses);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_TASKLIST_H */
