#include "assignment.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "failure.h"
#include "handles.h"
#include "iso8601.h"

namespace tarnwick::admin {

ValueType parse_value_type(const std::string& text) {
  if (text == "text") return ValueType::text;
  if (text == "textlist") return ValueType::textlist;
  if (text == "number") return ValueType::number;
  if (text == "time") return ValueType::time;
  throw UsageError("--type must be text, textlist, number or time, not \"" + text + "\"");
}

Assignment parse_assignment(const std::string& argument, ValueType type) {
  const size_t equals = argument.find('=');
  if (equals == std::string::npos) throw UsageError("\"" + argument + "\" is not ITEM=VALUE");
  if (equals == 0) throw UsageError("\"" + argument + "\" has no item name before '='");
  Assignment assignment;
  assignment.item = argument.substr(0, equals);
  const std::string value = argument.substr(equals + 1);
  switch (type) {
    case ValueType::text:
      assignment.value = value;
      break;
    case ValueType::textlist: {
      std::vector<std::string> entries;
      size_t start = 0;
      while (true) {
        const size_t comma = value.find(',', start);
        entries.push_back(value.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        if (comma == std::string::npos) break;
        start = comma + 1;
      }
      assignment.value = entries;
      break;
    }
    case ValueType::number: {
      char* end = nullptr;
      errno = 0;
      const double number = std::strtod(value.c_str(), &end);
      if (value.empty() || end != value.c_str() + value.size() || errno == ERANGE || !std::isfinite(number)) {
        throw UsageError(assignment.item + ": \"" + value + "\" is not a number");
      }
      assignment.value = number;
      break;
    }
    case ValueType::time: {
      const auto time = parse_iso8601(value);
      if (!time) {
        throw UsageError(assignment.item + ": \"" + value +
                         "\" is not an ISO 8601 time with an offset (e.g. 2026-03-02T09:30:00+01:00)");
      }
      assignment.value = *time;
      break;
    }
  }
  return assignment;
}

void apply(Note& note, const Assignment& assignment) {
  note.remove(assignment.item);
  if (const auto* text = std::get_if<std::string>(&assignment.value)) {
    note.set_text(assignment.item, *text);
  } else if (const auto* list = std::get_if<std::vector<std::string>>(&assignment.value)) {
    note.set_text_list(assignment.item, *list);
  } else if (const auto* number = std::get_if<double>(&assignment.value)) {
    note.set_number(assignment.item, *number);
  } else {
    note.set_time(assignment.item, std::get<TIMEDATE>(assignment.value));
  }
}

}  // namespace tarnwick::admin
