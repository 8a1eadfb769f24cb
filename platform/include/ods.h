/* Canonical ("on-disk structure") form of the platform's records: the
 * packed little-endian layout in which structured item values such as the
 * agent record ("$AssistInfo") are stored, and the calls that convert
 * between it and the host structs.
 *
 * ODSLength gives a record's canonical size; ODSReadMemory converts
 * Iterations records from canonical to host form and ODSWriteMemory the
 * other way, each advancing *ppSrc / *ppDest past what it consumed or
 * produced. The canonical form has no padding: ODS_ASSISTSTRUCT is 104
 * bytes in host form and ODSLength(_ODS_ASSISTSTRUCT) = 102 bytes stored.
 * Unknown type numbers have length 0 and are not converted. Thread-safe. */
#ifndef TARNWICK_ODS_H
#define TARNWICK_ODS_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

/* Type numbers */
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

WORD LNPUBLIC ODSLength(WORD type);
/* ppSrc points to a pointer to the canonical bytes; pDest is host memory. */
void LNPUBLIC ODSReadMemory(void *ppSrc, WORD type, void *pDest, WORD iterations);
/* ppDest points to a pointer to the canonical output; pSrc is host memory. */
void LNPUBLIC ODSWriteMemory(void *ppDest, WORD type, const void *pSrc, WORD iterations);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_ODS_H */
