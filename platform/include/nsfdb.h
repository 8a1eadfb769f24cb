/* Databases: open, close, create, delete and describe the database files of
 * the data directory.
 *
 * A path is relative to the data directory unless absolute; '\' and '/' both
 * separate folders ("mail\jdoe.nsf"). A path of the form "server!!file"
 * (netpath.h) names a database on a server: the local server (ServerName in
 * notes.ini) is this data directory, other servers come from servers.ini; an
 * unknown or down server gives ERR_SESSION_CLOSED.
 *
 * A DBHANDLE is owned by the caller and closed with NSFDbClose (closing
 * NULLHANDLE is a no-op). Any number of threads and processes may open one
 * database; each handle may be used from any thread. Every change is
 * committed and synced to disk before the call that made it returns, unless
 * it is made inside a transaction (below). */
#ifndef TARNWICK_NSFDB_H
#define TARNWICK_NSFDB_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

/* Database classes for NSFDbCreate: by file extension (".ntf" is a
 * template), or explicit. */
#define DBCLASS_BY_EXTENSION 0
#define DBCLASS_NOTEFILE 0xFF01
#define DBCLASS_DESKTOP 0xFF02
#define DBCLASS_TEMPLATEFILE 0xFF04

/* NSFDbOpenExtended options */
#define DBOPEN_WITH_SCAN_LOCK 0x0001
#define DBOPEN_PURGE 0x0002
#define DBOPEN_NO_USERINFO 0x0004
#define DBOPEN_FORCE_FIXUP 0x0008
#define DBOPEN_FULL_ACCESS 0x0020

STATUS LNPUBLIC NSFDbOpen(const char *PathName, DBHANDLE *rethDB);
/* With hNames (a NAMES_LIST block, nameslist.h) the database's ACL decides
 * what the handle may do; a user with no access is refused (ERR_NOACCESS).
 * NULLHANDLE means the server's own full access. ModifiedTime may be NULL;
 * retDataModified / retNonDataModified (may be NULL) receive the last
 * modification time of data and of design notes. */
STATUS LNPUBLIC NSFDbOpenExtended(const char *PathName, WORD Options, DHANDLE hNames, const TIMEDATE *ModifiedTime,
                                  DBHANDLE *rethDB, TIMEDATE *retDataModified, TIMEDATE *retNonDataModified);
STATUS LNPUBLIC NSFDbClose(DBHANDLE hDB);
/* Creates an empty database (ERR_EXISTS when the file exists, unless
 * ForceCreation). Folders on the way are created. */
STATUS LNPUBLIC NSFDbCreate(const char *PathName, WORD DbClass, BOOL ForceCreation);
STATUS LNPUBLIC NSFDbDelete(const char *PathName);

/* Transactions. Between NSFTransactionBegin and NSFTransactionCommit every
 * note written, created or deleted through hDB (and the notes opened from
 * it) is stored together: a process that dies before the commit leaves
 * none of it, the commit stores all of it and is synced to disk before it
 * returns. Begin takes the database's write lock at once: other writers of
 * the file wait for the commit or rollback (up to the store's lock
 * timeout). Readers see the last committed state. NSFTransactionRollback
 * drops the writes (so does closing hDB with the transaction open); notes
 * written meanwhile keep sequences that were never stored, and their next
 * update is refused as a conflict. flags must be 0. ERR_TRANSACTION_OPEN:
 * one is open on hDB already; ERR_NO_TRANSACTION: none is open. */
STATUS LNPUBLIC NSFTransactionBegin(DBHANDLE hDB, DWORD flags);
STATUS LNPUBLIC NSFTransactionCommit(DBHANDLE hDB, DWORD flags);
STATUS LNPUBLIC NSFTransactionRollback(DBHANDLE hDB);

/* The build number of the software that created the database. */
STATUS LNPUBLIC NSFDbGetBuildVersion(DBHANDLE hDB, WORD *retVersion);
/* The build number new databases get. */
#define TARNWICK_DB_BUILD_VERSION 470

/* Database ID (creation time) and replica ID. */
STATUS LNPUBLIC NSFDbIDGet(DBHANDLE hDB, DBID *retDbID);
typedef struct {
  DBID ID;
  WORD Flags;
  WORD CutoffInterval;
  TIMEDATE Cutoff;
} DBREPLICAINFO;
STATUS LNPUBLIC NSFDbReplicaInfoGet(DBHANDLE hDB, DBREPLICAINFO *retReplicationInfo);
STATUS LNPUBLIC NSFDbReplicaInfoSet(DBHANDLE hDB, const DBREPLICAINFO *ReplicationInfo);

/* retCanonicalPathName: the path as opened; retExpandedPathName: the full
 * file path. Either may be NULL; each buffer must hold MAXPATH bytes. */
STATUS LNPUBLIC NSFDbPathGet(DBHANDLE hDB, char *retCanonicalPathName, char *retExpandedPathName);

/* Last modification times of data notes and of non-data (design) notes. */
STATUS LNPUBLIC NSFDbModifiedTime(DBHANDLE hDB, TIMEDATE *retDataModified, TIMEDATE *retNonDataModified);

/* The special note of a class: Index is SPECIAL_ID_NOTE (nsfnote.h) OR'd
 * with NOTE_CLASS_ICON, _INFO (about), _HELP (using), _DESIGN, _FORM or
 * _VIEW (the default form or view). ERR_SPECIAL_ID when there is none. */
STATUS LNPUBLIC NSFDbGetSpecialNoteID(DBHANDLE hDB, WORD Index, NOTEID *retNoteID);

/* Database information string: "title\ncategories\n#1template name\n#2
 * inherited template name" in a buffer of NSF_INFO_SIZE bytes (the only
 * NUL-terminated string the database keeps). */
#define NSF_INFO_SIZE 128
#define INFOPARSE_TITLE 0
#define INFOPARSE_CATEGORIES 1
#define INFOPARSE_CLASS 2
#define INFOPARSE_DESIGN_CLASS 3
STATUS LNPUBLIC NSFDbInfoGet(DBHANDLE hDB, char *retBuffer);
/* Stores the information string (ERR_NSF_INFO_SIZE when it does not fit;
 * ERR_NOACCESS below Designer access). Callers that want the title shown on
 * the database's icon write it to the icon note's "$TITLE" as well. */
STATUS LNPUBLIC NSFDbInfoSet(DBHANDLE hDB, const char *Buffer);
STATUS LNPUBLIC NSFDbInfoPut(DBHANDLE hDB, const char *Buffer);
/* Copies field What of Info into Buffer: at most Length bytes, then a NUL. */
void LNPUBLIC NSFDbInfoParse(const char *Info, WORD What, char *Buffer, WORD Length);
/* Replaces field What of Info (Buffer NULL clears it); the result is cut to
 * NSF_INFO_SIZE-1 bytes. */
void LNPUBLIC NSFDbInfoModify(char *Info, WORD What, const char *Buffer);

/* NSFDbCreateAndCopy flags */
#define DBCOPY_REPLICA 0x00000001
#define DBCOPY_SUBCLASS_TEMPLATE 0x00000002
#define DBCOPY_DBINFO2 0x00000004
#define DBCOPY_SPECIAL_OBJECTS 0x00000008
#define DBCOPY_NO_FULLTEXT 0x00000020
#define DBCOPY_ENCRYPT_SIMPLE 0x00000040
#define DBCOPY_ENCRYPT_MEDIUM 0x00000080
#define DBCOPY_ENCRYPT_STRONG 0x00000100
#define DBCOPY_KEEP_NOTE_MODTIME 0x00000200
#define DBCOPY_REPLICA_NAMELIST 0x01000000
#define DBCOPY_DEST_IS_NSF 0x02000000
#define DBCOPY_DEST_IS_DB2 0x04000000
#define DBCOPY_OVERRIDE_DEST 0x08000000

/* Creates dstDb (class by extension) with the information string, ACL and
 * the notes of the classes in NoteClass of srcDb (NOTE_CLASS_ALLNONDATA:
 * the design). DBCOPY_REPLICA keeps the replica ID; DBCOPY_OVERRIDE_DEST
 * replaces an existing dstDb. rethDstDb (may be NULL) receives the new
 * database open. limit is ignored. */
STATUS LNPUBLIC NSFDbCreateAndCopy(const char *srcDb, const char *dstDb, WORD NoteClass, WORD limit, DWORD flags,
                                   DBHANDLE *rethDstDb);

/* Runtime extension: gives the database another build number, so that tools
 * and tests can make a database look like one made by an older server. */
STATUS LNPUBLIC TarnwickDbSetBuildVersion(DBHANDLE hDB, WORD BuildVersion);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_NSFDB_H */
