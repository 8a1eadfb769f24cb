// The item calls of nsfnote.h.
#include <algorithm>
#include <cstring>

#include "core/memory.h"
#include "globerr.h"
#include "nsfnote.h"
#include "osmem.h"
#include "core/api_guard.h"
#include "store/note.h"
#include "store/value_check.h"

using namespace tarnwick::rt;
using namespace tarnwick::rt::store;

namespace {

std::string_view text_arg(const char* text, WORD length) {
  if (text == nullptr) return {};
  return std::string_view(text, length == MAXWORD ? std::strlen(text) : length);
}

STATUS check_name(std::string_view name) {
  if (name.empty()) return ERR_BAD_PARAM;
  return name.size() <= MAXITEMNAME ? NOERROR : ERR_FIELDNAME_TOO_LONG;
}

// Runs `body(note)` with the note locked; a bad handle gives `fallback`.
template <class Result, class Body>
Result with_note(NOTEHANDLE hNote, Result fallback, Body&& body) {
  return guarded_value(fallback, [&]() -> Result {
    auto note = find_note(hNote);
    if (!note) return fallback;
    std::lock_guard lock(note->mutex);
    return body(*note);
  });
}

template <class Body>
STATUS with_note_status(NOTEHANDLE hNote, Body&& body) {
  return guarded([&]() -> STATUS {
    auto note = find_note(hNote);
    if (!note) return ERR_BAD_PARAM;
    std::lock_guard lock(note->mutex);
    return body(*note);
  });
}

STATUS set_text(NOTEHANDLE hNote, const char* ItemName, const char* ItemText, WORD TextLength, bool summary) {
  return with_note_status(hNote, [&](Note& note) -> STATUS {
    std::string_view name = text_arg(ItemName, MAXWORD);
    if (STATUS error = check_name(name)) return error;
    if (ItemText == nullptr && TextLength != 0) return ERR_BAD_PARAM;
    note.set_text(name, text_arg(ItemText, TextLength), summary ? ITEM_SUMMARY : 0);
    return NOERROR;
  });
}

WORD copy_text(std::string_view text, char* buffer, size_t capacity) {
  const size_t length = std::min(text.size(), capacity);
  if (length > 0) std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
  return static_cast<WORD>(length);
}

BLOCKID item_blockid(NOTEHANDLE hNote, const Item& item) { return BLOCKID{hNote, item.id}; }

// Fills the outputs of NSFItemInfo / NSFItemInfoNext for an item.
STATUS describe(Note& note, NOTEHANDLE hNote, Item& item, BLOCKID* retbhItem, WORD* retDataType, BLOCKID* retbhValue,
                DWORD* retValueLength) {
  if (retbhItem != nullptr) *retbhItem = item_blockid(hNote, item);
  if (retDataType != nullptr) *retDataType = item.type;
  if (retValueLength != nullptr) *retValueLength = static_cast<DWORD>(note.value_of(item).size() + sizeof(WORD));
  if (retbhValue != nullptr) {
    DHANDLE block = NULLHANDLE;
    if (STATUS error = note.value_block(item, &block)) return error;
    *retbhValue = BLOCKID{block, 0};
  }
  return NOERROR;
}

STATUS not_found(BLOCKID* retbhItem, WORD* retDataType, BLOCKID* retbhValue, DWORD* retValueLength) {
  if (retbhItem != nullptr) *retbhItem = BLOCKID{NULLHANDLE, 0};
  if (retDataType != nullptr) *retDataType = TYPE_INVALID_OR_UNKNOWN;
  if (retbhValue != nullptr) *retbhValue = BLOCKID{NULLHANDLE, 0};
  if (retValueLength != nullptr) *retValueLength = 0;
  return ERR_ITEM_NOT_FOUND;
}

}  // namespace

extern "C" {

STATUS LNPUBLIC NSFItemSetText(NOTEHANDLE hNote, const char* ItemName, const char* ItemText, WORD TextLength) {
  return set_text(hNote, ItemName, ItemText, TextLength, true);
}

STATUS LNPUBLIC NSFItemSetTextSummary(NOTEHANDLE hNote, const char* ItemName, const char* ItemText, WORD TextLength,
                                      BOOL Summary) {
  return set_text(hNote, ItemName, ItemText, TextLength, Summary != FALSE);
}

STATUS LNPUBLIC NSFItemAppend(NOTEHANDLE hNote, WORD ItemFlags, const char* ItemName, WORD NameLength, WORD DataType,
                              const void* Value, DWORD ValueLength) {
  return with_note_status(hNote, [&](Note& note) -> STATUS {
    std::string_view name = text_arg(ItemName, NameLength);
    if (STATUS error = check_name(name)) return error;
    if (Value == nullptr && ValueLength != 0) return ERR_BAD_PARAM;
    if (ValueLength > MAXITEMVALUE) return ERR_SEGMENT_TOO_BIG;
    std::string value(static_cast<const char*>(Value), ValueLength);
    if (STATUS error = check_item_value(DataType, value)) return error;
    note.append(name, ItemFlags, DataType, std::move(value));
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFItemAppendByBLOCKID(NOTEHANDLE hNote, WORD ItemFlags, const char* ItemName, WORD NameLength,
                                       BLOCKID bhValue, DWORD ValueLength, BLOCKID* retbhItem) {
  return with_note_status(hNote, [&](Note& note) -> STATUS {
    std::string_view name = text_arg(ItemName, NameLength);
    if (STATUS error = check_name(name)) return error;
    std::string_view block = block_bytes(bhValue.pool);
    if (bhValue.block > block.size()) return ERR_BAD_PARAM;
    block.remove_prefix(bhValue.block);
    if (ValueLength < sizeof(WORD) || ValueLength > block.size()) return ERR_BAD_PARAM;
    if (ValueLength - sizeof(WORD) > MAXITEMVALUE) return ERR_SEGMENT_TOO_BIG;
    WORD type = 0;
    std::memcpy(&type, block.data(), sizeof(WORD));
    std::string value(block.substr(sizeof(WORD), ValueLength - sizeof(WORD)));
    if (STATUS error = check_item_value(type, value)) return error;
    Item& item = note.append(name, ItemFlags, type, std::move(value));
    note.adopt_block(bhValue.pool);
    if (retbhItem != nullptr) *retbhItem = item_blockid(hNote, item);
    return NOERROR;
  });
}

WORD LNPUBLIC NSFItemGetText(NOTEHANDLE hNote, const char* ItemName, char* retBuffer, WORD BufferLength) {
  return with_note(hNote, WORD{0}, [&](Note& note) -> WORD {
    if (retBuffer == nullptr || BufferLength == 0) return 0;
    retBuffer[0] = '\0';
    if (ItemName == nullptr) return 0;
    auto text = note.text(ItemName, '\0');
    if (!text) return 0;
    return copy_text(*text, retBuffer, BufferLength - 1u);
  });
}

WORD LNPUBLIC NSFItemGetTextListEntry(NOTEHANDLE hNote, const char* ItemName, WORD EntryPos, char* retBuffer,
                                      WORD BufferLength) {
  return with_note(hNote, WORD{0}, [&](Note& note) -> WORD {
    if (retBuffer == nullptr || ItemName == nullptr) return 0;
    retBuffer[0] = '\0';
    const Item* item = note.find(ItemName);
    if (item == nullptr) return 0;
    auto entries = text_entries(item->type, note.value_of(*item));
    if (EntryPos >= entries.size()) return 0;
    return copy_text(entries[EntryPos], retBuffer, BufferLength);
  });
}

WORD LNPUBLIC NSFItemGetTextListEntries(NOTEHANDLE hNote, const char* ItemName) {
  return with_note(hNote, WORD{0}, [&](Note& note) -> WORD {
    if (ItemName == nullptr) return 0;
    const Item* item = note.find(ItemName);
    if (item == nullptr) return 0;
    return static_cast<WORD>(text_entries(item->type, note.value_of(*item)).size());
  });
}

STATUS LNPUBLIC NSFItemCreateTextList(NOTEHANDLE hNote, const char* ItemName, const char* Text, WORD TextLength) {
  return with_note_status(hNote, [&](Note& note) -> STATUS {
    std::string_view name = text_arg(ItemName, MAXWORD);
    if (STATUS error = check_name(name)) return error;
    if (Text == nullptr && TextLength != 0) return ERR_BAD_PARAM;
    note.set_text_list(name, {text_arg(Text, TextLength)});
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFItemAppendTextList(NOTEHANDLE hNote, const char* ItemName, const char* Text, WORD TextLength,
                                      BOOL fAllowDuplicates) {
  return with_note_status(hNote, [&](Note& note) -> STATUS {
    std::string_view name = text_arg(ItemName, MAXWORD);
    if (STATUS error = check_name(name)) return error;
    if (Text == nullptr && TextLength != 0) return ERR_BAD_PARAM;
    std::string_view entry = text_arg(Text, TextLength);
    Item* item = note.find(name);
    if (item == nullptr) {
      note.set_text_list(name, {entry});
      return NOERROR;
    }
    if (item->type != TYPE_TEXT && item->type != TYPE_TEXT_LIST) return ERR_BAD_PARAM;
    std::string current(note.value_of(*item));
    auto entries = text_entries(item->type, current);
    if (!fAllowDuplicates && std::find(entries.begin(), entries.end(), entry) != entries.end()) return NOERROR;
    entries.push_back(entry);
    std::string list = make_text_list(entries);
    if (list.size() > MAXLISTSIZE) return ERR_SEGMENT_TOO_BIG;
    note.replace(name, item->flags, TYPE_TEXT_LIST, std::move(list));
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFItemSetNumber(NOTEHANDLE hNote, const char* ItemName, const NUMBER* Number) {
  return with_note_status(hNote, [&](Note& note) -> STATUS {
    std::string_view name = text_arg(ItemName, MAXWORD);
    if (STATUS error = check_name(name)) return error;
    if (Number == nullptr) return ERR_BAD_PARAM;
    note.set_number(name, *Number);
    return NOERROR;
  });
}

BOOL LNPUBLIC NSFItemGetNumber(NOTEHANDLE hNote, const char* ItemName, NUMBER* retNumber) {
  return with_note(hNote, BOOL{FALSE}, [&](Note& note) -> BOOL {
    if (ItemName == nullptr) return FALSE;
    auto number = note.number(ItemName);
    if (!number) return FALSE;
    if (retNumber != nullptr) *retNumber = *number;
    return TRUE;
  });
}

long LNPUBLIC NSFItemGetLong(NOTEHANDLE hNote, const char* ItemName, long DefaultNumber) {
  NUMBER number = 0;
  if (!NSFItemGetNumber(hNote, ItemName, &number)) return DefaultNumber;
  return static_cast<long>(number);
}

STATUS LNPUBLIC NSFItemSetTime(NOTEHANDLE hNote, const char* ItemName, const TIMEDATE* Time) {
  return with_note_status(hNote, [&](Note& note) -> STATUS {
    std::string_view name = text_arg(ItemName, MAXWORD);
    if (STATUS error = check_name(name)) return error;
    if (Time == nullptr) return ERR_BAD_PARAM;
    note.set_time(name, *Time);
    return NOERROR;
  });
}

BOOL LNPUBLIC NSFItemGetTime(NOTEHANDLE hNote, const char* ItemName, TIMEDATE* retTime) {
  return with_note(hNote, BOOL{FALSE}, [&](Note& note) -> BOOL {
    if (ItemName == nullptr) return FALSE;
    auto time = note.time(ItemName);
    if (!time) return FALSE;
    if (retTime != nullptr) *retTime = *time;
    return TRUE;
  });
}

BOOL LNPUBLIC NSFItemIsPresent(NOTEHANDLE hNote, const char* ItemName, WORD NameLength) {
  return with_note(hNote, BOOL{FALSE}, [&](Note& note) -> BOOL {
    if (ItemName == nullptr) return FALSE;
    return note.has(text_arg(ItemName, NameLength)) ? TRUE : FALSE;
  });
}

STATUS LNPUBLIC NSFItemDelete(NOTEHANDLE hNote, const char* ItemName, WORD NameLength) {
  return with_note_status(hNote, [&](Note& note) -> STATUS {
    if (ItemName == nullptr) return ERR_BAD_PARAM;
    return note.remove_all(text_arg(ItemName, NameLength)) > 0 ? NOERROR : ERR_ITEM_NOT_FOUND;
  });
}

STATUS LNPUBLIC NSFItemDeleteByBLOCKID(NOTEHANDLE hNote, BLOCKID bhItem) {
  return with_note_status(hNote, [&](Note& note) -> STATUS {
    if (bhItem.pool != hNote) return ERR_BAD_PARAM;
    return note.remove_by_id(bhItem.block) ? NOERROR : ERR_ITEM_NOT_FOUND;
  });
}

STATUS LNPUBLIC NSFItemInfo(NOTEHANDLE hNote, const char* ItemName, WORD NameLength, BLOCKID* retbhItem,
                            WORD* retDataType, BLOCKID* retbhValue, DWORD* retValueLength) {
  return with_note_status(hNote, [&](Note& note) -> STATUS {
    Item* item = nullptr;
    if (ItemName == nullptr) {
      if (!note.items.empty()) item = &note.items.front();
    } else {
      item = note.find(text_arg(ItemName, NameLength));
    }
    if (item == nullptr) return not_found(retbhItem, retDataType, retbhValue, retValueLength);
    return describe(note, hNote, *item, retbhItem, retDataType, retbhValue, retValueLength);
  });
}

STATUS LNPUBLIC NSFItemInfoNext(NOTEHANDLE hNote, BLOCKID NextItem, const char* ItemName, WORD NameLength,
                                BLOCKID* retbhItem, WORD* retDataType, BLOCKID* retbhValue, DWORD* retValueLength) {
  return with_note_status(hNote, [&](Note& note) -> STATUS {
    if (NextItem.pool != hNote) return ERR_BAD_PARAM;
    std::string_view name = ItemName != nullptr ? text_arg(ItemName, NameLength) : std::string_view();
    for (auto& item : note.items) {
      if (item.id <= NextItem.block) continue;  // ids grow along the list
      if (ItemName != nullptr && !names_equal(item.name, name)) continue;
      return describe(note, hNote, item, retbhItem, retDataType, retbhValue, retValueLength);
    }
    return not_found(retbhItem, retDataType, retbhValue, retValueLength);
  });
}

void LNPUBLIC NSFItemQuery(NOTEHANDLE hNote, BLOCKID bhItem, char* retItemName, WORD ItemNameBufferLength,
                           WORD* retItemNameLength, WORD* retItemFlags, WORD* retDataType, BLOCKID* retbhValue,
                           DWORD* retValueLength) {
  with_note(hNote, 0, [&](Note& note) -> int {
    Item* item = bhItem.pool == hNote ? note.find_by_id(bhItem.block) : nullptr;
    if (item == nullptr) {
      if (retItemName != nullptr && ItemNameBufferLength > 0) retItemName[0] = '\0';
      if (retItemNameLength != nullptr) *retItemNameLength = 0;
      not_found(nullptr, retDataType, retbhValue, retValueLength);
      return 0;
    }
    if (retItemName != nullptr && ItemNameBufferLength > 0) {
      copy_text(item->name, retItemName, ItemNameBufferLength - 1u);
    }
    if (retItemNameLength != nullptr) *retItemNameLength = static_cast<WORD>(item->name.size());
    if (retItemFlags != nullptr) *retItemFlags = item->flags;
    describe(note, hNote, *item, nullptr, retDataType, retbhValue, retValueLength);
    return 0;
  });
}

STATUS LNPUBLIC NSFItemScan(NOTEHANDLE hNote, NSFITEMSCANPROC ActionRoutine, void* RoutineParameter) {
  return guarded([&]() -> STATUS {
    if (ActionRoutine == nullptr) return ERR_BAD_PARAM;
    auto note = find_note(hNote);
    if (!note) return ERR_BAD_PARAM;
    std::vector<Item> snapshot;
    {
      std::lock_guard lock(note->mutex);
      note->sync_value_blocks();
      snapshot.reserve(note->items.size());
      for (const auto& item : note->items) snapshot.push_back(Item{item.name, item.flags, item.type, item.value, 0, 0});
    }
    // The routine runs without the lock: it may change the note.
    for (auto& item : snapshot) {
      STATUS status = ActionRoutine(0, item.flags, item.name.data(), static_cast<WORD>(item.name.size()),
                                    item.value.data(), static_cast<DWORD>(item.value.size()), RoutineParameter);
      if (status != NOERROR) return status;
    }
    return NOERROR;
  });
}

}  // extern "C"
