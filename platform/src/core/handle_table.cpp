#include "core/handle_table.h"

namespace tarnwick::rt {

DWORD HandleTable::add(HandleKind kind, std::shared_ptr<void> object) {
  for (;;) {
    const DWORD handle = next_.fetch_add(1, std::memory_order_relaxed);
    if (handle == NULLHANDLE) continue;
    Shard& shard = shard_of(handle);
    std::lock_guard lock(shard.mutex);
    if (shard.entries.contains(handle)) continue;  // the counter wrapped onto a handle still in use
    shard.entries.emplace(handle, Entry{kind, std::move(object)});
    return handle;
  }
}

std::shared_ptr<void> HandleTable::find(DWORD handle, HandleKind kind) const {
  const Shard& shard = shard_of(handle);
  std::lock_guard lock(shard.mutex);
  auto it = shard.entries.find(handle);
  if (it == shard.entries.end() || it->second.kind != kind) return nullptr;
  return it->second.object;
}

std::shared_ptr<void> HandleTable::remove(DWORD handle, HandleKind kind) {
  Shard& shard = shard_of(handle);
  std::lock_guard lock(shard.mutex);
  auto it = shard.entries.find(handle);
  if (it == shard.entries.end() || it->second.kind != kind) return nullptr;
  auto object = std::move(it->second.object);
  shard.entries.erase(it);
  return object;
}

size_t HandleTable::size() const {
  size_t total = 0;
  for (const Shard& shard : shards_) {
    std::lock_guard lock(shard.mutex);
    total += shard.entries.size();
  }
  return total;
}

HandleTable& handles() {
  static HandleTable* table = new HandleTable;  // never destroyed: handles may be freed during exit
  return *table;
}

}  // namespace tarnwick::rt
