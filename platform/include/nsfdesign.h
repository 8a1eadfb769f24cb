/* Design lookup: finding forms, views, agents and shared fields of a
 * database by name.
 *
 * A design note's "$TITLE" holds its name and aliases separated by '|'
 * ("Out of Office|OutOfOffice"); a name matches any of them, without regard
 * to case. "$Flags" holds the design flag letters that a pattern tests:
 *   "+abc"   at least one of a, b, c present
 *   "-abc"   none of them present
 *   "*abc"   all of them present
 *   "(+ab-cd*ef"  several tests, all must hold (each part optional)
 * A NULL or empty pattern accepts any flags. Thread-safe. */
#ifndef TARNWICK_NSFDESIGN_H
#define TARNWICK_NSFDESIGN_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

/* Flag patterns the platform defines for the usual lookups. */
#define DFLAGPAT_VIEWS_AND_FOLDERS "-G40n^"
#define DFLAGPAT_VIEW "-FG40n^"
#define DFLAGPAT_FOLDER "(+-04n*F"
#define DFLAGPAT_AGENTSLIST "-QXstmz{"
#define DFLAGPAT_TOOLSRUNMACRO "-QXMBESIst5nmz{"

/* The note ID of the design note of a class (NOTE_CLASS_FORM, _VIEW,
 * _FILTER, _FIELD, or several OR'd; NOTE_CLASS_ALL for any) whose name or an
 * alias is Name and whose flags match the pattern; the lowest note ID wins
 * when several match. ERR_NOT_FOUND when none does. Options must be 0. */
STATUS LNPUBLIC NIFFindDesignNoteExt(DBHANDLE hFile, const char *Name, WORD Class, const char *pszFlagsPattern,
                                     NOTEID *retNoteID, DWORD Options);
/* As NIFFindDesignNoteExt with no flag pattern. */
STATUS LNPUBLIC NIFFindDesignNote(DBHANDLE hFile, const char *Name, WORD Class, NOTEID *retNoteID);

/* Whether a $Flags text matches a pattern (the test above). */
BOOL LNPUBLIC DesignFlagsMatch(const char *Flags, const char *Pattern);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_NSFDESIGN_H */
