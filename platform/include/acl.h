/* Access control lists of databases.
 *
 * An ACL is read into a memory block (NSFDbReadACL, or a new one from
 * ACLCreate) that the caller owns and frees with OSMemFree; the ACL* calls
 * change the block, and NSFDbStoreACL writes it back to a database. Entries
 * are names (fully canonical for hierarchical names, matched without case)
 * with a level, flags and privileges; "-Default-" is the entry for everyone
 * not listed. Privileges 0-4 are the old privilege levels, 5-79 roles.
 *
 * A database without a stored ACL reads as: "-Default-" Designer, the local
 * server (ServerName in notes.ini) and "LocalDomainServers" Manager.
 * Thread-safe as long as one ACL block is changed by one thread at a time. */
#ifndef TARNWICK_ACL_H
#define TARNWICK_ACL_H

#include "global.h"
#include "nameslist.h"

TARNWICK_EXTERN_C_BEGIN

/* Levels */
#define ACL_LEVEL_NOACCESS 0
#define ACL_LEVEL_DEPOSITOR 1
#define ACL_LEVEL_READER 2
#define ACL_LEVEL_AUTHOR 3
#define ACL_LEVEL_EDITOR 4
#define ACL_LEVEL_DESIGNER 5
#define ACL_LEVEL_MANAGER 6
#define ACL_LEVEL_HIGHEST 6
#define ACL_LEVEL_COUNT 7

/* Entry flags */
#define ACL_FLAG_AUTHOR_NOCREATE 0x0001
#define ACL_FLAG_SERVER 0x0002
#define ACL_FLAG_NODELETE 0x0004
#define ACL_FLAG_CREATE_PRAGENT 0x0008
#define ACL_FLAG_CREATE_PRFOLDER 0x0010
#define ACL_FLAG_PERSON 0x0020
#define ACL_FLAG_GROUP 0x0040
#define ACL_FLAG_CREATE_FOLDER 0x0080
#define ACL_FLAG_CREATE_LOTUSSCRIPT 0x0100
#define ACL_FLAG_PUBLICREADER 0x0200
#define ACL_FLAG_PUBLICWRITER 0x0400
#define ACL_FLAG_MONITORS_DISALLOWED 0x0800
#define ACL_FLAG_NOREPLICATE 0x1000
#define ACL_FLAG_ADMIN_READERAUTHOR 0x4000
#define ACL_FLAG_ADMIN_SERVER 0x8000

/* ACL-wide flags (ACLGetFlags / ACLSetFlags) */
#define ACL_UNIFORM_ACCESS 0x00000001

/* ACLUpdateEntry: which parts to change */
#define ACL_UPDATE_NAME 0x01
#define ACL_UPDATE_LEVEL 0x02
#define ACL_UPDATE_PRIVILEGES 0x04
#define ACL_UPDATE_FLAGS 0x08

/* Privileges */
#define ACL_PRIVCOUNT 80
#define ACL_BITPRIVCOUNT 5
#define ACL_PRIVNAMEMAX 16   /* a role name, with its NUL, without brackets */
#define ACL_PRIVSTRINGMAX 18 /* with brackets or parentheses */
typedef struct {
  BYTE BitMask[10];
} ACL_PRIVILEGES;
#define ACLSetPriv(privs, num) ((privs).BitMask[(num) / 8] |= (BYTE)(1 << ((num) % 8)))
#define ACLClearPriv(privs, num) ((privs).BitMask[(num) / 8] &= (BYTE) ~(1 << ((num) % 8)))
#define ACLInvertPriv(privs, num) ((privs).BitMask[(num) / 8] ^= (BYTE)(1 << ((num) % 8)))
#define ACLIsPrivSet(privs, num) (((privs).BitMask[(num) / 8] & (1 << ((num) % 8))) != 0)

#define ACL_DEFAULT_NAME "-Default-"
/* Most entries one ACL holds (ERR_ACL_FULL beyond). */
#define ACL_MAX_ENTRIES 2000

/* NSFDbStoreACL methods */
#define ACL_STORE_UPDATE 0
#define ACL_STORE_NEW 1

/* An empty ACL: "-Default-" with no access, no roles. */
STATUS LNPUBLIC ACLCreate(DHANDLE *rethACL);
STATUS LNPUBLIC NSFDbReadACL(DBHANDLE hDB, DHANDLE *rethACL);
/* Needs Manager access (ERR_NOACCESS). ObjectID and Method are accepted
 * for the platform's sake; the ACL replaces the stored one either way. */
STATUS LNPUBLIC NSFDbStoreACL(DBHANDLE hDB, DHANDLE hACL, DWORD ObjectID, WORD Method);

/* Calls the routine for each entry in order ("-Default-" included). The
 * routine must not change the ACL. */
typedef void(LNCALLBACK *ACLENTRYENUMFUNC)(void *EnumFuncParam, char *Name, WORD AccessLevel,
                                           ACL_PRIVILEGES *Privileges, WORD AccessFlags);
STATUS LNPUBLIC ACLEnumEntries(DHANDLE hACL, ACLENTRYENUMFUNC EnumFunc, void *EnumFuncParam);
/* Adds an entry; a name already listed has its entry replaced. Privileges
 * may be NULL (none). */
STATUS LNPUBLIC ACLAddEntry(DHANDLE hACL, const char *Name, WORD AccessLevel, const ACL_PRIVILEGES *Privileges,
                            WORD AccessFlags);
/* ERR_ACL_NOENTRY when the name is not listed. */
STATUS LNPUBLIC ACLDeleteEntry(DHANDLE hACL, const char *Name);
/* Changes the parts named by UpdateFlags of the entry Name (NULL: the
 * default entry). Renaming makes a new entry: parts not updated with it
 * are cleared. ERR_ACL_NOENTRY when the name is not listed. */
STATUS LNPUBLIC ACLUpdateEntry(DHANDLE hACL, const char *Name, WORD UpdateFlags, const char *NewName,
                               WORD NewAccessLevel, const ACL_PRIVILEGES *NewPrivileges, WORD NewAccessFlags);
/* The access of a names list: an entry of the user's own name wins, even
 * over a higher group entry; otherwise the highest of the matching entries
 * (privileges joined); otherwise "-Default-". A NULL names list gives the
 * lowest entry. rethPrivNames (may be NULL) receives a text list (LIST
 * form, no type word) of the role names "[Role]" the result holds; the
 * caller frees it. Any output may be NULL. */
STATUS LNPUBLIC ACLLookupAccess(DHANDLE hACL, const NAMES_LIST *pNamesList, WORD *retAccessLevel,
                                ACL_PRIVILEGES *retPrivileges, WORD *retAccessFlags, DHANDLE *rethPrivNames);
/* The name of privilege PrivNum with its delimiters ("[Role]" for roles,
 * "(Name)" for 0-4), or "" when it has none; ERR_ACL_NOENTRY for a number
 * of 80 or more. retPrivName holds ACL_PRIVSTRINGMAX bytes. */
STATUS LNPUBLIC ACLGetPrivName(DHANDLE hACL, WORD PrivNum, char *retPrivName);
/* Name without delimiters, at most ACL_PRIVNAMEMAX-1 bytes; NULL or ""
 * clears it. */
STATUS LNPUBLIC ACLSetPrivName(DHANDLE hACL, WORD PrivNum, const char *Name);
STATUS LNPUBLIC ACLGetFlags(DHANDLE hACL, DWORD *retFlags);
STATUS LNPUBLIC ACLSetFlags(DHANDLE hACL, DWORD Flags);

/* Copies the template entries of hSrcDB ("[Name]" becomes "Name",
 * "[-Default-]" the default entry) and the role names into the ACL of
 * hDstDB, sets the default entry to DefaultAccessLevel when the template has
 * no "[-Default-]", and adds Manager (may be NULL) with Manager access. */
STATUS LNPUBLIC NSFDbCopyTemplateACL(DBHANDLE hSrcDB, DBHANDLE hDstDB, const char *Manager,
                                     WORD DefaultAccessLevel);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_ACL_H */
