#include "note_json.h"

#include <cstdio>
#include <cstring>
#include <sstream>
#include <utility>

#include "handles.h"
#include "lmbcs_text.h"
#include "nsfdata.h"
#include "nsfnote.h"
#include "osmem.h"
#include "iso8601.h"

namespace tarnwick::admin {
namespace {

std::string hex_word(DWORD word) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%04X", static_cast<unsigned>(word));
  return text;
}

template <typename T>
bool read_at(const char* bytes, size_t size, size_t offset, T& out) {
  if (offset + sizeof(T) > size) return false;
  std::memcpy(&out, bytes + offset, sizeof(T));
  return true;
}

nlohmann::ordered_json raw_bytes(const char* bytes, size_t size) {
  std::string hex;
  hex.reserve(size * 2);
  static const char digits[] = "0123456789abcdef";
  for (size_t i = 0; i < size; ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    hex += digits[byte >> 4];
    hex += digits[byte & 15];
  }
  return hex;
}

nlohmann::ordered_json text_list_json(const char* bytes, size_t size) {
  nlohmann::ordered_json entries = nlohmann::ordered_json::array();
  LIST header{};
  if (!read_at(bytes, size, 0, header)) return entries;
  size_t text_offset = sizeof(LIST) + header.ListEntries * sizeof(WORD);
  for (WORD i = 0; i < header.ListEntries; ++i) {
    WORD length = 0;
    if (!read_at(bytes, size, sizeof(LIST) + i * sizeof(WORD), length) || text_offset + length > size) break;
    entries.push_back(to_utf8(std::string_view(bytes + text_offset, length)));
    text_offset += length;
  }
  return entries;
}

// RANGE header, then the single values, then the pairs.
template <typename Value, typename Pair, typename ToJson>
nlohmann::ordered_json range_json(const char* bytes, size_t size, ToJson to_json) {
  nlohmann::ordered_json entries = nlohmann::ordered_json::array();
  RANGE header{};
  if (!read_at(bytes, size, 0, header)) return entries;
  size_t offset = sizeof(RANGE);
  for (USHORT i = 0; i < header.ListEntries; ++i, offset += sizeof(Value)) {
    Value value{};
    if (!read_at(bytes, size, offset, value)) return entries;
    entries.push_back(to_json(value));
  }
  for (USHORT i = 0; i < header.RangeEntries; ++i, offset += sizeof(Pair)) {
    Pair pair{};
    if (!read_at(bytes, size, offset, pair)) return entries;
    entries.push_back(nlohmann::ordered_json::array({to_json(pair.Lower), to_json(pair.Upper)}));
  }
  return entries;
}

nlohmann::ordered_json flags_json(WORD flags) {
  static const std::pair<WORD, const char*> names[] = {
      {ITEM_SIGN, "sign"},          {ITEM_SEAL, "seal"},       {ITEM_SUMMARY, "summary"},
      {ITEM_READWRITERS, "readwriters"}, {ITEM_NAMES, "names"}, {ITEM_NOUPDATE, "noupdate"},
      {ITEM_PLACEHOLDER, "placeholder"}, {ITEM_PROTECTED, "protected"}, {ITEM_READERS, "readers"},
      {ITEM_UNCHANGED, "unchanged"}};
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  WORD known = 0;
  for (const auto& [bit, name] : names) {
    known |= bit;
    if (flags & bit) list.push_back(name);
  }
  if (flags & ~known) list.push_back(hex_word(flags & ~known));
  return list;
}

}  // namespace

std::string class_name(WORD note_class) {
  static const std::pair<WORD, const char*> names[] = {
      {NOTE_CLASS_DOCUMENT, "document"}, {NOTE_CLASS_INFO, "info"},     {NOTE_CLASS_FORM, "form"},
      {NOTE_CLASS_VIEW, "view"},         {NOTE_CLASS_ICON, "icon"},     {NOTE_CLASS_DESIGN, "design"},
      {NOTE_CLASS_ACL, "acl"},           {NOTE_CLASS_HELP_INDEX, "helpindex"}, {NOTE_CLASS_HELP, "help"},
      {NOTE_CLASS_FILTER, "filter"},     {NOTE_CLASS_FIELD, "field"},   {NOTE_CLASS_REPLFORMULA, "replformula"},
      {NOTE_CLASS_PRIVATE, "private"}};
  const WORD plain = note_class & ~NOTE_CLASS_DEFAULT;
  for (const auto& [bit, name] : names) {
    if (plain == bit) return name;
  }
  return hex_word(note_class);
}

std::string type_name(WORD type) {
  switch (type) {
    case TYPE_TEXT: return "text";
    case TYPE_TEXT_LIST: return "textlist";
    case TYPE_NUMBER: return "number";
    case TYPE_NUMBER_RANGE: return "numberrange";
    case TYPE_TIME: return "time";
    case TYPE_TIME_RANGE: return "timerange";
    default: return hex_word(type);
  }
}

nlohmann::ordered_json time_json(const TIMEDATE& value) {
  return {{"iso", iso8601(value)}, {"raw", {value.Innards[0], value.Innards[1]}}};
}

nlohmann::ordered_json value_json(WORD type, const char* bytes, size_t size) {
  switch (type) {
    case TYPE_TEXT: return to_utf8(std::string_view(bytes, size));
    case TYPE_TEXT_LIST: return text_list_json(bytes, size);
    case TYPE_NUMBER: {
      NUMBER number = 0;
      if (read_at(bytes, size, 0, number)) return number;
      break;
    }
    case TYPE_TIME: {
      TIMEDATE time{};
      if (read_at(bytes, size, 0, time)) return time_json(time);
      break;
    }
    case TYPE_NUMBER_RANGE:
      return range_json<NUMBER, NUMBER_PAIR>(bytes, size, [](NUMBER n) { return nlohmann::ordered_json(n); });
    case TYPE_TIME_RANGE:
      return range_json<TIMEDATE, TIMEDATE_PAIR>(bytes, size, [](const TIMEDATE& t) { return time_json(t); });
    default: break;
  }
  return raw_bytes(bytes, size);
}

nlohmann::ordered_json note_json(const Note& note) {
  const OID oid = note.oid();
  TIMEDATE modified{};
  NSFNoteGetInfo(note.handle(), _NOTE_MODIFIED, &modified);
  nlohmann::ordered_json items = nlohmann::ordered_json::array();
  BLOCKID item = NULLBLOCKID_INIT;
  STATUS status = NSFItemInfo(note.handle(), nullptr, 0, &item, nullptr, nullptr, nullptr);
  while (status == NOERROR) {
    char name[MAXITEMNAME + 1] = {};
    WORD name_length = 0, flags = 0, type = 0;
    BLOCKID value = NULLBLOCKID_INIT;
    DWORD value_length = 0;
    NSFItemQuery(note.handle(), item, name, sizeof name, &name_length, &flags, &type, &value, &value_length);
    const char* bytes = OSLockBlock(const char, value);
    const size_t size = value_length >= sizeof(WORD) ? value_length - sizeof(WORD) : 0;
    items.push_back({{"name", to_utf8(std::string_view(name, name_length))},
                     {"type", type_name(type)},
                     {"flags", flags_json(flags)},
                     {"value", value_json(type, bytes + sizeof(WORD), size)}});
    OSUnlockBlock(value);
    status = NSFItemInfoNext(note.handle(), item, nullptr, 0, &item, nullptr, nullptr, nullptr);
  }
  return {{"noteid", note.id()},
          {"unid", unid_text(UNID{oid.File, oid.Note})},
          {"class", class_name(note.note_class())},
          {"sequence", oid.Sequence},
          {"modified", iso8601(modified)},
          {"items", items}};
}

std::string note_text(const nlohmann::ordered_json& note) {
  std::ostringstream out;
  char id[16];
  std::snprintf(id, sizeof id, "0x%X", note["noteid"].get<unsigned>());
  out << "Note " << id << " (" << note["class"].get<std::string>() << ")  UNID " << note["unid"].get<std::string>()
      << "  sequence " << note["sequence"] << "  modified " << note["modified"].get<std::string>() << "\n";
  for (const auto& item : note["items"]) {
    std::string flags;
    for (const auto& flag : item["flags"]) {
      if (!flags.empty()) flags += ',';
      flags += flag.get<std::string>();
    }
    const auto& value = item["value"];
    std::string shown;
    if (item["type"] == "time") {
      shown = value["iso"].get<std::string>();
    } else {
      shown = value.dump();
    }
    out << "  " << item["name"].get<std::string>() << " (" << item["type"].get<std::string>()
        << (flags.empty() ? "" : ", " + flags) << "): " << shown << "\n";
  }
  return out.str();
}

}  // namespace tarnwick::admin
