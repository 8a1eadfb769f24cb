/* The server's identity: its name and its signing key, kept in the ID file
 * (notes.ini "KeyFilename", relative to the data directory; "server.id"
 * when unset).
 *
 * The ID file is a small text file, readable by its owner only:
 *   TarnwickServerID 1
 *   Name: CN=Srv1/O=Org
 *   PublicKey: <64 hex digits, Ed25519>
 *   PrivateKey: <64 hex digits, Ed25519 seed>
 * Notes are signed with this key (NSFNoteSign, nsfnote.h). Thread-safe. */
#ifndef TARNWICK_KFM_H
#define TARNWICK_KFM_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

/* The name in the ID file (retUserName holds MAXUSERNAME bytes).
 * ERR_NOEXIST when there is no ID file; ERR_INVALID_ITEMUNK when it is
 * damaged. */
STATUS LNPUBLIC SECKFMGetUserName(char *retUserName);

/* Runtime extension for provisioning: writes a new ID file for ServerName
 * with a fresh key pair. IDFileName NULL means the configured ID file.
 * ERR_EXISTS when the file exists, unless ForceReplace. */
STATUS LNPUBLIC TarnwickCreateServerID(const char *IDFileName, const char *ServerName, BOOL ForceReplace);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_KFM_H */
