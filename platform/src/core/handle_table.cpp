#include "core/handle_table.h"

namespace tarnwick::rt {

DWORD HandleTable::add(HandleKind kind, std::shared_ptr<void> object) {
  std::unique_lock lock(mutex_);
  DWORD handle = next_;
  while (handle == NULLHANDLE || entries_.contains(handle)) ++handle;
  next_ = handle + 1;
  entries_.emplace(handle, Entry{kind, std::move(object)});
  return handle;
}

std::shared_ptr<void> HandleTable::find(DWORD handle, HandleKind kind) const {
  std::shared_lock lock(mutex_);
  auto it = entries_.find(handle);
  if (it == entries_.end() || it->second.kind != kind) return nullptr;
  return it->second.object;
}

std::shared_ptr<void> HandleTable::remove(DWORD handle, HandleKind kind) {
  std::unique_lock lock(mutex_);
  auto it = entries_.find(handle);
  if (it == entries_.end() || it->second.kind != kind) return nullptr;
  auto object = std::move(it->second.object);
  entries_.erase(it);
  return object;
}

size_t HandleTable::size() const {
  std::shared_lock lock(mutex_);
  return entries_.size();
}

HandleTable& handles() {
  static HandleTable* table = new HandleTable;  // never destroyed: handles may be freed during exit
  return *table;
}

}  // namespace tarnwick::rt
