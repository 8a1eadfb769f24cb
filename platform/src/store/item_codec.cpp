// Encoding of a note's items for storage (see item_codec.h).
#include "store/item_codec.h"

#include "globerr.h"
#include "nsfdata.h"

namespace tarnwick::rt::store {

void put_word(std::string& out, WORD value) {
  out.push_back(static_cast<char>(value & 0xFF));
  out.push_back(static_cast<char>(value >> 8));
}

void put_dword(std::string& out, DWORD value) {
  put_word(out, static_cast<WORD>(value & 0xFFFF));
  put_word(out, static_cast<WORD>(value >> 16));
}

bool get_word(std::string_view in, size_t* pos, WORD* value) {
  if (in.size() < 2 || *pos > in.size() - 2) return false;
  *value = static_cast<WORD>(static_cast<unsigned char>(in[*pos]) | (static_cast<unsigned char>(in[*pos + 1]) << 8));
  *pos += 2;
  return true;
}

bool get_dword(std::string_view in, size_t* pos, DWORD* value) {
  WORD low = 0;
  WORD high = 0;
  if (!get_word(in, pos, &low) || !get_word(in, pos, &high)) return false;
  *value = static_cast<DWORD>(low) | (static_cast<DWORD>(high) << 16);
  return true;
}

bool get_bytes(std::string_view in, size_t* pos, size_t count, std::string_view* bytes) {
  if (*pos > in.size() || count > in.size() - *pos) return false;
  *bytes = in.substr(*pos, count);
  *pos += count;
  return true;
}

std::string encode_items(const std::vector<Item>& items) {
  size_t total = 2;
  for (const auto& item : items) total += 10 + item.name.size() + item.value.size();
  std::string out;
  out.reserve(total);
  put_word(out, static_cast<WORD>(items.size()));
  for (const auto& item : items) {
    put_word(out, static_cast<WORD>(item.name.size()));
    put_word(out, item.flags);
    put_word(out, item.type);
    put_dword(out, static_cast<DWORD>(item.value.size()));
    out += item.name;
    out += item.value;
  }
  return out;
}

STATUS decode_items(std::string_view blob, bool summary_only, std::vector<Item>* out) {
  out->clear();
  size_t pos = 0;
  WORD count = 0;
  if (blob.empty()) return NOERROR;
  if (!get_word(blob, &pos, &count)) return ERR_INVALID_ITEMUNK;
  out->reserve(count);
  for (WORD i = 0; i < count; ++i) {
    WORD name_length = 0;
    WORD flags = 0;
    WORD type = 0;
    DWORD value_length = 0;
    std::string_view name;
    std::string_view value;
    if (!get_word(blob, &pos, &name_length) || !get_word(blob, &pos, &flags) || !get_word(blob, &pos, &type) ||
        !get_dword(blob, &pos, &value_length) || !get_bytes(blob, &pos, name_length, &name) ||
        !get_bytes(blob, &pos, value_length, &value)) {
      out->clear();
      return ERR_INVALID_ITEMUNK;
    }
    if (summary_only && (flags & ITEM_SUMMARY) == 0) continue;
    out->push_back(Item{std::string(name), flags, type, std::string(value), 0, 0});
  }
  if (pos != blob.size()) {
    out->clear();
    return ERR_INVALID_ITEMUNK;
  }
  return NOERROR;
}

}  // namespace tarnwick::rt::store
