// Memory handles: each block is an owned byte array in the handle table.
#include "core/memory.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "core/api_guard.h"
#include "core/handle_table.h"
#include "globerr.h"
#include "osmem.h"

namespace tarnwick::rt {
namespace {

struct MemoryBlock {
  std::mutex mutex;  // guards bytes/size against a concurrent realloc
  std::unique_ptr<char[]> bytes;
  DWORD size = 0;
  int locks = 0;
};

std::shared_ptr<MemoryBlock> find_block(DHANDLE handle) {
  return handles().find_as<MemoryBlock>(handle, HandleKind::kMemory);
}

// Throws std::bad_alloc when the memory is not there; callers run guarded.
STATUS allocate(DWORD size, std::shared_ptr<MemoryBlock>& block) {
  if (size > OSMEM_MAX_ALLOC) return ERR_MEMORY;
  block = std::make_shared<MemoryBlock>();
  // One spare zero byte past the end lets text results be read as C strings.
  block->bytes.reset(new char[size + 1]());
  block->size = size;
  return NOERROR;
}

}  // namespace

STATUS alloc_block_with(std::string_view bytes, DHANDLE* ret_handle) {
  if (ret_handle == nullptr) return ERR_BAD_PARAM;
  *ret_handle = NULLHANDLE;
  if (bytes.size() > OSMEM_MAX_ALLOC) return ERR_MEMORY;
  return guarded([&]() -> STATUS {
    std::shared_ptr<MemoryBlock> block;
    if (STATUS error = allocate(static_cast<DWORD>(bytes.size()), block)) return error;
    if (!bytes.empty()) std::memcpy(block->bytes.get(), bytes.data(), bytes.size());
    *ret_handle = handles().add(HandleKind::kMemory, std::move(block));
    return NOERROR;
  });
}

std::string_view block_bytes(DHANDLE handle) {
  auto block = find_block(handle);
  if (!block) return {};
  std::lock_guard lock(block->mutex);
  return {block->bytes.get(), block->size};
}

}  // namespace tarnwick::rt

using namespace tarnwick::rt;

extern "C" {

STATUS LNPUBLIC OSMemAlloc(WORD /*BlockType*/, DWORD dwSize, DHANDLE* retHandle) {
  if (retHandle == nullptr) return ERR_BAD_PARAM;
  *retHandle = NULLHANDLE;
  return guarded([&]() -> STATUS {
    std::shared_ptr<MemoryBlock> block;
    if (STATUS error = allocate(dwSize, block)) return error;
    *retHandle = handles().add(HandleKind::kMemory, std::move(block));
    return NOERROR;
  });
}

STATUS LNPUBLIC OSMemFree(DHANDLE Handle) {
  return handles().remove(Handle, HandleKind::kMemory) ? NOERROR : ERR_BAD_PARAM;
}

STATUS LNPUBLIC OSMemGetSize(DHANDLE Handle, DWORD* retSize) {
  if (retSize == nullptr) return ERR_BAD_PARAM;
  auto block = find_block(Handle);
  if (!block) return ERR_BAD_PARAM;
  std::lock_guard lock(block->mutex);
  *retSize = block->size;
  return NOERROR;
}

STATUS LNPUBLIC OSMemRealloc(DHANDLE Handle, DWORD NewSize) {
  return guarded([&]() -> STATUS {
    auto block = find_block(Handle);
    if (!block) return ERR_BAD_PARAM;
    if (NewSize > OSMEM_MAX_ALLOC) return ERR_MEMORY;
    std::lock_guard lock(block->mutex);
    std::unique_ptr<char[]> bytes(new char[NewSize + 1]());
    std::memcpy(bytes.get(), block->bytes.get(), std::min(NewSize, block->size));
    block->bytes = std::move(bytes);
    block->size = NewSize;
    return NOERROR;
  });
}

void* LNPUBLIC OSLockObject(DHANDLE Handle) {
  auto block = find_block(Handle);
  if (!block) return nullptr;
  std::lock_guard lock(block->mutex);
  ++block->locks;
  return block->bytes.get();
}

BOOL LNPUBLIC OSUnlockObject(DHANDLE Handle) {
  auto block = find_block(Handle);
  if (!block) return FALSE;
  std::lock_guard lock(block->mutex);
  if (block->locks > 0) --block->locks;
  return TRUE;
}

}  // extern "C"
