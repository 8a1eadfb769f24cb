// The runtime's table of handles: the small numbers the C API hands out for
// memory blocks, databases, notes, queues, formulas and the rest.
//
// Every handle names one object of one kind. Looking a handle up with the
// wrong kind, after it was freed, or with a number never issued finds nothing,
// so a bad handle becomes an error status instead of a crash. Numbers come
// from one counter shared by all kinds and are not reused while the process
// lives (the counter would need four billion handles to wrap, and then skips
// numbers still in use). Objects are held by shared_ptr: a thread that looked
// one up keeps it alive even if another thread frees the handle meanwhile.
//
// Thread-safe: any thread may add, look up and remove.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "global.h"

namespace tarnwick::rt {

enum class HandleKind : unsigned char {
  kMemory,
  kDatabase,
  kNote,
  kQueue,
  kFormula,
  kCompute,
  kCollection,
  kAgent,
  kDxlImporter,
  kOooContext,
  kOther,
};

class HandleTable {
 public:
  // Stores the object and returns its new handle (never 0).
  DWORD add(HandleKind kind, std::shared_ptr<void> object);

  // The object behind the handle, or nullptr if the handle is not a live
  // handle of that kind.
  std::shared_ptr<void> find(DWORD handle, HandleKind kind) const;

  // Removes the handle and returns its object, or nullptr as find().
  std::shared_ptr<void> remove(DWORD handle, HandleKind kind);

  size_t size() const;

  template <class T>
  DWORD add(HandleKind kind, std::shared_ptr<T> object) {
    return add(kind, std::static_pointer_cast<void>(std::move(object)));
  }
  template <class T>
  std::shared_ptr<T> find_as(DWORD handle, HandleKind kind) const {
    return std::static_pointer_cast<T>(find(handle, kind));
  }
  template <class T>
  std::shared_ptr<T> remove_as(DWORD handle, HandleKind kind) {
    return std::static_pointer_cast<T>(remove(handle, kind));
  }

 private:
  struct Entry {
    HandleKind kind;
    std::shared_ptr<void> object;
  };

  // Every API call looks a handle up, from many threads at once: the table
  // is split by handle number into shards with a lock each, on cache lines
  // of their own, so that threads working on different handles seldom meet.
  static constexpr DWORD kShards = 16;
  struct alignas(64) Shard {
    mutable std::mutex mutex;
    std::unordered_map<DWORD, Entry> entries;  // guarded by mutex
  };

  Shard& shard_of(DWORD handle) { return shards_[handle % kShards]; }
  const Shard& shard_of(DWORD handle) const { return shards_[handle % kShards]; }

  Shard shards_[kShards];
  std::atomic<DWORD> next_{1};
};

// The process-wide table.
HandleTable& handles();

}  // namespace tarnwick::rt
