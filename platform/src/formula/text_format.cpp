// @Text formats of numbers and times.
#include "formula/text_format.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "formula/value.h"
#include "globerr.h"
#include "ostime.h"
#include "time/time_text.h"

namespace tarnwick::rt::formula {
namespace {

std::string_view setting(const char* field, size_t capacity) { return {field, strnlen(field, capacity)}; }

// Re-punctuates a number written with '.' as its decimal point: the
// settings' decimal symbol and, when asked, their thousands separator.
std::string punctuate(const std::string& digits, const INTLFORMAT& intl, bool thousands) {
  const size_t start = !digits.empty() && digits[0] == '-' ? 1 : 0;
  size_t end = digits.find_first_of(".E", start);
  if (end == std::string::npos) end = digits.size();
  std::string out = digits.substr(0, start);
  const size_t integer_length = end - start;
  const std::string_view separator = setting(intl.ThousandString, ISTRMAX);
  for (size_t i = 0; i < integer_length; ++i) {
    if (thousands && i > 0 && (integer_length - i) % 3 == 0) out += separator;
    out.push_back(digits[start + i]);
  }
  if (end < digits.size() && digits[end] == '.') {
    out += setting(intl.DecimalString, ISTRMAX);
    ++end;
  }
  out += digits.substr(end);
  return out;
}

std::string with_currency(const std::string& amount, const INTLFORMAT& intl) {
  const std::string symbol(setting(intl.CurrencyString, ISTRMAX));
  const bool negative = !amount.empty() && amount[0] == '-';
  const std::string magnitude = negative ? amount.substr(1) : amount;
  const std::string space = (intl.Flags & CURRENCY_SPACE) ? " " : "";
  const std::string text = (intl.Flags & CURRENCY_SUFFIX) ? magnitude + space + symbol : symbol + space + magnitude;
  return negative ? "-" + text : text;
}

bool time_format_from_codes(std::string_view codes, TFMT& format) {
  format = TFMT{TDFMT_FULL, TTFMT_FULL, TZFMT_NEVER, TSFMT_DATETIME};
  for (size_t i = 0; i < codes.size(); ++i) {
    const char c = static_cast<char>(std::toupper(static_cast<unsigned char>(codes[i])));
    if (c == ' ') continue;
    if (i + 1 >= codes.size() || !std::isdigit(static_cast<unsigned char>(codes[i + 1]))) return false;
    const BYTE n = static_cast<BYTE>(codes[++i] - '0');
    switch (c) {
      case 'D': format.Date = n; if (n > TDFMT_DPARTIAL) return false; break;
      case 'T': format.Time = n; if (n > TTFMT_PARTIAL) return false; break;
      case 'Z': format.Zone = n; if (n > TZFMT_ALWAYS) return false; break;
      case 'S': format.Structure = n; if (n > TSFMT_CDATETIME) return false; break;
      default: return false;
    }
  }
  return true;
}

}  // namespace

std::string format_number(const INTLFORMAT& intl, double n, std::string_view format) {
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
      std::snprintf(buffer, sizeof buffer, "%.*f", digits < 0 ? (mode == 'C' ? intl.CurrencyDigits : 2) : digits,
                    magnitude);
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
  if (std::isfinite(magnitude)) text = punctuate(text, intl, thousands && mode != 'S');
  if (mode == 'C') text = with_currency(text, intl);
  if (percent) text += "%";
  if (parentheses && negative) text = "(" + text + ")";
  return text;
}

STATUS format_time(const INTLFORMAT& intl, const TIMEDATE& t, std::string_view format, std::string& out) {
  TFMT codes;
  if (!time_format_from_codes(format, codes)) return ERR_TFMT;
  return format_timedate(intl, codes, t, out);
}

}  // namespace tarnwick::rt::formula
