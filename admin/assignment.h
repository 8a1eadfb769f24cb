// ITEM=VALUE arguments of `note set`: split at the first '=', the value
// read as the chosen type (text; textlist, comma-separated; number; time,
// ISO 8601 with a numeric offset). Malformed input is a UsageError.
#pragma once

#include "client.h"

#include <string>
#include <variant>
#include <vector>

#include "global.h"

namespace tarnwick::admin {

class Note;

enum class ValueType { text, textlist, number, time };
ValueType parse_value_type(const std::string& text);

struct Assignment {
  std::string item;
  std::variant<std::string, std::vector<std::string>, double, TIMEDATE> value;
};

Assignment parse_assignment(const std::string& argument, ValueType type);
// Replaces the item (every item of that name) by the value.
void apply(Note& note, const Assignment& assignment);

}  // namespace tarnwick::admin
