#include "directory/directory.h"

#include <algorithm>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

#include "env/environment.h"
#include "formula/value.h"
#include "globerr.h"
#include "names/distinguished_name.h"
#include "nsfdb.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "store/database.h"

namespace tarnwick::rt::directory {
namespace {

std::string_view trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

// The key a member or group name is compared by: its canonical form
// without regard to case.
std::string member_key(std::string_view name) { return formula::to_lower(names::canonicalize(trim(name))); }

}  // namespace

std::vector<std::string> directory_paths() {
  std::vector<std::string> paths;
  const std::string listed = get_environment("NAMES").value_or(std::string());
  std::string_view rest = listed;
  while (!rest.empty()) {
    const size_t comma = rest.find(',');
    const std::string_view one = trim(rest.substr(0, comma));
    if (!one.empty()) paths.emplace_back(one);
    if (comma == std::string_view::npos) break;
    rest.remove_prefix(comma + 1);
  }
  if (paths.empty()) paths.emplace_back("names.nsf");
  return paths;
}

OpenDirectory::~OpenDirectory() {
  if (handle_ != NULLHANDLE) NSFDbClose(handle_);
}

STATUS OpenDirectory::open(const std::string& path) {
  if (STATUS status = NSFDbOpen(path.c_str(), &handle_)) {
    handle_ = NULLHANDLE;
    return status;
  }
  db_ = store::find_database(handle_);
  return db_ ? NOERROR : ERR_DB_NOT_OPEN;
}

STATUS OpenDirectory::view(std::string_view name, std::shared_ptr<views::ViewIndex>& out) {
  // Finding a view by name reads every design note; the note ID found is
  // kept per directory and view name, and looked up again only when that
  // note is no longer a view (a design replaced).
  static std::mutex cache_mutex;
  static auto* view_ids = new std::unordered_map<std::string, NOTEID>;  // lives as long as the process
  std::string bare(trim(name));
  if (bare.size() >= 2 && bare.front() == '(' && bare.back() == ')') bare = bare.substr(1, bare.size() - 2);
  int64_t database_id = 0;  // a database made again under the same name has other note IDs
  if (STATUS status = db_->meta_int("database_id", &database_id)) return status;
  const std::string key = db_->file().string() + "|" + std::to_string(database_id) + "|" + formula::to_lower(bare);
  NOTEID id = 0;
  {
    std::lock_guard lock(cache_mutex);
    if (auto it = view_ids->find(key); it != view_ids->end()) id = it->second;
  }
  if (id != 0) {
    const STATUS status = views::index_of(*db_, id, out);
    if (status != ERR_NOTE_DELETED && status != ERR_INVALID_NOTE && status != ERR_NOT_FOUND) return status;
  }
  for (const std::string& candidate : {bare, "(" + bare + ")"}) {
    if (NIFFindDesignNoteExt(handle_, candidate.c_str(), NOTE_CLASS_VIEW, nullptr, &id, 0) == NOERROR) {
      {
        std::lock_guard lock(cache_mutex);
        (*view_ids)[key] = id;
      }
      return views::index_of(*db_, id, out);
    }
  }
  return ERR_NOT_FOUND;
}

std::vector<std::string> lookup_forms(std::string_view name) {
  std::vector<std::string> forms{std::string(name)};
  if (names::is_hierarchical(name)) {
    for (std::string other : {names::abbreviate(name), names::canonicalize(name)}) {
      if (std::find(forms.begin(), forms.end(), other) == forms.end()) forms.push_back(std::move(other));
    }
  }
  return forms;
}

bool for_each_group_entry(std::string_view group, const std::function<void(const views::Entry&)>& visit) {
  bool any_directory = false;
  for (const std::string& path : directory_paths()) {
    OpenDirectory directory;
    if (directory.open(path) != NOERROR) continue;
    std::shared_ptr<views::ViewIndex> index;
    if (directory.view("($Groups)", index) != NOERROR) continue;
    any_directory = true;
    auto lock = index->lock();
    for (const std::string& form : lookup_forms(group)) {
      const auto [first, last] = index->find(form, true, false);
      if (first == last) continue;
      for (size_t i = first; i < last; ++i) visit(index->entries()[i]);
      break;
    }
  }
  return any_directory;
}

std::vector<std::string> groups_containing(const std::vector<std::string>& names) {
  // Groups and their members from every directory's "($Groups)" view.
  struct Group {
    std::string name;
    std::vector<std::string> member_keys;
  };
  std::vector<Group> groups;
  for (const std::string& path : directory_paths()) {
    OpenDirectory directory;
    if (directory.open(path) != NOERROR) continue;
    std::shared_ptr<views::ViewIndex> index;
    if (directory.view("($Groups)", index) != NOERROR) continue;
    auto lock = index->lock();
    const int key_column = index->first_sorted();
    if (key_column < 0) continue;
    std::unordered_set<NOTEID> seen;
    for (const views::Entry& entry : index->entries()) {
      if (!seen.insert(entry.id).second) continue;
      const formula::Value& key = entry.columns[static_cast<size_t>(key_column)];
      if (key.kind != formula::Kind::kText || key.size() == 0) continue;
      Group group{key.texts[0], {}};
      for (const auto& item : *entry.summary) {
        if (!store::names_equal(item.name, "Members")) continue;
        for (std::string_view member : store::text_entries(item.type, item.value)) {
          group.member_keys.push_back(member_key(member));
        }
      }
      groups.push_back(std::move(group));
    }
  }
  // Closure: a group containing a name found so far is found too.
  std::unordered_set<std::string> found_keys;
  for (const auto& name : names) found_keys.insert(member_key(name));
  std::vector<std::string> result;
  std::unordered_set<std::string> result_keys;
  bool grew = true;
  while (grew) {
    grew = false;
    for (const Group& group : groups) {
      const std::string key = member_key(group.name);
      if (result_keys.count(key) != 0) continue;
      const bool contains = std::any_of(group.member_keys.begin(), group.member_keys.end(),
                                        [&](const std::string& m) { return found_keys.count(m) != 0; });
      if (!contains) continue;
      result.push_back(group.name);
      result_keys.insert(key);
      found_keys.insert(key);
      grew = true;
    }
  }
  return result;
}

}  // namespace tarnwick::rt::directory
