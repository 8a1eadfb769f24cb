// Text lists in memory blocks (textlist.h).
//
// Layout, all WORDs little-endian and possibly unaligned:
//   [TYPE_TEXT_LIST]   only with fPrefixDataType
//   ListEntries
//   ListEntries x length
//   the entries' bytes, packed, in order
// The functions taking a handle check the list against its block before
// touching it and rebuild the list in a separate buffer, so Text may point
// into the list itself. After they return, the block holds exactly the list
// (any spare room from ListAllocate is given back) and *pListSize says so.
#include "textlist.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "core/api_guard.h"
#include "core/memory.h"
#include "globerr.h"
#include "nsfdata.h"
#include "osmem.h"

namespace tarnwick::rt {
namespace {

WORD read_word(const unsigned char* p) {
  WORD value;
  std::memcpy(&value, p, sizeof value);
  return value;
}

void append_word(std::string& out, WORD value) { out.append(reinterpret_cast<const char*>(&value), sizeof value); }

size_t prefix_size(BOOL prefixed) { return prefixed ? sizeof(WORD) : 0; }

// A list read out of memory; `valid` is false when the prefix word is not
// TYPE_TEXT_LIST or the lengths run past `available` bytes.
struct ListLayout {
  bool valid = false;
  WORD entries = 0;
  const unsigned char* lengths = nullptr;
  const unsigned char* text = nullptr;
  size_t size = 0;  // the whole list, prefix included

  WORD length(WORD entry) const { return read_word(lengths + 2 * entry); }
  size_t offset(WORD entry) const {
    size_t offset = 0;
    for (WORD i = 0; i < entry; ++i) offset += length(i);
    return offset;
  }
};

ListLayout read_layout(const void* list, BOOL prefixed, size_t available) {
  ListLayout layout;
  const auto* base = static_cast<const unsigned char*>(list);
  const size_t header = prefix_size(prefixed) + sizeof(LIST);
  if (base == nullptr || available < header) return layout;
  if (prefixed && read_word(base) != TYPE_TEXT_LIST) return layout;
  layout.entries = read_word(base + prefix_size(prefixed));
  layout.lengths = base + header;
  const size_t text_start = header + 2 * size_t{layout.entries};
  if (text_start > available) return layout;
  layout.text = base + text_start;
  layout.size = text_start + layout.offset(layout.entries);
  layout.valid = layout.size <= available;
  return layout;
}

// A list that lives in a memory block: the block's bytes are the bound.
ListLayout read_block(DHANDLE handle, BOOL prefixed) {
  const std::string_view block = block_bytes(handle);
  if (block.data() == nullptr) return {};
  return read_layout(block.data(), prefixed, block.size());
}

// Builds a list from (length, bytes) entries supplied by `entry(i)`.
template <typename EntryAt>
std::string build_list(BOOL prefixed, size_t count, EntryAt entry) {
  std::string out;
  if (prefixed) append_word(out, TYPE_TEXT_LIST);
  append_word(out, static_cast<WORD>(count));
  for (size_t i = 0; i < count; ++i) append_word(out, static_cast<WORD>(entry(i).size()));
  for (size_t i = 0; i < count; ++i) out.append(entry(i));
  return out;
}

// Replaces the block's contents with `list`.
STATUS store_list(DHANDLE handle, const std::string& list, WORD* list_size) {
  if (list.size() > MAXONESEGSIZE) return ERR_SEGMENT_TOO_BIG;
  if (STATUS error = OSMemRealloc(handle, static_cast<DWORD>(list.size()))) return error;
  void* memory = OSLockObject(handle);
  if (memory == nullptr) return ERR_BAD_PARAM;
  std::memcpy(memory, list.data(), list.size());
  OSUnlockObject(handle);
  *list_size = static_cast<WORD>(list.size());
  return NOERROR;
}

std::string_view entry_text(const ListLayout& layout, WORD entry) {
  return {reinterpret_cast<const char*>(layout.text) + layout.offset(entry), layout.length(entry)};
}

}  // namespace
}  // namespace tarnwick::rt

using namespace tarnwick::rt;

extern "C" {

STATUS LNPUBLIC ListAllocate(WORD ListEntries, WORD TextSize, BOOL fPrefixDataType, DHANDLE* rethList, void** retpList,
                             WORD* retListSize) {
  if (rethList == nullptr || retpList == nullptr || retListSize == nullptr) return ERR_BAD_PARAM;
  *rethList = NULLHANDLE;
  *retpList = nullptr;
  *retListSize = 0;
  const size_t size = prefix_size(fPrefixDataType) + sizeof(LIST) + 2 * size_t{ListEntries} + TextSize;
  if (size > MAXONESEGSIZE) return ERR_SEGMENT_TOO_BIG;
  return guarded([&]() -> STATUS {
    // The reserved entries start empty; the spare text room stays zero.
    std::string list = build_list(fPrefixDataType, ListEntries, [](size_t) { return std::string_view(); });
    list.resize(size, '\0');
    if (STATUS error = alloc_block_with(list, rethList)) return error;
    *retpList = OSLockObject(*rethList);
    *retListSize = static_cast<WORD>(size);
    return NOERROR;
  });
}

STATUS LNPUBLIC ListAddEntry(DHANDLE hList, BOOL fPrefixDataType, WORD* pListSize, WORD EntryNumber, const char* Text,
                             WORD TextSize) {
  if (pListSize == nullptr || (Text == nullptr && TextSize > 0)) return ERR_BAD_PARAM;
  const ListLayout layout = read_block(hList, fPrefixDataType);
  if (!layout.valid) return ERR_BAD_PARAM;
  if (EntryNumber > layout.entries) return ERR_ODS_NO_SUCH_ENTRY;
  if (layout.entries == MAXWORD || layout.size + sizeof(WORD) + TextSize > MAXONESEGSIZE) return ERR_SEGMENT_TOO_BIG;
  return guarded([&]() -> STATUS {
    const std::string_view added(Text == nullptr ? "" : Text, TextSize);
    const std::string list = build_list(fPrefixDataType, layout.entries + 1u, [&](size_t i) {
      if (i == EntryNumber) return added;
      return entry_text(layout, static_cast<WORD>(i < EntryNumber ? i : i - 1));
    });
    return store_list(hList, list, pListSize);
  });
}

STATUS LNPUBLIC ListRemoveEntry(DHANDLE hList, BOOL fPrefixDataType, WORD* pListSize, WORD EntryNumber) {
  if (pListSize == nullptr) return ERR_BAD_PARAM;
  const ListLayout layout = read_block(hList, fPrefixDataType);
  if (!layout.valid) return ERR_BAD_PARAM;
  if (EntryNumber >= layout.entries) return ERR_ODS_NO_SUCH_ENTRY;
  return guarded([&]() -> STATUS {
    const std::string list = build_list(fPrefixDataType, layout.entries - 1u, [&](size_t i) {
      return entry_text(layout, static_cast<WORD>(i < EntryNumber ? i : i + 1));
    });
    return store_list(hList, list, pListSize);
  });
}

STATUS LNPUBLIC ListRemoveAllEntries(DHANDLE hList, BOOL fPrefixDataType, WORD* pListSize) {
  if (pListSize == nullptr) return ERR_BAD_PARAM;
  if (!read_block(hList, fPrefixDataType).valid) return ERR_BAD_PARAM;
  return guarded([&]() -> STATUS {
    return store_list(hList, build_list(fPrefixDataType, 0, [](size_t) { return std::string_view(); }), pListSize);
  });
}

STATUS LNPUBLIC ListGetText(const void* pList, BOOL fPrefixDataType, WORD EntryNumber, char** retTextPointer,
                            WORD* retTextLength) {
  if (retTextPointer != nullptr) *retTextPointer = nullptr;
  if (retTextLength != nullptr) *retTextLength = 0;
  if (pList == nullptr || retTextPointer == nullptr) return ERR_BAD_PARAM;
  // Only the pointer is known: the list is trusted to be as long as it says.
  const ListLayout layout = read_layout(pList, fPrefixDataType, SIZE_MAX);
  if (!layout.valid) return ERR_BAD_PARAM;
  if (EntryNumber >= layout.entries) return ERR_ODS_NO_SUCH_ENTRY;
  *retTextPointer = const_cast<char*>(reinterpret_cast<const char*>(layout.text) + layout.offset(EntryNumber));
  if (retTextLength != nullptr) *retTextLength = layout.length(EntryNumber);
  return NOERROR;
}

WORD LNPUBLIC ListGetNumEntries(const void* pList, BOOL fPrefixDataType) {
  const ListLayout layout = read_layout(pList, fPrefixDataType, SIZE_MAX);
  return layout.valid ? layout.entries : 0;
}

WORD LNPUBLIC ListGetSize(const void* pList, BOOL fPrefixDataType) {
  const ListLayout layout = read_layout(pList, fPrefixDataType, SIZE_MAX);
  return layout.valid && layout.size <= MAXWORD ? static_cast<WORD>(layout.size) : 0;
}

}  // extern "C"
