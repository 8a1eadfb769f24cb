/* The server's out-of-office service interface: asking a mail database
 * which out-of-office mechanism it uses and whether out-of-office is on.
 *
 * OOOInit must have been called (once per process, or once per use;
 * calls are counted) before an operation starts, and OOOTerm undoes one
 * OOOInit. An operation is started for one mail file owner with
 * OOOStartOperation, queried with OOOGetState and ended with
 * OOOEndOperation, which frees the context. OOOStartOperation reads the
 * state once: a change made to the mail database afterwards is seen by the
 * next operation.
 *
 * Where the answers come from (the mail database):
 *   version  OOO_CONFIG_SERVICE when the icon note's "$Flags" holds 'O'
 *            (the database is enabled for the service) or the
 *            "OutOfOfficeProfile" profile's "TaskType" begins with '2';
 *            otherwise OOO_CONFIG_AGENT
 *   state    service: OOO_STATE_ENABLED when the profile's "TaskState"
 *            begins with '1'; agent: when the "OutOfOffice" agent is
 *            enabled ("$AssistFlags" holds 'E'); otherwise DISABLED
 * The mail database is hMailFile when given (the caller keeps it), else the
 * one the directory (names.nsf on the home server, or on the local server)
 * lists as the owner's MailServer and MailFile.
 *
 * All text is LMBCS. Thread-safe; one context may be queried from any
 * thread but must be ended once. */
#ifndef TARNWICK_OOOAPI_H
#define TARNWICK_OOOAPI_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

typedef MEMHANDLE OOOCTXHANDLE;
typedef void *OOOCTXPTR;

#define OOO_CONFIG_AGENT 1
#define OOO_CONFIG_SERVICE 2
#define OOO_STATE_DISABLED 0
#define OOO_STATE_ENABLED 1

STATUS LNPUBLIC OOOInit(void);
STATUS LNPUBLIC OOOTerm(void);
/* pMailOwnerName (canonical) is required (ERR_OOO_MISSING_PARAM); so are
 * both outputs. Errors: ERR_OOO_MISSING_INIT, ERR_OOO_NAMELOOKUP (owner not
 * in the directory), ERR_OOO_NAMELOOKUPATTR (no MailServer/MailFile),
 * ERR_OOO_MISSING_MAILFILE (the mail database cannot be opened). On error
 * nothing needs ending. */
STATUS LNPUBLIC OOOStartOperation(const char *pMailOwnerName, const char *pHomeMailServer, BOOL bHomeMailServer,
                                  DHANDLE hMailFile, OOOCTXHANDLE *hOOOContext, OOOCTXPTR **pOOOOContext);
/* retVersion is required; retState may be NULL. */
STATUS LNPUBLIC OOOGetState(OOOCTXPTR *pOOOContext, WORD *retVersion, WORD *retState);
STATUS LNPUBLIC OOOEndOperation(OOOCTXHANDLE hOOOContext, OOOCTXPTR *pOOOContext);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_OOOAPI_H */
