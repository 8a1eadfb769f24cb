#include "store/group_membership.h"

#include <atomic>

namespace tarnwick::rt::store {
namespace {

constinit std::atomic<GroupMembershipLookup> installed_lookup{nullptr};

}  // namespace

GroupMembershipLookup install_group_membership_lookup(GroupMembershipLookup lookup) {
  return installed_lookup.exchange(lookup);
}

std::vector<std::string> groups_containing(const std::vector<std::string>& names) {
  const GroupMembershipLookup lookup = installed_lookup.load();
  if (lookup == nullptr) return {};
  return lookup(names);
}

}  // namespace tarnwick::rt::store
