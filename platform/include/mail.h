/* Mail addressing: expanding group names into their members through the
 * local directory (the "($Groups)" view of the directories of lookup.h).
 *
 * Lists are text lists with their WORD data type first (TYPE_TEXT_LIST,
 * textlist.h with fPrefixDataType TRUE). Groups are replaced by their
 * "Members", nested groups are followed (at most 20 levels; a group met
 * again on its own path is not expanded again), every name is output once
 * (compared without regard to case) in first-seen order, and persons and
 * unknown names pass through as written. Thread-safe. */
#ifndef TARNWICK_MAIL_H
#define TARNWICK_MAIL_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

/* hWorkList (WorkListSize bytes) is freed, also on error; the caller frees
 * *hOutputList. With UseExpanded, hRecipsExpanded is a text list (type word
 * first) of groups expanded before: they are not expanded again (nor
 * output), and the groups expanded now are added to it. */
STATUS LNPUBLIC MailExpandNames(DHANDLE hWorkList, WORD WorkListSize, DHANDLE *hOutputList, WORD *OutputListSize,
                                BOOL UseExpanded, DHANDLE hRecipsExpanded);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_MAIL_H */
