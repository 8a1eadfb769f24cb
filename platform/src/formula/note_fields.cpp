#include "formula/note_fields.h"

#include "globerr.h"
#include "nsfdata.h"

namespace tarnwick::rt::formula {

Value item_value(WORD type, std::string_view bytes) {
  Value value;
  if (decode_value(type, bytes, value) != NOERROR) return Value::text("");
  return value;
}

bool NoteFields::get(std::string_view name, Value& out) {
  const store::Item* item = note_.find(name);
  if (item == nullptr) return false;
  out = item_value(item->type, note_.value_of(*item));
  return true;
}

bool NoteFields::has(std::string_view name) { return note_.has(name); }

STATUS NoteFields::set(std::string_view name, const Value& value) {
  std::string bytes;
  if (STATUS status = encode_value(value, bytes)) return status;
  WORD type = static_cast<WORD>(static_cast<unsigned char>(bytes[0]) | (static_cast<unsigned char>(bytes[1]) << 8));
  std::string stored = bytes.substr(sizeof(WORD));
  store::contract_value(&type, &stored);
  const store::Item* old = note_.find(name);
  const WORD flags = static_cast<WORD>((old != nullptr ? old->flags : 0) | ITEM_SUMMARY);
  note_.replace(name, flags, type, std::move(stored));
  return NOERROR;
}

void NoteFields::remove(std::string_view name) { note_.remove_all(name); }

const store::Item* ItemFields::find(std::string_view name) const {
  for (const auto& item : items_) {
    if (store::names_equal(item.name, name)) return &item;
  }
  return nullptr;
}

bool ItemFields::get(std::string_view name, Value& out) {
  if (assigned_.get(name, out)) return true;
  const store::Item* item = find(name);
  if (item == nullptr) return false;
  out = item_value(item->type, item->value);
  return true;
}

bool ItemFields::has(std::string_view name) { return assigned_.has(name) || find(name) != nullptr; }

STATUS ItemFields::set(std::string_view name, const Value& value) { return assigned_.set(name, value); }

void ItemFields::remove(std::string_view name) { assigned_.remove(name); }

}  // namespace tarnwick::rt::formula
