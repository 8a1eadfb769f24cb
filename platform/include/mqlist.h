/* The live message queues of the data directory, for diagnosis, and the
 * folder where they and the task list are kept. An extension of this runtime
 * for its own tools. */
#ifndef TARNWICK_MQLIST_H
#define TARNWICK_MQLIST_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

typedef struct {
  const char *QueueName; /* as it was made */
  DWORD Messages;        /* waiting */
  BOOL Quitting;         /* in the quit state */
} MQ_LISTING;

/* Called once per queue; the name lives only during the call. */
typedef void(LNCALLBACK *MQENUMFUNC)(void *Param, const MQ_LISTING *Queue);

/* Calls Callback for every live queue, sorted by name. A snapshot: queues
 * and counts may change while it is taken. */
STATUS LNPUBLIC MQEnumQueues(MQENUMFUNC Callback, void *Param);

/* The folder that holds the queues and task list of the data directory
 * (made if missing), NUL-terminated into retPath of MAXPATH bytes; returns
 * its length, 0 on failure. Removing it is for when no process of the data
 * directory runs any more. */
WORD LNPUBLIC MQGetSharedStateDirectory(char *retPath);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_MQLIST_H */
