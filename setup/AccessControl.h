// The access control policy of the application database and its templates:
// the default list written over a template that has no design file, the
// reset of the anonymous entry, and the upgrade that lets every reader and
// author write public documents. None of these logs or throws; each returns
// the status of its last call that counts (reading or storing the list).
#ifndef TARNWICK_SETUP_ACCESSCONTROL_H
#define TARNWICK_SETUP_ACCESSCONTROL_H

#include <deque>
#include <string>

#include "acl.h"
#include "global.h"

// Writes one entry of the list hACL. With a name, any entry of that name is
// replaced by one of the given level and flags; without a name (nullptr)
// the default entry gets the level and flags. With adminRoles every role
// whose name begins with "[Admin]" or "[SysAdmin]" is given to the entry.
STATUS _set_acl(DHANDLE hACL, const char* name, WORD level, WORD flags, BOOL adminRoles);

// Appends to admins the canonical names in the "Administrator" item of the
// Server document of serverName in "names.nsf", or, when that yields none,
// those in "FullAdmin". Appends nothing when the document cannot be read.
void _get_server_admin(const char* serverName, std::deque<std::string>& admins);

// ACLEnumEntries callback: appends each entry's name to the
// std::deque<std::string> given as names.
void LNCALLBACK EnumACLReadEntry(void* names, char* name, WORD level, ACL_PRIVILEGES* privileges, WORD flags);

// Replaces every entry but "-Default-" by the task's default policy, each
// entry under its canonical name and again in brackets (the template form a
// database made from the template takes as its own).
STATUS Set_Default_ACL(DBHANDLE hDb);

// "Anonymous" gets no access but may read public documents.
STATUS Set_Default_ACL_ANONYMOUS(DBHANDLE hDb);

// Every reader or author entry that cannot write public documents gets that
// right; the list is stored only when an entry changed.
STATUS Upgrade_ACL(DBHANDLE hDb);

#endif  // TARNWICK_SETUP_ACCESSCONTROL_H
