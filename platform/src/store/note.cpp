// In-memory notes (see note.h).
#include "store/note.h"

#include <cstring>

#include "core/handle_table.h"
#include "core/memory.h"
#include "globerr.h"
#include "osmem.h"

namespace tarnwick::rt::store {
namespace {

char ascii_lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

template <class T>
std::string bytes_of(const T& value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof(T));
}

template <class T>
T read_at(std::string_view bytes, size_t offset) {
  T value{};
  std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return value;
}

// A RANGE value (NUMBER_RANGE, TIME_RANGE) holding one list entry.
template <class T>
std::string one_entry_range(const T& value) {
  RANGE range{1, 0};
  return bytes_of(range) + bytes_of(value);
}

// The first list entry of a RANGE value, if it has one.
template <class T>
std::optional<T> first_range_entry(std::string_view value) {
  if (value.size() < sizeof(RANGE) + sizeof(T)) return std::nullopt;
  RANGE range = read_at<RANGE>(value, 0);
  if (range.ListEntries == 0) return std::nullopt;
  return read_at<T>(value, sizeof(RANGE));
}

}  // namespace

bool names_equal(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (ascii_lower(a[i]) != ascii_lower(b[i])) return false;
  }
  return true;
}

std::vector<std::string_view> text_entries(WORD type, std::string_view value) {
  std::vector<std::string_view> entries;
  if (type == TYPE_TEXT) {
    entries.push_back(value);
    return entries;
  }
  if (type != TYPE_TEXT_LIST || value.size() < sizeof(LIST)) return entries;
  const WORD count = read_at<WORD>(value, 0);
  size_t lengths_end = sizeof(LIST) + static_cast<size_t>(count) * sizeof(WORD);
  if (lengths_end > value.size()) return entries;
  size_t offset = lengths_end;
  for (WORD i = 0; i < count; ++i) {
    const WORD length = read_at<WORD>(value, sizeof(LIST) + i * sizeof(WORD));
    if (offset + length > value.size()) break;
    entries.push_back(value.substr(offset, length));
    offset += length;
  }
  return entries;
}

std::string make_text_list(const std::vector<std::string_view>& entries) {
  std::string out;
  LIST list{static_cast<USHORT>(entries.size())};
  out += bytes_of(list);
  for (auto entry : entries) out += bytes_of(static_cast<WORD>(entry.size()));
  for (auto entry : entries) out += entry;
  return out;
}

Note::~Note() {
  for (auto& item : items) release_block(item);
  for (DHANDLE block : adopted_blocks_) OSMemFree(block);
}

Item* Note::find(std::string_view name) {
  for (auto& item : items) {
    if (names_equal(item.name, name)) return &item;
  }
  return nullptr;
}

const Item* Note::find(std::string_view name) const { return const_cast<Note*>(this)->find(name); }

Item* Note::find_by_id(WORD item_id) {
  for (auto& item : items) {
    if (item.id == item_id) return &item;
  }
  return nullptr;
}

std::string_view Note::value_of(const Item& item) const {
  if (item.value_block != NULLHANDLE) {
    std::string_view bytes = block_bytes(item.value_block);
    if (bytes.size() >= sizeof(WORD)) return bytes.substr(sizeof(WORD));
  }
  return item.value;
}

void Note::number_items() {
  WORD next = 1;
  for (auto& item : items) item.id = next++;
  next_item_id_ = next;
}

Item& Note::append(std::string_view name, WORD item_flags, WORD type, std::string value) {
  if (next_item_id_ == 0xFFFF) number_items();
  items.push_back(Item{std::string(name), item_flags, type, std::move(value), next_item_id_++, NULLHANDLE});
  return items.back();
}

Item& Note::replace(std::string_view name, WORD item_flags, WORD type, std::string value) {
  Item* first = nullptr;
  for (auto it = items.begin(); it != items.end();) {
    if (!names_equal(it->name, name)) {
      ++it;
      continue;
    }
    if (first == nullptr) {
      first = &*it;
      ++it;
    } else {
      release_block(*it);
      it = items.erase(it);
    }
  }
  if (first == nullptr) return append(name, item_flags, type, std::move(value));
  release_block(*first);
  first->flags = item_flags;
  first->type = type;
  first->value = std::move(value);
  return *first;
}

size_t Note::remove_all(std::string_view name) {
  size_t removed = 0;
  for (auto it = items.begin(); it != items.end();) {
    if (names_equal(it->name, name)) {
      release_block(*it);
      it = items.erase(it);
      ++removed;
    } else {
      ++it;
    }
  }
  return removed;
}

bool Note::remove_by_id(WORD item_id) {
  for (auto it = items.begin(); it != items.end(); ++it) {
    if (it->id == item_id) {
      release_block(*it);
      items.erase(it);
      return true;
    }
  }
  return false;
}

std::optional<std::string> Note::text(std::string_view name, char list_separator) const {
  const Item* item = find(name);
  if (item == nullptr || (item->type != TYPE_TEXT && item->type != TYPE_TEXT_LIST)) return std::nullopt;
  std::string_view value = value_of(*item);
  if (item->type == TYPE_TEXT) return std::string(value);
  std::string joined;
  bool first = true;
  for (auto entry : text_entries(TYPE_TEXT_LIST, value)) {
    if (!first) joined.push_back(list_separator);
    joined += entry;
    first = false;
  }
  return joined;
}

std::vector<std::string> Note::text_list(std::string_view name) const {
  std::vector<std::string> out;
  const Item* item = find(name);
  if (item == nullptr) return out;
  for (auto entry : text_entries(item->type, value_of(*item))) out.emplace_back(entry);
  return out;
}

std::optional<NUMBER> Note::number(std::string_view name) const {
  const Item* item = find(name);
  if (item == nullptr) return std::nullopt;
  std::string_view value = value_of(*item);
  if (item->type == TYPE_NUMBER && value.size() >= sizeof(NUMBER)) return read_at<NUMBER>(value, 0);
  if (item->type == TYPE_NUMBER_RANGE) return first_range_entry<NUMBER>(value);
  return std::nullopt;
}

std::optional<TIMEDATE> Note::time(std::string_view name) const {
  const Item* item = find(name);
  if (item == nullptr) return std::nullopt;
  std::string_view value = value_of(*item);
  if (item->type == TYPE_TIME && value.size() >= sizeof(TIMEDATE)) return read_at<TIMEDATE>(value, 0);
  if (item->type == TYPE_TIME_RANGE) return first_range_entry<TIMEDATE>(value);
  return std::nullopt;
}

void Note::set_text(std::string_view name, std::string_view value, WORD item_flags) {
  replace(name, item_flags, TYPE_TEXT, std::string(value));
}

void Note::set_text_list(std::string_view name, const std::vector<std::string_view>& entries, WORD item_flags) {
  replace(name, item_flags, TYPE_TEXT_LIST, make_text_list(entries));
}

void Note::set_number(std::string_view name, NUMBER value, WORD item_flags) {
  replace(name, item_flags, TYPE_NUMBER, bytes_of(value));
}

void Note::set_time(std::string_view name, const TIMEDATE& value, WORD item_flags) {
  replace(name, item_flags, TYPE_TIME, bytes_of(value));
}

STATUS Note::value_block(Item& item, DHANDLE* block) {
  if (item.value_block != NULLHANDLE && !block_bytes(item.value_block).empty()) {
    *block = item.value_block;
    return NOERROR;
  }
  std::string bytes = bytes_of(item.type) + item.value;
  if (STATUS error = alloc_block_with(bytes, &item.value_block)) return error;
  *block = item.value_block;
  return NOERROR;
}

void Note::sync_value_blocks() {
  for (auto& item : items) {
    if (item.value_block == NULLHANDLE) continue;
    std::string_view bytes = block_bytes(item.value_block);
    if (bytes.size() >= sizeof(WORD)) item.value.assign(bytes.substr(sizeof(WORD)));
  }
}

void Note::release_block(Item& item) {
  if (item.value_block != NULLHANDLE) OSMemFree(item.value_block);
  item.value_block = NULLHANDLE;
}

void Note::expand_items() {
  sync_value_blocks();
  for (auto& item : items) {
    std::string expanded;
    if (item.type == TYPE_TEXT) {
      expanded = make_text_list({std::string_view(item.value)});
      item.type = TYPE_TEXT_LIST;
    } else if (item.type == TYPE_NUMBER && item.value.size() == sizeof(NUMBER)) {
      expanded = one_entry_range(read_at<NUMBER>(item.value, 0));
      item.type = TYPE_NUMBER_RANGE;
    } else if (item.type == TYPE_TIME && item.value.size() == sizeof(TIMEDATE)) {
      expanded = one_entry_range(read_at<TIMEDATE>(item.value, 0));
      item.type = TYPE_TIME_RANGE;
    } else {
      continue;
    }
    release_block(item);
    item.value = std::move(expanded);
  }
}

bool contract_value(WORD* type, std::string* value) {
  if (*type == TYPE_TEXT_LIST) {
    auto entries = text_entries(TYPE_TEXT_LIST, *value);
    if (entries.size() != 1 || make_text_list(entries) != *value) return false;
    std::string text(entries[0]);
    *value = std::move(text);
    *type = TYPE_TEXT;
    return true;
  }
  const bool number_range = *type == TYPE_NUMBER_RANGE && value->size() == sizeof(RANGE) + sizeof(NUMBER);
  const bool time_range = *type == TYPE_TIME_RANGE && value->size() == sizeof(RANGE) + sizeof(TIMEDATE);
  if ((!number_range && !time_range) || read_at<RANGE>(*value, 0).ListEntries != 1) return false;
  value->erase(0, sizeof(RANGE));
  *type = number_range ? TYPE_NUMBER : TYPE_TIME;
  return true;
}

void Note::contract_items() {
  sync_value_blocks();
  for (auto& item : items) {
    if (contract_value(&item.type, &item.value)) release_block(item);
  }
}

size_t Note::summary_size() const {
  size_t total = 4;  // ITEM_TABLE header
  for (const auto& item : items) {
    if (item.flags & ITEM_SUMMARY) total += 4 + item.name.size() + sizeof(WORD) + value_of(item).size();
  }
  return total;
}

std::shared_ptr<Note> find_note(NOTEHANDLE handle) { return handles().find_as<Note>(handle, HandleKind::kNote); }

NOTEHANDLE add_note_handle(std::shared_ptr<Note> note) { return handles().add(HandleKind::kNote, std::move(note)); }

}  // namespace tarnwick::rt::store
