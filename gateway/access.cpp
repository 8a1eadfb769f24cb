#include "access.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <vector>

#include "acl.h"
#include "lmbcs_text.h"
#include "names.h"
#include "netpath.h"
#include "nsfdb.h"
#include "osenv.h"
#include "osmem.h"
#include "protocol/ProtocolNames.h"
#include "session.h"
#include "textlist.h"

namespace tarnwick::gateway {
namespace {

constexpr const char* kAdminRole = "[Admin]";

bool equal_no_case(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

// An open database and its ACL block, released at scope end.
class AclOf {
 public:
  explicit AclOf(const std::string& path) {
    if (NSFDbOpen(client::to_lmbcs(path).c_str(), &db_) != NOERROR) {
      db_ = NULLHANDLE;
      return;
    }
    if (NSFDbReadACL(db_, &acl_) != NOERROR) acl_ = NULLHANDLE;
  }
  AclOf(const AclOf&) = delete;
  AclOf& operator=(const AclOf&) = delete;
  ~AclOf() {
    if (acl_ != NULLHANDLE) OSMemFree(acl_);
    if (db_ != NULLHANDLE) NSFDbClose(db_);
  }
  DHANDLE acl() const { return acl_; }

 private:
  DBHANDLE db_ = NULLHANDLE;
  DHANDLE acl_ = NULLHANDLE;
};

// A names list holding one name; the runtime adds the directory's groups
// that hold it when it looks up access.
std::string names_list_of(const std::string& canonical_name) {
  const std::string name = client::to_lmbcs(canonical_name);
  std::string block(sizeof(NAMES_LIST), '\0');
  NAMES_LIST header{};
  header.NumNames = 1;
  header.Authenticated = NAMES_LIST_AUTHENTICATED | NAMES_LIST_PASSWORD_AUTHENTICATED;
  std::memcpy(block.data(), &header, sizeof header);
  block += name;
  block += '\0';
  return block;
}

struct Lookup {
  bool ok = false;
  WORD level = ACL_LEVEL_NOACCESS;
  std::vector<std::string> roles;
};

Lookup look_up(const std::string& database_path, const std::string& canonical_name) {
  Lookup result;
  AclOf acl(database_path);
  if (acl.acl() == NULLHANDLE) return result;
  const std::string names = names_list_of(canonical_name);
  DHANDLE roles = NULLHANDLE;
  if (ACLLookupAccess(acl.acl(), reinterpret_cast<const NAMES_LIST*>(names.data()), &result.level, nullptr, nullptr,
                      &roles) != NOERROR) {
    return result;
  }
  result.ok = true;
  if (roles != NULLHANDLE) {
    const void* list = OSLockObject(roles);
    const WORD count = ListGetNumEntries(list, FALSE);
    for (WORD i = 0; i < count; ++i) {
      char* text = nullptr;
      WORD length = 0;
      if (ListGetText(list, FALSE, i, &text, &length) == NOERROR) result.roles.emplace_back(text, length);
    }
    OSUnlockObject(roles);
    OSMemFree(roles);
  }
  return result;
}

std::string local_server() {
  char name[MAXENVVALUE + 1] = {};
  OSGetEnvironmentString("ServerName", name, MAXENVVALUE);
  return client::to_utf8(name);
}

}  // namespace

int access_level(const std::string& database_path, const std::string& canonical_name) {
  const Lookup lookup = look_up(database_path, canonical_name);
  return lookup.ok ? lookup.level : -1;
}

bool holds_role(const std::string& database_path, const std::string& canonical_name, const std::string& role) {
  const Lookup lookup = look_up(database_path, canonical_name);
  return std::any_of(lookup.roles.begin(), lookup.roles.end(),
                     [&](const std::string& held) { return equal_no_case(held, role); });
}

std::string database_path_on(const std::string& server, const std::string& file) {
  if (server.empty() || equal_no_case(client::canonical_name(server), client::canonical_name(local_server()))) {
    return file;
  }
  char path[MAXPATH] = {};
  if (OSPathNetConstruct(nullptr, client::to_lmbcs(server).c_str(), client::to_lmbcs(file).c_str(), path) !=
      NOERROR) {
    return file;
  }
  return client::to_utf8(path);
}

std::string application_database_path() {
  char directory[MAXENVVALUE + 1] = {};
  OSGetEnvironmentString("OOODirectory", directory, MAXENVVALUE);
  const std::string folder = client::to_utf8(directory);
  return folder.empty() ? protocol::kApplicationDatabase : folder + "/" + protocol::kApplicationDatabase;
}

Grant may_manage(const Account& actor, const Account& target) {
  try {
    if (equal_no_case(actor.full_name, target.full_name)) return Grant::own;
    if (!target.mail_file.empty() &&
        access_level(database_path_on(target.mail_server, target.mail_file), actor.full_name) >= ACL_LEVEL_EDITOR) {
      return Grant::mail_file_editor;
    }
    if (holds_role(application_database_path(), actor.full_name, kAdminRole)) return Grant::application_admin;
  } catch (...) {
    // A name the runtime cannot read grants nothing.
  }
  return Grant::refused;
}

}  // namespace tarnwick::gateway
