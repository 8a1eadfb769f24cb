/* File resources: files (images, icons, installers) kept as design notes
 * of a database, as the DXL importer stores <fileresource> elements, so
 * that a web front end can serve them.
 *
 * TarnwickFileResourceRead is a runtime extension: it finds the file
 * resource named Name (or an alias; without regard to case) and hands its
 * bytes back in a new memory block the caller frees with OSMemFree (an
 * empty file gives NULLHANDLE and length 0). retMimeType (may be NULL)
 * receives the content type, NUL-terminated, cut to MimeTypeSize-1 bytes.
 * ERR_NOT_FOUND when there is no such file resource. Thread-safe. */
#ifndef TARNWICK_FILERESOURCE_H
#define TARNWICK_FILERESOURCE_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

STATUS LNPUBLIC TarnwickFileResourceRead(DBHANDLE hDB, const char *Name, DHANDLE *rethData, DWORD *retLength,
                                         char *retMimeType, WORD MimeTypeSize);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_FILERESOURCE_H */
