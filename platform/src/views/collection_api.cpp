// The collection C API (nif.h) over view indexes.
#include <algorithm>
#include <cstring>

#include "core/handle_table.h"
#include "core/memory.h"
#include "formula/value.h"
#include "globerr.h"
#include "nif.h"
#include "nsfnote.h"
#include "core/api_guard.h"
#include "store/database.h"
#include "views/view_index.h"

namespace tarnwick::rt::views {
namespace {

struct Collection {
  std::shared_ptr<store::Database> db;
  NOTEID view_id = 0;
  std::shared_ptr<ViewIndex> index;
};

template <class T>
void put(std::string& out, const T& value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

// The summary values of an entry: ITEM_VALUE_TABLE, the value lengths, then
// each column value with its type word.
std::string summary_values(const Entry& entry) {
  std::vector<std::string> values;
  for (const auto& column : entry.columns) {
    std::string bytes;
    if (formula::encode_value(column, bytes) != NOERROR) {
      bytes.clear();
      formula::encode_value(formula::Value::text(""), bytes);
    }
    values.push_back(std::move(bytes));
  }
  std::string out;
  ITEM_VALUE_TABLE table{};
  table.Items = static_cast<USHORT>(values.size());
  put(out, table);
  for (const auto& v : values) put(out, static_cast<USHORT>(v.size()));
  for (const auto& v : values) out += v;
  const auto length = static_cast<USHORT>(std::min<size_t>(out.size(), 0xFFFF));
  std::memcpy(out.data(), &length, sizeof length);
  return out;
}

void append_entry(std::string& out, const Entry& entry, DWORD position, DWORD mask, DWORD total) {
  if (mask & READ_MASK_NOTEID) put(out, entry.id);
  if (mask & READ_MASK_NOTEUNID) put(out, entry.unid);
  if (mask & READ_MASK_NOTECLASS) put(out, entry.note_class);
  if (mask & READ_MASK_INDEXSIBLINGS) put(out, total);  // every entry is a peer in a flat collection
  if (mask & READ_MASK_INDEXCHILDREN) put(out, DWORD{0});
  if (mask & READ_MASK_INDEXDESCENDANTS) put(out, DWORD{0});
  if (mask & READ_MASK_INDEXANYUNREAD) put(out, WORD{0});
  if (mask & READ_MASK_INDENTLEVELS) put(out, WORD{0});
  if (mask & READ_MASK_INDEXPOSITION) {
    put(out, WORD{0});
    put(out, BYTE{0});
    put(out, BYTE{0});
    put(out, position);
  }
  if (mask & READ_MASK_SUMMARYVALUES) out += summary_values(entry);
}

// One step of a navigator from a position (0 = before the first entry);
// returns the new position, or 0 when it leaves the collection.
DWORD step(WORD navigator, DWORD position, DWORD total) {
  switch (navigator & NAVIGATE_MASK) {
    case NAVIGATE_CURRENT: return position;
    case NAVIGATE_PREV:
    case NAVIGATE_PREV_PEER:
    case NAVIGATE_PREV_MAIN: return position > 1 ? position - 1 : 0;
    case NAVIGATE_FIRST_PEER: return total > 0 ? 1 : 0;
    case NAVIGATE_LAST_PEER: return total;
    default: return position < total ? position + 1 : 0;  // NEXT, NEXT_PEER, NEXT_MAIN
  }
}

}  // namespace
}  // namespace tarnwick::rt::views

using namespace tarnwick::rt;
using namespace tarnwick::rt::views;

extern "C" {

STATUS LNPUBLIC NIFOpenCollection(DBHANDLE hViewDB, DBHANDLE hDataDB, NOTEID ViewNoteID, WORD /*OpenFlags*/,
                                  DHANDLE /*hUnreadList*/, HCOLLECTION* rethCollection, NOTEHANDLE* rethViewNote,
                                  UNIVERSALNOTEID* retViewUNID, DHANDLE* rethCollapsedList,
                                  DHANDLE* rethSelectedList) {
  return guarded([&]() -> STATUS {
    if (rethCollection == nullptr) return ERR_BAD_PARAM;
    *rethCollection = NULLHANDLE;
    if (rethViewNote != nullptr) *rethViewNote = NULLHANDLE;
    if (rethCollapsedList != nullptr) *rethCollapsedList = NULLHANDLE;
    if (rethSelectedList != nullptr) *rethSelectedList = NULLHANDLE;
    auto db = store::find_database(hViewDB);
    if (!db) return ERR_DB_NOT_OPEN;
    if (hDataDB != NULLHANDLE && hDataDB != hViewDB) {
      auto data_db = store::find_database(hDataDB);
      if (!data_db) return ERR_DB_NOT_OPEN;
      if (data_db->file() != db->file()) return ERR_BAD_PARAM;  // views index their own database only
    }
    NOTEID view_id = ViewNoteID;
    if ((ViewNoteID & NOTE_ID_SPECIAL) == NOTE_ID_SPECIAL) {
      if (STATUS status = db->special_note_id(NOTE_CLASS_VIEW, &view_id)) return status;
    }
    auto collection = std::make_shared<Collection>();
    collection->db = db;
    collection->view_id = view_id;
    if (STATUS status = index_of(*db, view_id, collection->index)) return status;
    if (retViewUNID != nullptr) {
      store::NoteRecord record;
      if (db->record_of(view_id, &record) == NOERROR) *retViewUNID = record.unid;
    }
    if (rethViewNote != nullptr) {
      if (STATUS status = NSFNoteOpen(hViewDB, view_id, 0, rethViewNote)) return status;
    }
    *rethCollection = handles().add(HandleKind::kCollection, std::move(collection));
    return NOERROR;
  });
}

STATUS LNPUBLIC NIFCloseCollection(HCOLLECTION hCollection) {
  return handles().remove(hCollection, HandleKind::kCollection) ? NOERROR : ERR_BAD_PARAM;
}

STATUS LNPUBLIC NIFUpdateCollection(HCOLLECTION hCollection) {
  return guarded([&]() -> STATUS {
    auto collection = handles().find_as<Collection>(hCollection, HandleKind::kCollection);
    if (!collection) return ERR_BAD_PARAM;
    // A changed view design gives a new index.
    return index_of(*collection->db, collection->view_id, collection->index);
  });
}

STATUS LNPUBLIC NIFFindByName(HCOLLECTION hCollection, const char* Name, WORD FindFlags, COLLECTIONPOSITION* retIndexPos,
                              DWORD* retNumMatches) {
  return guarded([&]() -> STATUS {
    if (retNumMatches != nullptr) *retNumMatches = 0;
    auto collection = handles().find_as<Collection>(hCollection, HandleKind::kCollection);
    if (!collection || Name == nullptr) return ERR_BAD_PARAM;
    auto lock = collection->index->lock();
    const auto [first, last] =
        collection->index->find(Name, (FindFlags & FIND_CASE_INSENSITIVE) != 0, (FindFlags & FIND_PARTIAL) != 0);
    if (first == last) return ERR_NOT_FOUND;
    if (retIndexPos != nullptr) {
      *retIndexPos = COLLECTIONPOSITION{};
      retIndexPos->Tumbler[0] = static_cast<DWORD>((FindFlags & FIND_LAST_EQUAL) ? last : first + 1);
    }
    if (retNumMatches != nullptr) *retNumMatches = static_cast<DWORD>(last - first);
    return NOERROR;
  });
}

STATUS LNPUBLIC NIFReadEntries(HCOLLECTION hCollection, COLLECTIONPOSITION* IndexPos, WORD SkipNavigator,
                               DWORD SkipCount, WORD ReturnNavigator, DWORD ReturnCount, DWORD ReturnMask,
                               DHANDLE* rethBuffer, WORD* retBufferLength, DWORD* retNumEntriesSkipped,
                               DWORD* retNumEntriesReturned, WORD* retSignalFlags) {
  return guarded([&]() -> STATUS {
    if (rethBuffer != nullptr) *rethBuffer = NULLHANDLE;
    if (retBufferLength != nullptr) *retBufferLength = 0;
    if (retNumEntriesSkipped != nullptr) *retNumEntriesSkipped = 0;
    if (retNumEntriesReturned != nullptr) *retNumEntriesReturned = 0;
    if (retSignalFlags != nullptr) *retSignalFlags = 0;
    auto collection = handles().find_as<Collection>(hCollection, HandleKind::kCollection);
    if (!collection || IndexPos == nullptr) return ERR_BAD_PARAM;
    auto lock = collection->index->lock();
    const auto& entries = collection->index->entries();
    const auto total = static_cast<DWORD>(entries.size());
    DWORD position = std::min(IndexPos->Tumbler[0], total);
    DWORD skipped = 0;
    for (; skipped < SkipCount; ++skipped) {
      const DWORD next = step(SkipNavigator, position, total);
      if (next == 0) {
        position = 0;
        break;
      }
      position = next;
    }
    std::string buffer;
    if (ReturnMask & READ_MASK_COLLECTIONSTATS) {
      put(buffer, COLLECTIONSTATS{total, 0});
    }
    DWORD returned = 0;
    DWORD last_returned = position;
    // Position 0 (before the first entry) starts reading at the first one.
    DWORD current = position == 0 && total > 0 && SkipCount == 0 ? 1 : position;
    while (returned < ReturnCount && current != 0 && current <= total) {
      std::string entry;
      append_entry(entry, entries[current - 1], current, ReturnMask, total);
      if (buffer.size() + entry.size() > 0xFFFF) break;  // the buffer length is a WORD
      buffer += entry;
      ++returned;
      last_returned = current;
      if ((ReturnNavigator & NAVIGATE_MASK) == NAVIGATE_CURRENT) break;
      current = step(ReturnNavigator, current, total);
    }
    *IndexPos = COLLECTIONPOSITION{};
    IndexPos->Tumbler[0] = last_returned;
    const bool more = returned > 0 && step(ReturnNavigator, last_returned, total) != 0 &&
                      (ReturnNavigator & NAVIGATE_MASK) != NAVIGATE_CURRENT;
    if (retSignalFlags != nullptr && more) *retSignalFlags = SIGNAL_MORE_TO_DO;
    if (retNumEntriesSkipped != nullptr) *retNumEntriesSkipped = skipped;
    if (retNumEntriesReturned != nullptr) *retNumEntriesReturned = returned;
    if (rethBuffer != nullptr && !buffer.empty()) {
      if (STATUS status = alloc_block_with(buffer, rethBuffer)) return status;
    }
    if (retBufferLength != nullptr) *retBufferLength = static_cast<WORD>(buffer.size());
    return NOERROR;
  });
}

}  // extern "C"
