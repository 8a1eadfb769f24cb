#include "iso8601.h"

#include <cstdio>
#include <ctime>

#include "ostime.h"

namespace tarnwick::client {
namespace {

constexpr long long kJulianDayOf1970 = 2440588;
constexpr DWORD kWild = 0xFFFFFFFFu;
constexpr DWORD kJulianMask = 0x00FFFFFFu;
constexpr DWORD kZoneMask = 0xFF000000u;

// Days since 1970-01-01 of a proleptic Gregorian date, and back.
long long days_from_civil(long long y, unsigned m, unsigned d) {
  y -= m <= 2;
  const long long era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<long long>(doe) - 719468;
}

void civil_from_days(long long z, int& year, int& month, int& day) {
  z += 719468;
  const long long era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  year = static_cast<int>(yoe + era * 400 + (month <= 2));
}

int days_in_month(int year, int month) {
  static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && leap ? 29 : days[month - 1];
}

// Reads exactly `digits` decimal digits at text[pos].
bool read_number(std::string_view text, size_t& pos, int digits, int& out) {
  if (pos + static_cast<size_t>(digits) > text.size()) return false;
  int value = 0;
  for (int i = 0; i < digits; ++i) {
    const char c = text[pos++];
    if (c < '0' || c > '9') return false;
    value = value * 10 + (c - '0');
  }
  out = value;
  return true;
}

bool read_char(std::string_view text, size_t& pos, char expected) {
  if (pos >= text.size() || text[pos] != expected) return false;
  ++pos;
  return true;
}

bool read_date(std::string_view text, size_t& pos, int& year, int& month, int& day) {
  return read_number(text, pos, 4, year) && read_char(text, pos, '-') && read_number(text, pos, 2, month) &&
         read_char(text, pos, '-') && read_number(text, pos, 2, day) && year >= 1 && month >= 1 && month <= 12 &&
         day >= 1 && day <= days_in_month(year, month);
}

// "HH:MM" or "HH:MM:SS", optionally ".f" fractions (hundredths kept).
bool read_clock(std::string_view text, size_t& pos, int& hour, int& minute, int& second, int& hundredth) {
  second = 0;
  hundredth = 0;
  if (!(read_number(text, pos, 2, hour) && read_char(text, pos, ':') && read_number(text, pos, 2, minute))) return false;
  if (pos < text.size() && text[pos] == ':') {
    ++pos;
    if (!read_number(text, pos, 2, second)) return false;
    if (pos < text.size() && (text[pos] == '.' || text[pos] == ',')) {
      ++pos;
      int scale = 10;
      const size_t start = pos;
      while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
        if (scale > 0) hundredth += (text[pos] - '0') * scale;
        scale /= 10;
        ++pos;
      }
      if (pos == start) return false;
    }
  }
  return hour <= 23 && minute <= 59 && second <= 59;
}

}  // namespace

std::string iso8601(const TIMEDATE& value) {
  const DWORD ticks = value.Innards[0];
  const DWORD date = value.Innards[1];
  char text[64];
  if (date == kWild && ticks == kWild) return "";
  if (date == kWild) {
    const DWORD seconds = ticks / 100;
    std::snprintf(text, sizeof text, "%02u:%02u:%02u", static_cast<unsigned>(seconds / 3600),
                  static_cast<unsigned>(seconds / 60 % 60), static_cast<unsigned>(seconds % 60));
    return text;
  }
  const long long days = static_cast<long long>(date & kJulianMask) - kJulianDayOf1970;
  int year = 0, month = 0, day = 0;
  if (ticks == kWild) {
    civil_from_days(days, year, month, day);
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", year, month, day);
    return text;
  }
  const long long gmt_seconds = days * 86400 + ticks / 100;
  const std::time_t as_time_t = static_cast<std::time_t>(gmt_seconds);
  std::tm local{};
  localtime_r(&as_time_t, &local);
  // An offset with seconds (a zone's local mean time of old) is cut to whole
  // minutes, the clock shifted with it, so the text names the same instant.
  const long offset = local.tm_gmtoff / 60 * 60;
  const long long local_seconds = gmt_seconds + offset;
  const long long local_days = local_seconds >= 0 ? local_seconds / 86400 : (local_seconds - 86399) / 86400;
  const long long clock = local_seconds - local_days * 86400;
  civil_from_days(local_days, year, month, day);
  const long abs_offset = offset < 0 ? -offset : offset;
  int length = std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02lld:%02lld:%02lld", year, month, day, clock / 3600,
                             clock / 60 % 60, clock % 60);
  if (ticks % 100 != 0) {
    length += std::snprintf(text + length, sizeof text - static_cast<size_t>(length), ".%02u",
                            static_cast<unsigned>(ticks % 100));
  }
  std::snprintf(text + length, sizeof text - static_cast<size_t>(length), "%c%02ld:%02ld", offset < 0 ? '-' : '+',
                abs_offset / 3600, abs_offset / 60 % 60);
  return text;
}

std::optional<TIMEDATE> parse_iso8601(std::string_view text) {
  size_t pos = 0;
  int year = 0, month = 0, day = 0;
  if (!read_date(text, pos, year, month, day)) return std::nullopt;
  const long long days = days_from_civil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
  if (pos == text.size()) {
    TIMEDATE date_only{};
    date_only.Innards[0] = kWild;
    date_only.Innards[1] = static_cast<DWORD>(days + kJulianDayOf1970);
    return date_only;
  }
  if (!read_char(text, pos, 'T') && !read_char(text, pos, ' ')) return std::nullopt;
  int hour = 0, minute = 0, second = 0, hundredth = 0;
  if (!read_clock(text, pos, hour, minute, second, hundredth)) return std::nullopt;
  long offset_seconds = 0;
  if (read_char(text, pos, 'Z')) {
    offset_seconds = 0;
  } else if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
    const int sign = text[pos++] == '-' ? -1 : 1;
    int offset_hours = 0, offset_minutes = 0;
    if (!read_number(text, pos, 2, offset_hours)) return std::nullopt;
    read_char(text, pos, ':');
    if (!read_number(text, pos, 2, offset_minutes) || offset_hours > 14 || offset_minutes > 59) return std::nullopt;
    offset_seconds = sign * (offset_hours * 3600L + offset_minutes * 60L);
  } else {
    return std::nullopt;
  }
  if (pos != text.size()) return std::nullopt;
  const long long gmt_seconds = days * 86400 + hour * 3600LL + minute * 60LL + second - offset_seconds;
  const long long gmt_days = gmt_seconds >= 0 ? gmt_seconds / 86400 : (gmt_seconds - 86399) / 86400;
  const long long julian = gmt_days + kJulianDayOf1970;
  if (julian < 1 || julian > static_cast<long long>(kJulianMask)) return std::nullopt;
  // Only instants a day or more inside the four-digit years: their text in
  // any zone has a four-digit year again, so it reads back.
  if (gmt_days < days_from_civil(0, 1, 2) || gmt_days > days_from_civil(9999, 12, 30)) return std::nullopt;
  TIMEDATE now{};
  OSCurrentTIMEDATE(&now);
  TIMEDATE result{};
  result.Innards[0] = static_cast<DWORD>((gmt_seconds - gmt_days * 86400) * 100 + hundredth);
  result.Innards[1] = static_cast<DWORD>(julian) | (now.Innards[1] & kZoneMask);
  return result;
}

std::optional<LocalDateTime> parse_local_date_time(std::string_view text) {
  size_t pos = 0;
  LocalDateTime result;
  int hundredth = 0;
  if (!read_date(text, pos, result.year, result.month, result.day)) return std::nullopt;
  if (!read_char(text, pos, 'T') && !read_char(text, pos, ' ')) return std::nullopt;
  if (!read_clock(text, pos, result.hour, result.minute, result.second, hundredth)) return std::nullopt;
  if (pos != text.size()) return std::nullopt;
  return result;
}

}  // namespace tarnwick::client
