/* Views and collections: the entries a view selects from a database, in the
 * order of its sorted columns, found by key and read by position.
 *
 * A view's design note holds its selection formula and columns (see
 * dxl/view_design.h in the runtime). NIFOpenCollection builds the view's
 * index on first use in a process and afterwards only applies the notes
 * changed since (the index is shared by every collection of that view and
 * kept current by NIFOpenCollection, NIFUpdateCollection and the directory
 * lookups). Collections here are flat: positions have one level and count
 * entries from 1. Multi-valued sorted columns marked for separate entries
 * give one entry per value.
 *
 * An HCOLLECTION is owned by the caller and closed with NIFCloseCollection.
 * Buffers returned are memory blocks the caller frees (OSMemFree).
 * Thread-safe. */
#ifndef TARNWICK_NIF_H
#define TARNWICK_NIF_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

typedef DHANDLE HCOLLECTION;

#define MAXTUMBLERLEVELS 32
typedef struct {
  WORD Level;    /* 0 for the flat collections of this runtime */
  BYTE MinLevel;
  BYTE MaxLevel;
  DWORD Tumbler[MAXTUMBLERLEVELS]; /* Tumbler[0]: the entry's position, from 1 */
} COLLECTIONPOSITION;

typedef struct {
  DWORD TopLevelEntries;
  DWORD LastModifiedTime;
} COLLECTIONSTATS;

/* NIFOpenCollection flags (accepted, no effect here) */
#define OPEN_REBUILD_INDEX 0x0001
#define OPEN_NOUPDATE 0x0002
#define OPEN_DO_NOT_CREATE 0x0004

/* NIFFindByName flags */
#define FIND_PARTIAL 0x0001          /* the name is a prefix of the key */
#define FIND_CASE_INSENSITIVE 0x0002
#define FIND_RETURN_DWORD 0x0004
#define FIND_ACCENT_INSENSITIVE 0x0008
#define FIND_UPDATE_IF_NOT_FOUND 0x0020
#define FIND_FIRST_EQUAL 0x0000
#define FIND_LAST_EQUAL 0x0080

/* Navigators */
#define NAVIGATE_CURRENT 0
#define NAVIGATE_NEXT 1
#define NAVIGATE_NEXT_PEER 5
#define NAVIGATE_PREV_PEER 6
#define NAVIGATE_FIRST_PEER 7
#define NAVIGATE_LAST_PEER 8
#define NAVIGATE_PREV 9
#define NAVIGATE_NEXT_MAIN 12
#define NAVIGATE_PREV_MAIN 13
#define NAVIGATE_MASK 0x007F
#define NAVIGATE_CONTINUE 0x8000

/* NIFReadEntries masks. Per entry, in this order: NOTEID (DWORD), NOTEUNID
 * (UNID), NOTECLASS (WORD), INDEXSIBLINGS, INDEXCHILDREN, INDEXDESCENDANTS
 * (DWORD each), INDEXANYUNREAD, INDENTLEVELS (WORD each), INDEXPOSITION
 * (Level, MinLevel, MaxLevel and Level+1 tumblers), SUMMARYVALUES (an
 * ITEM_VALUE_TABLE: WORD Length, WORD Items, Items WORD value lengths, then
 * the column values, each with its type word). COLLECTIONSTATS comes once,
 * before the entries. */
#define READ_MASK_NOTEID 0x00000001
#define READ_MASK_NOTEUNID 0x00000002
#define READ_MASK_NOTECLASS 0x00000004
#define READ_MASK_INDEXSIBLINGS 0x00000008
#define READ_MASK_INDEXCHILDREN 0x00000010
#define READ_MASK_INDEXDESCENDANTS 0x00000020
#define READ_MASK_INDEXANYUNREAD 0x00000040
#define READ_MASK_INDENTLEVELS 0x00000080
#define READ_MASK_COLLECTIONSTATS 0x00000100
#define READ_MASK_INDEXPOSITION 0x00004000
#define READ_MASK_SUMMARYVALUES 0x00002000

/* retSignalFlags */
#define SIGNAL_MORE_TO_DO 0x0020

typedef struct {
  USHORT Length; /* of the whole table */
  USHORT Items;
} ITEM_VALUE_TABLE;

/* hViewDB and hDataDB name the same database here. ViewNoteID may be
 * NOTE_ID_SPECIAL | NOTE_CLASS_VIEW (the default view). rethViewNote (the
 * view note, open; caller closes), retViewUNID, rethCollapsedList and
 * rethSelectedList may be NULL; the lists come back NULLHANDLE. */
STATUS LNPUBLIC NIFOpenCollection(DBHANDLE hViewDB, DBHANDLE hDataDB, NOTEID ViewNoteID, WORD OpenFlags,
                                  DHANDLE hUnreadList, HCOLLECTION *rethCollection, NOTEHANDLE *rethViewNote,
                                  UNIVERSALNOTEID *retViewUNID, DHANDLE *rethCollapsedList,
                                  DHANDLE *rethSelectedList);
STATUS LNPUBLIC NIFCloseCollection(HCOLLECTION hCollection);
/* Applies the notes changed since the last update. */
STATUS LNPUBLIC NIFUpdateCollection(HCOLLECTION hCollection);
/* The first entry (FIND_LAST_EQUAL: the last) whose first sorted column
 * equals Name (or begins with it: FIND_PARTIAL), and how many match.
 * ERR_NOT_FOUND when none does; ERR_NOT_FOUND too for a view without a
 * sorted column. */
STATUS LNPUBLIC NIFFindByName(HCOLLECTION hCollection, const char *Name, WORD FindFlags,
                              COLLECTIONPOSITION *retIndexPos, DWORD *retNumMatches);
/* Moves from IndexPos by SkipCount steps of SkipNavigator, then returns up
 * to ReturnCount entries (stepping with ReturnNavigator) in a buffer laid
 * out by ReturnMask; IndexPos is left at the last entry returned. A
 * position before the first entry (Tumbler[0] 0) starts before it.
 * SIGNAL_MORE_TO_DO says that entries remain. */
STATUS LNPUBLIC NIFReadEntries(HCOLLECTION hCollection, COLLECTIONPOSITION *IndexPos, WORD SkipNavigator,
                               DWORD SkipCount, WORD ReturnNavigator, DWORD ReturnCount, DWORD ReturnMask,
                               DHANDLE *rethBuffer, WORD *retBufferLength, DWORD *retNumEntriesSkipped,
                               DWORD *retNumEntriesReturned, WORD *retSignalFlags);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_NIF_H */
