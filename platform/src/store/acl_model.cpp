// ACL encoding and the access rule (see acl_model.h).
#include "store/acl_model.h"

#include <cstring>

#include "env/environment.h"
#include "globerr.h"
#include "nameslist.h"
#include "store/item_codec.h"
#include "store/note.h"

namespace tarnwick::rt::store {
namespace {

constexpr std::string_view kMagic = "TWACL1";

void join_privileges(ACL_PRIVILEGES& into, const ACL_PRIVILEGES& from) {
  for (size_t i = 0; i < sizeof(into.BitMask); ++i) into.BitMask[i] |= from.BitMask[i];
}

}  // namespace

AclEntry* Acl::find(std::string_view name) {
  for (auto& entry : entries) {
    if (names_equal(entry.name, name)) return &entry;
  }
  return nullptr;
}

std::string encode_acl(const Acl& acl) {
  std::string out(kMagic);
  put_dword(out, acl.flags);
  for (const auto& role : acl.roles) {
    out.push_back(static_cast<char>(role.size()));
    out += role;
  }
  put_word(out, static_cast<WORD>(acl.entries.size()));
  for (const auto& entry : acl.entries) {
    put_word(out, static_cast<WORD>(entry.name.size()));
    out += entry.name;
    put_word(out, entry.level);
    put_word(out, entry.flags);
    out.append(reinterpret_cast<const char*>(entry.privileges.BitMask), sizeof(entry.privileges.BitMask));
  }
  return out;
}

STATUS decode_acl(std::string_view bytes, Acl* acl) {
  *acl = Acl{};
  size_t pos = 0;
  std::string_view magic;
  if (!get_bytes(bytes, &pos, kMagic.size(), &magic) || magic != kMagic) return ERR_INVALID_ITEMUNK;
  if (!get_dword(bytes, &pos, &acl->flags)) return ERR_INVALID_ITEMUNK;
  for (auto& role : acl->roles) {
    std::string_view length_byte;
    std::string_view name;
    if (!get_bytes(bytes, &pos, 1, &length_byte)) return ERR_INVALID_ITEMUNK;
    if (!get_bytes(bytes, &pos, static_cast<unsigned char>(length_byte[0]), &name)) return ERR_INVALID_ITEMUNK;
    role.assign(name);
  }
  WORD count = 0;
  if (!get_word(bytes, &pos, &count)) return ERR_INVALID_ITEMUNK;
  acl->entries.reserve(count);
  for (WORD i = 0; i < count; ++i) {
    AclEntry entry;
    WORD name_length = 0;
    std::string_view name;
    std::string_view privileges;
    if (!get_word(bytes, &pos, &name_length) || !get_bytes(bytes, &pos, name_length, &name) ||
        !get_word(bytes, &pos, &entry.level) || !get_word(bytes, &pos, &entry.flags) ||
        !get_bytes(bytes, &pos, sizeof(entry.privileges.BitMask), &privileges)) {
      return ERR_INVALID_ITEMUNK;
    }
    entry.name.assign(name);
    std::memcpy(entry.privileges.BitMask, privileges.data(), privileges.size());
    acl->entries.push_back(std::move(entry));
  }
  return pos == bytes.size() ? NOERROR : ERR_INVALID_ITEMUNK;
}

Acl default_database_acl() {
  Acl acl;
  acl.entries.push_back(AclEntry{ACL_DEFAULT_NAME, ACL_LEVEL_DESIGNER, 0, {}});
  if (auto server = get_environment("ServerName"); server && !server->empty()) {
    acl.entries.push_back(AclEntry{*server, ACL_LEVEL_MANAGER, ACL_FLAG_SERVER, {}});
  }
  acl.entries.push_back(AclEntry{"LocalDomainServers", ACL_LEVEL_MANAGER, ACL_FLAG_SERVER | ACL_FLAG_GROUP, {}});
  return acl;
}

Access lookup_access(const Acl& acl, const std::vector<std::string>& names) {
  auto as_access = [](const AclEntry& entry) { return Access{entry.level, entry.flags, entry.privileges}; };
  if (names.empty()) {
    // No names: the entry with the least access.
    const AclEntry* lowest = nullptr;
    for (const auto& entry : acl.entries) {
      if (lowest == nullptr || entry.level < lowest->level) lowest = &entry;
    }
    return lowest ? as_access(*lowest) : Access{};
  }
  for (const auto& entry : acl.entries) {
    if (names_equal(entry.name, names.front())) return as_access(entry);  // the user's own entry wins
  }
  bool matched = false;
  Access best;
  for (const auto& entry : acl.entries) {
    bool member = false;
    for (size_t i = 1; i < names.size() && !member; ++i) member = names_equal(entry.name, names[i]);
    if (!member) continue;
    if (!matched || entry.level > best.level) {
      best.level = entry.level;
      best.flags = entry.flags;
    }
    join_privileges(best.privileges, entry.privileges);
    matched = true;
  }
  if (matched) return best;
  for (const auto& entry : acl.entries) {
    if (names_equal(entry.name, ACL_DEFAULT_NAME)) return as_access(entry);
  }
  return Access{};
}

std::vector<std::string> names_of(std::string_view block) {
  std::vector<std::string> names;
  if (block.size() < sizeof(NAMES_LIST)) return names;
  NAMES_LIST header;
  std::memcpy(&header, block.data(), sizeof header);
  block.remove_prefix(sizeof header);
  for (WORD i = 0; i < header.NumNames && !block.empty(); ++i) {
    const size_t end = block.find('\0');
    if (end == std::string_view::npos) break;
    names.emplace_back(block.substr(0, end));
    block.remove_prefix(end + 1);
  }
  return names;
}

std::string make_names_list(const std::vector<std::string>& names, DWORD authenticated) {
  NAMES_LIST header{};
  header.NumNames = static_cast<WORD>(names.size());
  header.Authenticated = authenticated;
  std::string out(reinterpret_cast<const char*>(&header), sizeof header);
  for (const auto& name : names) {
    out += name;
    out.push_back('\0');
  }
  return out;
}

}  // namespace tarnwick::rt::store
