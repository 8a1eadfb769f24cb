/* Message queues: named queues of byte messages shared by every process of
 * one data directory (the add-in task, the HTTP front end, the admin tool).
 *
 * A queue is made with MQCreate and used through handles from MQOpen. Names
 * match without case ("MQ$OutOfOffice" and "mq$outofoffice" are one queue).
 * A queue exists while a live process holds it (has created it or has an open
 * handle to it): when the last holder closes its last handle, or dies, the
 * queue and its waiting messages are gone, so a crashed task never leaves a
 * queue behind that would make its next MQCreate fail.
 *
 * Messages are 0 to MQ_MAX_MSGSIZE bytes, taken in priority order
 * (HIGHPRIORITY first) and first in, first out within one priority. A queue in
 * the QUIT state refuses new messages and makes every MQGet return
 * ERR_MQ_QUITTING at once, also one already waiting.
 *
 * Handles belong to the process that opened them: a child made by fork() must
 * open its own. All calls are thread-safe; a bad handle gives an error status
 * (ERR_MQ_EMPTY as on the platform), never a crash. */
#ifndef TARNWICK_MQ_H
#define TARNWICK_MQ_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

/* Largest message: the platform's largest memory segment less its header. */
#define MQ_MAX_MSGSIZE (0xFFFF - 1 - 128 - 0x50) /* 65326 */

/* MQOpen options */
#define MQ_OPEN_CREATE 0x00000001

/* MQGet options */
#define MQ_WAIT_FOR_MSG 0x0001

/* MQPut priorities: lower numbers are taken first. */
#define HIGHPRIORITY 0
#define LOWPRIORITY 0xFFFF
#define NOPRIORITY 0xFFFF

/* Queue names of server add-in tasks: TASK_QUEUE_PREFIX followed by the task
 * name; "tell <task> quit" puts that queue into the QUIT state. */
#define TASK_QUEUE_PREFIX "MQ$"

/* Makes a queue (Options must be 0). Quota is the most messages it may hold,
 * 0 for the default MAXWORD. ERR_DUPLICATE_MQ when a live queue of that name
 * exists. The calling process holds the new queue until it ends or opens and
 * closes it. */
STATUS LNPUBLIC MQCreate(const char *QueueName, WORD Quota, DWORD Options);

/* Opens a handle to a queue; with MQ_OPEN_CREATE a missing queue is made
 * first. ERR_NO_SUCH_MQ when it does not exist. */
STATUS LNPUBLIC MQOpen(const char *QueueName, DWORD Options, MQHANDLE *retQueue);

/* Closes a handle (Options must be 0). When no live process holds the queue
 * any more, it is removed with its messages. */
STATUS LNPUBLIC MQClose(MQHANDLE Queue, DWORD Options);

/* Adds a message (Options must be 0). ERR_MQ_QUITTING in the QUIT state,
 * ERR_MQ_EXCEEDED_QUOTA when full, ERR_SEGMENT_TOO_BIG above MQ_MAX_MSGSIZE. */
STATUS LNPUBLIC MQPut(MQHANDLE Queue, WORD Priority, char *Buffer, WORD Length, DWORD Options);

/* Takes the first message into Buffer; *retMsgLength is the number of bytes
 * written. Without a message: returns ERR_MQ_EMPTY at once when Options is 0
 * and Timeout is 0; otherwise waits up to Timeout milliseconds (forever when
 * Timeout is 0 and MQ_WAIT_FOR_MSG is given) and returns ERR_MQ_EMPTY if the
 * queue is still empty. ERR_MQ_QUITTING as soon as the queue is in the QUIT
 * state. A message longer than BufLength is taken off the queue, cut to
 * BufLength bytes, and ERR_MQ_BFR_TOO_SMALL is returned. */
STATUS LNPUBLIC MQGet(MQHANDLE Queue, char *Buffer, WORD BufLength, DWORD Options, DWORD Timeout,
                      WORD *retMsgLength);

/* Puts the queue into the QUIT state, for every holder. */
void LNPUBLIC MQPutQuitMsg(MQHANDLE Queue);

/* TRUE when the queue is in the QUIT state. */
BOOL LNPUBLIC MQIsQuitPending(MQHANDLE Queue);

/* Number of messages waiting (at most MAXWORD). */
WORD LNPUBLIC MQGetCount(MQHANDLE Queue);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_MQ_H */
