/* Network paths: "server!!file" names a database on a server, and
 * "port!!server!!file" on a server through a port (ports are accepted and
 * ignored).
 *
 * The local server is notes.ini's ServerName; its files are in the data
 * directory. Other servers are listed in servers.ini in the data directory,
 * one section per server:
 *   [CN=Mail2/O=Org]
 *   Directory=../mail2-data     (absolute, or relative to this data directory)
 *   State=down                  (optional: the server does not answer)
 * A server name matches in canonical, abbreviated or common form, without
 * regard to case. Opening a database on a server that is not listed or is
 * down fails with ERR_SESSION_CLOSED; a file path given with a server must
 * be relative (ERR_INVALID_NAME). Thread-safe. */
#ifndef TARNWICK_NETPATH_H
#define TARNWICK_NETPATH_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

/* retPathName (MAXPATH bytes) receives "port!!server!!file", "server!!file",
 * or the bare file name when ServerName is NULL or empty; cut to
 * MAXPATH-1 bytes. PortName may be NULL. Always NOERROR. */
STATUS LNPUBLIC OSPathNetConstruct(const char *PortName, const char *ServerName, const char *FileName,
                                   char *retPathName);
/* Splits a path into port, server and file (each output MAXPATH bytes, may
 * be NULL; a missing part is ""). ERR_INV_FILE_NAME for an empty or
 * over-long file part, ERR_INV_SERVER_NAME for more than three parts. */
STATUS LNPUBLIC OSPathNetParse(const char *PathName, char *retPortName, char *retServerName, char *retFileName);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_NETPATH_H */
