// MailExpandNames: group names replaced by their members (mail.h).
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "core/memory.h"
#include "directory/directory.h"
#include "formula/value.h"
#include "globerr.h"
#include "mail.h"
#include "names/distinguished_name.h"
#include "nsfdata.h"
#include "osmem.h"
#include "core/api_guard.h"
#include "store/note.h"
#include "textlist.h"

namespace tarnwick::rt::directory {
namespace {

// Deepest nesting of groups followed.
constexpr int kMaxGroupDepth = 20;

std::string name_key(std::string_view name) { return formula::to_lower(names::canonicalize(name)); }

// The "($Groups)" views of the directories, opened once for an expansion.
class GroupResolver {
 public:
  GroupResolver() {
    for (const std::string& path : directory_paths()) {
      auto directory = std::make_unique<OpenDirectory>();
      if (directory->open(path) != NOERROR) continue;
      std::shared_ptr<views::ViewIndex> index;
      if (directory->view("($Groups)", index) != NOERROR) continue;
      indexes_.push_back(std::move(index));
      directories_.push_back(std::move(directory));
    }
  }

  // The members of the group of that name, or false when no directory has
  // such a group. Several group documents of one name contribute all their
  // members.
  bool members_of(std::string_view name, std::vector<std::string>& members) {
    members.clear();
    bool found = false;
    for (const auto& index : indexes_) {
      auto lock = index->lock();
      for (const std::string& form : lookup_forms(name)) {
        const auto [first, last] = index->find(form, true, false);
        if (first == last) continue;
        found = true;
        std::unordered_set<NOTEID> taken;
        for (size_t i = first; i < last; ++i) {
          const views::Entry& entry = index->entries()[i];
          if (!taken.insert(entry.id).second) continue;
          for (const auto& item : *entry.summary) {
            if (!store::names_equal(item.name, "Members")) continue;
            for (std::string_view member : store::text_entries(item.type, item.value)) {
              if (!member.empty()) members.emplace_back(member);
            }
          }
        }
        break;
      }
    }
    return found;
  }

 private:
  std::vector<std::unique_ptr<OpenDirectory>> directories_;
  std::vector<std::shared_ptr<views::ViewIndex>> indexes_;
};

class Expansion {
 public:
  Expansion(GroupResolver& resolver, std::unordered_set<std::string> expanded_before)
      : resolver_(resolver), skip_groups_(std::move(expanded_before)) {}

  STATUS add(const std::string& name, int depth) {
    const std::string key = name_key(name);
    std::vector<std::string> members;
    if (!resolver_.members_of(name, members)) {
      if (output_keys_.insert(key).second) output_.push_back(name);
      return NOERROR;
    }
    // A group met before (in this expansion, on its own path, or expanded
    // by an earlier call) adds nothing new.
    if (skip_groups_.count(key) != 0) return NOERROR;
    if (depth >= kMaxGroupDepth) return ERR_ROUTER_LIST_LOOP;
    skip_groups_.insert(key);
    expanded_now_.push_back(name);
    for (const std::string& member : members) {
      if (STATUS status = add(member, depth + 1)) return status;
    }
    return NOERROR;
  }

  const std::vector<std::string>& output() const { return output_; }
  const std::vector<std::string>& expanded_now() const { return expanded_now_; }

 private:
  GroupResolver& resolver_;
  std::unordered_set<std::string> skip_groups_;
  std::vector<std::string> output_;
  std::unordered_set<std::string> output_keys_;
  std::vector<std::string> expanded_now_;
};

std::vector<std::string> list_entries(const void* list) {
  std::vector<std::string> out;
  const WORD count = ListGetNumEntries(list, TRUE);
  for (WORD i = 0; i < count; ++i) {
    char* text = nullptr;
    WORD length = 0;
    if (ListGetText(list, TRUE, i, &text, &length) == NOERROR) out.emplace_back(text, length);
  }
  return out;
}

// Frees the work list however the call ends.
struct FreeOnExit {
  DHANDLE handle;
  ~FreeOnExit() {
    if (handle != NULLHANDLE) OSMemFree(handle);
  }
};

}  // namespace
}  // namespace tarnwick::rt::directory

using namespace tarnwick::rt;
using namespace tarnwick::rt::directory;

extern "C" STATUS LNPUBLIC MailExpandNames(DHANDLE hWorkList, WORD /*WorkListSize*/, DHANDLE* hOutputList,
                                           WORD* OutputListSize, BOOL UseExpanded, DHANDLE hRecipsExpanded) {
  FreeOnExit work{hWorkList};
  return guarded([&]() -> STATUS {
    if (hOutputList == nullptr) return ERR_BAD_PARAM;
    *hOutputList = NULLHANDLE;
    if (OutputListSize != nullptr) *OutputListSize = 0;
    const void* work_list = OSLockObject(hWorkList);
    if (work_list == nullptr) return ERR_BAD_PARAM;
    const std::vector<std::string> recipients = list_entries(work_list);
    OSUnlockObject(hWorkList);

    std::unordered_set<std::string> before;
    if (UseExpanded && hRecipsExpanded != NULLHANDLE) {
      const void* expanded = OSLockObject(hRecipsExpanded);
      if (expanded == nullptr) return ERR_BAD_PARAM;
      for (const auto& group : list_entries(expanded)) before.insert(name_key(group));
      OSUnlockObject(hRecipsExpanded);
    }

    GroupResolver resolver;
    Expansion expansion(resolver, std::move(before));
    for (const auto& recipient : recipients) {
      if (STATUS status = expansion.add(recipient, 0)) return status;
    }

    // The output list in one piece: type word, entry count, lengths, texts.
    std::string list;
    const auto put_word = [&list](size_t w) {
      list.push_back(static_cast<char>(w & 0xFF));
      list.push_back(static_cast<char>((w >> 8) & 0xFF));
    };
    put_word(TYPE_TEXT_LIST);
    put_word(expansion.output().size());
    size_t text_size = 0;
    for (const auto& name : expansion.output()) {
      put_word(name.size());
      text_size += name.size();
    }
    if (expansion.output().size() > MAXWORD || list.size() + text_size > MAXWORD) return ERR_SEGMENT_TOO_BIG;
    for (const auto& name : expansion.output()) list += name;
    DHANDLE output = NULLHANDLE;
    if (STATUS status = alloc_block_with(list, &output)) return status;
    const auto size = static_cast<WORD>(list.size());
    if (UseExpanded && hRecipsExpanded != NULLHANDLE) {
      const void* expanded = OSLockObject(hRecipsExpanded);
      WORD expanded_size = ListGetSize(expanded, TRUE);
      WORD count = ListGetNumEntries(expanded, TRUE);
      OSUnlockObject(hRecipsExpanded);
      for (const auto& group : expansion.expanded_now()) {
        ListAddEntry(hRecipsExpanded, TRUE, &expanded_size, count++, group.data(), static_cast<WORD>(group.size()));
      }
    }
    *hOutputList = output;
    if (OutputListSize != nullptr) *OutputListSize = size;
    return NOERROR;
  });
}
