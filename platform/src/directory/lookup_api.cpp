// NAMELookup2 and the calls that read its buffer (lookup.h).
//
// Buffer layout (little-endian, host order; only this file reads it):
//   header   DWORD length of the buffer, DWORD number of records,
//            WORD number of items, WORD 0
//   record   DWORD length of the record, DWORD number of matches, matches
//   match    DWORD length of the match, WORD number of items, WORD 0,
//            DWORD offset[items] (from the match's start; 0: no such item),
//            WORD size[items] (type word included), values (type word first)
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "core/memory.h"
#include "directory/directory.h"
#include "globerr.h"
#include "lookup.h"
#include "nsfdata.h"
#include "core/api_guard.h"
#include "store/note.h"

namespace tarnwick::rt::directory {
namespace {

constexpr size_t kHeaderSize = 12;
constexpr size_t kRecordHeaderSize = 8;
constexpr size_t kMatchHeaderSize = 8;

template <class T>
T read_at(const void* base, size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const char*>(base) + offset, sizeof value);
  return value;
}

template <class T>
void put(std::string& out, const T& value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

template <class T>
void put_at(std::string& out, size_t offset, const T& value) {
  std::memcpy(out.data() + offset, &value, sizeof value);
}

std::vector<std::string_view> packed_strings(const char* packed, WORD count) {
  std::vector<std::string_view> out;
  for (WORD i = 0; i < count && packed != nullptr; ++i) {
    const std::string_view one(packed);
    out.push_back(one);
    packed += one.size() + 1;
  }
  return out;
}

// One match: the requested items of the entry's note.
std::string match_bytes(const views::Entry& entry, const std::vector<std::string_view>& items) {
  const size_t fixed = kMatchHeaderSize + items.size() * (sizeof(DWORD) + sizeof(WORD));
  std::string out(fixed, '\0');
  put_at(out, 4, static_cast<WORD>(items.size()));
  for (size_t i = 0; i < items.size(); ++i) {
    const store::Item* found = nullptr;
    for (const auto& item : *entry.summary) {
      if (store::names_equal(item.name, items[i])) {
        found = &item;
        break;
      }
    }
    if (found == nullptr || found->value.size() + sizeof(WORD) > MAXWORD) continue;
    put_at(out, kMatchHeaderSize + i * sizeof(DWORD), static_cast<DWORD>(out.size()));
    put_at(out, kMatchHeaderSize + items.size() * sizeof(DWORD) + i * sizeof(WORD),
           static_cast<WORD>(found->value.size() + sizeof(WORD)));
    put(out, found->type);
    out += found->value;
  }
  put_at(out, 0, static_cast<DWORD>(out.size()));
  return out;
}

struct Lookup {
  DWORD flags;
  std::vector<std::string_view> views;
  std::vector<std::string_view> names;
  std::vector<std::string_view> items;
};

// The matches of one name in one view over the directories.
STATUS record_for(std::vector<std::unique_ptr<OpenDirectory>>& directories, const Lookup& lookup, std::string_view view,
                  std::string_view name, std::string& record, bool& view_seen) {
  record.assign(kRecordHeaderSize, '\0');
  DWORD matches = 0;
  std::unordered_set<NOTEID> taken;
  for (auto& directory : directories) {
    std::shared_ptr<views::ViewIndex> index;
    const STATUS status = directory->view(view, index);
    if (status == ERR_NOT_FOUND) continue;
    if (status != NOERROR) return status;
    view_seen = true;
    auto lock = index->lock();
    const auto& entries = index->entries();
    auto take = [&](size_t first, size_t last) {
      for (size_t i = first; i < last; ++i) {
        if (!taken.insert(entries[i].id).second) continue;
        record += match_bytes(entries[i], lookup.items);
        ++matches;
      }
    };
    if (lookup.flags & NAME_LOOKUP_ALL) {
      take(0, entries.size());
    } else {
      for (const std::string& form : lookup_forms(name)) {
        const auto [first, last] = index->find(form, true, false);
        take(first, last);
        if (first != last) break;
      }
    }
    if (matches > 0 && !(lookup.flags & NAME_LOOKUP_EXHAUSTIVE)) break;
  }
  put_at(record, 0, static_cast<DWORD>(record.size()));
  put_at(record, 4, matches);
  return NOERROR;
}

STATUS lookup(const char* server, const Lookup& lookup, DHANDLE* buffer_out) {
  std::vector<std::string> paths = directory_paths();
  if (lookup.flags & NAME_LOOKUP_NOSEARCHING) paths.resize(1);
  std::vector<std::unique_ptr<OpenDirectory>> directories;
  for (std::string path : paths) {
    // Another server's directory: "server!!names.nsf".
    if (server != nullptr && *server != '\0' && path.find("!!") == std::string::npos) {
      path = std::string(server) + "!!" + path;
    }
    auto directory = std::make_unique<OpenDirectory>();
    if (directory->open(path) == NOERROR) directories.push_back(std::move(directory));
  }
  if (directories.empty()) return ERR_NO_NAMES_FILE;
  std::string buffer(kHeaderSize, '\0');
  DWORD records = 0;
  for (std::string_view view : lookup.views) {
    bool view_seen = false;
    for (std::string_view name : lookup.names) {
      std::string record;
      if (STATUS status = record_for(directories, lookup, view, name, record, view_seen)) return status;
      buffer += record;
      ++records;
    }
    if (!view_seen) return ERR_NO_SUCH_NAMESPACE;
  }
  put_at(buffer, 0, static_cast<DWORD>(buffer.size()));
  put_at(buffer, 4, records);
  put_at(buffer, 8, static_cast<WORD>(lookup.items.size()));
  return alloc_block_with(buffer, buffer_out);
}

const char* record_end(void* lookup, void* record) {
  const char* buffer_end = static_cast<const char*>(lookup) + read_at<DWORD>(lookup, 0);
  const char* end = static_cast<const char*>(record) + read_at<DWORD>(record, 0);
  return end <= buffer_end ? end : buffer_end;
}

}  // namespace
}  // namespace tarnwick::rt::directory

using namespace tarnwick::rt;
using namespace tarnwick::rt::directory;

extern "C" {

STATUS LNPUBLIC NAMELookup2(const char* ServerName, DWORD Flags, WORD NumNameSpaces, const char* NameSpaces,
                            WORD NumNames, const char* Names, WORD NumItems, const char* Items, DHANDLE* rethBuffer) {
  return guarded([&]() -> STATUS {
    if (rethBuffer == nullptr) return ERR_BAD_PARAM;
    *rethBuffer = NULLHANDLE;
    if (NumNames == 0 || NumNameSpaces == 0 || NameSpaces == nullptr || Names == nullptr) return ERR_BAD_PARAM;
    if (NumItems > 0 && Items == nullptr) return ERR_BAD_PARAM;
    Lookup request{Flags, packed_strings(NameSpaces, NumNameSpaces), packed_strings(Names, NumNames),
                   packed_strings(Items, NumItems)};
    return lookup(ServerName, request, rethBuffer);
  });
}

STATUS LNPUBLIC NAMELookup(const char* ServerName, WORD Flags, WORD NumNameSpaces, const char* NameSpaces,
                           WORD NumNames, const char* Names, WORD NumItems, const char* Items, DHANDLE* rethBuffer) {
  return NAMELookup2(ServerName, Flags, NumNameSpaces, NameSpaces, NumNames, Names, NumItems, Items, rethBuffer);
}

void* LNPUBLIC NAMELocateNextName2(void* pLookup, void* pName, DWORD* retNumMatches) {
  if (retNumMatches != nullptr) *retNumMatches = 0;
  if (pLookup == nullptr) return nullptr;
  const char* end = static_cast<const char*>(pLookup) + read_at<DWORD>(pLookup, 0);
  char* next = pName == nullptr ? static_cast<char*>(pLookup) + kHeaderSize
                                : static_cast<char*>(pName) + read_at<DWORD>(pName, 0);
  if (next + kRecordHeaderSize > end) return nullptr;
  if (retNumMatches != nullptr) *retNumMatches = read_at<DWORD>(next, 4);
  return next;
}

void* LNPUBLIC NAMELocateNextMatch2(void* pLookup, void* pName, void* pMatch) {
  if (pLookup == nullptr || pName == nullptr) return nullptr;
  const char* end = record_end(pLookup, pName);
  char* next = pMatch == nullptr ? static_cast<char*>(pName) + kRecordHeaderSize
                                 : static_cast<char*>(pMatch) + read_at<DWORD>(pMatch, 0);
  if (next + kMatchHeaderSize > end) return nullptr;
  return next;
}

void* LNPUBLIC NAMELocateItem2(void* pMatch, WORD Item, WORD* retDataType, WORD* retSize) {
  if (retDataType != nullptr) *retDataType = 0;
  if (retSize != nullptr) *retSize = 0;
  if (pMatch == nullptr) return nullptr;
  const WORD items = read_at<WORD>(pMatch, 4);
  if (Item >= items) return nullptr;
  const DWORD offset = read_at<DWORD>(pMatch, kMatchHeaderSize + Item * sizeof(DWORD));
  if (offset == 0) return nullptr;
  char* value = static_cast<char*>(pMatch) + offset;
  if (retDataType != nullptr) *retDataType = read_at<WORD>(value, 0);
  if (retSize != nullptr) {
    *retSize = read_at<WORD>(pMatch, kMatchHeaderSize + items * sizeof(DWORD) + Item * sizeof(WORD));
  }
  return value;
}

STATUS LNPUBLIC NAMEGetTextItem2(void* pMatch, WORD Item, WORD Member, char* Buffer, WORD BufLen) {
  if (Buffer != nullptr && BufLen > 0) Buffer[0] = '\0';
  WORD type = 0, size = 0;
  const char* value = static_cast<const char*>(NAMELocateItem2(pMatch, Item, &type, &size));
  if (value == nullptr) return ERR_NO_SUCH_ITEM;
  if (type != TYPE_TEXT && type != TYPE_TEXT_LIST) return ERR_INVALID_TYPE_FOR_OP;
  const auto entries = store::text_entries(type, std::string_view(value + sizeof(WORD), size - sizeof(WORD)));
  if (Member >= entries.size()) return ERR_NO_MORE_MEMBERS;
  if (Buffer == nullptr || BufLen == 0) return NOERROR;
  const size_t length = std::min<size_t>(entries[Member].size(), BufLen - 1);
  std::memcpy(Buffer, entries[Member].data(), length);
  Buffer[length] = '\0';
  return NOERROR;
}

STATUS LNPUBLIC NAMELocateMatchAndItem2(void* pLookup, DWORD MatchNum, WORD Item, WORD* retDataType, void** retpMatch,
                                        void** retpItem, WORD* retSize) {
  if (retpMatch != nullptr) *retpMatch = nullptr;
  if (retpItem != nullptr) *retpItem = nullptr;
  DWORD remaining = MatchNum;
  DWORD matches = 0;
  for (void* name = NAMELocateNextName2(pLookup, nullptr, &matches); name != nullptr;
       name = NAMELocateNextName2(pLookup, name, &matches)) {
    if (remaining >= matches) {
      remaining -= matches;
      continue;
    }
    void* match = NAMELocateNextMatch2(pLookup, name, nullptr);
    while (match != nullptr && remaining-- > 0) match = NAMELocateNextMatch2(pLookup, name, match);
    if (match == nullptr) break;
    if (retpMatch != nullptr) *retpMatch = match;
    void* item = NAMELocateItem2(match, Item, retDataType, retSize);
    if (retpItem != nullptr) *retpItem = item;
    return NOERROR;
  }
  return ERR_NO_MORE_MATCH;
}

}  // extern "C"
