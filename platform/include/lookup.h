/* Directory lookups: names looked up in the views of the directory
 * databases (notes.ini "NAMES=", comma-separated; default "names.nsf"),
 * and the items of the matching entries.
 *
 * NameSpaces, Names and Items are series of NUL-terminated LMBCS strings
 * packed back to back ("$Users\0$Groups\0"). A view is found by its name or
 * alias, with or without parentheses ("$Users" finds "($Users)"). A name
 * matches entries whose first sorted column equals it without regard to
 * case; a hierarchical name also matches its abbreviated and canonical
 * forms. Every directory is searched in order and the search for a name
 * stops at the first directory with a match, unless NAME_LOOKUP_EXHAUSTIVE.
 * Only summary items are returned. A name not found is no error: its
 * record has no matches.
 *
 * The buffer holds one record per view and name (views outer, names inner,
 * in the order given); read it only through the NAMELocate* calls below,
 * with the buffer locked (OSLockObject); the caller frees it (OSMemFree).
 * NAMELookup returns the same buffer as NAMELookup2. Thread-safe. */
#ifndef TARNWICK_LOOKUP_H
#define TARNWICK_LOOKUP_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

#define NAME_LOOKUP_ALL 0x0001         /* Names "" and NumNames 1: every entry of the view */
#define NAME_LOOKUP_NOSEARCHING 0x0002 /* only the first directory */
#define NAME_LOOKUP_EXHAUSTIVE 0x0020  /* all directories, even after a match */
#define NAME_LOOKUP_UPDATE 0x0100      /* accepted; views are always current */

/* ERR_NO_NAMES_FILE when no directory opens, ERR_NO_SUCH_NAMESPACE when a
 * view is in none of them. */
STATUS LNPUBLIC NAMELookup2(const char *ServerName, DWORD Flags, WORD NumNameSpaces, const char *NameSpaces,
                            WORD NumNames, const char *Names, WORD NumItems, const char *Items, DHANDLE *rethBuffer);
STATUS LNPUBLIC NAMELookup(const char *ServerName, WORD Flags, WORD NumNameSpaces, const char *NameSpaces,
                           WORD NumNames, const char *Names, WORD NumItems, const char *Items, DHANDLE *rethBuffer);

/* The record after pName (NULL: the first); NULL after the last. */
void *LNPUBLIC NAMELocateNextName2(void *pLookup, void *pName, DWORD *retNumMatches);
/* The match after pMatch (NULL: the first) of a record; count with the
 * record's number of matches (NULL after the last here). */
void *LNPUBLIC NAMELocateNextMatch2(void *pLookup, void *pName, void *pMatch);
/* Item number Item (0-based, in the order asked) of a match: its value
 * starting with the type word (possibly odd-aligned); retSize counts the
 * type word. NULL when the match has no such item. */
void *LNPUBLIC NAMELocateItem2(void *pMatch, WORD Item, WORD *retDataType, WORD *retSize);
/* Entry Member of a text or text-list item, cut to BufLen-1 bytes and
 * NUL-terminated. ERR_NO_SUCH_ITEM, ERR_NO_MORE_MEMBERS, or
 * ERR_INVALID_TYPE_FOR_OP for an item that is no text. */
STATUS LNPUBLIC NAMEGetTextItem2(void *pMatch, WORD Item, WORD Member, char *Buffer, WORD BufLen);
/* Match number MatchNum (0-based over all records) and its item Item.
 * ERR_NO_MORE_MATCH past the last match. */
STATUS LNPUBLIC NAMELocateMatchAndItem2(void *pLookup, DWORD MatchNum, WORD Item, WORD *retDataType,
                                        void **retpMatch, void **retpItem, WORD *retSize);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_LOOKUP_H */
