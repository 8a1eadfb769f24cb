#include "time/intl_settings.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "env/environment.h"
#include "time/timedate.h"

// The layout callers compiled against the platform expect.
static_assert(sizeof(INTLFORMAT) == 140);
static_assert(offsetof(INTLFORMAT, Flags) == 0);
static_assert(offsetof(INTLFORMAT, CurrencyDigits) == 2);
static_assert(offsetof(INTLFORMAT, Length) == 3);
static_assert(offsetof(INTLFORMAT, TimeZone) == 4);
static_assert(offsetof(INTLFORMAT, AMString) == 8);
static_assert(offsetof(INTLFORMAT, PMString) == 13);
static_assert(offsetof(INTLFORMAT, CurrencyString) == 18);
static_assert(offsetof(INTLFORMAT, ThousandString) == 23);
static_assert(offsetof(INTLFORMAT, DecimalString) == 28);
static_assert(offsetof(INTLFORMAT, DateString) == 33);
static_assert(offsetof(INTLFORMAT, TimeString) == 38);
static_assert(offsetof(INTLFORMAT, YesterdayString) == 43);
static_assert(offsetof(INTLFORMAT, TodayString) == 75);
static_assert(offsetof(INTLFORMAT, TomorrowString) == 107);

namespace tarnwick::rt {
namespace {

std::optional<std::string> setting(const EnvironmentSnapshot& env, std::string_view name) {
  auto value = env.get(name);
  if (!value || value->empty()) return std::nullopt;
  return value;
}

bool equals_ignoring_case(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

template <size_t N>
// A text setting present in notes.ini is taken as it stands, also when it is
// empty (a 24-hour clock has no AM text); only a missing one falls back.
void copy_text(const EnvironmentSnapshot& env, char (&field)[N], std::string_view name, std::string_view fallback) {
  const auto value = env.get(name);
  const std::string_view text = value ? std::string_view(*value) : fallback;
  const size_t length = std::min(text.size(), N - 1);
  std::memcpy(field, text.data(), length);
  std::memset(field + length, 0, N - length);
}

bool flag_setting(const EnvironmentSnapshot& env, std::string_view name, bool fallback) {
  const auto value = setting(env, name);
  if (!value) return fallback;
  return (*value)[0] == '1' || equals_ignoring_case(*value, "yes") || equals_ignoring_case(*value, "true");
}

}  // namespace

INTLFORMAT current_intl_settings() {
  INTLFORMAT f{};
  f.Length = static_cast<BYTE>(sizeof(INTLFORMAT));
  const EnvironmentSnapshot env;  // one look at notes.ini for every setting
  WORD flags = NUMBER_LEADING_ZERO;
  const auto order = setting(env, "DateOrder");
  if (order && equals_ignoring_case(*order, "DMY")) {
    flags |= DATE_DMY;
  } else if (order && equals_ignoring_case(*order, "YMD")) {
    flags |= DATE_YMD;
  } else {
    flags |= DATE_MDY;
  }
  const auto clock = setting(env, "ClockType");
  if (clock && (equals_ignoring_case(*clock, "24_HOUR") || equals_ignoring_case(*clock, "24"))) flags |= CLOCK_24_HOUR;
  if (flag_setting(env, "FourDigitYear", true)) flags |= DATE_4DIGIT_YEAR;
  const auto position = setting(env, "CurrencyPosition");
  if (position && equals_ignoring_case(*position, "SUFFIX")) flags |= CURRENCY_SUFFIX;
  if (flag_setting(env, "CurrencySpace", false)) flags |= CURRENCY_SPACE;

  const LocalZone zone = local_zone(std::time(nullptr));
  if (zone.observes_dst) flags |= DAYLIGHT_SAVINGS;
  f.TimeZone = zone_number(zone.standard_offset_seconds);
  f.Flags = flags;

  const auto digits = setting(env, "CurrencyDigits");
  f.CurrencyDigits = 2;
  if (digits && std::isdigit(static_cast<unsigned char>((*digits)[0]))) {
    f.CurrencyDigits = static_cast<BYTE>(std::min(std::atoi(digits->c_str()), 15));
  }
  copy_text(env, f.AMString, "AMString", "AM");
  copy_text(env, f.PMString, "PMString", "PM");
  copy_text(env, f.CurrencyString, "CurrencySymbol", "$");
  copy_text(env, f.ThousandString, "ThousandsSeparator", ",");
  copy_text(env, f.DecimalString, "DecimalSymbol", ".");
  copy_text(env, f.DateString, "DateSeparator", "/");
  copy_text(env, f.TimeString, "TimeSeparator", ":");
  copy_text(env, f.YesterdayString, "YesterdayString", "Yesterday");
  copy_text(env, f.TodayString, "TodayString", "Today");
  copy_text(env, f.TomorrowString, "TomorrowString", "Tomorrow");
  return f;
}

}  // namespace tarnwick::rt

extern "C" void LNPUBLIC OSGetIntlSettings(INTLFORMAT* retIntlFormat, WORD BufferSize) {
  if (retIntlFormat == nullptr || BufferSize == 0) return;
  INTLFORMAT settings = tarnwick::rt::current_intl_settings();
  settings.Length = static_cast<BYTE>(std::min<size_t>(BufferSize, sizeof(INTLFORMAT)));
  std::memcpy(retIntlFormat, &settings, std::min<size_t>(BufferSize, sizeof(INTLFORMAT)));
}
