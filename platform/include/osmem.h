/* Memory handles: blocks of memory the runtime allocates for the caller or
 * hands back as results (lists, lookup buffers, formula results, ACLs).
 *
 * The caller owns a block it allocated or received and frees it with
 * OSMemFree. OSLockObject gives the block's address; it stays valid until the
 * block is freed (locking is counted but does not move memory). A bad or
 * already freed handle gives an error status (or NULL), never a crash.
 * Thread-safe. */
#ifndef TARNWICK_OSMEM_H
#define TARNWICK_OSMEM_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

/* Block types are accepted for the platform's sake and otherwise ignored. */
#define BLK_MEM_ALLOC 0

/* Largest block the runtime hands out. */
#define MAXONESEGSIZE (0xFFFF - 1 - 128)
#define OSMEM_MAX_ALLOC (64u * 1024u * 1024u)

STATUS LNPUBLIC OSMemAlloc(WORD BlockType, DWORD dwSize, DHANDLE *retHandle);
STATUS LNPUBLIC OSMemFree(DHANDLE Handle);
STATUS LNPUBLIC OSMemGetSize(DHANDLE Handle, DWORD *retSize);
STATUS LNPUBLIC OSMemRealloc(DHANDLE Handle, DWORD NewSize);
void *LNPUBLIC OSLockObject(DHANDLE Handle);
BOOL LNPUBLIC OSUnlockObject(DHANDLE Handle);

/* Address of a block inside a pool: pool handle locked, plus the offset. */
#define OSLockBlock(type, blockid) ((type *)((char *)OSLockObject((blockid).pool) + (blockid).block))
#define OSUnlockBlock(blockid) OSUnlockObject((blockid).pool)

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_OSMEM_H */
