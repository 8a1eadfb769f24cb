// DXL value syntaxes (see dxl_values.h).
#include "dxl/dxl_values.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <optional>

#include "time/timedate.h"

namespace tarnwick::rt::dxl {
namespace {

std::string_view trim(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
  return text;
}

// Reads exactly `count` decimal digits at *pos.
std::optional<int> digits(std::string_view text, size_t* pos, size_t count) {
  if (*pos + count > text.size()) return std::nullopt;
  int value = 0;
  for (size_t i = 0; i < count; ++i) {
    const char c = text[*pos + i];
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  *pos += count;
  return value;
}

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

int base64_value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

}  // namespace

bool parse_bool(std::string_view text, bool* value) {
  text = trim(text);
  if (text == "true") {
    *value = true;
    return true;
  }
  if (text == "false") {
    *value = false;
    return true;
  }
  return false;
}

bool parse_number(std::string_view text, NUMBER* value) {
  text = trim(text);
  if (text.empty() || text.size() > 64) return false;
  for (char c : text) {
    if (!((c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E')) return false;
  }
  const std::string copy(text);
  char* end = nullptr;
  const double parsed = std::strtod(copy.c_str(), &end);
  if (end != copy.c_str() + copy.size() || !std::isfinite(parsed)) return false;
  *value = parsed;
  return true;
}

bool parse_datetime(std::string_view text, TIMEDATE* value) {
  text = trim(text);
  size_t pos = 0;
  std::optional<CivilTime> date;
  if (!text.empty() && text[0] != 'T') {
    CivilTime civil;
    auto year = digits(text, &pos, 4);
    auto month = digits(text, &pos, 2);
    auto day = digits(text, &pos, 2);
    if (!year || !month || !day) return false;
    civil.year = *year;
    civil.month = *month;
    civil.day = *day;
    if (!is_valid_civil(civil)) return false;
    date = civil;
  }
  if (pos == text.size()) {
    if (!date) return false;
    value->Innards[0] = 0xFFFFFFFFu;  // no time part
    value->Innards[1] = julian_day(date->year, date->month, date->day);
    return true;
  }
  if (text[pos] != 'T') return false;
  ++pos;
  auto hour = digits(text, &pos, 2);
  auto minute = digits(text, &pos, 2);
  auto second = digits(text, &pos, 2);
  if (!hour || !minute || !second || *hour > 23 || *minute > 59 || *second > 59) return false;
  int hundredth = 0;
  if (pos < text.size() && text[pos] == ',') {
    ++pos;
    auto fraction = digits(text, &pos, 2);
    if (!fraction) return false;
    hundredth = *fraction;
  }
  int offset_seconds = 0;
  if (pos < text.size()) {
    const char sign = text[pos];
    if (sign == 'Z' && pos + 1 == text.size()) {
      ++pos;
    } else if (sign == '+' || sign == '-') {
      ++pos;
      auto zone_hours = digits(text, &pos, 2);
      if (!zone_hours || *zone_hours > 14) return false;
      int zone_minutes = 0;
      if (pos < text.size()) {
        auto parsed = digits(text, &pos, 2);
        if (!parsed || *parsed > 59) return false;
        zone_minutes = *parsed;
      }
      offset_seconds = (sign == '-' ? -1 : 1) * (*zone_hours * 3600 + zone_minutes * 60);
    }
    if (pos != text.size()) return false;
  }
  const int64_t local_ticks_of_day =
      ((static_cast<int64_t>(*hour) * 60 + *minute) * 60 + *second) * kTicksPerSecond + hundredth;
  if (!date) {
    const int64_t gmt = floor_mod(local_ticks_of_day - offset_seconds * kTicksPerSecond, kTicksPerDay);
    value->Innards[0] = static_cast<DWORD>(gmt);
    value->Innards[1] = 0xFFFFFFFFu;  // no date part
    return true;
  }
  CivilTime civil = *date;
  civil.hour = *hour;
  civil.minute = *minute;
  civil.second = *second;
  civil.hundredth = hundredth;
  const int64_t gmt_ticks = ticks_from_civil(civil) - offset_seconds * kTicksPerSecond;
  auto result = timedate_from_instant(gmt_ticks, zone_bits(offset_seconds, false));
  if (!result) return false;
  *value = *result;
  return true;
}

bool decode_base64(std::string_view text, std::string* bytes) {
  bytes->clear();
  bytes->reserve(text.size() / 4 * 3);
  unsigned buffer = 0;
  int bits = 0;
  int padding = 0;
  size_t symbols = 0;
  for (char c : text) {
    if (std::isspace(static_cast<unsigned char>(c))) continue;
    if (c == '=') {
      ++padding;
      ++symbols;
      continue;
    }
    if (padding > 0) return false;  // data after padding
    const int v = base64_value(c);
    if (v < 0) return false;
    ++symbols;
    buffer = (buffer << 6) | static_cast<unsigned>(v);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes->push_back(static_cast<char>((buffer >> bits) & 0xFF));
    }
  }
  if (symbols % 4 != 0 || padding > 2) return false;
  return true;
}

bool parse_unid(std::string_view text, UNIVERSALNOTEID* unid) {
  text = trim(text);
  if (text.size() != 32) return false;
  DWORD words[4] = {};
  for (size_t part = 0; part < 4; ++part) {
    for (size_t i = 0; i < 8; ++i) {
      const int v = hex_value(text[part * 8 + i]);
      if (v < 0) return false;
      words[part] = (words[part] << 4) | static_cast<DWORD>(v);
    }
  }
  unid->File.Innards[1] = words[0];
  unid->File.Innards[0] = words[1];
  unid->Note.Innards[1] = words[2];
  unid->Note.Innards[0] = words[3];
  return true;
}

}  // namespace tarnwick::rt::dxl
