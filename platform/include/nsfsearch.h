/* NSFSearch: visit the notes of a database, optionally only those modified
 * since a given time, with their summary items.
 *
 * The search reads the notes first and then calls the routine for each
 * outside any lock, so the routine may open, change and update notes of the
 * same database. A non-zero status from the routine ends the search, and
 * NSFSearch returns it. Profile documents are not visited. Thread-safe. */
#ifndef TARNWICK_NSFSEARCH_H
#define TARNWICK_NSFSEARCH_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

/* Search flags */
#define SEARCH_ALL_VERSIONS 0x0001
#define SEARCH_SUMMARY 0x0002
#define SEARCH_FILETYPE 0x0004
#define SEARCH_NOTIFYDELETIONS 0x0010
#define SEARCH_NOITEMNAMES 0x0020
#define SEARCH_ALLPRIVS 0x0040
#define SEARCH_SESSION_USERNAME 0x0400
#define SEARCH_NOABSTRACTS 0x1000
#define SEARCH_DATAONLY_FORMULA 0x4000

/* SEARCH_MATCH.SERetFlags */
#define SE_FNOMATCH 0x00
#define SE_FMATCH 0x01
#define SE_FTRUNCATED 0x02
#define SE_FPURGED 0x04
#define SE_FNOPURGE 0x08
#define SE_FSOFTDELETED 0x10
#define SE_FNOACCESS 0x20
#define SE_FLARGESUMMARY 0x80

/* Summary buffer: ITEM_TABLE, Items x ITEM, then the names, then the values
 * (each value starts with its WORD data type; ValueLength counts it). With
 * SEARCH_NOITEMNAMES the names are left out (NameLength 0). */
typedef struct {
  USHORT Length; /* of the whole buffer */
  USHORT Items;
} ITEM_TABLE;
typedef struct {
  USHORT NameLength;
  USHORT ValueLength;
} ITEM;

/* A match. A deletion stub (reported only with a Since time) has
 * RRV_DELETED set in ID.NoteID and NOTE_CLASS_NOTIFYDELETION in NoteClass.
 * Copy the structure with memcpy before reading it. */
typedef struct {
  GLOBALINSTANCEID ID;
  ORIGINATORID OriginatorID;
  WORD NoteClass;
  BYTE SERetFlags;
  BYTE Privileges;
  WORD SummaryLength;
} SEARCH_MATCH;

typedef STATUS(LNCALLBACK *NSFSEARCHPROC)(void *EnumRoutineParameter, SEARCH_MATCH *SearchMatch,
                                          ITEM_TABLE *SummaryBuffer);

/* Visits the notes whose class has a bit of NoteClassMask. hFormula (a
 * compiled formula, formula.h) selects notes; NULLHANDLE selects every
 * note. Since NULL: every live note, each reported with
 * SE_FMATCH. With Since: only notes modified after it, deletion stubs and
 * notes the formula does not select included (without SE_FMATCH).
 * retUntil (may be NULL) receives the time to pass as Since next time. The
 * summary buffer is NULL unless SEARCH_SUMMARY. ViewTitle is ignored. */
STATUS LNPUBLIC NSFSearch(DBHANDLE hDB, FORMULAHANDLE hFormula, const char *ViewTitle, WORD SearchFlags,
                          WORD NoteClassMask, const TIMEDATE *Since, NSFSEARCHPROC EnumRoutine,
                          void *EnumRoutineParameter, TIMEDATE *retUntil);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_NSFSEARCH_H */
