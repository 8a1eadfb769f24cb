// The ACL as the store keeps it: decoded from and encoded to the bytes of an
// ACL memory block (and of the database's stored ACL), and the access rule.
//
// Encoding (little-endian): "TWACL1" magic, DWORD ACL flags, 80 role names
// (BYTE length + bytes), WORD entry count, then per entry WORD name length,
// name, WORD level, WORD flags, 10 privilege bytes. decode_acl() accepts any
// input and reports damage as ERR_INVALID_ITEMUNK; it never reads out of bounds.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "acl.h"
#include "global.h"

namespace tarnwick::rt::store {

struct AclEntry {
  std::string name;
  WORD level = ACL_LEVEL_NOACCESS;
  WORD flags = 0;
  ACL_PRIVILEGES privileges{};
};

struct Acl {
  DWORD flags = 0;
  std::array<std::string, ACL_PRIVCOUNT> roles;  // bare names, "" when unnamed
  std::vector<AclEntry> entries;

  AclEntry* find(std::string_view name);
};

struct Access {
  WORD level = ACL_LEVEL_NOACCESS;
  WORD flags = 0;
  ACL_PRIVILEGES privileges{};
};

std::string encode_acl(const Acl& acl);
// ERR_INVALID_ITEMUNK for bytes that are not an encoded ACL.
STATUS decode_acl(std::string_view bytes, Acl* acl);

// The ACL of a database that has none stored (see acl.h).
Acl default_database_acl();

// The access rule of ACLLookupAccess; `names` empty means "no names list".
Access lookup_access(const Acl& acl, const std::vector<std::string>& names);

// The names of a NAMES_LIST block (user first); empty for a bad block.
std::vector<std::string> names_of(std::string_view names_list_block);
// A NAMES_LIST block's bytes for the names (user first).
std::string make_names_list(const std::vector<std::string>& names, DWORD authenticated);

}  // namespace tarnwick::rt::store
