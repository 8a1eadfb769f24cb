/* Add-in task services: what a server task uses to show its state, write
 * the server log, and learn when to stop.
 *
 * A task is an ordinary process. Its status lines (task name and status
 * text) are visible to every process of the same data directory until the
 * task deletes them or ends, however it ends; the admin tool lists them as
 * "show tasks". AddInIdle turns TRUE once the process got SIGTERM or SIGINT
 * or another process asked the task to quit ("tell <task> quit").
 * AddInLogMessageText writes a line with date and time to standard output and
 * one document to the server log database.
 *
 * The process entry of a task is AddInSDKInit, NotesInitModule, AddInMain,
 * AddInSDKTerm (see notessdkmain.h for the generic main program).
 *
 * Thread-safe; the status line and timer state belong to the process. */
#ifndef TARNWICK_ADDIN_H
#define TARNWICK_ADDIN_H

#include "global.h"

#ifndef LNVARARGS
#define LNVARARGS
#endif

TARNWICK_EXTERN_C_BEGIN

/* The task's module handle and its default status line (NULLHANDLE when it
 * has none). */
void LNPUBLIC AddInQueryDefaults(HMODULE *rethModule, DHANDLE *rethDesc);
/* Makes hDesc the default status line, the one AddInSetStatusText changes
 * and whose task name the log records. */
void LNPUBLIC AddInSetDefaults(HMODULE hModule, DHANDLE hDesc);

/* A new status line with an empty status text; NULLHANDLE on failure. */
DHANDLE LNPUBLIC AddInCreateStatusLine(const char *TaskName);
void LNPUBLIC AddInDeleteStatusLine(DHANDLE hDesc);
void LNPUBLIC AddInSetStatusLine(DHANDLE hDesc, const char *String);
/* Sets the text of the default status line. */
void LNPUBLIC AddInSetStatusText(const char *String);

/* Formats String like printf with the arguments after AdditionalErrorCode;
 * when AdditionalErrorCode is not NOERROR its standard text is appended
 * after ": ". The line goes to standard output after the date and time, and
 * to the server log (log.nsf) with the time and the task name. */
void LNVARARGS AddInLogMessageText(const char *String, STATUS AdditionalErrorCode, ...);

/* Gives up the processor for a moment; TRUE when the task should end. */
BOOL LNPUBLIC AddInIdle(void);
/* TRUE when the task should end, without pausing. */
BOOL LNPUBLIC AddInShouldTerminate(void);

/* TRUE once for each time the clock passes a multiple of Seconds (Minutes)
 * after the task started: the first call after such a moment returns TRUE,
 * later calls FALSE until the next one. Each interval is timed on its own. */
BOOL LNPUBLIC AddInSecondsHaveElapsed(DWORD Seconds);
BOOL LNPUBLIC AddInMinutesHaveElapsed(DWORD Minutes);

/* The module handle of the running program (the other two are NULLHANDLE). */
STATUS LNPUBLIC NotesInitModule(HMODULE *rethModule, HMODULE *rethInstance, HMODULE *rethPrevInstance);

/* Start and end of a task process: AddInSDKInit creates the default status
 * line, named after the program (the first 20 bytes of argv[0]'s file name),
 * makes the data directory the process's working directory, as the server
 * does for its tasks (ERR_NOEXIST when it cannot), and makes SIGTERM and
 * SIGINT ask the task to end; AddInSDKTerm deletes the
 * task's status lines and returns its argument. */
STATUS LNPUBLIC AddInSDKInit(int argc, char **argv);
STATUS LNPUBLIC AddInSDKTerm(STATUS status);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_ADDIN_H */
