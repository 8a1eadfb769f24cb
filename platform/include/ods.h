/* On-disk structures: sizes of the structures stored in item values, and
 * copying them between their stored and in-memory forms.
 *
 * On this runtime (little-endian, natural alignment) the stored form of
 * every structure is its in-memory layout, padding included: ODSLength is
 * sizeof, and ODSWriteMemory / ODSReadMemory copy bytes and move the
 * pointer past them. An unknown type has length 0 and copies nothing.
 * Thread-safe. */
#ifndef TARNWICK_ODS_H
#define TARNWICK_ODS_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

/* Structure type numbers */
#define _SHORT 0
#define _USHORT _SHORT
#define _WORD _SHORT
#define _STATUS _SHORT
#define _LONG 1
#define _DWORD _LONG
#define _ULONG _LONG
#define _FLOAT 2
#define _NUMBER _FLOAT
#define _NOTEID _LONG
#define _TIMEDATE 10
#define _TIMEDATE_PAIR 11
#define _LIST 13
#define _RANGE 14
#define _DBID 15
#define _ORIGINATORID 26
#define _OID _ORIGINATORID
#define _UNIVERSALNOTEID 28
#define _UNID _UNIVERSALNOTEID
#define _ODS_ASSISTSTRUCT 318

/* An agent's schedule and trigger ("$AssistInfo", TYPE_ASSISTANT_INFO):
 * 104 bytes. */
typedef struct {
  WORD wVersion;
  WORD wTriggerType;  /* ASSISTTRIGGER_TYPE_xxx */
  WORD wSearchType;   /* ASSISTSEARCH_TYPE_xxx */
  WORD wIntervalType; /* ASSISTINTERVAL_TYPE_xxx */
  WORD wInterval;
  DWORD dwTime1;
  DWORD dwTime2;
  TIMEDATE StartTime;
  TIMEDATE EndTime;
  DWORD dwFlags; /* ASSISTODS_FLAG_xxx */
  DWORD dwSpare[16];
} ODS_ASSISTSTRUCT;

#define ASSISTTRIGGER_TYPE_NONE 0
#define ASSISTTRIGGER_TYPE_SCHEDULED 1
#define ASSISTTRIGGER_TYPE_NEWMAIL 2
#define ASSISTTRIGGER_TYPE_PASTED 3
#define ASSISTTRIGGER_TYPE_MANUAL 4
#define ASSISTTRIGGER_TYPE_DOCUPDATE 5
#define ASSISTTRIGGER_TYPE_SYNCHNEWMAIL 6
#define ASSISTTRIGGER_TYPE_EVENT 7
#define ASSISTTRIGGER_TYPE_SERVERSTART 8
#define ASSISTSEARCH_TYPE_NONE 0
#define ASSISTSEARCH_TYPE_ALL 1
#define ASSISTSEARCH_TYPE_NEW 2
#define ASSISTSEARCH_TYPE_MODIFIED 3
#define ASSISTSEARCH_TYPE_SELECTED 4
#define ASSISTSEARCH_TYPE_VIEW 5
#define ASSISTSEARCH_TYPE_UNREAD 6
#define ASSISTSEARCH_TYPE_PROMPT 7
#define ASSISTSEARCH_TYPE_UI 8
#define ASSISTINTERVAL_TYPE_NONE 0
#define ASSISTINTERVAL_TYPE_MINUTES 1
#define ASSISTINTERVAL_TYPE_DAYS 2
#define ASSISTINTERVAL_TYPE_WEEK 3
#define ASSISTINTERVAL_TYPE_MONTH 4
#define ASSISTINTERVAL_TYPE_EVENT 5
#define ASSISTODS_FLAG_HIDDEN 0x00000001
#define ASSISTODS_FLAG_NOWEEKENDS 0x00000002
#define ASSISTODS_FLAG_STOREHIGHLIGHTS 0x00000004
#define ASSISTODS_FLAG_MAILANDPASTE 0x00000008
#define ASSISTODS_FLAG_CHOOSEWHENENABLED 0x00000010

WORD LNPUBLIC ODSLength(WORD type);
/* Writes `iterations` structures from pSrc at *ppDest and advances *ppDest. */
void LNPUBLIC ODSWriteMemory(void **ppDest, WORD type, const void *pSrc, WORD iterations);
/* Reads `iterations` structures at *ppSrc into pDest and advances *ppSrc. */
void LNPUBLIC ODSReadMemory(const void **ppSrc, WORD type, void *pDest, WORD iterations);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_ODS_H */
