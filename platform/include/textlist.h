/* Text lists in memory blocks: a LIST header, the entry lengths, then the
 * packed entries, optionally preceded by the TYPE_TEXT_LIST data-type word
 * (the form item values and lookups use).
 *
 * The caller owns the block (osmem.h). Entries may hold any bytes. With
 * fPrefixDataType the first word must be TYPE_TEXT_LIST, else the call fails.
 * One list must not be changed from two threads at once; distinct lists are
 * independent. */
#ifndef TARNWICK_TEXTLIST_H
#define TARNWICK_TEXTLIST_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

/* Allocates a list of ListEntries empty entries with room for TextSize bytes
 * of text; returns the locked block and its size. */
STATUS LNPUBLIC ListAllocate(WORD ListEntries, WORD TextSize, BOOL fPrefixDataType, DHANDLE *rethList, void **retpList,
                             WORD *retListSize);
/* Inserts an entry at EntryNumber (0-based, at most the current count),
 * growing the block; *pListSize is updated. The block may move: lock it again
 * after the call. ERR_ODS_NO_SUCH_ENTRY for an entry number out of range,
 * ERR_SEGMENT_TOO_BIG when the list would outgrow MAXONESEGSIZE (osmem.h). */
STATUS LNPUBLIC ListAddEntry(DHANDLE hList, BOOL fPrefixDataType, WORD *pListSize, WORD EntryNumber, const char *Text,
                             WORD TextSize);
STATUS LNPUBLIC ListRemoveEntry(DHANDLE hList, BOOL fPrefixDataType, WORD *pListSize, WORD EntryNumber);
STATUS LNPUBLIC ListRemoveAllEntries(DHANDLE hList, BOOL fPrefixDataType, WORD *pListSize);
/* Pointer to entry EntryNumber inside the list (not NUL-terminated). */
STATUS LNPUBLIC ListGetText(const void *pList, BOOL fPrefixDataType, WORD EntryNumber, char **retTextPointer,
                            WORD *retTextLength);
WORD LNPUBLIC ListGetNumEntries(const void *pList, BOOL fPrefixDataType);
WORD LNPUBLIC ListGetSize(const void *pList, BOOL fPrefixDataType);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_TEXTLIST_H */
