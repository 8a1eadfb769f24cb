// The stored form of a note's items: one byte string per note, kept in the
// `items` column of the notes table.
//
// Layout (little-endian): WORD count, then per item
//   WORD name length, WORD item flags, WORD data type, DWORD value length,
//   the name bytes, the value bytes (the API's in-memory form, no type word).
// Items keep their order; values of any type are kept byte for byte.
//
// decode_items() accepts any input: a damaged blob gives ERR_INVALID_ITEMUNK,
// never a crash or an out-of-bounds read.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "global.h"

namespace tarnwick::rt::store {

// One item of a note. name, flags, type and value are what is stored; id and
// value_block live only in memory (see note.h).
struct Item {
  std::string name;
  WORD flags = 0;
  WORD type = 0;
  std::string value;  // without the type word
  WORD id = 0;                // identity within an open note (the item BLOCKID)
  DHANDLE value_block = 0;    // a memory block [type word][value] handed out by NSFItemInfo
};

std::string encode_items(const std::vector<Item>& items);

// Decodes the blob; with summary_only, items without ITEM_SUMMARY are
// skipped.
STATUS decode_items(std::string_view blob, bool summary_only, std::vector<Item>* out);

// Appends little-endian integers (helpers shared by the store's encoders).
void put_word(std::string& out, WORD value);
void put_dword(std::string& out, DWORD value);

// Reads little-endian integers from `in` at `*pos`, advancing it; false when
// the input is too short.
bool get_word(std::string_view in, size_t* pos, WORD* value);
bool get_dword(std::string_view in, size_t* pos, DWORD* value);
bool get_bytes(std::string_view in, size_t* pos, size_t count, std::string_view* bytes);

}  // namespace tarnwick::rt::store
