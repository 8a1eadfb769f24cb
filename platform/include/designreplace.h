/* Design replacement: giving a database the design of a template.
 *
 * DesignReplace makes the design notes (forms, subforms, file resources,
 * views, folders, agents, shared fields, the about and using documents) of
 * hDestDB those of hTemplateDB: a design note of the database that matches
 * one of the template (same UNID, or same kind sharing a name or alias) is
 * replaced in place (its note ID stays), the template's other design notes
 * are added, and the database's design notes the template does not have are
 * deleted. Documents, profiles, the ACL and the database title stay as they
 * are. The database's icon note keeps its items but records the template's
 * file name in "$TemplateFileName". All of it is stored in one transaction.
 *
 * Design notes whose "$Flags" hold DESIGN_FLAG_PRESERVE ('P', "prohibit
 * design replacement") are left alone unless dwFlags has
 * DESIGNREPLACE_FORCE. With DESIGNREPLACE_INHERIT in dwOptions the database
 * also inherits from the template from then on: the "inherit from" field of
 * its information string becomes the template's template name (when it has
 * one). AbortCheck (may be NULL) is called before anything is stored; a
 * non-zero status from it ends the call with that status and no change.
 * Needs Designer access to hDestDB (ERR_NOACCESS). Thread-safe. */
#ifndef TARNWICK_DESIGNREPLACE_H
#define TARNWICK_DESIGNREPLACE_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

typedef STATUS(LNCALLBACK *ABORTCHECKPROC)(void);

#define DESIGN_FLAG_PRESERVE 'P'

/* dwFlags */
#define DESIGNREPLACE_FORCE 0x00000001
/* dwOptions */
#define DESIGNREPLACE_INHERIT 0x00000001

STATUS LNPUBLIC DesignReplace(DBHANDLE hTemplateDB, DBHANDLE hDestDB, DWORD dwFlags, DWORD dwOptions,
                              ABORTCHECKPROC AbortCheck);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_DESIGNREPLACE_H */
