// Which groups a user belongs to, for access checks. The store knows ACLs but
// not the directory that defines groups; the directory, which sits above the
// store, installs its lookup here when the runtime starts (src/hooks.cpp).
// Without one installed a user belongs to no groups. Thread-safe.
#pragma once

#include <string>
#include <vector>

namespace tarnwick::rt::store {

// The groups that list any of `names` as a member, directly or through other
// groups, in the order found.
using GroupMembershipLookup = std::vector<std::string> (*)(const std::vector<std::string>& names);

// Installs the lookup (nullptr: none); returns the one it replaces.
GroupMembershipLookup install_group_membership_lookup(GroupMembershipLookup lookup);

// The groups of `names` by the installed lookup; empty without one.
std::vector<std::string> groups_containing(const std::vector<std::string>& names);

}  // namespace tarnwick::rt::store
