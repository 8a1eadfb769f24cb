/* Names lists: who a caller is, for access checks. A NAMES_LIST in a memory
 * block is followed by NumNames NUL-terminated names: the user's canonical
 * name first, then every group and other name the user counts as (wildcards
 * such as "*" + "/O=Org", roles are not names). NSFDbOpenExtended and
 * ACLLookupAccess take it. */
#ifndef TARNWICK_NAMESLIST_H
#define TARNWICK_NAMESLIST_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

typedef struct {
  BYTE ID[5];
  BYTE Product;
  BYTE Check[2];
} LICENSEID;

typedef struct {
  WORD NumNames;
  LICENSEID License; /* all zero */
  DWORD Authenticated;
} NAMES_LIST;

/* NAMES_LIST.Authenticated bits */
#define NAMES_LIST_AUTHENTICATED 0x0001
#define NAMES_LIST_PASSWORD_AUTHENTICATED 0x0002
#define NAMES_LIST_FULL_ADMIN_ACCESS 0x0004

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_NAMESLIST_H */
