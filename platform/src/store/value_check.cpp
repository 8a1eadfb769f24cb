// Item value checks (see value_check.h).
#include "store/value_check.h"

#include <cstring>

#include "globerr.h"
#include "nsfdata.h"

namespace tarnwick::rt::store {
namespace {

bool known_type(WORD type) {
  const WORD type_class = type & CLASS_MASK;
  const WORD number = type & 0x00FF;
  if (type_class == CLASS_NOCOMPUTE) return number >= 1 && number <= 0x3F;
  if (type_class >= CLASS_ERROR && type_class <= CLASS_USERID) return number <= 0x0F;
  return false;
}

WORD word_at(std::string_view value, size_t offset) {
  WORD word = 0;
  std::memcpy(&word, value.data() + offset, sizeof(WORD));
  return word;
}

bool valid_text_list(std::string_view value) {
  if (value.size() < sizeof(LIST)) return false;
  const size_t count = word_at(value, 0);
  size_t expected = sizeof(LIST) + count * sizeof(WORD);
  if (expected > value.size()) return false;
  for (size_t i = 0; i < count; ++i) expected += word_at(value, sizeof(LIST) + i * sizeof(WORD));
  return expected == value.size();
}

bool valid_range(std::string_view value, size_t entry_size) {
  if (value.size() < sizeof(RANGE)) return false;
  const size_t entries = word_at(value, 0);
  const size_t pairs = word_at(value, sizeof(USHORT));
  return value.size() == sizeof(RANGE) + entries * entry_size + pairs * 2 * entry_size;
}

}  // namespace

STATUS check_item_value(WORD type, std::string_view value) {
  if (!known_type(type)) return ERR_INVALID_ITEMUNK;
  switch (type) {
    case TYPE_NUMBER:
      return value.size() == sizeof(NUMBER) ? NOERROR : ERR_INVALID_ITEMUNK;
    case TYPE_TIME:
      return value.size() == sizeof(TIMEDATE) ? NOERROR : ERR_INVALID_ITEMUNK;
    case TYPE_TEXT_LIST:
      return valid_text_list(value) ? NOERROR : ERR_INVALID_ITEMUNK;
    case TYPE_NUMBER_RANGE:
      return valid_range(value, sizeof(NUMBER)) ? NOERROR : ERR_INVALID_ITEMUNK;
    case TYPE_TIME_RANGE:
      return valid_range(value, sizeof(TIMEDATE)) ? NOERROR : ERR_INVALID_ITEMUNK;
    default:
      return NOERROR;
  }
}

}  // namespace tarnwick::rt::store
