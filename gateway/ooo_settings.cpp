#include "ooo_settings.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace tarnwick::gateway {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<const char*, 6> kTimeParts = {"Year", "Month", "Day", "Hour", "Min", "Sec"};
constexpr int kMaxTimePart = 9999;

struct Field {
  const char* name;
  enum Kind { flag, line, text, time_part } kind;
};

constexpr Field kFields[] = {
    {"OOOEnable", Field::flag},     {"AppendSubject", Field::flag}, {"ASDEnable", Field::flag},
    {"InternetAddress", Field::flag}, {"Subject", Field::line},     {"Message", Field::text},
    {"ShowHours", Field::line},     {"DaysOut", Field::line},       {"AppendSubjectDate", Field::line},
};

// Length of the UTF-8 sequence starting with `lead`, 0 for a byte that
// cannot start one.
size_t sequence_length(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  return 0;
}

bool is_utf8(const std::string& text) {
  for (size_t i = 0; i < text.size();) {
    const size_t length = sequence_length(static_cast<unsigned char>(text[i]));
    if (length == 0 || i + length > text.size()) return false;
    for (size_t k = 1; k < length; ++k) {
      if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
    }
    i += length;
  }
  return true;
}

std::string flag_value(const std::string& field, const Json& value) {
  if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
  if (value.is_number_integer() && (value.get<long long>() == 0 || value.get<long long>() == 1)) {
    return value.get<long long>() == 1 ? "1" : "0";
  }
  if (value.is_string() && (value == "0" || value == "1")) return value.get<std::string>();
  throw std::invalid_argument(field + " must be 0 or 1");
}

std::string text_value(const std::string& field, const Json& value, bool multi_line, size_t limit) {
  if (!value.is_string()) throw std::invalid_argument(field + " must be a string");
  const std::string text = value.get<std::string>();
  if (text.size() > limit) throw std::invalid_argument(field + " is longer than " + std::to_string(limit) + " bytes");
  if (!is_valid_text(text, multi_line)) {
    throw std::invalid_argument(field + " holds characters that are not allowed" +
                                std::string(multi_line ? "" : " (it is one line)"));
  }
  return text;
}

int time_part_value(const std::string& field, const Json& value) {
  long long number = -1;
  if (value.is_number_integer()) {
    number = value.get<long long>();
  } else if (value.is_string()) {
    const std::string text = value.get<std::string>();
    if (!text.empty() && text.size() <= 4 && text.find_first_not_of("0123456789") == std::string::npos) {
      number = std::stoll(text);
    }
  }
  if (number < 0 || number > kMaxTimePart) throw std::invalid_argument(field + " must be a whole number from 0 to 9999");
  return static_cast<int>(number);
}

// The value a field has in the current state: the reply names the stored
// "DaysOut" and "AppendSubjectDate" texts "...Value" (the plain names hold
// the template's texts there).
const Json* current_value(const Json& current, const std::string& name) {
  const std::string key = name == "DaysOut" || name == "AppendSubjectDate" ? name + "Value" : name;
  auto it = current.find(key);
  return it != current.end() ? &*it : nullptr;
}

void apply_text_field(client::RequestValues& values, const std::string& name, const std::string& value) {
  if (name == "OOOEnable") values.enable = value;
  else if (name == "AppendSubject") values.append_subject = value;
  else if (name == "ASDEnable") values.asd_enable = value;
  else if (name == "InternetAddress") values.exclude_internet = value;
  else if (name == "Subject") values.subject = value;
  else if (name == "Message") values.message = value;
  else if (name == "ShowHours") values.show_hours = value;
  else if (name == "DaysOut") values.days_out = value;
  else if (name == "AppendSubjectDate") values.append_subject_date = value;
}

std::string field_value(const Field& field, const Json& value) {
  switch (field.kind) {
    case Field::flag: return flag_value(field.name, value);
    case Field::text: return text_value(field.name, value, true, kMaxMessageBytes);
    default: return text_value(field.name, value, false, kMaxSubjectBytes);
  }
}

bool is_time_field(const std::string& name) {
  for (const char* prefix : {"StartTime", "EndTime"}) {
    for (const char* part : kTimeParts) {
      if (name == std::string(prefix) + part) return true;
    }
  }
  return false;
}

// The six parts of a time; parts missing from both change and current are 0.
client::LocalDateTime time_of(const char* prefix, const Json& current, const Json& change) {
  int parts[6] = {};
  for (size_t i = 0; i < kTimeParts.size(); ++i) {
    const std::string field = std::string(prefix) + kTimeParts[i];
    if (auto it = change.find(field); it != change.end()) {
      parts[i] = time_part_value(field, *it);
    } else if (auto old = current.find(field); old != current.end()) {
      try {
        parts[i] = time_part_value(field, *old);
      } catch (const std::invalid_argument&) {
        parts[i] = 0;
      }
    }
  }
  return client::LocalDateTime{parts[0], parts[1], parts[2], parts[3], parts[4], parts[5]};
}

std::string text_of(const Json& state, const char* name) {
  auto it = state.find(name);
  return it != state.end() && it->is_string() ? it->get<std::string>() : "";
}

}  // namespace

bool is_valid_name(const std::string& name) {
  if (name.empty() || name.size() > kMaxNameBytes || !is_utf8(name)) return false;
  if (name.find("!!") != std::string::npos) return false;
  for (unsigned char c : name) {
    if (c < 0x20 || c == 0x7F || c == '<' || c == '>' || c == '"' || c == '&' || c == '\\') return false;
  }
  return name.find_first_not_of(' ') != std::string::npos;
}

bool is_valid_text(const std::string& text, bool multi_line) {
  if (!is_utf8(text)) return false;
  for (unsigned char c : text) {
    if (c == '\n' || c == '\r' || c == '\t') {
      if (!multi_line && c != '\t') return false;
      continue;
    }
    if (c < 0x20 || c == 0x7F) return false;
  }
  return true;
}

client::RequestValues set_values(const Json& current, const Json& change) {
  if (!change.is_object()) throw std::invalid_argument("the body must be a JSON object");
  for (const auto& [name, value] : change.items()) {
    bool known = is_time_field(name);
    for (const Field& field : kFields) known = known || name == field.name;
    if (!known) throw std::invalid_argument("unknown field " + name);
  }
  client::RequestValues values;
  for (const Field& field : kFields) {
    if (auto it = change.find(field.name); it != change.end()) {
      apply_text_field(values, field.name, field_value(field, *it));
    } else if (const Json* old = current_value(current, field.name); old != nullptr && old->is_string()) {
      apply_text_field(values, field.name, old->get<std::string>());
    }
  }
  values.leave = time_of("StartTime", current, change);
  values.back = time_of("EndTime", current, change);
  return values;
}

std::string state_summary(const Json& state) {
  auto date = [&](const char* prefix) {
    char text[40];
    auto part = [&](const char* name) { return std::atoi(text_of(state, (std::string(prefix) + name).c_str()).c_str()); };
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d", part("Year"), part("Month"), part("Day"),
                  part("Hour"), part("Min"));
    return std::string(text);
  };
  std::string subject = text_of(state, "Subject");
  for (char& c : subject) {
    if (c == '"') c = '\'';
  }
  return std::string(text_of(state, "OOOEnable") == "1" ? "on" : "off") + ", leave " + date("StartTime") +
         ", return " + date("EndTime") + ", subject \"" + subject + "\"";
}

}  // namespace tarnwick::gateway
