/* Basic types of the platform's C API: integers, handles, the STATUS word,
 * TIMEDATE, note and database identifiers, LIST and RANGE headers.
 *
 * Every public header includes this one. Declarations are C-compatible; the
 * runtime implements them in C++ and never lets an exception cross them.
 * Layouts follow the platform on 64-bit Linux (natural alignment,
 * little-endian host form). */
#ifndef TARNWICK_GLOBAL_H
#define TARNWICK_GLOBAL_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define TARNWICK_EXTERN_C_BEGIN extern "C" {
#define TARNWICK_EXTERN_C_END }
#else
#define TARNWICK_EXTERN_C_BEGIN
#define TARNWICK_EXTERN_C_END
#endif

#define LNPUBLIC
#define NOTESAPI
#define LNCALLBACK

typedef unsigned char BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint16_t USHORT;
typedef int BOOL;
typedef double NUMBER;
typedef char LMBCS;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

#define MAXWORD 0xFFFFu
#define MAXDWORD 0xFFFFFFFFu

/* Handles are small numbers issued by the runtime's handle table; 0 is none. */
typedef DWORD HANDLE;
typedef DWORD DHANDLE;
typedef DWORD MEMHANDLE;
typedef DWORD HMODULE;
typedef DHANDLE DBHANDLE;
typedef DHANDLE NOTEHANDLE;
typedef DHANDLE FORMULAHANDLE;
typedef DHANDLE MQHANDLE;
#define NULLHANDLE ((DHANDLE)0)

typedef WORD BLOCK;
typedef struct {
  DHANDLE pool;
  BLOCK block;
} BLOCKID;
#define NULLBLOCKID_INIT {0, 0}
#define ISNULLBLOCKID(b) ((b).pool == NULLHANDLE)

/* A STATUS is a 16-bit code: package in bits 8-13, number in bits 0-7, and two
 * flag bits on top (already displayed, came from a server). */
typedef WORD STATUS;
#define NOERROR 0
#define STS_DISPLAYED 0x8000
#define STS_REMOTE 0x4000
#define ERR_MASK 0x3FFF
#define PKG_MASK 0x3F00
#define ERRNUM_MASK 0x00FF
#define ERR(x) ((STATUS)((x) & ERR_MASK))
#define PKG(x) ((STATUS)((x) & PKG_MASK))
#define ERRNUM(x) ((STATUS)((x) & ERRNUM_MASK))
#define ERROR_DISPLAYED(x) (((x) & STS_DISPLAYED) != 0)
#define ERROR_REMOTE(x) (((x) & STS_REMOTE) != 0)

/* TIMEDATE: Innards[0] = hundredths of a second since midnight GMT (or ALLDAY);
 * Innards[1] = Julian day in bits 0-23, zone and DST bits on top (or ANYDAY). */
typedef struct {
  DWORD Innards[2];
} TIMEDATE;
typedef struct {
  TIMEDATE Lower;
  TIMEDATE Upper;
} TIMEDATE_PAIR;
typedef struct {
  NUMBER Lower;
  NUMBER Upper;
} NUMBER_PAIR;

typedef TIMEDATE DBID;
typedef DWORD NOTEID;
typedef struct {
  DBID File;
  TIMEDATE Note;
} UNIVERSALNOTEID, UNID;
typedef struct {
  DBID File;
  TIMEDATE Note;
  DWORD Sequence;
  TIMEDATE SequenceTime;
} ORIGINATORID, OID;
typedef struct {
  DBID File;
  TIMEDATE Note;
  NOTEID NoteID;
} GLOBALINSTANCEID;

/* Headers of list values: LIST is followed by ListEntries lengths and the
 * packed strings (text lists) or by the entries (UNID lists); RANGE by
 * ListEntries values and RangeEntries pairs. */
typedef struct {
  USHORT ListEntries;
} LIST;
typedef struct {
  USHORT ListEntries;
  USHORT RangeEntries;
} RANGE;

#define MAXPATH 256
#define MAXUSERNAME 256
#define MAXENVVALUE 256
#define MAXALPHATIMEDATE 80

#endif /* TARNWICK_GLOBAL_H */
