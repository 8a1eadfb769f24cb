/* Profile documents: one note per (profile name, user name) pair, found
 * without regard to case, holding per-database or per-user settings.
 *
 * A profile note carries the TYPE_TEXT item "$Name" =
 * "$profile_" + three-digit length of the profile name + the profile name in
 * lower case + "_" + the user name ("$profile_015calendarprofile_" for
 * "CalendarProfile" without a user). A missing UserName (NULL or length 0)
 * is the empty user.
 *
 * Handles from NSFProfileOpen are ordinary note handles (nsfnote.h), owned
 * by the caller. Thread-safe; two writers of one profile never lose an
 * update silently: the later NSFProfileUpdate/NSFNoteUpdate of a copy that
 * is no longer current gets ERR_CONFLICT. */
#ifndef TARNWICK_NSFPROFILE_H
#define TARNWICK_NSFPROFILE_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

/* Opens the profile, creating it (and storing it at once) when it does not
 * exist; creating needs Author access. CopyProfile must be TRUE. */
STATUS LNPUBLIC NSFProfileOpen(DBHANDLE hDB, const char *ProfileName, WORD ProfileNameLength, const char *UserName,
                               WORD UserNameLength, BOOL CopyProfile, NOTEHANDLE *rethProfileNote);
/* Stores the profile note (as NSFNoteUpdate without flags). */
STATUS LNPUBLIC NSFProfileUpdate(NOTEHANDLE hProfile, const char *ProfileName, WORD ProfileNameLength,
                                 const char *UserName, WORD UserNameLength);
/* The value of a field: *retbhValue holds the type word and the value, and
 * *retValueLength counts the type word. The block belongs to the database
 * handle and stays valid until it is closed; do not free it. A missing
 * profile or field gives ERR_ITEM_NOT_FOUND (the profile is not created). */
STATUS LNPUBLIC NSFProfileGetField(DBHANDLE hDB, const char *ProfileName, WORD ProfileNameLength,
                                   const char *UserName, WORD UserNameLength, const char *FieldName,
                                   WORD FieldNameLength, WORD *retDatatype, BLOCKID *retbhValue,
                                   DWORD *retValueLength);
/* Replaces the field (Value NULL deletes it) and stores the profile at once,
 * creating the profile when needed. Value excludes the type word. */
STATUS LNPUBLIC NSFProfileSetField(DBHANDLE hDB, const char *ProfileName, WORD ProfileNameLength,
                                   const char *UserName, WORD UserNameLength, const char *FieldName,
                                   WORD FieldNameLength, WORD Datatype, const void *Value, DWORD ValueLength);
/* Deletes the profile; ERR_NOT_FOUND when there is none. */
STATUS LNPUBLIC NSFProfileDelete(DBHANDLE hDB, const char *ProfileName, WORD ProfileNameLength,
                                 const char *UserName, WORD UserNameLength);

/* Calls the routine for each profile (ProfileName NULL: every profile name;
 * otherwise the profiles of that name, for every user). A non-zero status
 * from the routine stops the walk and is returned. Flags must be 0. */
typedef STATUS(LNCALLBACK *NSFPROFILEENUMPROC)(DBHANDLE hDB, void *Ctx, char *ProfileName,
                                               WORD ProfileNameLength, char *UserName, WORD UserNameLength,
                                               NOTEID ProfileNoteID);
STATUS LNPUBLIC NSFProfileEnum(DBHANDLE hDB, const char *ProfileName, WORD ProfileNameLength,
                               NSFPROFILEENUMPROC Callback, void *CallbackCtx, DWORD Flags);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_NSFPROFILE_H */
