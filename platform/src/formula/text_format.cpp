// @Text formats. Dates are written month/day/year with '/' and a four-digit
// year, times as hh:mm[:ss] with AM/PM: the runtime's default international
// settings.
#include "formula/text_format.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "formula/time_support.h"
#include "formula/value.h"
#include "globerr.h"
#include "ostime.h"

namespace tarnwick::rt::formula {
namespace {

std::string group_thousands(const std::string& digits) {
  // digits: optional '-', integer part, optional fraction
  size_t start = digits[0] == '-' ? 1 : 0;
  size_t end = digits.find('.');
  if (end == std::string::npos) end = digits.size();
  std::string out = digits.substr(0, start);
  const size_t integer_length = end - start;
  for (size_t i = 0; i < integer_length; ++i) {
    if (i > 0 && (integer_length - i) % 3 == 0) out.push_back(',');
    out.push_back(digits[start + i]);
  }
  out += digits.substr(end);
  return out;
}

}  // namespace

std::string format_number(double n, std::string_view format) {
  char mode = 'G';
  int digits = -1;
  bool thousands = false, percent = false, parentheses = false;
  for (size_t i = 0; i < format.size(); ++i) {
    const char c = static_cast<char>(std::toupper(static_cast<unsigned char>(format[i])));
    if (c == 'G' || c == 'F' || c == 'S' || c == 'C') {
      mode = c;
    } else if (std::isdigit(static_cast<unsigned char>(c))) {
      digits = std::min(15, (digits < 0 ? 0 : digits * 10) + (c - '0'));
    } else if (c == ',') {
      thousands = true;
    } else if (c == '%') {
      percent = true;
    } else if (c == '(' || c == ')') {
      parentheses = true;
    }
  }
  if (percent) n *= 100;
  const bool negative = n < 0;
  const double magnitude = parentheses ? std::fabs(n) : n;
  char buffer[512];
  std::string text;
  switch (mode) {
    case 'F':
    case 'C':
      std::snprintf(buffer, sizeof buffer, "%.*f", digits < 0 ? 2 : digits, magnitude);
      text = buffer;
      break;
    case 'S':
      std::snprintf(buffer, sizeof buffer, "%.*E", digits < 0 ? 2 : digits, magnitude);
      text = buffer;
      break;
    default:
      if (digits >= 0 && std::isfinite(magnitude)) {
        // A digit count in the general format rounds to that many decimals.
        std::snprintf(buffer, sizeof buffer, "%.*f", digits, magnitude);
        double rounded = 0;
        text_to_number(buffer, rounded);
        text = number_to_text(rounded);
      } else {
        text = number_to_text(magnitude);
      }
  }
  if (thousands && mode != 'S' && std::isfinite(magnitude)) text = group_thousands(text);
  if (mode == 'C') {
    text = text[0] == '-' ? "-$" + text.substr(1) : "$" + text;
  }
  if (percent) text += "%";
  if (parentheses && negative) text = "(" + text + ")";
  return text;
}

STATUS format_time(const TIMEDATE& t, std::string_view format, std::string& out) {
  int date_code = 0, time_code = 0, zone_code = 0, structure = -1;
  for (size_t i = 0; i < format.size(); ++i) {
    const char c = static_cast<char>(std::toupper(static_cast<unsigned char>(format[i])));
    if (c == ' ') continue;
    if (i + 1 >= format.size() || !std::isdigit(static_cast<unsigned char>(format[i + 1]))) return ERR_TFMT;
    const int n = format[++i] - '0';
    switch (c) {
      case 'D': date_code = n; if (n > 3) return ERR_TFMT; break;
      case 'T': time_code = n; if (n > 1) return ERR_TFMT; break;
      case 'Z': zone_code = n; if (n > 2) return ERR_TFMT; break;
      case 'S': structure = n; if (n > 3) return ERR_TFMT; break;
      default: return ERR_TFMT;
    }
  }
  LocalTime local;
  if (!to_local(t, local)) return ERR_TDO_CONV;
  bool show_date = local.has_date, show_time = local.has_time;
  if (structure == 0) show_time = false;
  if (structure == 1) show_date = false;
  if (!show_date && !show_time) {
    out.clear();
    return NOERROR;
  }
  // The current date matters only for D1 and S3; reading the clock costs.
  LocalTime now;
  if (date_code == 1 || structure == 3) to_local(current_time(), now);
  char buffer[96];
  std::string text;
  if (show_date) {
    if (structure == 3 && local.has_date) {
      const int days = static_cast<int>(local.year == now.year && local.month == now.month ? now.day - local.day : 99);
      if (days == 0) text = "Today";
      if (days == 1) text = "Yesterday";
      if (days == -1) text = "Tomorrow";
    }
    if (text.empty()) {
      switch (date_code) {
        case 1:
          if (local.year == now.year) std::snprintf(buffer, sizeof buffer, "%02d/%02d", local.month, local.day);
          else std::snprintf(buffer, sizeof buffer, "%02d/%02d/%04d", local.month, local.day, local.year);
          break;
        case 2: std::snprintf(buffer, sizeof buffer, "%02d/%02d", local.month, local.day); break;
        case 3: std::snprintf(buffer, sizeof buffer, "%02d/%04d", local.month, local.year); break;
        default: std::snprintf(buffer, sizeof buffer, "%02d/%02d/%04d", local.month, local.day, local.year);
      }
      text = buffer;
    }
  }
  if (show_time) {
    const int hour12 = local.hour % 12 == 0 ? 12 : local.hour % 12;
    const char* meridiem = local.hour < 12 ? "AM" : "PM";
    if (time_code == 1) std::snprintf(buffer, sizeof buffer, "%02d:%02d %s", hour12, local.minute, meridiem);
    else std::snprintf(buffer, sizeof buffer, "%02d:%02d:%02d %s", hour12, local.minute, local.second, meridiem);
    if (!text.empty()) text += ' ';
    text += buffer;
    // Z2 always names the zone; Z1 only for a value made in another zone.
    const bool has_zone = local.has_date;
    const auto other_zone = [&t] {
      const TIMEDATE here = current_time();
      return (t.Innards[1] & ~TIMEDATE_JULIAN_MASK) != (here.Innards[1] & ~TIMEDATE_JULIAN_MASK);
    };
    if (has_zone && (zone_code == 2 || (zone_code == 1 && other_zone()))) {
      const std::time_t seconds = static_cast<std::time_t>(
          (int64_t(t.Innards[1] & TIMEDATE_JULIAN_MASK) - 2440588) * 86400 + t.Innards[0] / TICKS_IN_SECOND);
      std::tm tm{};
      localtime_r(&seconds, &tm);
      if (std::strftime(buffer, sizeof buffer, "%Z", &tm) > 0) {
        text += ' ';
        text += buffer;
      }
    }
  }
  out = std::move(text);
  return NOERROR;
}

}  // namespace tarnwick::rt::formula
