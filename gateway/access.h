// Who may do what through the front end:
//  - every signed-in person reads and sets their own out-of-office state
//    and asks for the status of any person or group;
//  - reading or setting another person's state needs Editor access or
//    higher to that person's mail file (its ACL, group membership counted)
//    or the "[Admin]" role in the application database's ACL.
#pragma once

#include <string>

#include "accounts.h"

namespace tarnwick::gateway {

enum class Grant { own, mail_file_editor, application_admin, refused };

// Decides whether `actor` may read or change `target`'s state. Never
// throws: a database that cannot be opened grants nothing.
Grant may_manage(const Account& actor, const Account& target);

// The access level (ACL_LEVEL_*) a person has to a database, and whether
// the person holds a role ("[Admin]") there. -1 / false when the database
// cannot be opened or its ACL read.
int access_level(const std::string& database_path, const std::string& canonical_name);
bool holds_role(const std::string& database_path, const std::string& canonical_name, const std::string& role);

// The path the runtime opens for a mail file on a server: the file itself
// on the local server, "server!!file" on another.
std::string database_path_on(const std::string& server, const std::string& file);

// The application database's path: "<OOODirectory>/OOO.nsf".
std::string application_database_path();

}  // namespace tarnwick::gateway
