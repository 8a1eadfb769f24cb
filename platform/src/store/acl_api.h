// The stored ACL of a database, for the store's own use (opening with a
// names list) and for other runtime modules.
#pragma once

#include "global.h"
#include "store/acl_model.h"
#include "store/database.h"

namespace tarnwick::rt::store {

// The database's ACL, or the default one when none is stored.
STATUS read_database_acl(Database& database, Acl* acl);
STATUS store_database_acl(Database& database, const Acl& acl);

}  // namespace tarnwick::rt::store
