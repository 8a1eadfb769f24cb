/* Agents: the filter notes that run formulas on a schedule or on request,
 * and the record that says when and on which documents they run.
 *
 * An agent is a design note of class NOTE_CLASS_FILTER (FILTER|PRIVATE for
 * a private one). Items the runtime reads and the DXL importer writes:
 *   "$TITLE"         name|aliases
 *   "$Flags"         design flags ("f" for an agent of this kind)
 *   "$AssistFlags"   TEXT: "E" while the agent is enabled (see
 *                    ASSIST_FLAG_*); a disabled shared agent has ""
 *   "$AssistTrigger" TEXT: the ASSISTTRIGGER_TYPE_* digit
 *   "$AssistInfo"    TYPE_ASSISTANT_INFO: an ODS_ASSISTSTRUCT in its stored
 *                    form (ods.h: ODSLength(_ODS_ASSISTSTRUCT) bytes, read
 *                    with ODSReadMemory, written with ODSWriteMemory)
 *   "$MachineName"   TEXT: the server the agent runs on
 *   "$AssistQuery"   TEXT: document selection formula (absent: all)
 *   "$AssistAction"  TEXT: the action formula source
 *   "$AssistLastRun" TIME, "$AssistDocCount" NUMBER
 *
 * An agent handle is a snapshot taken by AgentOpen: a change to the note
 * made afterwards is seen after closing and opening the agent again. The
 * handle belongs to the caller (AgentClose). Thread-safe. */
#ifndef TARNWICK_AGENTS_H
#define TARNWICK_AGENTS_H

#include "global.h"
#include "ods.h"

TARNWICK_EXTERN_C_BEGIN

typedef DHANDLE HAGENT;

/* "$AssistFlags" letters */
#define ASSIST_FLAG_ENABLED 'E'
#define ASSIST_FLAG_DISABLED 'D'
#define ASSIST_FLAG_NEWCOPY 'N'
#define ASSIST_FLAG_HIDDEN 'H'
#define ASSIST_FLAG_PRIVATE 'P'
#define ASSIST_FLAG_THREAD 'T'

/* Item names */
#define ASSIST_FLAGS_ITEM "$AssistFlags"
#define ASSIST_TRIGGER_ITEM "$AssistTrigger"
#define ASSIST_INFO_ITEM "$AssistInfo"
#define FILTER_MACHINE_ITEM "$MachineName"
#define ASSIST_QUERY_ITEM "$AssistQuery"
#define ASSIST_ACTION_ITEM "$AssistAction"
#define ASSIST_LASTRUN_ITEM "$AssistLastRun"
#define ASSIST_DOCCOUNT_ITEM "$AssistDocCount"

/* The record kept in "$AssistInfo" (ODS_ASSISTSTRUCT) and its
 * ASSISTTRIGGER_TYPE_*, ASSISTSEARCH_TYPE_*, ASSISTINTERVAL_TYPE_* and
 * ASSISTODS_FLAG_* values are declared in ods.h. */

/* Opens the agent note AgentNoteID of hDB: ERR_INVALID_NOTE (or the note
 * open's status) when there is none, ERR_BAD_PARAM when the note is not an
 * agent (class FILTER). */
STATUS LNPUBLIC AgentOpen(DBHANDLE hDB, NOTEID AgentNoteID, HAGENT *rethAgent);
/* TRUE when "$AssistFlags" held "E" when the agent was opened; FALSE also
 * for a bad handle. */
BOOL LNPUBLIC AgentIsEnabled(HAGENT hAgent);
/* Closing NULLHANDLE or a closed handle does nothing. */
void LNPUBLIC AgentClose(HAGENT hAgent);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_AGENTS_H */
