// The directories of the runtime and lookups in their views, for
// NAMELookup2, MailExpandNames and group membership in access checks.
//
// The directories are the databases listed in notes.ini "NAMES="
// (comma-separated, "names.nsf" by default), opened for each lookup; a view
// is found by name or alias with or without its parentheses. Lookups read
// the view's shared index (views/view_index.h), kept current from the notes
// changed since the last lookup. Thread-safe.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "global.h"
#include "views/view_index.h"

namespace tarnwick::rt::directory {

// The directory paths to search, in order.
std::vector<std::string> directory_paths();

// An open directory database; closed when it goes away.
class OpenDirectory {
 public:
  OpenDirectory() = default;
  ~OpenDirectory();
  OpenDirectory(const OpenDirectory&) = delete;
  OpenDirectory& operator=(const OpenDirectory&) = delete;

  STATUS open(const std::string& path);
  DBHANDLE handle() const { return handle_; }
  std::shared_ptr<store::Database> database() const { return db_; }
  // The index of a view by name ("$Users", "($Users)" or an alias);
  // ERR_NOT_FOUND when the directory has no such view.
  STATUS view(std::string_view name, std::shared_ptr<views::ViewIndex>& out);

 private:
  DBHANDLE handle_ = NULLHANDLE;
  std::shared_ptr<store::Database> db_;
};

// The forms of a name that lookups try: as written, then its abbreviated
// and canonical forms when they differ.
std::vector<std::string> lookup_forms(std::string_view name);

// Calls visit(entry) for every entry of the "($Groups)" views of all
// directories whose first sorted column equals the group name (without
// case). Returns false when no directory could be read.
bool for_each_group_entry(std::string_view group, const std::function<void(const views::Entry&)>& visit);

// The groups that list any of `names` as a member, directly or through
// other groups (names compared without case, in canonical form), in the
// order found. Used for access checks.
std::vector<std::string> groups_containing(const std::vector<std::string>& names);

}  // namespace tarnwick::rt::directory
