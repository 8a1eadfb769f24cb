// The ACL calls of acl.h. An ACL handle is a memory block holding the
// encoded ACL (acl_model.h); each call decodes it, changes it and writes it
// back.
#include <algorithm>
#include <cstring>

#include "acl.h"
#include "core/memory.h"
#include "globerr.h"
#include "osmem.h"
#include "store/acl_api.h"
#include "store/acl_model.h"
#include "core/api_guard.h"
#include "store/database.h"
#include "store/group_membership.h"
#include "store/note.h"

using namespace tarnwick::rt;
using namespace tarnwick::rt::store;

namespace tarnwick::rt::store {

STATUS read_database_acl(Database& database, Acl* acl) {
  std::string bytes;
  if (STATUS error = database.meta_bytes("acl", &bytes)) return error;
  if (bytes.empty()) {
    *acl = default_database_acl();
    return NOERROR;
  }
  return decode_acl(bytes, acl);
}

STATUS store_database_acl(Database& database, const Acl& acl) {
  return database.put_meta_bytes("acl", encode_acl(acl));
}

}  // namespace tarnwick::rt::store

namespace {

STATUS load(DHANDLE hACL, Acl* acl) {
  std::string_view bytes = block_bytes(hACL);
  if (bytes.empty()) return ERR_BAD_PARAM;
  return decode_acl(bytes, acl);
}

STATUS save(DHANDLE hACL, const Acl& acl) {
  const std::string bytes = encode_acl(acl);
  if (STATUS error = OSMemRealloc(hACL, static_cast<DWORD>(bytes.size()))) return error;
  void* target = OSLockObject(hACL);
  if (target == nullptr) return ERR_BAD_PARAM;
  std::memcpy(target, bytes.data(), bytes.size());
  OSUnlockObject(hACL);
  return NOERROR;
}

// Loads the ACL, lets `change` edit it, and saves it when that succeeds.
template <class Change>
STATUS edit(DHANDLE hACL, Change&& change) {
  return guarded([&]() -> STATUS {
    Acl acl;
    if (STATUS error = load(hACL, &acl)) return error;
    if (STATUS error = change(acl)) return error;
    return save(hACL, acl);
  });
}

bool valid_name(const char* name) {
  return name != nullptr && name[0] != '\0' && std::strlen(name) < MAXUSERNAME;
}

STATUS new_acl_block(const Acl& acl, DHANDLE* rethACL) { return alloc_block_with(encode_acl(acl), rethACL); }

}  // namespace

extern "C" {

STATUS LNPUBLIC ACLCreate(DHANDLE* rethACL) {
  return guarded([&]() -> STATUS {
    if (rethACL == nullptr) return ERR_BAD_PARAM;
    Acl acl;
    acl.entries.push_back(AclEntry{ACL_DEFAULT_NAME, ACL_LEVEL_NOACCESS, 0, {}});
    return new_acl_block(acl, rethACL);
  });
}

STATUS LNPUBLIC NSFDbReadACL(DBHANDLE hDB, DHANDLE* rethACL) {
  return guarded([&]() -> STATUS {
    if (rethACL == nullptr) return ERR_BAD_PARAM;
    *rethACL = NULLHANDLE;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    Acl acl;
    if (STATUS error = read_database_acl(*database, &acl)) return error;
    return new_acl_block(acl, rethACL);
  });
}

STATUS LNPUBLIC NSFDbStoreACL(DBHANDLE hDB, DHANDLE hACL, DWORD /*ObjectID*/, WORD /*Method*/) {
  return guarded([&]() -> STATUS {
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    if (database->access_level < ACL_LEVEL_MANAGER) return ERR_NOACCESS;
    Acl acl;
    if (STATUS error = load(hACL, &acl)) return error;
    return store_database_acl(*database, acl);
  });
}

STATUS LNPUBLIC ACLEnumEntries(DHANDLE hACL, ACLENTRYENUMFUNC EnumFunc, void* EnumFuncParam) {
  return guarded([&]() -> STATUS {
    if (EnumFunc == nullptr) return ERR_BAD_PARAM;
    Acl acl;
    if (STATUS error = load(hACL, &acl)) return error;
    for (auto& entry : acl.entries) {
      ACL_PRIVILEGES privileges = entry.privileges;
      EnumFunc(EnumFuncParam, entry.name.data(), entry.level, &privileges, entry.flags);
    }
    return NOERROR;
  });
}

STATUS LNPUBLIC ACLAddEntry(DHANDLE hACL, const char* Name, WORD AccessLevel, const ACL_PRIVILEGES* Privileges,
                            WORD AccessFlags) {
  return edit(hACL, [&](Acl& acl) -> STATUS {
    if (!valid_name(Name) || AccessLevel > ACL_LEVEL_HIGHEST) return ERR_BAD_PARAM;
    AclEntry entry{Name, AccessLevel, AccessFlags, Privileges ? *Privileges : ACL_PRIVILEGES{}};
    if (AclEntry* existing = acl.find(Name)) {
      *existing = std::move(entry);
      return NOERROR;
    }
    if (acl.entries.size() >= ACL_MAX_ENTRIES) return ERR_ACL_FULL;
    acl.entries.push_back(std::move(entry));
    return NOERROR;
  });
}

STATUS LNPUBLIC ACLDeleteEntry(DHANDLE hACL, const char* Name) {
  return edit(hACL, [&](Acl& acl) -> STATUS {
    if (Name == nullptr) return ERR_BAD_PARAM;
    for (auto it = acl.entries.begin(); it != acl.entries.end(); ++it) {
      if (names_equal(it->name, Name)) {
        acl.entries.erase(it);
        return NOERROR;
      }
    }
    return ERR_ACL_NOENTRY;
  });
}

STATUS LNPUBLIC ACLUpdateEntry(DHANDLE hACL, const char* Name, WORD UpdateFlags, const char* NewName,
                               WORD NewAccessLevel, const ACL_PRIVILEGES* NewPrivileges, WORD NewAccessFlags) {
  return edit(hACL, [&](Acl& acl) -> STATUS {
    AclEntry* entry = acl.find(Name != nullptr ? Name : ACL_DEFAULT_NAME);
    if (entry == nullptr) return ERR_ACL_NOENTRY;
    if ((UpdateFlags & ACL_UPDATE_LEVEL) && NewAccessLevel > ACL_LEVEL_HIGHEST) return ERR_BAD_PARAM;
    if (UpdateFlags & ACL_UPDATE_NAME) {
      if (!valid_name(NewName)) return ERR_BAD_PARAM;
      // A renamed entry is a new entry: what is not updated with it starts cleared.
      AclEntry* clash = acl.find(NewName);
      if (clash != nullptr && clash != entry) return ERR_BAD_PARAM;
      *entry = AclEntry{NewName, ACL_LEVEL_NOACCESS, 0, {}};
    }
    if (UpdateFlags & ACL_UPDATE_LEVEL) entry->level = NewAccessLevel;
    if (UpdateFlags & ACL_UPDATE_PRIVILEGES) entry->privileges = NewPrivileges ? *NewPrivileges : ACL_PRIVILEGES{};
    if (UpdateFlags & ACL_UPDATE_FLAGS) entry->flags = NewAccessFlags;
    return NOERROR;
  });
}

STATUS LNPUBLIC ACLLookupAccess(DHANDLE hACL, const NAMES_LIST* pNamesList, WORD* retAccessLevel,
                                ACL_PRIVILEGES* retPrivileges, WORD* retAccessFlags, DHANDLE* rethPrivNames) {
  return guarded([&]() -> STATUS {
    if (rethPrivNames != nullptr) *rethPrivNames = NULLHANDLE;
    Acl acl;
    if (STATUS error = load(hACL, &acl)) return error;
    std::vector<std::string> names;
    if (pNamesList != nullptr) {
      // The names follow the header contiguously; read no further than NumNames strings.
      const char* cursor = reinterpret_cast<const char*>(pNamesList) + sizeof(NAMES_LIST);
      for (WORD i = 0; i < pNamesList->NumNames; ++i) {
        names.emplace_back(cursor);
        cursor += names.back().size() + 1;
      }
      if (names.empty()) names.emplace_back();  // a list without names gets the default entry
      // The groups of the directory that hold the user (or one of the
      // user's groups) count as the user's names too.
      if (!names.front().empty()) {
        for (std::string& group : groups_containing(names)) {
          if (std::find(names.begin(), names.end(), group) == names.end()) names.push_back(std::move(group));
        }
      }
    }
    const Access access = lookup_access(acl, names);
    if (retAccessLevel != nullptr) *retAccessLevel = access.level;
    if (retAccessFlags != nullptr) *retAccessFlags = access.flags;
    if (retPrivileges != nullptr) *retPrivileges = access.privileges;
    if (rethPrivNames != nullptr) {
      std::vector<std::string> roles;
      for (int i = ACL_BITPRIVCOUNT; i < ACL_PRIVCOUNT; ++i) {
        if (ACLIsPrivSet(access.privileges, i) && !acl.roles[i].empty()) roles.push_back("[" + acl.roles[i] + "]");
      }
      std::vector<std::string_view> views(roles.begin(), roles.end());
      if (STATUS error = alloc_block_with(make_text_list(views), rethPrivNames)) return error;
    }
    return NOERROR;
  });
}

STATUS LNPUBLIC ACLGetPrivName(DHANDLE hACL, WORD PrivNum, char* retPrivName) {
  return guarded([&]() -> STATUS {
    if (retPrivName == nullptr) return ERR_BAD_PARAM;
    retPrivName[0] = '\0';
    if (PrivNum >= ACL_PRIVCOUNT) return ERR_ACL_NOENTRY;
    Acl acl;
    if (STATUS error = load(hACL, &acl)) return error;
    const std::string& name = acl.roles[PrivNum];
    if (name.empty()) return NOERROR;
    const bool role = PrivNum >= ACL_BITPRIVCOUNT;
    const std::string delimited = (role ? "[" : "(") + name + (role ? "]" : ")");
    std::memcpy(retPrivName, delimited.c_str(), delimited.size() + 1);
    return NOERROR;
  });
}

STATUS LNPUBLIC ACLSetPrivName(DHANDLE hACL, WORD PrivNum, const char* Name) {
  return edit(hACL, [&](Acl& acl) -> STATUS {
    if (PrivNum >= ACL_PRIVCOUNT) return ERR_ACL_NOENTRY;
    const std::string name = Name ? Name : "";
    if (name.size() >= ACL_PRIVNAMEMAX) return ERR_BAD_PARAM;
    acl.roles[PrivNum] = name;
    return NOERROR;
  });
}

STATUS LNPUBLIC ACLGetFlags(DHANDLE hACL, DWORD* retFlags) {
  return guarded([&]() -> STATUS {
    if (retFlags == nullptr) return ERR_BAD_PARAM;
    Acl acl;
    if (STATUS error = load(hACL, &acl)) return error;
    *retFlags = acl.flags;
    return NOERROR;
  });
}

STATUS LNPUBLIC ACLSetFlags(DHANDLE hACL, DWORD Flags) {
  return edit(hACL, [&](Acl& acl) -> STATUS {
    acl.flags = Flags;
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFDbCopyTemplateACL(DBHANDLE hSrcDB, DBHANDLE hDstDB, const char* Manager, WORD DefaultAccessLevel) {
  return guarded([&]() -> STATUS {
    auto source = find_database(hSrcDB);
    auto target = find_database(hDstDB);
    if (!source || !target) return ERR_DB_NOT_OPEN;
    if (target->access_level < ACL_LEVEL_MANAGER) return ERR_NOACCESS;
    if (DefaultAccessLevel > ACL_LEVEL_HIGHEST) return ERR_BAD_PARAM;
    Acl from;
    Acl to;
    if (STATUS error = read_database_acl(*source, &from)) return error;
    if (STATUS error = read_database_acl(*target, &to)) return error;
    bool template_default = false;
    for (const auto& entry : from.entries) {
      if (entry.name.size() < 3 || entry.name.front() != '[' || entry.name.back() != ']') continue;
      AclEntry copied = entry;
      copied.name = entry.name.substr(1, entry.name.size() - 2);
      if (names_equal(copied.name, ACL_DEFAULT_NAME)) template_default = true;
      if (AclEntry* existing = to.find(copied.name)) {
        *existing = std::move(copied);
      } else {
        to.entries.push_back(std::move(copied));
      }
    }
    for (int i = 0; i < ACL_PRIVCOUNT; ++i) {
      if (!from.roles[i].empty()) to.roles[i] = from.roles[i];
    }
    if (!template_default) {
      if (AclEntry* fallback = to.find(ACL_DEFAULT_NAME)) {
        fallback->level = DefaultAccessLevel;
      } else {
        to.entries.push_back(AclEntry{ACL_DEFAULT_NAME, DefaultAccessLevel, 0, {}});
      }
    }
    if (Manager != nullptr && Manager[0] != '\0') {
      if (AclEntry* existing = to.find(Manager)) {
        existing->level = ACL_LEVEL_MANAGER;
      } else {
        to.entries.push_back(AclEntry{Manager, ACL_LEVEL_MANAGER, 0, {}});
      }
    }
    if (to.entries.size() > ACL_MAX_ENTRIES) return ERR_ACL_FULL;
    return store_database_acl(*target, to);
  });
}

}  // extern "C"
